#include "capture/StreamStatus.h"

#include <QHashFunctions>

namespace vistrel {

using namespace Qt::StringLiterals;

StreamStatus StreamStatus::blank(OutputBlankReason reason)
{
    StreamStatus status(Kind::blank);
    status.m_blankReason = reason;
    return status;
}

StreamStatus StreamStatus::failed(const QString& message)
{
    StreamStatus status(Kind::failed);
    status.m_failureMessage = message;
    return status;
}

size_t qHash(const StreamStatus& status, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, static_cast<int>(status.kind()));
    seed = combine(seed, status.blankReason() ? static_cast<int>(*status.blankReason()) : -1);
    return combine(seed, status.failureMessage());
}

QString describe(const StreamStatus& status)
{
    switch (status.kind()) {
    case StreamStatus::Kind::idle:
        return u"idle"_s;
    case StreamStatus::Kind::starting:
        return u"starting"_s;
    case StreamStatus::Kind::running:
        return u"running"_s;
    case StreamStatus::Kind::blank:
        return u"blank(%1)"_s.arg(toString(*status.blankReason()));
    case StreamStatus::Kind::failed:
        return u"failed(%1)"_s.arg(status.failureMessage());
    }
    return {};
}

QDebug operator<<(QDebug debug, const StreamStatus& status)
{
    QDebugStateSaver saver(debug);
    debug.noquote() << describe(status);
    return debug;
}

} // namespace vistrel
