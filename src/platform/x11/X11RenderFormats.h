#pragma once

// Render picture formats of one connection, looked up once.

#include <QHash>
#include <xcb/render.h>

namespace vistrel::x11 {

struct X11RenderFormats {
    xcb_render_pictformat_t argb32 = 0; // 32-bit, alpha in the top byte
    xcb_render_pictformat_t rgb24 = 0;  // 24-bit depth in 32-bit pixels, no alpha
    QHash<xcb_visualid_t, xcb_render_pictformat_t> byVisual;
    QHash<xcb_render_pictformat_t, bool> hasAlpha;

    // False when the server lacks a standard 32- or 24-bit format.
    bool load(xcb_connection_t* connection);
    xcb_render_pictformat_t forVisual(xcb_visualid_t visual) const
    {
        return byVisual.value(visual, 0);
    }
};

} // namespace vistrel::x11
