#include "coordination/DebouncedJob.h"

namespace vistrel {

DebouncedJob::DebouncedJob(std::chrono::milliseconds delay, std::function<void()> action,
                           Clock& clock, QObject* parent)
    : QObject(parent), m_delay(delay), m_action(std::move(action)),
      m_timer(clock.makeTimer([this] { run(); }))
{
}

DebouncedJob::~DebouncedJob() = default;

void DebouncedJob::schedule()
{
    m_timer->start(m_delay);
}

void DebouncedJob::cancel()
{
    m_timer->stop();
}

void DebouncedJob::run()
{
    if (m_action)
        m_action();
    Q_EMIT ran();
}

} // namespace vistrel
