#include "model/ShareConfiguration.h"

#include <QHashFunctions>

namespace vistrel {

bool ShareConfiguration::matches(const ShareConfiguration& live) const
{
    if (selectedDisplayID && selectedDisplayID != live.selectedDisplayID)
        return false;
    return policy == live.policy && outputFrameMode == live.outputFrameMode &&
           outputContentMode == live.outputContentMode && canvasBackground == live.canvasBackground;
}

size_t qHash(const ShareConfiguration& c, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, c.policy);
    seed = combine(seed, c.selectedDisplayID.has_value());
    seed = combine(seed, c.selectedDisplayID.value_or(0));
    seed = combine(seed, qToUnderlying(c.outputFrameMode));
    seed = combine(seed, qToUnderlying(c.outputContentMode));
    return combine(seed, c.canvasBackground);
}

} // namespace vistrel
