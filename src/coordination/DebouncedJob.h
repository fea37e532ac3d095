#pragma once

// A delayed action on the main thread that a new request replaces: schedule()
// cancels the pending run and waits the full delay again, cancel() prevents
// any effect. A run that has started is never interrupted; the action may
// schedule the job again, which waits the delay anew.
//
// The job's timer belongs to the job: destroying the job (or its parent)
// cancels a pending run.
//
// Threading: the thread the job lives on (the main thread in this program).

#include "coordination/Clock.h"

#include <QObject>
#include <chrono>
#include <functional>
#include <memory>

namespace vistrel {

class DebouncedJob : public QObject {
    Q_OBJECT

public:
    DebouncedJob(std::chrono::milliseconds delay, std::function<void()> action,
                 Clock& clock = Clock::system(), QObject* parent = nullptr);
    ~DebouncedJob() override;

    std::chrono::milliseconds delay() const { return m_delay; }

    // Cancels the pending run, if any, and starts waiting again.
    void schedule();
    // Cancels the pending run; nothing happens until the next schedule().
    void cancel();
    bool isPending() const { return m_timer->isActive(); }

Q_SIGNALS:
    // After each completed run of the action.
    void ran();

private:
    void run();

    std::chrono::milliseconds m_delay;
    std::function<void()> m_action;
    std::unique_ptr<ClockTimer> m_timer;
};

} // namespace vistrel
