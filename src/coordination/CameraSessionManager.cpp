#include "coordination/CameraSessionManager.h"

#include <QLoggingCategory>
#include <QPointer>

namespace vistrel {

namespace {
Q_LOGGING_CATEGORY(lcCameraSession, "quorbit.Vistrel.Camera")
} // namespace

CameraSessionManager::CameraSessionManager(CameraPort& port, QObject* parent)
    : QObject(parent), m_port(port)
{
}

CameraSessionManager::~CameraSessionManager()
{
    // The session's destructor hands the device to the worker thread to close.
    if (m_captureSession) {
        m_captureSession->stopRunning();
    }
}

void CameraSessionManager::apply(const CameraOverlayConfiguration& configuration)
{
    const auto& deviceID = configuration.cameraDeviceID;
    if (configuration.isEnabled && deviceID && !deviceID->isEmpty()) {
        if (m_currentDeviceID == deviceID) {
            return;
        }
        start(deviceID);
    } else {
        stop();
    }
}

void CameraSessionManager::start(const std::optional<QString>& deviceID)
{
    if (!deviceID || deviceID->isEmpty()) {
        stop();
        return;
    }
    if ((m_isRunning && m_currentDeviceID == deviceID) || m_pendingDeviceID == deviceID) {
        return;
    }
    stop();

    const quint64 token = ++m_startToken;
    m_pendingDeviceID = deviceID;
    QPointer<CameraSessionManager> self(this);
    m_port.requestAccess([self, token, id = *deviceID](bool granted) {
        if (self && self->m_startToken == token) {
            self->configure(token, id, granted);
        }
    });
}

void CameraSessionManager::configure(quint64 token, const QString& deviceID, bool accessGranted)
{
    if (!accessGranted) {
        qCCritical(lcCameraSession, "Camera access denied by user.");
        setAccessDenied(true);
        abandonStart();
        return;
    }
    setAccessDenied(false);
    const std::optional<CameraDevice> device = m_port.deviceWithUniqueID(deviceID);
    if (!device) {
        qCCritical(lcCameraSession, "Camera device not found: %s", qUtf8Printable(deviceID));
        abandonStart();
        return;
    }
    std::unique_ptr<CameraSession> session = m_port.createSession(CameraSessionPreset::medium);
    CameraPort::InputResult input = m_port.createInput(*device);
    if (!input.input) {
        const QString message = input.error ? input.error->localizedDescription : QString();
        qCCritical(lcCameraSession, "Failed to create camera input: %s", qUtf8Printable(message));
        abandonStart();
        return;
    }
    if (!session->canAddInput(*input.input)) {
        qCCritical(lcCameraSession, "Cannot add camera input to session.");
        abandonStart();
        return;
    }
    session->addInput(input.input);
    m_currentInput = std::move(input.input);
    m_captureSession = std::move(session);

    QPointer<CameraSessionManager> self(this);
    connect(m_captureSession.get(), &CameraSession::runtimeError, this,
            [this](const PlatformError& error) {
                qCCritical(lcCameraSession, "Camera stopped with an error: %s",
                           qUtf8Printable(error.localizedDescription));
                stop();
            });
    m_captureSession->startRunning([self, token, deviceID](std::optional<PlatformError> error) {
        if (self && self->m_startToken == token) {
            self->finishStart(deviceID, error);
        }
    });
    Q_EMIT captureSessionChanged(m_captureSession.get());
}

void CameraSessionManager::finishStart(const QString& deviceID,
                                       const std::optional<PlatformError>& error)
{
    m_pendingDeviceID.reset();
    if (error) {
        qCCritical(lcCameraSession, "Failed to start camera: %s",
                   qUtf8Printable(error->localizedDescription));
        setAccessDenied(isCameraAccessError(*error));
        stop();
        return;
    }
    setRunning(true);
    setCurrentDeviceID(deviceID);
}

void CameraSessionManager::abandonStart()
{
    m_pendingDeviceID.reset();
}

void CameraSessionManager::stop()
{
    ++m_startToken;
    m_pendingDeviceID.reset();
    if (m_captureSession) {
        // Both return at once; the device closes on the worker thread.
        m_captureSession->stopRunning();
        if (m_currentInput) {
            m_captureSession->removeInput(*m_currentInput);
        }
    }
    m_currentInput.reset();
    if (std::unique_ptr<CameraSession> old = std::move(m_captureSession)) {
        old->disconnect(this);
        Q_EMIT captureSessionChanged(nullptr);
    }
    setRunning(false);
    setCurrentDeviceID(std::nullopt);
}

void CameraSessionManager::setRunning(bool running)
{
    if (m_isRunning == running) {
        return;
    }
    m_isRunning = running;
    Q_EMIT isRunningChanged(running);
}

void CameraSessionManager::setCurrentDeviceID(const std::optional<QString>& deviceID)
{
    if (m_currentDeviceID == deviceID) {
        return;
    }
    m_currentDeviceID = deviceID;
    Q_EMIT currentDeviceIDChanged(deviceID);
}

void CameraSessionManager::setAccessDenied(bool denied)
{
    if (m_isAccessDenied == denied) {
        return;
    }
    m_isAccessDenied = denied;
    Q_EMIT isAccessDeniedChanged(denied);
}

} // namespace vistrel
