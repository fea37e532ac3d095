#include "platform/x11/X11WindowResources.h"

#include "platform/x11/XcbPtr.h"

#include <QList>
#include <xcb/composite.h>
#include <xcb/shape.h>

namespace vistrel::x11 {

namespace {

// How deep below a top-level its windows are exposed for repainting.
constexpr int maxClientSearchDepth = 3;

} // namespace

X11WindowResources::X11WindowResources(xcb_connection_t* connection, xcb_window_t window)
    : m_c(connection), m_window(window), m_damage(createDamage(connection, window)),
      m_valid(createRegion(connection)), m_clip(createRegion(connection))
{
    xcb_shape_select_input(m_c, window, 1);
}

void X11WindowResources::releasePixmap()
{
    m_picture.reset();
    m_pixmap.reset();
    m_pixmapStale = true;
}

void X11WindowResources::forgetPainting()
{
    // Damage still pending belongs to the old pixmap: drop it with the rest.
    releasePixmap();
    xcb_damage_subtract(m_c, m_damage.get(), XCB_NONE, XCB_NONE);
    m_damaged = false;
    xcb_xfixes_set_region(m_c, m_valid.get(), 0, nullptr);
    m_clipStale = true;
    m_shapeStale = true;
}

void X11WindowResources::requestRepaint() const
{
    // What the window painted before its damage was being watched counts as
    // unpainted; exposing the window and everything inside it makes the
    // owners paint it again.
    QList<xcb_window_t> level{m_window};
    for (int depth = 0; depth <= maxClientSearchDepth && !level.isEmpty(); ++depth) {
        QList<xcb_window_t> next;
        QList<xcb_query_tree_cookie_t> cookies;
        for (xcb_window_t window : level) {
            xcb_clear_area(m_c, 1, window, 0, 0, 0, 0);
            if (depth < maxClientSearchDepth)
                cookies.append(xcb_query_tree(m_c, window));
        }
        for (const auto& cookie : cookies) {
            auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, cookie);
            if (!tree)
                continue;
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i)
                next.append(children[i]);
        }
        level = next;
    }
}

void X11WindowResources::takeDamage(xcb_xfixes_region_t parts, xcb_xfixes_region_t changed)
{
    if (!m_damaged)
        return;
    m_damaged = false;
    xcb_damage_subtract(m_c, m_damage.get(), XCB_NONE, parts);
    xcb_xfixes_union_region(m_c, m_valid.get(), parts, m_valid.get());
    if (changed)
        xcb_xfixes_union_region(m_c, changed, parts, changed);
    m_clipStale = true;
}

bool X11WindowResources::prepare(const X11RenderFormats& formats, xcb_visualid_t visual)
{
    if (m_pixmapStale) {
        releasePixmap();
        const xcb_render_pictformat_t format = formats.forVisual(visual);
        if (!format)
            return false;
        const xcb_pixmap_t pixmap = xcb_generate_id(m_c);
        if (XcbError(xcb_request_check(
                m_c, xcb_composite_name_window_pixmap_checked(m_c, m_window, pixmap))))
            return false; // unmapped meanwhile; its unmap event is on its way
        m_pixmap = XcbPixmap(m_c, pixmap);
        const quint32 values[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
        m_picture = createPicture(m_c, pixmap, format, XCB_RENDER_CP_SUBWINDOW_MODE, values);
        m_hasAlpha = formats.hasAlpha.value(format, false);
        m_pixmapStale = false;
    }
    if (m_shapeStale) {
        const xcb_xfixes_region_t shape = xcb_generate_id(m_c);
        xcb_xfixes_create_region_from_window(m_c, shape, m_window, XCB_SHAPE_SK_BOUNDING);
        m_shape = XcbRegion(m_c, shape);
        m_shapeStale = false;
        m_clipStale = true;
    }
    if (m_clipStale) {
        xcb_xfixes_intersect_region(m_c, m_valid.get(), m_shape.get(), m_clip.get());
        m_clipStale = false;
    }
    return true;
}

} // namespace vistrel::x11
