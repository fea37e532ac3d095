#include "platform/sim/SimPermission.h"

#include <QMutexLocker>

using namespace Qt::StringLiterals;

namespace vistrel {

SimPermission::SimPermission(bool granted)
    : m_granted(granted), m_settingsUrl(u"https://vistrel.invalid/help/capture-access"_s)
{
}

void SimPermission::setGranted(bool granted)
{
    QMutexLocker lock(&m_mutex);
    m_granted = granted;
}

void SimPermission::setRequestOutcome(std::optional<bool> outcome)
{
    QMutexLocker lock(&m_mutex);
    m_requestOutcome = outcome;
}

void SimPermission::setSettingsUrl(const QUrl& url)
{
    QMutexLocker lock(&m_mutex);
    m_settingsUrl = url;
}

void SimPermission::holdRequests()
{
    QMutexLocker lock(&m_mutex);
    m_held = true;
}

void SimPermission::releaseRequests()
{
    QMutexLocker lock(&m_mutex);
    m_held = false;
    m_released.wakeAll();
}

int SimPermission::preflightCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_preflightCount;
}

int SimPermission::requestCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_requestCount;
}

QThread* SimPermission::lastRequestThread() const
{
    QMutexLocker lock(&m_mutex);
    return m_lastRequestThread;
}

bool SimPermission::preflight() const
{
    QMutexLocker lock(&m_mutex);
    ++m_preflightCount;
    return m_granted;
}

bool SimPermission::request()
{
    QMutexLocker lock(&m_mutex);
    ++m_requestCount;
    m_lastRequestThread = QThread::currentThread();
    while (m_held)
        m_released.wait(&m_mutex);
    const bool outcome = m_requestOutcome.value_or(m_granted);
    if (outcome)
        m_granted = true;
    return outcome;
}

QUrl SimPermission::settingsUrl() const
{
    QMutexLocker lock(&m_mutex);
    return m_settingsUrl;
}

} // namespace vistrel
