#pragma once

// The root's children as the compositor sees them, kept current from the
// server's events: stacking order, geometry, map state, owners (through
// X11WindowOwners) and the resources each is drawn from.
//
// Worker thread only. Coordinates are root coordinates (y-down, pixels);
// regions are window-relative (origin inside the border), like Damage and
// Shape report them.

#include "platform/x11/X11Extensions.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11TopLevel.h"
#include "platform/x11/X11WindowOwners.h"
#include "platform/x11/XcbResource.h"

#include <QList>
#include <QRect>
#include <unordered_map>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

class X11WindowTree {
public:
    enum class Change { none, content, structure };

    X11WindowTree(xcb_connection_t* connection, xcb_window_t root, const X11Extensions& extensions,
                  const X11RenderFormats& formats);
    ~X11WindowTree();
    X11WindowTree(const X11WindowTree&) = delete;
    X11WindowTree& operator=(const X11WindowTree&) = delete;

    // Redirects the root's children and reads the current tree. False when
    // the redirection failed.
    bool initialize();

    // Returns what the event changed; `window` is the top-level concerned
    // (0 for none or the root).
    Change handleEvent(const xcb_generic_event_t* event, xcb_window_t* window);

    const QList<xcb_window_t>& stacking() const { return m_stacking; } // bottom to top
    TopLevel* find(xcb_window_t id);

    // Moves pending damage into the window's painted region; the damaged
    // part (window-relative) is also added to `changed` when one is given.
    void takeDamage(TopLevel& window, xcb_xfixes_region_t changed = XCB_NONE);
    // Makes the picture and clip current; false when the window cannot be
    // drawn this frame (not viewable, owner unknown, vanished).
    bool prepare(TopLevel& window);

private:
    TopLevel* add(xcb_window_t id, const QRect& outer, int border, bool overrideRedirect);
    // Adds a window found on the root, reading its geometry and attributes.
    TopLevel* adopt(xcb_window_t id, bool overrideRedirect);
    void remove(xcb_window_t id);
    void restack(xcb_window_t id, xcb_window_t above);
    void readAttributes(TopLevel& window);
    void resolveOwner(TopLevel& window);

    // One kind of event each.
    Change onCreated(const xcb_create_notify_event_t& e, xcb_window_t* window);
    Change onMapped(const xcb_map_notify_event_t& e, xcb_window_t* window);
    Change onUnmapped(const xcb_unmap_notify_event_t& e, xcb_window_t* window);
    Change onReparented(const xcb_reparent_notify_event_t& e, xcb_window_t* window);
    Change onConfigured(const xcb_configure_notify_event_t& e, xcb_window_t* window);
    Change onPropertyChanged(const xcb_property_notify_event_t& e, xcb_window_t* window);
    Change onCirculated(const xcb_circulate_notify_event_t& e, xcb_window_t* window);
    // Something inside a frame was destroyed or reparented away.
    Change onContentChanged(xcb_window_t top, xcb_window_t* window);
    // A top-level was destroyed or reparented away from the root.
    Change onLeft(xcb_window_t id, xcb_window_t* window);

    xcb_connection_t* m_c;
    xcb_window_t m_root;
    X11Extensions m_ext;
    const X11RenderFormats& m_formats;
    X11WindowOwners m_owners;
    XcbRegion m_parts;
    std::unordered_map<xcb_window_t, TopLevel> m_windows;
    QList<xcb_window_t> m_stacking;
};

} // namespace vistrel::x11
