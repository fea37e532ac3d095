#pragma once

// Discovery's view of one X display, kept between passes: one connection,
// the root's children in stacking order, which client each holds, and the
// facts of every listed window. Each pass drains the events queued since the
// last one, re-reads only what they made stale (X11DiscoveryInvalidation)
// and answers from the cache, so an idle desktop costs no request at all.
//
// Selected events: SubstructureNotify, StructureNotify and PropertyChange on
// the root, RandR screen changes, PropertyChange and SubstructureNotify on
// each top-level the first time it is seen, PropertyChange and
// StructureNotify on each client inside a frame.
//
// Threading: not thread-safe; one thread at a time (the owner serialises).
// Failures are values: no display, no RandR 1.5, or a lost connection, which
// drops the connection and cache so that the next pass connects again.
// Coordinates: root (global), y-down, pixels.

#include "platform/PlatformError.h"
#include "platform/ShareableContent.h"
#include "platform/x11/X11DiscoveryInvalidation.h"
#include "platform/x11/X11WindowInspector.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QList>
#include <memory>
#include <optional>
#include <unordered_map>
#include <variant>

namespace vistrel::x11 {

struct X11Desktop {
    QList<LiveDisplay> displays;
    QList<X11WindowInfo> windows; // the listed windows, front to back
    std::optional<xcb_window_t> activeWindow;
    std::optional<quint32> currentDesktop;
};

class X11DiscoveryCache {
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11DiscoveryCache(QByteArray displayName);
    ~X11DiscoveryCache();
    X11DiscoveryCache(const X11DiscoveryCache&) = delete;
    X11DiscoveryCache& operator=(const X11DiscoveryCache&) = delete;

    // Blocking. Connects first when there is no connection.
    std::variant<X11Desktop, PlatformError> pass();

    // Windows whose facts the last pass read from the server.
    int windowsRead() const { return m_windowsRead; }

private:
    struct TopLevelEntry {
        bool structureKnown = false; // attributes and client below read
        bool factsKnown = false;     // info read for the current candidate
        bool exists = false;
        bool inputOnly = false;
        bool overrideRedirect = false;
        bool viewable = false;
        std::optional<xcb_window_t> client;
        std::optional<X11WindowInfo> info; // none: vanished while read
    };
    struct Candidate {
        xcb_window_t client;
        xcb_window_t frame;
    };

    std::optional<PlatformError> connect();
    void disconnect();
    void apply(const DiscoveryStaleness& stale);
    TopLevelEntry* entryFor(xcb_window_t window);
    // Top-levels not known to hold a client yet (viewable ones only, or all).
    void forgetUnresolved(bool viewableOnly);
    void readRootProperties();
    void readTopLevels();
    void readStructure();
    void setClient(xcb_window_t topLevel, TopLevelEntry& entry, std::optional<xcb_window_t> client);
    QList<Candidate> candidates() const; // bottom to top
    void follow(xcb_window_t window);

    QByteArray m_displayName;
    XcbConnection m_connection;
    xcb_connection_t* m_c = nullptr;
    const xcb_screen_t* m_screen = nullptr;
    std::unique_ptr<X11WindowInspector> m_inspector;
    std::unique_ptr<X11DiscoveryInvalidation> m_invalidation;

    bool m_displaysStale = true;
    bool m_rootStale = true;
    bool m_topLevelsStale = true;
    QList<LiveDisplay> m_displays;
    std::optional<xcb_window_t> m_wmCheck;
    std::optional<QList<xcb_window_t>> m_clientList;
    std::optional<xcb_window_t> m_active;
    std::optional<quint32> m_desktop;
    QList<xcb_window_t> m_stacking; // the root's children, bottom to top
    std::unordered_map<xcb_window_t, TopLevelEntry> m_topLevels;
    std::unordered_map<xcb_window_t, xcb_window_t> m_topLevelOfClient;
    int m_windowsRead = 0;
};

} // namespace vistrel::x11
