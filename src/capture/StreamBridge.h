#pragma once

// The capture stream's delegate. The engine keeps it in a shared_ptr and hands
// the stream a weak_ptr; the stream calls it on its worker thread. Every call
// is moved to the main thread as one queued invocation (so frames keep their
// order) that holds the bridge weakly and reaches the engine through a
// QPointer: whatever arrives after the engine is gone does nothing.

#include "platform/CaptureStream.h"

#include <QPointer>
#include <memory>

namespace vistrel {

class CaptureEngine;

class StreamBridge final : public CaptureStreamDelegate,
                           public std::enable_shared_from_this<StreamBridge> {
public:
    // Main thread.
    explicit StreamBridge(CaptureEngine* owner);

    // Worker thread.
    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) override;
    void streamDidStopWithError(const PlatformError& error) override;

private:
    // Read on the main thread only.
    QPointer<CaptureEngine> m_owner;
};

} // namespace vistrel
