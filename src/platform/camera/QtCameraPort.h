#pragma once

// The cameras of the machine through Qt Multimedia. Device objects (QCamera,
// QMediaCaptureSession, QVideoSink) are created, run and destroyed on the
// camera worker thread; frames are converted to QImage on the thread that
// delivers them, never on the main thread.

#include "platform/CameraPort.h"
#include "platform/camera/CameraSourceInput.h"

#include <QCameraDevice>
#include <memory>

class QCamera;
class QMediaCaptureSession;
class QVideoSink;

namespace vistrel {

class CameraWorkerThread;

// Whether the user may open the video devices under `deviceFolder` (/dev):
// none there, at least one readable and writable, or all refused.
enum class VideoDeviceAccess { noDevices, granted, refused };
VideoDeviceAccess videoDeviceAccess(const QString& deviceFolder);

class QtCameraInput final : public CameraSourceInput {
public:
    // A null cameraDevice opens the backend's default source.
    QtCameraInput(QCameraDevice cameraDevice, CameraDevice device);
    ~QtCameraInput() override;

    CameraDevice device() const override { return m_device; }
    std::optional<PlatformError> open(CameraSessionPreset preset,
                                      std::shared_ptr<CameraFrameMailbox> mailbox) override;
    void close() override;

private:
    PlatformError openError() const;

    const QCameraDevice m_cameraDevice;
    const CameraDevice m_device;
    // Worker thread only.
    std::unique_ptr<QMediaCaptureSession> m_captureSession;
    std::unique_ptr<QVideoSink> m_sink;
    std::unique_ptr<QCamera> m_camera;
};

class QtCameraPort final : public CameraPort {
public:
    // Without a worker the port makes its own. Construction does not touch
    // the multimedia backend; the first device query does.
    explicit QtCameraPort(std::shared_ptr<CameraWorkerThread> worker = nullptr);
    ~QtCameraPort() override;

    // There is no camera prompt on Linux: access is refused only when no
    // video device may be opened, and a device that cannot be opened for
    // lack of access says so when the session starts.
    void requestAccess(std::function<void(bool)> completion) override;
    QList<CameraDevice> devices() override;
    std::optional<CameraDevice> deviceWithUniqueID(const QString& uniqueID) override;
    std::unique_ptr<CameraSession> createSession(CameraSessionPreset preset) override;
    InputResult createInput(const CameraDevice& device) override;

private:
    std::shared_ptr<CameraWorkerThread> m_worker;
};

} // namespace vistrel
