#include "coordination/DebouncedJob.h"

namespace vistrel {

DebouncedJob::DebouncedJob(std::chrono::milliseconds delay, std::function<void()> action,
                           QObject* parent)
    : QObject(parent), m_delay(delay), m_action(std::move(action))
{
    m_timer.setSingleShot(true);
    // The delays are short and user-visible; a coarse timer may shift them by
    // several milliseconds.
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(m_delay);
    connect(&m_timer, &QTimer::timeout, this, &DebouncedJob::run);
}

DebouncedJob::~DebouncedJob() = default;

void DebouncedJob::schedule()
{
    m_timer.start();
}

void DebouncedJob::cancel()
{
    m_timer.stop();
}

void DebouncedJob::run()
{
    if (m_action)
        m_action();
    Q_EMIT ran();
}

} // namespace vistrel
