#include "platform/x11/X11WindowTree.h"

#include "platform/x11/XcbPtr.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shape.h>

namespace vistrel::x11 {

X11WindowTree::X11WindowTree(xcb_connection_t* connection, xcb_window_t root,
                             const X11Extensions& extensions, const X11RenderFormats& formats)
    : m_c(connection), m_root(root), m_ext(extensions), m_formats(formats),
      m_owners(connection, root, extensions.hasResource)
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
        TopLevel* w = adopt(children[i], false);
        if (w && w->mapped) {
            resolveOwner(*w);
            // The redirection just gave it a pixmap filled from the screen,
            // where windows above it showed: only what its owner paints from
            // now on counts.
            w->resources.forgetPainting();
            w->resources.requestRepaint();
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
    w.resources = X11WindowResources(m_c, id);
    // Reparenting into a frame changes who owns what the frame shows; an
    // unframed window is its own client, whose properties name its owner.
    const quint32 events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(m_c, id, XCB_CW_EVENT_MASK, &events);
    m_stacking.append(id);
    return &m_windows.insert_or_assign(id, std::move(w)).first->second;
}

TopLevel* X11WindowTree::adopt(xcb_window_t id, bool overrideRedirect)
{
    auto [geometry, error] = xcbReply(xcb_get_geometry_reply, m_c, xcb_get_geometry(m_c, id));
    if (!geometry)
        return nullptr; // vanished meanwhile
    const int border = geometry->border_width;
    TopLevel* w = add(id,
                      QRect(geometry->x, geometry->y, geometry->width + 2 * border,
                            geometry->height + 2 * border),
                      border, overrideRedirect);
    readAttributes(*w);
    return w;
}

void X11WindowTree::remove(xcb_window_t id)
{
    // Its resources go with it. The damage object dies with the window;
    // destroying it twice is a harmless error, leaking it for a window
    // reparented away is not.
    if (m_windows.erase(id))
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

void X11WindowTree::resolveOwner(TopLevel& w)
{
    if (m_owners.resolve(w) && w.mapped) {
        // A frame whose client left still holds that client's last pixels
        // (and one that just got a client may hold another's): nothing
        // painted under the old owner is shown under the new one.
        w.resources.forgetPainting();
        w.resources.requestRepaint();
    }
}

void X11WindowTree::takeDamage(TopLevel& w, xcb_xfixes_region_t changed)
{
    w.resources.takeDamage(m_parts.get(), changed);
}

bool X11WindowTree::prepare(TopLevel& w)
{
    if (!w.mapped || w.inputOnly || !w.factsResolved)
        return false;
    return w.resources.prepare(m_formats, w.visual);
}

X11WindowTree::Change X11WindowTree::handleEvent(const xcb_generic_event_t* event,
                                                 xcb_window_t* window)
{
    *window = XCB_WINDOW_NONE;
    const quint8 type = event->response_type & 0x7f;
    if (type == m_ext.damageFirstEvent + XCB_DAMAGE_NOTIFY) {
        const auto* e = reinterpret_cast<const xcb_damage_notify_event_t*>(event);
        TopLevel* w = find(e->drawable);
        if (!w)
            return Change::none;
        w->resources.noteDamage();
        *window = w->id;
        return Change::content;
    }
    if (type == m_ext.shapeFirstEvent + XCB_SHAPE_NOTIFY) {
        const auto* e = reinterpret_cast<const xcb_shape_notify_event_t*>(event);
        TopLevel* w = find(e->affected_window);
        if (!w)
            return Change::none;
        w->resources.noteShapeChange();
        *window = w->id;
        return Change::structure;
    }
    switch (type) {
    case XCB_CREATE_NOTIFY:
        return onCreated(*reinterpret_cast<const xcb_create_notify_event_t*>(event), window);
    case XCB_DESTROY_NOTIFY: {
        const auto* e = reinterpret_cast<const xcb_destroy_notify_event_t*>(event);
        return e->event == m_root ? onLeft(e->window, window) : onContentChanged(e->event, window);
    }
    case XCB_MAP_NOTIFY:
        return onMapped(*reinterpret_cast<const xcb_map_notify_event_t*>(event), window);
    case XCB_UNMAP_NOTIFY:
        return onUnmapped(*reinterpret_cast<const xcb_unmap_notify_event_t*>(event), window);
    case XCB_REPARENT_NOTIFY:
        return onReparented(*reinterpret_cast<const xcb_reparent_notify_event_t*>(event), window);
    case XCB_CONFIGURE_NOTIFY:
        return onConfigured(*reinterpret_cast<const xcb_configure_notify_event_t*>(event), window);
    case XCB_PROPERTY_NOTIFY:
        return onPropertyChanged(*reinterpret_cast<const xcb_property_notify_event_t*>(event),
                                 window);
    case XCB_CIRCULATE_NOTIFY:
        return onCirculated(*reinterpret_cast<const xcb_circulate_notify_event_t*>(event), window);
    default:
        return Change::none;
    }
}

X11WindowTree::Change X11WindowTree::onCreated(const xcb_create_notify_event_t& e,
                                               xcb_window_t* window)
{
    if (e.parent != m_root)
        return Change::none;
    TopLevel* w =
        add(e.window, QRect(e.x, e.y, e.width + 2 * e.border_width, e.height + 2 * e.border_width),
            e.border_width, e.override_redirect);
    readAttributes(*w);
    w->mapped = false; // a map event follows if it is mapped already
    *window = e.window;
    return Change::none;
}

X11WindowTree::Change X11WindowTree::onContentChanged(xcb_window_t top, xcb_window_t* window)
{
    // Something inside a frame went away: re-read who owns it.
    if (TopLevel* w = find(top); w && w->mapped)
        resolveOwner(*w);
    *window = top;
    return Change::structure;
}

X11WindowTree::Change X11WindowTree::onLeft(xcb_window_t id, xcb_window_t* window)
{
    const TopLevel* w = find(id);
    const bool wasMapped = w && w->mapped;
    remove(id);
    *window = id;
    return wasMapped ? Change::structure : Change::none;
}

X11WindowTree::Change X11WindowTree::onMapped(const xcb_map_notify_event_t& e, xcb_window_t* window)
{
    const bool topLevel = e.event == m_root;
    TopLevel* w = find(topLevel ? e.window : e.event);
    if (!w)
        return Change::none;
    if (topLevel) {
        w->mapped = true;
        w->overrideRedirect = e.override_redirect;
        // The server hands out a new pixmap on map, which may hold what lay
        // under the window until its owner paints.
        w->resources.forgetPainting();
        w->orphaned = false; // mapped anew: whoever lives in it now owns it
        w->factsResolved = false;
    }
    // Owner first, before this window can reach any frame.
    resolveOwner(*w);
    if (topLevel)
        w->resources.requestRepaint();
    *window = w->id;
    return Change::structure;
}

X11WindowTree::Change X11WindowTree::onUnmapped(const xcb_unmap_notify_event_t& e,
                                                xcb_window_t* window)
{
    if (e.event != m_root)
        return Change::none;
    TopLevel* w = find(e.window);
    if (!w)
        return Change::none;
    w->mapped = false;
    w->resources.releasePixmap();
    *window = w->id;
    return Change::structure;
}

X11WindowTree::Change X11WindowTree::onReparented(const xcb_reparent_notify_event_t& e,
                                                  xcb_window_t* window)
{
    if (e.event != m_root)
        return onContentChanged(e.event, window);
    if (e.parent != m_root)
        return onLeft(e.window, window);
    TopLevel* w = adopt(e.window, e.override_redirect);
    if (!w)
        return Change::none;
    if (w->mapped)
        resolveOwner(*w);
    *window = e.window;
    return Change::structure;
}

X11WindowTree::Change X11WindowTree::onConfigured(const xcb_configure_notify_event_t& e,
                                                  xcb_window_t* window)
{
    if (e.window == m_root)
        return Change::structure;
    if (e.event != m_root)
        return Change::none;
    TopLevel* w = find(e.window);
    if (!w)
        return Change::none;
    const QRect outer(e.x, e.y, e.width + 2 * e.border_width, e.height + 2 * e.border_width);
    const bool resized = outer.size() != w->outer.size() || e.border_width != w->border;
    if (resized) {
        // A new pixmap, filled by the server from whatever the screen
        // showed there: nothing counts until the owner paints again.
        w->resources.forgetPainting();
    }
    w->outer = outer;
    w->border = e.border_width;
    w->overrideRedirect = e.override_redirect;
    restack(w->id, e.above_sibling);
    if (resized && w->mapped)
        w->resources.requestRepaint();
    *window = w->id;
    return w->mapped ? Change::structure : Change::none;
}

X11WindowTree::Change X11WindowTree::onPropertyChanged(const xcb_property_notify_event_t& e,
                                                       xcb_window_t* window)
{
    if (e.window == m_root || !m_owners.isOwnerProperty(e.atom))
        return Change::none;
    for (auto& [id, w] : m_windows) {
        if (id != e.window && !(w.factsResolved && w.facts.windowID == e.window))
            continue;
        if (!w.mapped)
            return Change::none;
        const WindowFacts before = w.facts;
        resolveOwner(w);
        *window = w.id;
        return w.facts == before ? Change::none : Change::structure;
    }
    return Change::none;
}

X11WindowTree::Change X11WindowTree::onCirculated(const xcb_circulate_notify_event_t& e,
                                                  xcb_window_t* window)
{
    if (e.event != m_root || !m_stacking.removeOne(e.window))
        return Change::none;
    if (e.place == XCB_PLACE_ON_TOP)
        m_stacking.append(e.window);
    else
        m_stacking.prepend(e.window);
    *window = e.window;
    return Change::structure;
}

} // namespace vistrel::x11
