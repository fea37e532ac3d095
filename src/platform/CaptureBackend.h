#pragma once

// Entry point of a capture platform: the shareable-content snapshot and the
// stream factory. One backend per process, chosen in one place by the app.

#include "platform/CaptureStream.h"
#include "platform/ShareableContent.h"

#include <functional>
#include <memory>
#include <optional>

namespace vistrel {

class CaptureBackend {
public:
    // Exactly one of content and error is set when the backend behaves; a
    // completion with neither is treated by callers as missing content.
    using ContentCompletion =
        std::function<void(std::optional<ShareableContent>, std::optional<PlatformError>)>;

    virtual ~CaptureBackend() = default;

    // Main thread; the completion runs on the main thread on a later turn.
    virtual void getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                     ContentCompletion completion) = 0;

    // Main thread. The stream does nothing until startCapture.
    virtual std::unique_ptr<CaptureStream>
    createStream(const ContentFilter& filter, const StreamConfiguration& configuration,
                 std::weak_ptr<CaptureStreamDelegate> delegate) = 0;
};

} // namespace vistrel
