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

QPoint dockedOutputOrigin(const QRectF& visibleArea, const QSize& size,
                          const QList<ScreenInfo>& screens)
{
    // One point of the window stays on the corner: a window manager that
    // keeps windows on screen then pulls it back onto this screen rather than
    // onto one of its own choosing.
    const int left = int(std::floor(visibleArea.left())) - size.width() + 1;
    const int top = int(std::floor(visibleArea.top())) - size.height() + 1;
    const int right = int(std::ceil(visibleArea.right())) - 1;
    const int bottom = int(std::ceil(visibleArea.bottom())) - 1;
    const QPoint corners[] = {{right, bottom}, {left, bottom}, {right, top}, {left, top}};
    // Where a window manager that keeps a tenth of the window on screen
    // would pull it back to; that part may only cover the window's own screen.
    const QPointF inward[] = {{-0.1, -0.1}, {0.1, -0.1}, {-0.1, 0.1}, {0.1, 0.1}};
    for (int i = 0; i < 4; ++i) {
        const QPoint& corner = corners[i];
        const QRectF window =
            QRectF(corner, size)
                .translated(inward[i].x() * size.width(), inward[i].y() * size.height());
        const bool clear = std::none_of(screens.begin(), screens.end(), [&](const ScreenInfo& s) {
            if (s.frame.contains(visibleArea))
                return false;
            const QRectF overlap = s.frame.intersected(window);
            return overlap.width() > 0 && overlap.height() > 0;
        });
        if (clear)
            return corner;
    }
    return corners[0];
}

} // namespace vistrel
