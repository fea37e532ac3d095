#include "capture/CapturePlan.h"

namespace vistrel {

using namespace Qt::StringLiterals;

QString toString(OutputBlankReason reason)
{
    switch (reason) {
    case OutputBlankReason::permissionMissing:
        return u"permissionMissing"_s;
    case OutputBlankReason::noDisplaySelected:
        return u"noDisplaySelected"_s;
    case OutputBlankReason::nothingSelected:
        return u"nothingSelected"_s;
    case OutputBlankReason::panicHidden:
        return u"panicHidden"_s;
    case OutputBlankReason::contentUnavailable:
        return u"contentUnavailable"_s;
    }
    return {};
}

QString title(OutputBlankReason reason)
{
    switch (reason) {
    case OutputBlankReason::permissionMissing:
        return u"Screen Recording Permission Required"_s;
    case OutputBlankReason::noDisplaySelected:
        return u"Choose a Display"_s;
    case OutputBlankReason::nothingSelected:
        return u"Nothing Is Currently Selected to Share"_s;
    case OutputBlankReason::panicHidden:
        return u"Vistrel Output Is Blank"_s;
    case OutputBlankReason::contentUnavailable:
        return u"Selected Sources Are Unavailable"_s;
    }
    return {};
}

} // namespace vistrel
