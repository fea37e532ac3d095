#pragma once

// The capture stream port.
//
// Threading: every method is called on the main thread. Completions run on
// the main thread, always on a later turn of the event loop (never inside the
// call). Frames and stop-with-error reach the delegate on the stream's worker
// thread, in order; the delegate is held weakly and may be gone by then.

#include "platform/ContentFilter.h"
#include "platform/PlatformError.h"
#include "platform/SampleBuffer.h"
#include "platform/StreamConfiguration.h"

#include <functional>
#include <memory>
#include <optional>

namespace vistrel {

class CaptureStreamDelegate {
public:
    virtual ~CaptureStreamDelegate() = default;
    // Worker thread. Only for output types added with addStreamOutput.
    virtual void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) = 0;
    // Worker thread. The stream stopped by itself (lost connection, fatal X error).
    virtual void streamDidStopWithError(const PlatformError& error) = 0;
};

class CaptureStream {
public:
    using Completion = std::function<void(std::optional<PlatformError>)>;

    virtual ~CaptureStream() = default;

    // Enables delivery of one output type; fails for types the stream cannot produce.
    virtual std::optional<PlatformError> addStreamOutput(SampleOutputType type) = 0;
    virtual void startCapture(Completion completion) = 0;
    virtual void stopCapture(Completion completion) = 0;
    // Both take effect from the next frame without restarting the stream.
    virtual void updateConfiguration(const StreamConfiguration& configuration,
                                     Completion completion) = 0;
    virtual void updateContentFilter(const ContentFilter& filter, Completion completion) = 0;
};

} // namespace vistrel
