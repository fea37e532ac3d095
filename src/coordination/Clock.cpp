#include "coordination/Clock.h"

#include <QTimer>

namespace vistrel {

namespace {

class SystemTimer final : public ClockTimer {
public:
    explicit SystemTimer(std::function<void()> fire)
    {
        m_timer.setSingleShot(true);
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, std::move(fire));
    }
    void start(std::chrono::milliseconds delay) override { m_timer.start(delay); }
    void stop() override { m_timer.stop(); }
    bool isActive() const override { return m_timer.isActive(); }

private:
    QTimer m_timer;
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
    std::unique_ptr<ClockTimer> makeTimer(std::function<void()> fire) override
    {
        return std::make_unique<SystemTimer>(std::move(fire));
    }
};

} // namespace

Clock& Clock::system()
{
    static SystemClock clock;
    return clock;
}

} // namespace vistrel
