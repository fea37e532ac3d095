#include "platform/sim/SimStreamLedger.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace vistrel {

void SimStreamLedger::count(SimStreamOperation operation)
{
    switch (operation) {
    case SimStreamOperation::create:
        ++m_calls.create;
        break;
    case SimStreamOperation::addStreamOutput:
        ++m_calls.addStreamOutput;
        break;
    case SimStreamOperation::start:
        ++m_calls.start;
        break;
    case SimStreamOperation::stop:
        ++m_calls.stop;
        break;
    case SimStreamOperation::updateConfiguration:
        ++m_calls.updateConfiguration;
        break;
    case SimStreamOperation::updateContentFilter:
        ++m_calls.updateContentFilter;
        break;
    }
}

void SimStreamLedger::setFailure(SimStreamOperation operation, std::optional<PlatformError> error)
{
    if (error)
        m_failures.insert(operation, *error);
    else
        m_failures.remove(operation);
}

std::optional<PlatformError> SimStreamLedger::failure(SimStreamOperation operation) const
{
    const auto it = m_failures.constFind(operation);
    if (it == m_failures.cend())
        return std::nullopt;
    return *it;
}

void SimStreamLedger::complete(std::function<void()> completion)
{
    if (m_holdsCompletions) {
        m_held.append(std::move(completion));
        return;
    }
    // The application object lives on the main thread, so the completion
    // runs there, and never inside the call that asked for it.
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(completion),
                              Qt::QueuedConnection);
}

void SimStreamLedger::releaseCompletions()
{
    const QList<std::function<void()>> held = std::exchange(m_held, {});
    for (const auto& completion : held)
        QMetaObject::invokeMethod(QCoreApplication::instance(), completion, Qt::QueuedConnection);
}

} // namespace vistrel
