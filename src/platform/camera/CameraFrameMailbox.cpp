#include "platform/camera/CameraFrameMailbox.h"

#include <QCoreApplication>

namespace vistrel {

CameraFrameMailbox::CameraFrameMailbox(std::function<void()> frameArrived,
                                       std::function<void(PlatformError)> failed)
    : m_frameArrived(std::move(frameArrived)), m_failed(std::move(failed))
{
}

void CameraFrameMailbox::publish(QImage frame)
{
    if (frame.isNull()) {
        return;
    }
    {
        QMutexLocker lock(&m_mutex);
        if (!m_open) {
            return;
        }
        m_latest = std::move(frame);
    }
    if (m_notifyPending.exchange(true)) {
        return;
    }
    postToMain([](CameraFrameMailbox& mailbox) {
        mailbox.m_notifyPending = false;
        // A notice posted just before the mailbox closed is stale.
        if (mailbox.isOpen() && mailbox.m_frameArrived) {
            mailbox.m_frameArrived();
        }
    });
}

void CameraFrameMailbox::reportError(PlatformError error)
{
    if (!isOpen()) {
        return;
    }
    postToMain([error = std::move(error)](CameraFrameMailbox& mailbox) {
        if (mailbox.isOpen() && mailbox.m_failed) {
            mailbox.m_failed(error);
        }
    });
}

QImage CameraFrameMailbox::latest() const
{
    QMutexLocker lock(&m_mutex);
    return m_latest;
}

void CameraFrameMailbox::setOpen(bool open)
{
    QMutexLocker lock(&m_mutex);
    m_open = open;
    if (!open) {
        m_latest = QImage();
    }
}

bool CameraFrameMailbox::isOpen() const
{
    QMutexLocker lock(&m_mutex);
    return m_open;
}

void CameraFrameMailbox::postToMain(std::function<void(CameraFrameMailbox&)> call)
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) {
        return;
    }
    // The application object outlives every session, so posting to it never
    // races with a session being destroyed; the weak reference tells whether
    // the mailbox is still wanted when the call arrives.
    QMetaObject::invokeMethod(
        app,
        [weak = weak_from_this(), call = std::move(call)] {
            if (auto mailbox = weak.lock()) {
                call(*mailbox);
            }
        },
        Qt::QueuedConnection);
}

} // namespace vistrel
