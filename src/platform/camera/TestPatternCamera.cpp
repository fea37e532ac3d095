#include "platform/camera/TestPatternCamera.h"

#include "platform/camera/CameraCaptureSession.h"
#include "platform/camera/CameraSourceInput.h"
#include "platform/camera/CameraWorkerThread.h"

#include <QCoreApplication>
#include <QPainter>
#include <QThread>
#include <QTimer>
#include <array>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

struct Palette {
    QColor left;
    QColor right;
};

// Far apart in hue so a test can tell every half and every device apart.
const std::array<Palette, 4>& palettes()
{
    static const std::array<Palette, 4> list{{
        {QColor(220, 40, 40), QColor(40, 80, 220)},
        {QColor(40, 180, 80), QColor(230, 200, 40)},
        {QColor(200, 40, 200), QColor(40, 200, 210)},
        {QColor(240, 130, 20), QColor(110, 40, 160)},
    }};
    return list;
}

int deviceIndex(const QString& uniqueID)
{
    if (!TestPatternCameraPort::isTestPatternID(uniqueID)) {
        return -1;
    }
    bool ok = false;
    const int number = uniqueID.mid(TestPatternCameraPort::idPrefix.size()).toInt(&ok);
    return ok && number >= 1 ? number - 1 : -1;
}

class TestPatternInput final : public CameraSourceInput {
public:
    TestPatternInput(CameraDevice device, int index, TestPatternOptions options,
                     std::shared_ptr<TestPatternStatistics> statistics)
        : m_device(std::move(device)), m_index(index), m_options(std::move(options)),
          m_statistics(std::move(statistics))
    {
    }

    ~TestPatternInput() override { Q_ASSERT(!m_timer); }

    CameraDevice device() const override { return m_device; }

    std::optional<PlatformError> open(CameraSessionPreset,
                                      std::shared_ptr<CameraFrameMailbox> mailbox) override
    {
        close();
        if (m_options.openDelay.count() > 0) {
            QThread::msleep(static_cast<unsigned long>(m_options.openDelay.count()));
        }
        ++m_statistics->opens;
        if (m_options.deniedDevices.contains(m_device.uniqueID)) {
            ++m_statistics->closes;
            return PlatformError{QString(cameraAccessErrorDomain), EACCES,
                                 u"You may not open the test camera."_s};
        }
        if (m_options.failingDevices.contains(m_device.uniqueID)) {
            ++m_statistics->closes;
            return PlatformError{u"vistrel.camera.test"_s, 2,
                                 u"The test camera stopped responding."_s};
        }
        m_mailbox = std::move(mailbox);
        m_frameNumber = 0;
        m_timer = std::make_unique<QTimer>();
        m_timer->setTimerType(Qt::PreciseTimer);
        m_timer->setInterval(1000 / std::max(1, m_options.framesPerSecond));
        QObject::connect(m_timer.get(), &QTimer::timeout, [this] { publishFrame(); });
        m_timer->start();
        publishFrame();
        return std::nullopt;
    }

    void close() override
    {
        if (!m_timer) {
            return;
        }
        m_timer.reset();
        m_mailbox.reset();
        ++m_statistics->closes;
    }

private:
    void publishFrame()
    {
        if (m_options.disconnectAfterFrames && m_frameNumber >= *m_options.disconnectAfterFrames) {
            m_timer->stop();
            m_mailbox->reportError(
                {u"vistrel.camera.test"_s, 4, u"The test camera was disconnected."_s});
            return;
        }
        m_mailbox->publish(TestPatternCameraPort::renderFrame(m_index, m_frameNumber++));
    }

    const CameraDevice m_device;
    const int m_index;
    const TestPatternOptions m_options;
    const std::shared_ptr<TestPatternStatistics> m_statistics;
    // Worker thread only.
    std::shared_ptr<CameraFrameMailbox> m_mailbox;
    std::unique_ptr<QTimer> m_timer;
    qint64 m_frameNumber = 0;
};

} // namespace

TestPatternCameraPort::TestPatternCameraPort(TestPatternOptions options,
                                             std::shared_ptr<CameraWorkerThread> worker)
    : m_options(std::move(options)),
      m_worker(worker ? std::move(worker) : std::make_shared<CameraWorkerThread>()),
      m_statistics(std::make_shared<TestPatternStatistics>())
{
}

TestPatternCameraPort::~TestPatternCameraPort() = default;

QString TestPatternCameraPort::deviceID(int index)
{
    return idPrefix + QString::number(index + 1);
}

bool TestPatternCameraPort::isTestPatternID(const QString& uniqueID)
{
    return uniqueID.startsWith(idPrefix);
}

QColor TestPatternCameraPort::leftColor(int index)
{
    return palettes()[size_t(index) % palettes().size()].left;
}

QColor TestPatternCameraPort::rightColor(int index)
{
    return palettes()[size_t(index) % palettes().size()].right;
}

QImage TestPatternCameraPort::renderFrame(int index, qint64 frameNumber, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    const int w = size.width();
    const int h = size.height();
    const int stripHeight = std::max(1, h / 10);
    QPainter painter(&image);
    painter.fillRect(QRect(0, 0, w / 2, h - stripHeight), leftColor(index));
    painter.fillRect(QRect(w / 2, 0, w - w / 2, h - stripHeight), rightColor(index));
    painter.fillRect(QRect(0, h - stripHeight, w, stripHeight), QColor(30, 30, 30));
    const int barWidth = std::max(1, w / 8);
    const int travel = w + barWidth;
    const int x = int((frameNumber * 8) % travel) - barWidth;
    painter.fillRect(QRect(x, h - stripHeight, barWidth, stripHeight), barColor());
    return image;
}

void TestPatternCameraPort::requestAccess(std::function<void(bool)> completion)
{
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [granted = m_options.accessGranted, completion = std::move(completion)] {
            if (completion) {
                completion(granted);
            }
        },
        Qt::QueuedConnection);
}

QList<CameraDevice> TestPatternCameraPort::devices()
{
    QList<CameraDevice> list;
    for (int i = 0; i < m_options.deviceCount; ++i) {
        list.append({deviceID(i), u"Test Pattern Camera %1"_s.arg(i + 1)});
    }
    return list;
}

std::optional<CameraDevice> TestPatternCameraPort::deviceWithUniqueID(const QString& uniqueID)
{
    const int index = deviceIndex(uniqueID);
    if (index < 0 || index >= m_options.deviceCount) {
        return std::nullopt;
    }
    return devices().at(index);
}

std::unique_ptr<CameraSession> TestPatternCameraPort::createSession(CameraSessionPreset preset)
{
    return std::make_unique<CameraCaptureSession>(m_worker, preset);
}

CameraPort::InputResult TestPatternCameraPort::createInput(const CameraDevice& device)
{
    const int index = deviceIndex(device.uniqueID);
    if (index < 0 || index >= m_options.deviceCount) {
        return {nullptr, PlatformError{u"vistrel.camera.test"_s, 1,
                                       u"The camera \u201c%1\u201d is not connected."_s.arg(
                                           device.localizedName)}};
    }
    if (m_options.busyDevices.contains(device.uniqueID)) {
        return {nullptr,
                PlatformError{u"vistrel.camera.test"_s, 3,
                              u"The camera \u201c%1\u201d is in use by another application."_s.arg(
                                  device.localizedName)}};
    }
    return {std::make_shared<TestPatternInput>(device, index, m_options, m_statistics),
            std::nullopt};
}

} // namespace vistrel
