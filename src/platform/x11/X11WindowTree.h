#pragma once

// The root's children as the compositor sees them: stacking order, geometry,
// map state, the owner of each (client window, process, kind) and the
// server-side resources it composites from (named pixmap, picture, damage and
// the region of pixels known to be painted).
//
// Worker thread only. Coordinates are root coordinates (y-down, pixels);
// regions are window-relative (origin inside the border), like Damage and
// Shape report them.

#include "platform/WindowAdmission.h"
#include "platform/x11/X11Extensions.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11WindowInspector.h"
#include "platform/x11/XcbResource.h"

#include <QList>
#include <QRect>
#include <unordered_map>
#include <xcb/damage.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

struct TopLevel {
    xcb_window_t id = 0;
    QRect outer; // including the border
    int border = 0;
    bool mapped = false;
    bool overrideRedirect = false;
    bool inputOnly = false;
    xcb_visualid_t visual = 0;

    // Resolved whenever the window or its content changes owner (map,
    // reparent inside it, the client's class, pid or type property);
    // compositing waits for it, and admission never draws an unknown owner.
    bool factsResolved = false;
    WindowFacts facts;
    bool orphaned = false; // a frame that lost its client: never drawn

    XcbDamage damage;
    XcbPixmap pixmap;
    XcbPicture picture;
    bool pictureHasAlpha = false;
    // Painted pixels of the current pixmap: a fresh pixmap (map, resize)
    // may hold what lay under the window, so only damaged pixels count.
    XcbRegion valid;
    XcbRegion shape; // bounding shape
    XcbRegion clip;  // valid ∩ shape
    bool pixmapStale = true;
    bool shapeStale = true;
    bool clipStale = true;
    bool damaged = false;
    bool drawn = false; // part of the latest frame
};

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
    // drawn this frame (not viewable, vanished).
    bool prepare(TopLevel& window);

private:
    TopLevel* add(xcb_window_t id, const QRect& outer, int border, bool overrideRedirect);
    void remove(xcb_window_t id);
    void restack(xcb_window_t id, xcb_window_t above);
    void releasePixmap(TopLevel& window);
    void resolveFacts(TopLevel& window);
    void requestRepaint(xcb_window_t top);
    void readAttributes(TopLevel& window);
    void forgetPainting(TopLevel& window);
    bool ownsFacts(xcb_atom_t property) const;

    xcb_connection_t* m_c;
    xcb_window_t m_root;
    X11Extensions m_ext;
    const X11RenderFormats& m_formats;
    X11WindowInspector m_inspector;
    XcbRegion m_parts;
    std::unordered_map<xcb_window_t, TopLevel> m_windows;
    QList<xcb_window_t> m_stacking;
};

} // namespace vistrel::x11
