#include "platform/camera/CameraFormatChoice.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

namespace vistrel {

int chooseMediumFormat(const QList<CameraFormatCandidate>& candidates)
{
    constexpr qint64 targetArea = 640 * 480;
    constexpr float targetRate = 30.0f;
    int best = -1;
    // Smaller tuples are better.
    std::tuple<qint64, float, bool> bestKey;
    for (int i = 0; i < candidates.size(); ++i) {
        const CameraFormatCandidate& c = candidates.at(i);
        if (c.resolution.width() <= 0 || c.resolution.height() <= 0) {
            continue;
        }
        const qint64 area = qint64(c.resolution.width()) * c.resolution.height();
        const float rateShortfall = std::max(0.0f, targetRate - c.maxFrameRate);
        const std::tuple<qint64, float, bool> key{std::llabs(area - targetArea), rateShortfall,
                                                  c.compressed};
        if (best < 0 || key < bestKey) {
            best = i;
            bestKey = key;
        }
    }
    return best;
}

} // namespace vistrel
