#include "platform/sim/SimStreamController.h"

#include "platform/sim/SimComposer.h"
#include "platform/sim/SimWorld.h"

#include <QMetaObject>
#include <QMutexLocker>
#include <QTimer>
#include <chrono>

namespace vistrel {

namespace {

qint64 monotonicNs()
{
    using namespace std::chrono;
    return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

SimStreamController::SimStreamController(SimWorld& world, ContentFilter filter,
                                         StreamConfiguration configuration,
                                         std::weak_ptr<CaptureStreamDelegate> delegate)
    : m_world(world), m_delegate(std::move(delegate)), m_filter(std::move(filter)),
      m_configuration(std::move(configuration)), m_worker(std::make_unique<QObject>())
{
    m_thread.setObjectName(QStringLiteral("SimCaptureStream"));
    m_worker->moveToThread(&m_thread);
    m_thread.start();
}

SimStreamController::~SimStreamController()
{
    m_running = false;
    // A running frame clock belongs to the worker thread: it has to be
    // stopped there, before the thread ends.
    QMetaObject::invokeMethod(
        m_worker.get(), [this] { delete m_worker->findChild<QTimer*>(); },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    m_worker.reset(); // its thread has finished: safe to delete from here
}

ContentFilter SimStreamController::filter() const
{
    QMutexLocker lock(&m_mutex);
    return m_filter;
}

StreamConfiguration SimStreamController::configuration() const
{
    QMutexLocker lock(&m_mutex);
    return m_configuration;
}

QSet<SampleOutputType> SimStreamController::outputs() const
{
    QMutexLocker lock(&m_mutex);
    return m_outputs;
}

bool SimStreamController::pushFrame(const SimFrameRequest& request)
{
    if (!m_running || !outputs().contains(request.outputType))
        return false;
    QMetaObject::invokeMethod(
        m_worker.get(), [this, request] { deliverFrame(request); }, Qt::QueuedConnection);
    return true;
}

void SimStreamController::stopWithError(const PlatformError& error)
{
    m_running = false;
    QMetaObject::invokeMethod(
        m_worker.get(),
        [this, error] {
            if (const auto delegate = m_delegate.lock())
                delegate->streamDidStopWithError(error);
        },
        Qt::QueuedConnection);
}

QImage SimStreamController::composeNow() const
{
    return simComposeFrame(m_world.scene(), filter(), configuration());
}

void SimStreamController::waitForWorker()
{
    QMetaObject::invokeMethod(
        m_worker.get(), [] {}, Qt::BlockingQueuedConnection);
}

void SimStreamController::setFrameInterval(int milliseconds)
{
    QMetaObject::invokeMethod(
        m_worker.get(),
        [this, milliseconds] {
            auto* clock = m_worker->findChild<QTimer*>();
            if (milliseconds <= 0) {
                delete clock;
                return;
            }
            if (!clock) {
                clock = new QTimer(m_worker.get());
                QObject::connect(clock, &QTimer::timeout, m_worker.get(), [this] {
                    if (m_running)
                        deliverFrame({});
                });
            }
            clock->start(milliseconds);
        },
        Qt::QueuedConnection);
}

void SimStreamController::setRunning(bool running)
{
    m_running = running;
}

void SimStreamController::setFilter(const ContentFilter& filter)
{
    QMutexLocker lock(&m_mutex);
    m_filter = filter;
}

void SimStreamController::setConfiguration(const StreamConfiguration& configuration)
{
    QMutexLocker lock(&m_mutex);
    m_configuration = configuration;
}

void SimStreamController::addOutput(SampleOutputType type)
{
    QMutexLocker lock(&m_mutex);
    m_outputs.insert(type);
}

void SimStreamController::deliverFrame(const SimFrameRequest& request)
{
    // A stop that happened after the push wins: a stopped stream delivers nothing.
    if (!m_running)
        return;
    const auto delegate = m_delegate.lock();
    if (!delegate)
        return;
    SampleBuffer buffer;
    if (request.outputType == SampleOutputType::screen)
        buffer.image = composeNow();
    buffer.dataReady = request.dataReady;
    buffer.frameStatus = request.frameStatus;
    buffer.presentationTimeNs = monotonicNs();
    delegate->streamDidOutputSampleBuffer(buffer, request.outputType);
    ++m_deliveredFrames;
}

} // namespace vistrel
