#pragma once

#include "model/OutputSettings.h"
#include "platform/CameraPort.h"

#include <QObject>
#include <memory>
#include <optional>

namespace vistrel {

// Owns the one camera session behind the camera bubble and keeps it in step
// with the camera overlay settings: starts the chosen camera, switches to
// another one, or stops. Previews bind to captureSession(); the manager itself
// never looks at a frame.
//
// Main thread only. Devices open and close on the camera worker thread, so no
// call here waits for one. Failures are logged on quorbit.Vistrel.Camera and
// leave the manager stopped; nothing is shown to the user.
class CameraSessionManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY isRunningChanged)
    Q_PROPERTY(
        std::optional<QString> currentDeviceID READ currentDeviceID NOTIFY currentDeviceIDChanged)
    Q_PROPERTY(
        vistrel::CameraSession* captureSession READ captureSession NOTIFY captureSessionChanged)
    // The last start was refused for lack of camera access; cleared by the
    // next start that gets access.
    Q_PROPERTY(bool isAccessDenied READ isAccessDenied NOTIFY isAccessDeniedChanged)

public:
    // The port must outlive the manager.
    explicit CameraSessionManager(CameraPort& port, QObject* parent = nullptr);
    // Stops a running session without waiting for the device to close.
    ~CameraSessionManager() override;

    // Runs the configured camera when the overlay is enabled with a device,
    // stops otherwise. Shape, mirroring, size, position and margins are not
    // the manager's concern and never restart the camera.
    void apply(const CameraOverlayConfiguration& configuration);
    // Runs the camera with this unique id; a missing or empty id stops.
    void start(const std::optional<QString>& deviceID);
    // Stops and discards the session at once.
    void stop();

    // True from a successful start until the next stop.
    bool isRunning() const { return m_isRunning; }
    // The camera the running session uses; none while not running.
    std::optional<QString> currentDeviceID() const { return m_currentDeviceID; }
    // The live session, from the moment it is configured (before it runs)
    // until stop. Null while stopped.
    CameraSession* captureSession() const { return m_captureSession.get(); }
    bool isAccessDenied() const { return m_isAccessDenied; }

Q_SIGNALS:
    void isRunningChanged(bool isRunning);
    void currentDeviceIDChanged(const std::optional<QString>& currentDeviceID);
    void captureSessionChanged(vistrel::CameraSession* captureSession);
    void isAccessDeniedChanged(bool isAccessDenied);

private:
    void configure(quint64 token, const QString& deviceID, bool accessGranted);
    void finishStart(const QString& deviceID, const std::optional<PlatformError>& error);
    void abandonStart();
    void setRunning(bool running);
    void setCurrentDeviceID(const std::optional<QString>& deviceID);
    void setAccessDenied(bool denied);

    CameraPort& m_port;
    bool m_isRunning = false;
    bool m_isAccessDenied = false;
    std::optional<QString> m_currentDeviceID;
    std::unique_ptr<CameraSession> m_captureSession;
    std::shared_ptr<CameraInput> m_currentInput;
    // The camera a start is under way for, so that repeated settings for it
    // (a shape change while it opens) do not start it again.
    std::optional<QString> m_pendingDeviceID;
    // Bumped by every start and stop; an answer carrying an older value is
    // for a start that was abandoned.
    quint64 m_startToken = 0;
};

} // namespace vistrel
