#include "presentation/PlacementGeometry.h"

#include <algorithm>
#include <cmath>

namespace vistrel {

namespace {

constexpr qreal outputInsetFraction = 0.04;
// A size that is a whole number in exact arithmetic can come out a hair below
// it in floating point (1600 wide at 16:9 gives 827.99999...); truncating that
// would lose a point.
constexpr qreal truncationTolerance = 1e-6;

int truncated(qreal value)
{
    return int(std::floor(value + truncationTolerance));
}

} // namespace

qreal controlWindowHeight(std::optional<qreal> preferredHeight)
{
    return std::max(preferredHeight.value_or(controlWindowMinimumHeight),
                    controlWindowMinimumHeight);
}

QRectF initialControlFrame(const QRectF& visibleArea, qreal height)
{
    return QRectF(visibleArea.center().x() - controlWindowWidth / 2,
                  visibleArea.bottom() - controlWindowBottomGap - height, controlWindowWidth,
                  height);
}

std::optional<QRectF> resizedControlFrame(const QRectF& frame, qreal height)
{
    if (std::abs(frame.width() - controlWindowWidth) <= 1 && std::abs(frame.height() - height) <= 1)
        return std::nullopt;
    return QRectF(frame.center().x() - controlWindowWidth / 2, frame.top(), controlWindowWidth,
                  height);
}

std::optional<qsizetype> screenContaining(const QRectF& rect, const QList<ScreenInfo>& screens)
{
    std::optional<qsizetype> best;
    qreal bestArea = 0;
    for (qsizetype i = 0; i < screens.size(); ++i) {
        const QRectF shared = rect.intersected(screens[i].visibleFrame);
        const qreal area = shared.width() * shared.height();
        // Strictly larger, so the earlier screen keeps a tie.
        if (shared.width() > 0 && shared.height() > 0 && area > bestArea) {
            best = i;
            bestArea = area;
        }
    }
    return best;
}

std::optional<qsizetype> screenWithID(quint32 id, const QList<ScreenInfo>& screens)
{
    for (qsizetype i = 0; i < screens.size(); ++i) {
        if (screens[i].displayID == id)
            return i;
    }
    return std::nullopt;
}

std::optional<QSize> outputWindowSize(const QRectF& visibleArea, const QSizeF& aspectRatio)
{
    if (!(aspectRatio.width() > 0 && aspectRatio.height() > 0))
        return std::nullopt;
    const qreal width = visibleArea.width() * (1 - 2 * outputInsetFraction);
    const qreal height = visibleArea.height() * (1 - 2 * outputInsetFraction);
    const qreal scale = std::min(width / aspectRatio.width(), height / aspectRatio.height());
    return QSize(truncated(scale * aspectRatio.width()), truncated(scale * aspectRatio.height()));
}

QPoint centeredOutputOrigin(const QRectF& visibleArea, const QSize& size)
{
    const auto clamp = [](qreal centred, qreal low, qreal high, int length) {
        return int(std::floor(std::min(std::max(low, centred), std::max(low, high - length))));
    };
    const QPointF centre = visibleArea.center();
    return QPoint(clamp(centre.x() - size.width() / 2.0, visibleArea.left(), visibleArea.right(),
                        size.width()),
                  clamp(centre.y() - size.height() / 2.0, visibleArea.top(), visibleArea.bottom(),
                        size.height()));
}

QPoint dockedOutputOrigin(const QRectF& visibleArea)
{
    // Rounded up so that not even a fraction of a point stays inside.
    return QPoint(int(std::ceil(visibleArea.right())), int(std::ceil(visibleArea.bottom())));
}

} // namespace vistrel
