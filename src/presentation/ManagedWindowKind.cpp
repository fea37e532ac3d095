#include "presentation/ManagedWindowKind.h"

using namespace Qt::StringLiterals;

namespace vistrel {

QString rawValue(ManagedWindowKind kind)
{
    switch (kind) {
    case ManagedWindowKind::simpleControl:
        return u"simpleControl"_s;
    case ManagedWindowKind::output:
        return u"output"_s;
    case ManagedWindowKind::preview:
        return u"preview"_s;
    }
    Q_UNREACHABLE();
    return QString();
}

std::optional<ManagedWindowKind> managedWindowKindFromRaw(QStringView raw)
{
    for (auto kind : {ManagedWindowKind::simpleControl, ManagedWindowKind::output,
                      ManagedWindowKind::preview}) {
        if (raw == rawValue(kind))
            return kind;
    }
    return std::nullopt;
}

QString caseName(OutputWindowPresentation presentation)
{
    switch (presentation) {
    case OutputWindowPresentation::centered:
        return u"centered"_s;
    case OutputWindowPresentation::docked:
        return u"docked"_s;
    }
    Q_UNREACHABLE();
    return QString();
}

} // namespace vistrel
