#pragma once

#include "platform/CameraPort.h"
#include "platform/camera/CameraFrameMailbox.h"

#include <memory>
#include <optional>

namespace vistrel {

// What every backend's input does for CameraCaptureSession. Created on the
// main thread; open and close run on the camera worker thread, and the last
// reference to an input that was opened is dropped there too.
class CameraSourceInput : public CameraInput {
public:
    // Worker thread. Opens the device and starts publishing its frames (and
    // later failures) to the mailbox. On error the device is left closed.
    virtual std::optional<PlatformError> open(CameraSessionPreset preset,
                                              std::shared_ptr<CameraFrameMailbox> mailbox) = 0;
    // Worker thread. Stops the device and releases it; harmless when closed.
    virtual void close() = 0;
};

} // namespace vistrel
