#pragma once

// Who owns each top-level as admission sees it: the inspector's answer for
// the client inside it, kept current as clients are framed, leave their
// frames and change the properties that name them.
//
// Worker thread only.

#include "platform/x11/X11TopLevel.h"
#include "platform/x11/X11WindowInspector.h"

#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11WindowOwners {
public:
    // hasResource: X-Resource >= 1.2 was checked on this connection.
    X11WindowOwners(xcb_connection_t* connection, xcb_window_t root, bool hasResource);

    // Whether a change of this property on a client can change who owns it.
    bool isOwnerProperty(xcb_atom_t property) const;

    // Reads the window's owner again and follows property changes of its
    // client. True when an owner known before gave way to another: nothing
    // painted under the old one may show under the new one.
    bool resolve(TopLevel& window);

private:
    xcb_connection_t* m_c;
    X11WindowInspector m_inspector;
};

} // namespace vistrel::x11
