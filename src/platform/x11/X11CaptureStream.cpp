#include "platform/x11/X11CaptureStream.h"

#include "platform/x11/X11CaptureWorker.h"

#include <QMetaObject>
#include <QObject>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace vistrel {

X11CaptureStream::X11CaptureStream(QByteArray displayName, ContentFilter filter,
                                   StreamConfiguration configuration,
                                   std::weak_ptr<CaptureStreamDelegate> delegate)
    : m_worker(std::make_unique<x11::X11CaptureWorker>(std::move(displayName), std::move(filter),
                                                       std::move(configuration),
                                                       std::move(delegate))),
      m_mainThreadContext(std::make_unique<QObject>())
{
}

X11CaptureStream::~X11CaptureStream()
{
    // Joins the worker before the context goes: no frame after this.
    m_worker.reset();
}

void X11CaptureStream::complete(Completion completion, std::optional<PlatformError> error)
{
    if (!completion)
        return;
    // Queued on the main thread's context: a later turn, and dropped if the
    // stream is gone by then.
    QMetaObject::invokeMethod(
        m_mainThreadContext.get(),
        [completion = std::move(completion), error = std::move(error)] { completion(error); },
        Qt::QueuedConnection);
}

std::optional<PlatformError> X11CaptureStream::addStreamOutput(SampleOutputType type)
{
    if (type != SampleOutputType::screen)
        return PlatformError{u"vistrel.x11.capture"_s, 7,
                             u"This capture stream does not record audio."_s};
    m_worker->enableScreenOutput();
    return std::nullopt;
}

void X11CaptureStream::startCapture(Completion completion)
{
    if (m_worker->isRunning()) {
        complete(std::move(completion),
                 PlatformError{u"vistrel.x11.capture"_s, 8, u"The capture is already running."_s});
        return;
    }
    QPointer<QObject> context = m_mainThreadContext.get();
    m_worker->start(
        [context, completion = std::move(completion)](std::optional<PlatformError> error) {
            // Worker thread: hand the outcome to the main thread.
            if (!context || !completion)
                return;
            QMetaObject::invokeMethod(
                context.data(), [completion, error] { completion(error); }, Qt::QueuedConnection);
        });
}

void X11CaptureStream::stopCapture(Completion completion)
{
    m_worker->stop();
    complete(std::move(completion), std::nullopt);
}

void X11CaptureStream::updateConfiguration(const StreamConfiguration& configuration,
                                           Completion completion)
{
    m_worker->setConfiguration(configuration);
    complete(std::move(completion), std::nullopt);
}

void X11CaptureStream::updateContentFilter(const ContentFilter& filter, Completion completion)
{
    m_worker->setFilter(filter);
    complete(std::move(completion), std::nullopt);
}

} // namespace vistrel
