#pragma once

// The pointer as frames show it: the server's current cursor image at the
// polled position, or a plain arrow while the pointer lies over a window the
// filter leaves out (that window's cursor image could tell what it shows).
//
// Worker thread only. Positions are root coordinates (y-down, pixels).

#include "platform/WindowAdmission.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11WindowTree.h"
#include "platform/x11/XcbResource.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11Cursor {
public:
    X11Cursor(xcb_connection_t* connection, const xcb_screen_t* screen,
              const X11RenderFormats& formats);
    X11Cursor(const X11Cursor&) = delete;
    X11Cursor& operator=(const X11Cursor&) = delete;

    // The server said its cursor image changed: it is read again before the
    // next frame.
    void imageChanged() { m_stale = true; }
    // Reads the position; true when the drawn cursor moved into, inside or
    // out of `area`, or its image is to be read again.
    bool poll(const QRect& area);
    // Before a frame: reads a changed image and picks the one to draw for
    // what lies under the pointer. True when the image to draw changed.
    bool prepare(X11WindowTree& tree, const WindowAdmission& admission);
    // Where the chosen image covers, in root coordinates; empty without one.
    QRect rect() const;
    // Draws the chosen image; `origin` is the target's top-left in root coordinates.
    void draw(xcb_render_picture_t target, QPoint origin) const;

private:
    struct Image {
        XcbPixmap pixmap;
        XcbPicture picture;
        QPoint hotspot;
        QSize size;
    };

    void load();
    void upload(Image* image, QSize size, QPoint hotspot, const quint32* pixels);
    const Image& shown() const { return m_overHidden ? m_arrow : m_image; }
    bool overHiddenWindow(X11WindowTree& tree, const WindowAdmission& admission) const;

    xcb_connection_t* m_c;
    const xcb_screen_t* m_screen;
    const X11RenderFormats& m_formats;
    Image m_image; // the server's current cursor image
    Image m_arrow;
    bool m_overHidden = false;
    bool m_stale = true;
    QPoint m_position{-100000, -100000};
};

} // namespace vistrel::x11
