#include "platform/camera/CameraWorkerThread.h"

using namespace Qt::StringLiterals;

namespace vistrel {

CameraWorkerThread::~CameraWorkerThread()
{
    QThread* thread = nullptr;
    {
        QMutexLocker lock(&m_mutex);
        thread = m_thread.get();
    }
    if (!thread) {
        return;
    }
    // Quitting from a job lets every job posted earlier run first.
    post([thread] { thread->quit(); });
    thread->wait();
}

void CameraWorkerThread::post(std::function<void()> job)
{
    QMutexLocker lock(&m_mutex);
    if (!m_thread) {
        m_thread = std::make_unique<QThread>();
        m_thread->setObjectName(u"Vistrel camera"_s);
        m_context = std::make_unique<QObject>();
        m_context->moveToThread(m_thread.get());
        m_thread->start();
    }
    QMetaObject::invokeMethod(m_context.get(), std::move(job), Qt::QueuedConnection);
}

QThread* CameraWorkerThread::thread() const
{
    QMutexLocker lock(&m_mutex);
    return m_thread.get();
}

} // namespace vistrel
