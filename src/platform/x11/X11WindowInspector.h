#pragma once

// Reads what discovery and the compositor need to know about one top-level
// window from the X server: its client and frame, owner process, class,
// title, application id, layer, visibility and geometry. It is the one place
// that decides who owns a window: discovery and the compositor both ask it,
// so they cannot disagree.
//
// Works on any xcb_connection_t the caller owns; holds no other state than
// the atoms, so one inspector per connection and thread. No Qt GUI use.
//
// Windows vanish at any moment: every read returns a value or nothing, never
// throws, and a vanished window is reported as an error value by inspect().
//
// Coordinates: root (global) coordinates, pixels = points, y-down.

#include "platform/WindowAdmission.h"
#include "platform/x11/X11Atoms.h"

#include <QList>
#include <QRect>
#include <QString>
#include <optional>
#include <variant>

namespace vistrel::x11 {

// Layers as discovery reports them: 0 is an ordinary application window;
// anything else is excluded from the catalog's window lists.
namespace WindowLayer {
inline constexpr int Desktop = -1000;
inline constexpr int Normal = 0;   // normal and dialog windows
inline constexpr int Floating = 3; // utility, toolbar, splash
inline constexpr int Dock = 20;    // docks and panels
inline constexpr int Notification = 23;
inline constexpr int PopupMenu = 101; // menus, combo lists, override-redirect
inline constexpr int Tooltip = 102;   // tooltips, drag icons
} // namespace WindowLayer

struct X11WindowInfo {
    xcb_window_t client = XCB_NONE; // the application's window
    xcb_window_t frame = XCB_NONE;  // the root's child holding it (== client when unframed)
    std::optional<qint32> processID;
    QString windowClass;                  // WM_CLASS class part, may be empty
    std::optional<QString> title;         // _NET_WM_NAME, else WM_NAME
    std::optional<QString> applicationID; // _GTK_APPLICATION_ID / _KDE_NET_WM_DESKTOP_FILE
    int layer = WindowLayer::Normal;
    bool overrideRedirect = false;
    bool viewable = false;          // mapped, ancestors included
    bool hidden = false;            // _NET_WM_STATE_HIDDEN (minimised)
    std::optional<quint32> desktop; // _NET_WM_DESKTOP; 0xFFFFFFFF = all desktops
    QRect frameGeometry;            // the frame window, decoration and border included
    QRect clientGeometry;           // the client window's inside

    friend bool operator==(const X11WindowInfo&, const X11WindowInfo&) = default;
};

// Who owns a top-level window: the client inside it and that client's
// process and application.
struct X11Ownership {
    xcb_window_t client = XCB_NONE;
    std::optional<qint32> processID;
    QString windowClass; // WM_CLASS class part, may be empty
    std::optional<QString> applicationID;
    int layer = WindowLayer::Normal;

    // As admission sees it; a window without a class is named after its process.
    WindowFacts facts() const;

    friend bool operator==(const X11Ownership&, const X11Ownership&) = default;
};

class X11WindowInspector {
public:
    // hasResource: X-Resource >= 1.2 was checked on this connection.
    X11WindowInspector(xcb_connection_t* connection, xcb_window_t root, bool hasResource);

    const X11Atoms& atoms() const { return m_atoms; }

    // The window below a frame that carries WM_STATE (the frame itself when it
    // has it); absent for windows that no window manager manages.
    std::optional<xcb_window_t> clientBelow(xcb_window_t frame) const;
    // The application's window inside a top-level: the one carrying WM_STATE,
    // else the first window below it that another X client created (a frame
    // whose client has not been marked yet), else the top-level itself.
    // Override-redirect windows are their own client.
    xcb_window_t clientOf(xcb_window_t topLevel, bool overrideRedirect) const;
    // The client and its owner, requests pipelined. A vanished window gives
    // an ownership without a process, which admission never draws.
    X11Ownership ownership(xcb_window_t topLevel, bool overrideRedirect) const;

    // The command name of a local process, empty when it cannot be read.
    static QString processName(qint32 pid);

    // The root's child that contains the window (the window itself when it is one).
    std::optional<xcb_window_t> frameAbove(xcb_window_t window) const;

    // X-Resource's local client pid first (cannot be forged by the client),
    // then _NET_WM_PID.
    std::optional<qint32> ownerProcessID(xcb_window_t window) const;

    // Everything at once, requests pipelined. frame may be XCB_NONE (looked up).
    // An error message when the window no longer exists.
    std::variant<X11WindowInfo, QString> inspect(xcb_window_t client,
                                                 xcb_window_t frame = XCB_NONE) const;

    // Root properties. Absent when no window manager publishes them.
    std::optional<QList<xcb_window_t>> clientListStacking() const; // bottom to top
    std::optional<xcb_window_t> activeWindow() const;
    std::optional<quint32> currentDesktop() const;
    // True when an EWMH window manager runs (_NET_SUPPORTING_WM_CHECK valid).
    bool hasWindowManager() const { return windowManagerCheck().has_value(); }
    // The window manager's check window, when it is valid.
    std::optional<xcb_window_t> windowManagerCheck() const;
    // The root's children, bottom to top.
    QList<xcb_window_t> topLevels() const;

private:
    int layerOf(const xcb_get_property_reply_t* type, bool overrideRedirect) const;

    xcb_connection_t* m_c;
    xcb_window_t m_root;
    bool m_hasResource;
    X11Atoms m_atoms;
};

} // namespace vistrel::x11
