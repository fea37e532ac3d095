#include "platform/x11/X11DiscoveryInvalidation.h"

#include <xcb/randr.h>

namespace vistrel::x11 {

namespace {

template<class Event> const Event& as(const xcb_generic_event_t* event)
{
    return *reinterpret_cast<const Event*>(event);
}

} // namespace

X11DiscoveryInvalidation::X11DiscoveryInvalidation(xcb_window_t root, const X11Atoms& atoms,
                                                   quint8 randrFirstEvent)
    : m_root(root), m_atoms(atoms), m_randrFirstEvent(randrFirstEvent)
{
}

DiscoveryStaleness X11DiscoveryInvalidation::staleAfter(const xcb_generic_event_t* event,
                                                        xcb_window_t wmCheck) const
{
    DiscoveryStaleness stale;
    const quint8 type = event->response_type & 0x7f;
    if (type == 0) // an error, e.g. a selection on a window that had already gone
        return stale;
    if (m_randrFirstEvent && (type == m_randrFirstEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                              type == m_randrFirstEvent + XCB_RANDR_NOTIFY)) {
        stale.displays = true;
        return stale;
    }
    // Events about a window inside a top-level (event = its parent) concern
    // that top-level as well.
    const auto inside = [&](xcb_window_t parent, xcb_window_t window) {
        if (parent != m_root && parent != window)
            stale.structure << parent;
    };
    switch (type) {
    case XCB_CREATE_NOTIFY: {
        const auto& e = as<xcb_create_notify_event_t>(event);
        if (e.parent == m_root)
            stale.topLevels = true;
        else
            stale.structure << e.parent;
        break;
    }
    case XCB_DESTROY_NOTIFY: {
        const auto& e = as<xcb_destroy_notify_event_t>(event);
        stale.topLevels = e.event == m_root;
        stale.rootProperties = wmCheck != XCB_NONE && e.window == wmCheck;
        stale.structure << e.window;
        inside(e.event, e.window);
        break;
    }
    case XCB_MAP_NOTIFY: {
        const auto& e = as<xcb_map_notify_event_t>(event);
        stale.structure << e.window;
        inside(e.event, e.window);
        break;
    }
    case XCB_UNMAP_NOTIFY: {
        const auto& e = as<xcb_unmap_notify_event_t>(event);
        stale.structure << e.window;
        inside(e.event, e.window);
        break;
    }
    case XCB_REPARENT_NOTIFY: {
        // Into a frame, out of one, or back to the root when a window
        // manager goes: the old and the new parent both change.
        const auto& e = as<xcb_reparent_notify_event_t>(event);
        stale.topLevels = e.event == m_root || e.parent == m_root;
        stale.structure << e.window;
        if (e.parent != m_root)
            stale.structure << e.parent;
        inside(e.event, e.window);
        break;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto& e = as<xcb_configure_notify_event_t>(event);
        if (e.window == m_root) { // RandR's monitor changes resize or notify the root
            stale.displays = true;
            break;
        }
        // A top-level's configure may restack it; a client's moves its inside.
        stale.topLevels = e.event == m_root;
        stale.facts << e.window;
        break;
    }
    case XCB_GRAVITY_NOTIFY:
        stale.facts << as<xcb_gravity_notify_event_t>(event).window;
        break;
    case XCB_CIRCULATE_NOTIFY:
        stale.topLevels = as<xcb_circulate_notify_event_t>(event).event == m_root;
        break;
    case XCB_PROPERTY_NOTIFY:
        return onProperty(as<xcb_property_notify_event_t>(event), wmCheck);
    default:
        break;
    }
    return stale;
}

DiscoveryStaleness X11DiscoveryInvalidation::onProperty(const xcb_property_notify_event_t& e,
                                                        xcb_window_t wmCheck) const
{
    const X11Atoms& a = m_atoms;
    DiscoveryStaleness stale;
    if (e.window == m_root || (wmCheck != XCB_NONE && e.window == wmCheck)) {
        stale.rootProperties = e.atom == a.netClientListStacking || e.atom == a.netActiveWindow ||
                               e.atom == a.netCurrentDesktop || e.atom == a.netSupportingWmCheck;
        return stale;
    }
    // WM_STATE marks the client of a frame: which window is the client may change.
    if (e.atom == a.wmState) {
        stale.structure << e.window;
        return stale;
    }
    const xcb_atom_t read[] = {XCB_ATOM_WM_CLASS,  XCB_ATOM_WM_NAME,      a.netWmName,
                               a.gtkApplicationId, a.kdeNetWmDesktopFile, a.netWmWindowType,
                               a.netWmState,       a.netWmDesktop,        a.netWmPid};
    for (xcb_atom_t atom : read) {
        if (atom != XCB_ATOM_NONE && e.atom == atom) {
            stale.facts << e.window;
            break;
        }
    }
    return stale;
}

} // namespace vistrel::x11
