#include "platform/x11/X11WindowTree.h"

#include "platform/x11/XcbPtr.h"

#include <cstring>
#include <xcb/composite.h>
#include <xcb/shape.h>

namespace vistrel::x11 {

namespace {

// How deep below a top-level its windows are exposed for repainting.
constexpr int maxClientSearchDepth = 3;

} // namespace

X11WindowTree::X11WindowTree(xcb_connection_t* connection, xcb_window_t root,
                             const X11Extensions& extensions, const X11RenderFormats& formats)
    : m_c(connection), m_root(root), m_ext(extensions), m_formats(formats),
      m_inspector(connection, root, extensions.hasResource)
{
}

X11WindowTree::~X11WindowTree()
{
    xcb_composite_unredirect_subwindows(m_c, m_root, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
}

bool X11WindowTree::initialize()
{
    m_parts = createRegion(m_c);

    // Events first, so that nothing between the tree query and the
    // selection goes unseen.
    const quint32 rootEvents = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY |
                               XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(m_c, m_root, XCB_CW_EVENT_MASK, &rootEvents);
    auto redirect =
        XcbError(xcb_request_check(m_c, xcb_composite_redirect_subwindows_checked(
                                            m_c, m_root, XCB_COMPOSITE_REDIRECT_AUTOMATIC)));
    if (redirect)
        return false;

    auto [tree, error] = xcbReply(xcb_query_tree_reply, m_c, xcb_query_tree(m_c, m_root));
    if (!tree)
        return false;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    for (int i = 0; i < count; ++i) {
        auto [geometry, gError] =
            xcbReply(xcb_get_geometry_reply, m_c, xcb_get_geometry(m_c, children[i]));
        if (!geometry)
            continue; // vanished meanwhile
        TopLevel* w =
            add(children[i],
                QRect(geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                      geometry->height + 2 * geometry->border_width),
                geometry->border_width, false);
        readAttributes(*w);
        if (w->mapped) {
            resolveFacts(*w);
            // The redirection just gave it a pixmap filled from the screen,
            // where windows above it showed: only what its owner paints from
            // now on counts.
            forgetPainting(*w);
            requestRepaint(w->id);
        }
    }
    return true;
}

TopLevel* X11WindowTree::find(xcb_window_t id)
{
    auto it = m_windows.find(id);
    return it == m_windows.end() ? nullptr : &it->second;
}

TopLevel* X11WindowTree::add(xcb_window_t id, const QRect& outer, int border, bool overrideRedirect)
{
    remove(id);
    TopLevel w;
    w.id = id;
    w.outer = outer;
    w.border = border;
    w.overrideRedirect = overrideRedirect;
    w.damage = createDamage(m_c, id);
    w.valid = createRegion(m_c);
    w.clip = createRegion(m_c);
    xcb_shape_select_input(m_c, id, 1);
    // Reparenting into a frame changes who owns what the frame shows; an
    // unframed window is its own client, whose properties name its owner.
    const quint32 events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(m_c, id, XCB_CW_EVENT_MASK, &events);
    m_stacking.append(id);
    return &m_windows.insert_or_assign(id, std::move(w)).first->second;
}

void X11WindowTree::remove(xcb_window_t id)
{
    auto it = m_windows.find(id);
    if (it == m_windows.end())
        return;
    // Its resources go with it. The damage object dies with the window;
    // destroying it twice is a harmless error, leaking it for a window
    // reparented away is not.
    m_windows.erase(it);
    m_stacking.removeOne(id);
}

void X11WindowTree::restack(xcb_window_t id, xcb_window_t above)
{
    if (!m_stacking.removeOne(id))
        return;
    if (above == XCB_WINDOW_NONE) {
        m_stacking.prepend(id);
        return;
    }
    const qsizetype index = m_stacking.indexOf(above);
    if (index < 0)
        m_stacking.append(id);
    else
        m_stacking.insert(index + 1, id);
}

void X11WindowTree::releasePixmap(TopLevel& w)
{
    w.picture.reset();
    w.pixmap.reset();
    w.pixmapStale = true;
}

void X11WindowTree::forgetPainting(TopLevel& w)
{
    // Damage still pending belongs to the old pixmap: drop it with the rest.
    releasePixmap(w);
    xcb_damage_subtract(m_c, w.damage.get(), XCB_NONE, XCB_NONE);
    w.damaged = false;
    xcb_xfixes_set_region(m_c, w.valid.get(), 0, nullptr);
    w.clipStale = true;
    w.shapeStale = true;
}

void X11WindowTree::readAttributes(TopLevel& w)
{
    auto [attributes, error] =
        xcbReply(xcb_get_window_attributes_reply, m_c, xcb_get_window_attributes(m_c, w.id));
    if (!attributes) {
        w.mapped = false;
        return;
    }
    w.mapped = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    w.overrideRedirect = attributes->override_redirect;
    w.inputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
    w.visual = attributes->visual;
}

bool X11WindowTree::ownsFacts(xcb_atom_t property) const
{
    const X11Atoms& a = m_inspector.atoms();
    return property == XCB_ATOM_WM_CLASS || property == a.wmState || property == a.netWmPid ||
           property == a.netWmWindowType || property == a.gtkApplicationId ||
           property == a.kdeNetWmDesktopFile;
}

void X11WindowTree::resolveFacts(TopLevel& w)
{
    WindowFacts facts = m_inspector.ownership(w.id, w.overrideRedirect).facts();
    // A frame whose client has left is on its way out, and its pixmap may
    // still hold the client's last pixels: it has no owner that could be
    // shown until a client lives in it again.
    if (facts.windowID == w.id && w.factsResolved && (w.orphaned || w.facts.windowID != w.id)) {
        facts.ownerPid.reset();
        w.orphaned = true;
    } else {
        w.orphaned = false;
    }
    const bool changed = w.factsResolved &&
                         (facts.windowID != w.facts.windowID || facts.ownerPid != w.facts.ownerPid);
    if (facts.windowID != w.id && (!w.factsResolved || facts.windowID != w.facts.windowID)) {
        // The client's class, pid and type can change after it is mapped.
        const quint32 events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(m_c, facts.windowID, XCB_CW_EVENT_MASK, &events);
    }
    w.facts = facts;
    w.factsResolved = true;
    if (changed && w.mapped) {
        // A frame whose client left still holds that client's last pixels
        // (and one that just got a client may hold another's): nothing
        // painted under the old owner is shown under the new one.
        forgetPainting(w);
        requestRepaint(w.id);
    }
}

void X11WindowTree::requestRepaint(xcb_window_t top)
{
    // What the window painted before its damage was being watched counts as
    // unpainted; exposing the window and everything inside it makes the
    // owners paint it again, this time under watch.
    QList<xcb_window_t> level{top};
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

void X11WindowTree::takeDamage(TopLevel& w, xcb_xfixes_region_t changed)
{
    if (!w.damaged)
        return;
    w.damaged = false;
    xcb_damage_subtract(m_c, w.damage.get(), XCB_NONE, m_parts.get());
    xcb_xfixes_union_region(m_c, w.valid.get(), m_parts.get(), w.valid.get());
    if (changed)
        xcb_xfixes_union_region(m_c, changed, m_parts.get(), changed);
    w.clipStale = true;
}

bool X11WindowTree::prepare(TopLevel& w)
{
    if (!w.mapped || w.inputOnly || !w.factsResolved)
        return false;
    if (w.pixmapStale) {
        releasePixmap(w);
        const xcb_render_pictformat_t format = m_formats.forVisual(w.visual);
        if (!format)
            return false;
        const xcb_pixmap_t pixmap = xcb_generate_id(m_c);
        if (XcbError(xcb_request_check(
                m_c, xcb_composite_name_window_pixmap_checked(m_c, w.id, pixmap))))
            return false; // unmapped meanwhile; its unmap event is on its way
        w.pixmap = XcbPixmap(m_c, pixmap);
        const quint32 values[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
        w.picture = createPicture(m_c, pixmap, format, XCB_RENDER_CP_SUBWINDOW_MODE, values);
        w.pictureHasAlpha = m_formats.hasAlpha.value(format, false);
        w.pixmapStale = false;
    }
    if (w.shapeStale) {
        const xcb_xfixes_region_t shape = xcb_generate_id(m_c);
        xcb_xfixes_create_region_from_window(m_c, shape, w.id, XCB_SHAPE_SK_BOUNDING);
        w.shape = XcbRegion(m_c, shape);
        w.shapeStale = false;
        w.clipStale = true;
    }
    if (w.clipStale) {
        xcb_xfixes_intersect_region(m_c, w.valid.get(), w.shape.get(), w.clip.get());
        w.clipStale = false;
    }
    return true;
}

X11WindowTree::Change X11WindowTree::handleEvent(const xcb_generic_event_t* event,
                                                 xcb_window_t* window)
{
    *window = XCB_WINDOW_NONE;
    const quint8 type = event->response_type & 0x7f;
    if (type == m_ext.damageFirstEvent + XCB_DAMAGE_NOTIFY) {
        const auto* e = reinterpret_cast<const xcb_damage_notify_event_t*>(event);
        if (TopLevel* w = find(e->drawable)) {
            w->damaged = true;
            *window = w->id;
            return Change::content;
        }
        return Change::none;
    }
    if (type == m_ext.shapeFirstEvent + XCB_SHAPE_NOTIFY) {
        const auto* e = reinterpret_cast<const xcb_shape_notify_event_t*>(event);
        if (TopLevel* w = find(e->affected_window)) {
            w->shapeStale = true;
            *window = w->id;
            return Change::structure;
        }
        return Change::none;
    }
    switch (type) {
    case XCB_CREATE_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_create_notify_event_t*>(event);
        if (e->parent != m_root)
            return Change::none;
        TopLevel* w =
            add(e->window,
                QRect(e->x, e->y, e->width + 2 * e->border_width, e->height + 2 * e->border_width),
                e->border_width, e->override_redirect);
        readAttributes(*w);
        w->mapped = false; // a map event follows if it is mapped already
        *window = e->window;
        return Change::none;
    }
    case XCB_DESTROY_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_destroy_notify_event_t*>(event);
        if (e->event != m_root) {
            // Something inside a frame went away: re-read who owns it.
            if (TopLevel* w = find(e->event); w && w->mapped)
                resolveFacts(*w);
            *window = e->event;
            return Change::structure;
        }
        const bool wasMapped = find(e->window) && find(e->window)->mapped;
        remove(e->window);
        *window = e->window;
        return wasMapped ? Change::structure : Change::none;
    }
    case XCB_MAP_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_map_notify_event_t*>(event);
        TopLevel* w = find(e->event == m_root ? e->window : e->event);
        if (!w)
            return Change::none;
        if (e->event == m_root) {
            w->mapped = true;
            w->overrideRedirect = e->override_redirect;
            // The server hands out a new pixmap on map, which may hold what lay
            // under the window until its owner paints.
            forgetPainting(*w);
            w->orphaned = false; // mapped anew: whoever lives in it now owns it
            w->factsResolved = false;
        }
        // Owner first, before this window can reach any frame.
        resolveFacts(*w);
        if (e->event == m_root)
            requestRepaint(w->id);
        *window = w->id;
        return Change::structure;
    }
    case XCB_UNMAP_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_unmap_notify_event_t*>(event);
        if (e->event != m_root)
            return Change::none;
        TopLevel* w = find(e->window);
        if (!w)
            return Change::none;
        w->mapped = false;
        releasePixmap(*w);
        *window = w->id;
        return Change::structure;
    }
    case XCB_REPARENT_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_reparent_notify_event_t*>(event);
        if (e->event != m_root) {
            if (TopLevel* w = find(e->event); w && w->mapped)
                resolveFacts(*w);
            *window = e->event;
            return Change::structure;
        }
        if (e->parent == m_root) {
            auto [geometry, error] =
                xcbReply(xcb_get_geometry_reply, m_c, xcb_get_geometry(m_c, e->window));
            if (!geometry)
                return Change::none;
            TopLevel* w =
                add(e->window,
                    QRect(geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                          geometry->height + 2 * geometry->border_width),
                    geometry->border_width, e->override_redirect);
            readAttributes(*w);
            if (w->mapped)
                resolveFacts(*w);
            *window = e->window;
            return Change::structure;
        }
        const bool wasMapped = find(e->window) && find(e->window)->mapped;
        remove(e->window);
        *window = e->window;
        return wasMapped ? Change::structure : Change::none;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_configure_notify_event_t*>(event);
        if (e->event != m_root || e->window == m_root)
            return e->window == m_root ? Change::structure : Change::none;
        TopLevel* w = find(e->window);
        if (!w)
            return Change::none;
        const QRect outer(e->x, e->y, e->width + 2 * e->border_width,
                          e->height + 2 * e->border_width);
        bool resize = false;
        if (outer.size() != w->outer.size() || e->border_width != w->border) {
            // A new pixmap, filled by the server from whatever the screen
            // showed there: nothing counts until the owner paints again.
            forgetPainting(*w);
            resize = true;
        }
        w->outer = outer;
        w->border = e->border_width;
        w->overrideRedirect = e->override_redirect;
        restack(w->id, e->above_sibling);
        if (resize && w->mapped)
            requestRepaint(w->id);
        *window = w->id;
        return w->mapped ? Change::structure : Change::none;
    }
    case XCB_PROPERTY_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_property_notify_event_t*>(event);
        if (e->window == m_root || !ownsFacts(e->atom))
            return Change::none;
        for (auto& [id, w] : m_windows) {
            if (w.id != e->window && !(w.factsResolved && w.facts.windowID == e->window))
                continue;
            if (!w.mapped)
                return Change::none;
            const WindowFacts before = w.facts;
            resolveFacts(w);
            *window = w.id;
            return w.facts == before ? Change::none : Change::structure;
        }
        return Change::none;
    }
    case XCB_CIRCULATE_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_circulate_notify_event_t*>(event);
        if (e->event != m_root || !m_stacking.removeOne(e->window))
            return Change::none;
        if (e->place == XCB_PLACE_ON_TOP)
            m_stacking.append(e->window);
        else
            m_stacking.prepend(e->window);
        *window = e->window;
        return Change::structure;
    }
    default:
        return Change::none;
    }
}

} // namespace vistrel::x11
