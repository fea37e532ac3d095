#pragma once

// RandR monitors as displays.
//
// Display id: the RandR output id of the monitor's first output. A monitor
// without outputs (made with `xrandr --setmonitor NAME geometry none`) has
// the value of its name atom instead: atoms live as long as the server and
// are never reused, so the id is stable for the session, and the capture
// stream resolves the same rule.
//
// Threading: any thread, on a connection the caller owns.
// Coordinates: root, y-down, pixels.

#include <QByteArrayView>
#include <QList>
#include <QRect>
#include <QString>
#include <optional>
#include <xcb/xcb.h>

namespace vistrel::x11 {

struct X11Monitor {
    quint32 displayID = 0;
    QString name;                       // the monitor's name (an output name such as "DP-1")
    std::optional<QString> productName; // from the first output's EDID
    QRect geometry;

    friend bool operator==(const X11Monitor&, const X11Monitor&) = default;
};

// The active monitors (RandR >= 1.5 must have been checked). Empty when the
// server reports none or the request fails.
QList<X11Monitor> readMonitors(xcb_connection_t* connection, const xcb_screen_t* screen);

// The monitor name in an EDID block (display product name descriptor), or
// absent for a short, corrupt or nameless block.
std::optional<QString> edidProductName(QByteArrayView edid);

} // namespace vistrel::x11
