#include "platform/camera/QtCameraPort.h"

#include "platform/camera/CameraCaptureSession.h"
#include "platform/camera/CameraFormatChoice.h"
#include "platform/camera/CameraWorkerThread.h"

#include <QCamera>
#include <QCameraFormat>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QVideoFrame>
#include <QVideoSink>
#include <cerrno>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

const QString errorDomain = u"vistrel.camera.qt"_s;

CameraDevice toCameraDevice(const QCameraDevice& device)
{
    return {QString::fromUtf8(device.id()), device.description()};
}

QCameraFormat mediumFormat(const QCameraDevice& device)
{
    const QList<QCameraFormat> formats = device.videoFormats();
    QList<CameraFormatCandidate> candidates;
    candidates.reserve(formats.size());
    for (const QCameraFormat& format : formats) {
        candidates.append({format.resolution(), format.maxFrameRate(),
                           format.pixelFormat() == QVideoFrameFormat::Format_Jpeg});
    }
    const int index = chooseMediumFormat(candidates);
    return index < 0 ? QCameraFormat() : formats.at(index);
}

} // namespace

VideoDeviceAccess videoDeviceAccess(const QString& deviceFolder)
{
    const QStringList nodes =
        QDir(deviceFolder)
            .entryList({u"video*"_s}, QDir::System | QDir::Files | QDir::NoDotAndDotDot);
    if (nodes.isEmpty())
        return VideoDeviceAccess::noDevices;
    for (const QString& node : nodes) {
        const QByteArray path = QFile::encodeName(QDir(deviceFolder).filePath(node));
        if (::access(path.constData(), R_OK | W_OK) == 0)
            return VideoDeviceAccess::granted;
    }
    return VideoDeviceAccess::refused;
}

QtCameraInput::QtCameraInput(QCameraDevice cameraDevice, CameraDevice device)
    : m_cameraDevice(std::move(cameraDevice)), m_device(std::move(device))
{
}

QtCameraInput::~QtCameraInput()
{
    // The session closes opened inputs on the worker thread before letting go.
    Q_ASSERT(!m_camera);
}

std::optional<PlatformError> QtCameraInput::open(CameraSessionPreset,
                                                 std::shared_ptr<CameraFrameMailbox> mailbox)
{
    close();
    m_camera = std::make_unique<QCamera>(m_cameraDevice);
    if (m_camera->error() != QCamera::NoError) {
        PlatformError error = openError();
        close();
        return error;
    }
    if (const QCameraFormat format = mediumFormat(m_cameraDevice); !format.isNull()) {
        m_camera->setCameraFormat(format);
    }
    m_captureSession = std::make_unique<QMediaCaptureSession>();
    m_sink = std::make_unique<QVideoSink>();
    m_captureSession->setCamera(m_camera.get());
    m_captureSession->setVideoSink(m_sink.get());

    // Direct: the backend may deliver on its own streaming thread, where the
    // conversion is best done anyway.
    QObject::connect(
        m_sink.get(), &QVideoSink::videoFrameChanged, m_sink.get(),
        [mailbox](const QVideoFrame& frame) { mailbox->publish(frame.toImage()); },
        Qt::DirectConnection);
    QObject::connect(
        m_camera.get(), &QCamera::errorOccurred, m_camera.get(),
        [mailbox](QCamera::Error error, const QString& message) {
            if (error != QCamera::NoError) {
                mailbox->reportError({errorDomain, int(error), message});
            }
        },
        Qt::DirectConnection);

    m_camera->start();
    if (m_camera->error() != QCamera::NoError) {
        PlatformError error = openError();
        close();
        return error;
    }
    return std::nullopt;
}

PlatformError QtCameraInput::openError() const
{
    // Qt says only that the camera failed; a device node the user may not
    // open is worth telling apart, since the user can fix it.
    const QString node = QString::fromUtf8(m_cameraDevice.id());
    if (node.startsWith(u"/dev/"_s) && ::access(QFile::encodeName(node).constData(), F_OK) == 0 &&
        ::access(QFile::encodeName(node).constData(), R_OK | W_OK) != 0) {
        return {QString(cameraAccessErrorDomain), EACCES,
                u"You may not open %1 (%2)."_s.arg(node, m_camera->errorString())};
    }
    return {errorDomain, int(m_camera->error()), m_camera->errorString()};
}

void QtCameraInput::close()
{
    if (m_camera) {
        QObject::disconnect(m_camera.get(), nullptr, nullptr, nullptr);
        m_camera->stop();
    }
    if (m_sink) {
        QObject::disconnect(m_sink.get(), nullptr, nullptr, nullptr);
    }
    m_captureSession.reset();
    m_sink.reset();
    m_camera.reset();
}

QtCameraPort::QtCameraPort(std::shared_ptr<CameraWorkerThread> worker)
    : m_worker(worker ? std::move(worker) : std::make_shared<CameraWorkerThread>())
{
}

QtCameraPort::~QtCameraPort() = default;

void QtCameraPort::requestAccess(std::function<void(bool)> completion)
{
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [completion = std::move(completion)] {
            if (completion) {
                completion(videoDeviceAccess(u"/dev"_s) != VideoDeviceAccess::refused);
            }
        },
        Qt::QueuedConnection);
}

QList<CameraDevice> QtCameraPort::devices()
{
    QList<CameraDevice> list;
    const QList<QCameraDevice> inputs = QMediaDevices::videoInputs();
    for (const QCameraDevice& device : inputs) {
        list.append(toCameraDevice(device));
    }
    return list;
}

std::optional<CameraDevice> QtCameraPort::deviceWithUniqueID(const QString& uniqueID)
{
    const QList<QCameraDevice> inputs = QMediaDevices::videoInputs();
    for (const QCameraDevice& device : inputs) {
        if (QString::fromUtf8(device.id()) == uniqueID) {
            return toCameraDevice(device);
        }
    }
    return std::nullopt;
}

std::unique_ptr<CameraSession> QtCameraPort::createSession(CameraSessionPreset preset)
{
    return std::make_unique<CameraCaptureSession>(m_worker, preset);
}

CameraPort::InputResult QtCameraPort::createInput(const CameraDevice& device)
{
    const QList<QCameraDevice> inputs = QMediaDevices::videoInputs();
    for (const QCameraDevice& cameraDevice : inputs) {
        if (QString::fromUtf8(cameraDevice.id()) == device.uniqueID) {
            return {std::make_shared<QtCameraInput>(cameraDevice, device), std::nullopt};
        }
    }
    return {nullptr, PlatformError{errorDomain, -1,
                                   u"The camera \u201c%1\u201d is no longer connected."_s.arg(
                                       device.localizedName)}};
}

} // namespace vistrel
