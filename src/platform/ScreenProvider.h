#pragma once

// The window system's screen list: what the capture layer needs to know about
// each monitor beyond the shareable content (usable area, refresh rate, name).
//
// Coordinates: global, points, y-down.

#include <QList>
#include <QRectF>
#include <QString>
#include <optional>

namespace vistrel {

struct ScreenInfo {
    std::optional<quint32> displayID; // absent when the screen cannot be joined to a display
    QString localizedName;
    QRectF frame;
    QRectF visibleFrame; // frame minus panels and docks
    int maximumFramesPerSecond = 60;
    // Units of the shareable display's frame per unit of these frames. On X11
    // the display is measured in the server's pixels and the screen in Qt's,
    // which differ under a Qt scale factor.
    double displayScale = 1.0;

    friend bool operator==(const ScreenInfo&, const ScreenInfo&) = default;
};

class ScreenProvider {
public:
    virtual ~ScreenProvider() = default;
    // Main thread. Reads the current layout; cheap enough to call per build.
    virtual QList<ScreenInfo> screens() const = 0;
};

} // namespace vistrel
