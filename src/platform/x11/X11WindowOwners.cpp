#include "platform/x11/X11WindowOwners.h"

namespace vistrel::x11 {

X11WindowOwners::X11WindowOwners(xcb_connection_t* connection, xcb_window_t root, bool hasResource)
    : m_c(connection), m_inspector(connection, root, hasResource)
{
}

bool X11WindowOwners::isOwnerProperty(xcb_atom_t property) const
{
    const X11Atoms& a = m_inspector.atoms();
    return property == XCB_ATOM_WM_CLASS || property == a.wmState || property == a.netWmPid ||
           property == a.netWmWindowType || property == a.gtkApplicationId ||
           property == a.kdeNetWmDesktopFile;
}

bool X11WindowOwners::resolve(TopLevel& w)
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
    return changed;
}

} // namespace vistrel::x11
