#pragma once

// Which of discovery's cached facts an event from the X server makes stale.
// Discovery keeps one connection and a cache of the desktop between passes,
// and re-reads only what the events queued since the last pass name.
//
// Pure: it decides from the event and the ids it was given, never asks the
// server, so it is tested by table. Any thread.
//
// The events it understands are those discovery selects: SubstructureNotify,
// StructureNotify and PropertyChange on the root, PropertyChange and
// SubstructureNotify on each top-level, PropertyChange and StructureNotify
// on each client inside a frame, and RandR's screen changes.

#include "platform/x11/X11Atoms.h"

#include <QList>
#include <xcb/xcb.h>

namespace vistrel::x11 {

struct DiscoveryStaleness {
    bool topLevels = false;      // the root's children or their stacking order
    bool rootProperties = false; // client list, active window, desktop, window manager
    bool displays = false;       // the RandR monitors
    // Windows (top-levels or clients) whose properties or geometry changed:
    // their facts are read again.
    QList<xcb_window_t> facts;
    // Windows whose place in the tree or map state changed: which client a
    // top-level holds is found again, then its facts are read.
    QList<xcb_window_t> structure;

    bool isEmpty() const
    {
        return !topLevels && !rootProperties && !displays && facts.isEmpty() && structure.isEmpty();
    }
    friend bool operator==(const DiscoveryStaleness&, const DiscoveryStaleness&) = default;
};

class X11DiscoveryInvalidation {
public:
    // randrFirstEvent: RandR's first event code on this connection, 0 without RandR.
    X11DiscoveryInvalidation(xcb_window_t root, const X11Atoms& atoms, quint8 randrFirstEvent);

    // wmCheck: the window manager's check window last read (XCB_NONE when
    // none runs); its loss or change means another window manager, or none.
    // Errors (response type 0) and events of no interest give nothing.
    DiscoveryStaleness staleAfter(const xcb_generic_event_t* event, xcb_window_t wmCheck) const;

private:
    DiscoveryStaleness onProperty(const xcb_property_notify_event_t& e, xcb_window_t wmCheck) const;

    xcb_window_t m_root;
    X11Atoms m_atoms;
    quint8 m_randrFirstEvent;
};

} // namespace vistrel::x11
