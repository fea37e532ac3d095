#pragma once

// The X extensions the compositor needs, checked (presence and version)
// before its first request, so that a server without them fails cleanly at
// start instead of with a protocol error later.

#include <QString>
#include <variant>
#include <xcb/xcb.h>

namespace vistrel::x11 {

struct X11Extensions {
    quint8 damageFirstEvent = 0;
    quint8 xfixesFirstEvent = 0;
    quint8 shapeFirstEvent = 0;
    bool hasResource = false; // X-Resource 1.2 (owner pid); else _NET_WM_PID only

    // Queries Composite >= 0.2, Damage >= 1.1, XFixes >= 2.0, Render >= 0.6,
    // MIT-SHM, Shape >= 1.1 (and X-Resource, optional). Also announces the
    // client versions to the server, which Damage and XFixes require before
    // any other request. Returns the first problem as a sentence for the user.
    static std::variant<X11Extensions, QString> check(xcb_connection_t* connection);
};

} // namespace vistrel::x11
