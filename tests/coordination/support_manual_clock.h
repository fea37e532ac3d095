#pragma once

// A clock that moves only when the test says so: timers fire in deadline
// order, each at its own instant, so a debounce is exact to the millisecond.

#include "coordination/Clock.h"

#include <QList>
#include <algorithm>
#include <memory>

namespace vistrel::test {

class ManualClock final : public Clock {
public:
    QDateTime now() const override { return m_start.addMSecs(m_elapsed); }
    qint64 elapsed() const { return m_elapsed; }

    std::unique_ptr<ClockTimer> makeTimer(std::function<void()> fire) override
    {
        auto timer = std::make_unique<Timer>(*this, std::move(fire));
        m_timers.append(timer.get());
        return timer;
    }

    // Moves time forward, firing every timer that falls due on the way.
    void advance(std::chrono::milliseconds by)
    {
        const qint64 target = m_elapsed + by.count();
        for (;;) {
            Timer* next = nullptr;
            for (Timer* timer : m_timers) {
                if (timer->deadline >= 0 && timer->deadline <= target &&
                    (!next || timer->deadline < next->deadline))
                    next = timer;
            }
            if (!next)
                break;
            m_elapsed = next->deadline;
            next->deadline = -1;
            next->fire();
        }
        m_elapsed = target;
    }

private:
    struct Timer final : ClockTimer {
        Timer(ManualClock& owner, std::function<void()> callback)
            : clock(owner), fire(std::move(callback))
        {
        }
        ~Timer() override { clock.m_timers.removeOne(this); }
        void start(std::chrono::milliseconds delay) override
        {
            deadline = clock.m_elapsed + delay.count();
        }
        void stop() override { deadline = -1; }
        bool isActive() const override { return deadline >= 0; }

        ManualClock& clock;
        std::function<void()> fire;
        qint64 deadline = -1;
    };

    QDateTime m_start = QDateTime(QDate(2026, 3, 14), QTime(9, 26, 53, 500), Qt::UTC);
    qint64 m_elapsed = 0;
    QList<Timer*> m_timers;
};

} // namespace vistrel::test
