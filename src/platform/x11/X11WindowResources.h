#pragma once

// What the compositor draws one top-level from, on the server: the window's
// named pixmap and a picture on it, a Damage object, and three regions: the
// pixels known to be painted, the bounding shape and their intersection (the
// clip a frame draws through).
//
// A fresh pixmap (map, resize, new owner) may hold what lay under the window,
// so only pixels damaged since it was made count as painted.
//
// Worker thread only. Regions are window-relative (origin inside the
// border), like Damage and Shape report them.

#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/XcbResource.h"

#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11WindowResources {
public:
    X11WindowResources() = default;
    // Starts watching the window's damage and shape.
    X11WindowResources(xcb_connection_t* connection, xcb_window_t window);

    // Damage or a shape change reported by the server.
    void noteDamage() { m_damaged = true; }
    void noteShapeChange() { m_shapeStale = true; }
    bool damaged() const { return m_damaged; }

    // Lets go of the pixmap (the window was unmapped); a new one is named
    // when it is next drawn.
    void releasePixmap();
    // Nothing painted so far counts: the pixmap is named again and pending
    // damage dropped with it.
    void forgetPainting();
    // Exposes the window and what lies inside it, so that their owners
    // paint again, this time under watch.
    void requestRepaint() const;

    // Moves pending damage into the painted region; the damaged part is
    // also added to `changed` when one is given. `parts` is a scratch region.
    void takeDamage(xcb_xfixes_region_t parts, xcb_xfixes_region_t changed);
    // Makes the picture and clip current; false when the window cannot be
    // drawn this frame (no picture format for its visual, vanished).
    bool prepare(const X11RenderFormats& formats, xcb_visualid_t visual);

    // Valid after a successful prepare().
    xcb_render_picture_t picture() const { return m_picture.get(); }
    bool hasAlpha() const { return m_hasAlpha; }
    xcb_xfixes_region_t clip() const { return m_clip.get(); }

private:
    xcb_connection_t* m_c = nullptr;
    xcb_window_t m_window = XCB_NONE;
    XcbDamage m_damage;
    XcbPixmap m_pixmap;
    XcbPicture m_picture;
    bool m_hasAlpha = false;
    XcbRegion m_valid;
    XcbRegion m_shape;
    XcbRegion m_clip; // valid ∩ shape
    bool m_pixmapStale = true;
    bool m_shapeStale = true;
    bool m_clipStale = true;
    bool m_damaged = false;
};

} // namespace vistrel::x11
