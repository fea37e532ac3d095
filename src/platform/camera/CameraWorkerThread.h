#pragma once

#include <QMutex>
#include <QObject>
#include <QThread>
#include <functional>
#include <memory>

namespace vistrel {

// The thread on which camera devices are opened, run and closed, so that the
// main thread never waits for a device. Objects that a job creates belong to
// this thread and must be destroyed by a later job.
class CameraWorkerThread {
public:
    CameraWorkerThread() = default;
    // Runs the jobs already posted, then ends the thread. Blocks while a
    // device is closing, so owners keep the worker until process exit.
    ~CameraWorkerThread();

    CameraWorkerThread(const CameraWorkerThread&) = delete;
    CameraWorkerThread& operator=(const CameraWorkerThread&) = delete;

    // Any thread. Jobs run one after another in posting order. The thread
    // starts with the first job.
    void post(std::function<void()> job);

    // Null until the first job was posted.
    QThread* thread() const;

private:
    mutable QMutex m_mutex;
    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<QObject> m_context; // lives in m_thread; jobs are its events
};

} // namespace vistrel
