#pragma once

#include "platform/PlatformError.h"

#include <QImage>
#include <QMutex>
#include <atomic>
#include <functional>
#include <memory>

namespace vistrel {

// Hands the newest camera picture from the thread that produces it to the
// main thread. Only the latest frame is kept: a frame that arrives before the
// previous one was shown replaces it, so late frames are dropped rather than
// queued.
class CameraFrameMailbox : public std::enable_shared_from_this<CameraFrameMailbox> {
public:
    // Both callbacks run on the main thread only.
    CameraFrameMailbox(std::function<void()> frameArrived,
                       std::function<void(PlatformError)> failed);

    // Any thread. Ignored while closed. A burst of frames between two turns of
    // the main loop notifies once.
    void publish(QImage frame);
    // Any thread. Ignored while closed.
    void reportError(PlatformError error);

    // Any thread.
    QImage latest() const;

    // Any thread. Closing drops the held frame and everything that arrives
    // until the mailbox is opened again.
    void setOpen(bool open);
    bool isOpen() const;

private:
    void postToMain(std::function<void(CameraFrameMailbox&)> call);

    const std::function<void()> m_frameArrived;
    const std::function<void(PlatformError)> m_failed;
    mutable QMutex m_mutex;
    QImage m_latest;
    bool m_open = false;
    std::atomic_bool m_notifyPending = false;
};

} // namespace vistrel
