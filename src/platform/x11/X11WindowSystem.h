#pragma once

// WindowSystem on X11, through a connection of its own: EWMH _NET_WM_STATE
// (a client message to the root for a mapped window, the property itself for
// an unmapped one, which the window manager reads when the window is mapped),
// QueryPointer for the buttons, and Composite's automatic redirection for
// readable contents (it lasts as long as this connection).

#include "platform/WindowSystem.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QSet>
#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11WindowSystem final : public WindowSystem {
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11WindowSystem(const QByteArray& displayName = {});
    ~X11WindowSystem() override;

    void setStateHints(quint32 window, const WindowStateHints& hints) override;
    bool isPointerButtonPressed() const override;
    void keepContentsReadable(quint32 window) override;

private:
    struct Atoms {
        xcb_atom_t state = XCB_ATOM_NONE;
        xcb_atom_t above = XCB_ATOM_NONE;
        xcb_atom_t below = XCB_ATOM_NONE;
        xcb_atom_t skipTaskbar = XCB_ATOM_NONE;
        xcb_atom_t skipPager = XCB_ATOM_NONE;
    };

    bool isUsable() const;
    bool isMapped(xcb_window_t window) const;
    void writeStateProperty(xcb_window_t window, const WindowStateHints& hints);
    void sendStateMessages(xcb_window_t window, const WindowStateHints& hints);

    XcbConnection m_connection;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    Atoms m_atoms;
    bool m_hasComposite = false;
    QSet<quint32> m_redirected;
};

} // namespace vistrel::x11
