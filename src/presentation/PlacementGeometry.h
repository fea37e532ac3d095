#pragma once

// Where the control and output windows go, as plain geometry: no window, no
// display connection, so every rule can be checked by table.
//
// Coordinates: global, points, y-down (origin at the top left of the virtual
// desktop). A frame is the window's outer rectangle; the control and output
// windows have no decorations, so it is also their geometry. Visible areas
// come from ScreenInfo::visibleFrame (the screen minus panels and docks).

#include "platform/ScreenProvider.h"

#include <QList>
#include <QPoint>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <optional>

namespace vistrel {

// The control window has a fixed width and a height the deck asks for.
inline constexpr qreal controlWindowWidth = 520;
inline constexpr qreal controlWindowMinimumHeight = 170;
// Gap between the control window's bottom edge and the visible area's bottom.
inline constexpr qreal controlWindowBottomGap = 140;

// The preferred height raised to at least the minimum, or the minimum when the
// deck asks for nothing.
qreal controlWindowHeight(std::optional<qreal> preferredHeight);

// Centred horizontally on `visibleArea`, its bottom edge controlWindowBottomGap
// above the visible area's bottom.
QRectF initialControlFrame(const QRectF& visibleArea, qreal height);

// The control frame at its fixed size, keeping its top edge and horizontal
// centre; nothing when width and height are each within 1 point already.
std::optional<QRectF> resizedControlFrame(const QRectF& frame, qreal height);

// Index in `screens` of the screen whose visible area shares the largest
// positive area with `rect`; the earlier screen wins a tie. Nothing when no
// visible area overlaps (touching edges do not count).
std::optional<qsizetype> screenContaining(const QRectF& rect, const QList<ScreenInfo>& screens);

// Index of the first screen with display id `id`.
std::optional<qsizetype> screenWithID(quint32 id, const QList<ScreenInfo>& screens);

// The largest size of `aspectRatio` that fits in `visibleArea` less 4 % of its
// width at each side and 4 % of its height at top and bottom, each dimension
// truncated to whole points. Nothing when either side of the ratio is not
// positive.
std::optional<QSize> outputWindowSize(const QRectF& visibleArea, const QSizeF& aspectRatio);

// Centred on `visibleArea`, then moved in so that the window starts inside it
// (a window larger than the area sticks out at the right and bottom only).
// Whole points, rounded down.
QPoint centeredOutputOrigin(const QRectF& visibleArea, const QSize& size);

// At a corner of `visibleArea`, so that a window of `size` lies outside it
// but for one point on the corner: the bottom-right corner (top-left of the
// window on it), unless the window, once the window manager has pulled a
// tenth of it back on screen (as openbox does), would lie over another
// screen, as it would with a monitor to the right; then the first of
// bottom-left, top-right and top-left that stays clear of other screens.
QPoint dockedOutputOrigin(const QRectF& visibleArea, const QSize& size,
                          const QList<ScreenInfo>& screens);

} // namespace vistrel
