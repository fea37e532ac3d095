#include "platform/x11/X11DiscoveryCache.h"

#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11ShareableContentSource.h"

#include <QSet>
#include <xcb/randr.h>
#include <xcb/res.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

namespace {

// Every window discovery follows gets the same mask: a later selection
// replaces an earlier one, and a window can be a top-level, a client and the
// window manager's check window in turn.
constexpr quint32 followedEvents = XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY |
                                   XCB_EVENT_MASK_PROPERTY_CHANGE;

PlatformError error(int code, const QString& message)
{
    return PlatformError{X11ShareableContentSource::errorDomain, code, message};
}

PlatformError lostConnection()
{
    return error(3, u"Lost the connection to the X display."_s);
}

bool atLeast(quint32 major, quint32 minor, quint32 wantMajor, quint32 wantMinor)
{
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

QList<LiveDisplay> readDisplays(xcb_connection_t* c, const xcb_screen_t* screen)
{
    QList<LiveDisplay> displays;
    for (const X11Monitor& monitor : readMonitors(c, screen)) {
        LiveDisplay display;
        display.displayID = monitor.displayID;
        display.frame = QRectF(monitor.geometry);
        display.width = display.pixelWidth = monitor.geometry.width();
        display.height = display.pixelHeight = monitor.geometry.height();
        displays << display;
    }
    if (displays.isEmpty()) { // no monitor reported: the whole screen is one display (id 0)
        LiveDisplay whole;
        whole.frame = QRectF(0, 0, screen->width_in_pixels, screen->height_in_pixels);
        whole.width = whole.pixelWidth = screen->width_in_pixels;
        whole.height = whole.pixelHeight = screen->height_in_pixels;
        displays << whole;
    }
    return displays;
}

} // namespace

X11DiscoveryCache::X11DiscoveryCache(QByteArray displayName) : m_displayName(std::move(displayName))
{
}

X11DiscoveryCache::~X11DiscoveryCache() = default;

std::optional<PlatformError> X11DiscoveryCache::connect()
{
    const QByteArray name = m_displayName.isEmpty() ? qgetenv("DISPLAY") : m_displayName;
    XcbConnection connection(xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr));
    xcb_connection_t* c = connection.get();
    if (xcb_connection_has_error(c))
        return error(
            1, u"Cannot connect to the X display \"%1\"."_s.arg(QString::fromLocal8Bit(name)));
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;

    const auto* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (!randr || !randr->present)
        return error(2, u"The X display has no RandR extension."_s);
    auto [randrVersion, e1] =
        xcbReply(xcb_randr_query_version_reply, c, xcb_randr_query_version(c, 1, 5));
    if (!randrVersion || !atLeast(randrVersion->major_version, randrVersion->minor_version, 1, 5))
        return error(2, u"The X display's RandR extension is older than 1.5."_s);
    bool hasResource = false;
    if (const auto* res = xcb_get_extension_data(c, &xcb_res_id); res && res->present) {
        auto [version, e2] =
            xcbReply(xcb_res_query_version_reply, c, xcb_res_query_version(c, 1, 2));
        hasResource = version && atLeast(version->server_major, version->server_minor, 1, 2);
    }

    // Events first, then everything is read: nothing changes unseen in between.
    const quint32 rootEvents = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY |
                               XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &rootEvents);
    xcb_randr_select_input(c, screen->root,
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_PROPERTY);

    m_connection = std::move(connection);
    m_c = c;
    m_screen = screen;
    m_inspector = std::make_unique<X11WindowInspector>(c, screen->root, hasResource);
    m_invalidation = std::make_unique<X11DiscoveryInvalidation>(screen->root, m_inspector->atoms(),
                                                                randr->first_event);
    m_displaysStale = m_rootStale = m_topLevelsStale = true;
    return std::nullopt;
}

void X11DiscoveryCache::disconnect()
{
    m_invalidation.reset();
    m_inspector.reset();
    m_connection.reset();
    m_c = nullptr;
    m_screen = nullptr;
    m_wmCheck.reset();
    m_clientList.reset();
    m_stacking.clear();
    m_topLevels.clear();
    m_topLevelOfClient.clear();
}

std::variant<X11Desktop, PlatformError> X11DiscoveryCache::pass()
{
    m_windowsRead = 0;
    if (!m_c) {
        if (auto failure = connect())
            return *failure;
    }
    while (xcb_generic_event_t* raw = xcb_poll_for_event(m_c)) {
        const XcbReply<xcb_generic_event_t> event(raw);
        apply(m_invalidation->staleAfter(event.get(), m_wmCheck.value_or(XCB_NONE)));
    }
    if (xcb_connection_has_error(m_c)) {
        disconnect();
        return lostConnection();
    }

    if (m_displaysStale) {
        m_displaysStale = false;
        m_displays = readDisplays(m_c, m_screen);
    }
    if (m_rootStale)
        readRootProperties();
    if (m_topLevelsStale)
        readTopLevels();
    readStructure();

    X11Desktop desktop;
    const QList<Candidate> listed = candidates();
    for (auto it = listed.crbegin(); it != listed.crend(); ++it) {
        TopLevelEntry& entry = m_topLevels.at(it->frame);
        if (!entry.factsKnown) {
            auto info = m_inspector->inspect(it->client, it->frame);
            entry.info = std::holds_alternative<X11WindowInfo>(info)
                             ? std::optional(std::get<X11WindowInfo>(std::move(info)))
                             : std::nullopt;
            entry.factsKnown = true;
            ++m_windowsRead;
        }
        if (entry.info) // vanished windows are skipped
            desktop.windows << *entry.info;
    }
    if (xcb_connection_has_error(m_c)) {
        disconnect();
        return lostConnection();
    }
    desktop.displays = m_displays;
    desktop.activeWindow = m_active;
    desktop.currentDesktop = m_desktop;
    return desktop;
}

void X11DiscoveryCache::apply(const DiscoveryStaleness& stale)
{
    m_displaysStale |= stale.displays;
    m_rootStale |= stale.rootProperties;
    m_topLevelsStale |= stale.topLevels;
    for (xcb_window_t window : stale.facts) {
        if (TopLevelEntry* entry = entryFor(window))
            entry->factsKnown = false;
    }
    for (xcb_window_t window : stale.structure) {
        if (TopLevelEntry* entry = entryFor(window)) {
            entry->structureKnown = entry->factsKnown = false;
        } else {
            // A window discovery does not know yet, e.g. a client deeper in
            // a frame than the frame's own children: look again where a
            // client may have appeared.
            forgetUnresolved(true);
        }
    }
}

X11DiscoveryCache::TopLevelEntry* X11DiscoveryCache::entryFor(xcb_window_t window)
{
    auto it = m_topLevels.find(window);
    if (it != m_topLevels.end())
        return &it->second;
    const auto client = m_topLevelOfClient.find(window);
    if (client == m_topLevelOfClient.end())
        return nullptr;
    it = m_topLevels.find(client->second);
    return it == m_topLevels.end() ? nullptr : &it->second;
}

void X11DiscoveryCache::forgetUnresolved(bool viewableOnly)
{
    for (auto& [id, entry] : m_topLevels) {
        if (entry.exists && !entry.inputOnly && !entry.overrideRedirect && !entry.client &&
            (entry.viewable || !viewableOnly))
            entry.structureKnown = false;
    }
}

void X11DiscoveryCache::readRootProperties()
{
    m_rootStale = false;
    const auto check = m_inspector->windowManagerCheck();
    if (check && check != m_wmCheck)
        follow(*check); // its end or change is the window manager's
    m_wmCheck = check;
    auto clientList = check ? m_inspector->clientListStacking() : std::nullopt;
    if (clientList && clientList != m_clientList) {
        // A client the window manager just took in may sit in a frame that
        // was read before the client was marked.
        for (xcb_window_t client : std::as_const(*clientList)) {
            if (!m_topLevelOfClient.contains(client) && !m_topLevels.contains(client)) {
                forgetUnresolved(false);
                break;
            }
        }
    }
    m_clientList = std::move(clientList);
    m_active = m_inspector->activeWindow();
    m_desktop = m_inspector->currentDesktop();
}

void X11DiscoveryCache::readTopLevels()
{
    m_topLevelsStale = false;
    const QList<xcb_window_t> stacking = m_inspector->topLevels();
    const QSet<xcb_window_t> present(stacking.cbegin(), stacking.cend());
    for (auto it = m_topLevels.begin(); it != m_topLevels.end();) {
        if (present.contains(it->first)) {
            ++it;
            continue;
        }
        setClient(it->first, it->second, std::nullopt);
        it = m_topLevels.erase(it);
    }
    for (xcb_window_t window : stacking) {
        if (m_topLevels.try_emplace(window).second)
            follow(window);
    }
    m_stacking = stacking;
}

void X11DiscoveryCache::readStructure()
{
    QList<xcb_window_t> stale;
    QList<xcb_get_window_attributes_cookie_t> cookies;
    for (xcb_window_t window : std::as_const(m_stacking)) {
        if (!m_topLevels.at(window).structureKnown) {
            stale << window;
            cookies << xcb_get_window_attributes(m_c, window);
        }
    }
    for (qsizetype i = 0; i < stale.size(); ++i) {
        TopLevelEntry& entry = m_topLevels.at(stale[i]);
        auto [attributes, e] = xcbReply(xcb_get_window_attributes_reply, m_c, cookies[i]);
        ++m_windowsRead;
        entry.structureKnown = true;
        entry.factsKnown = false;
        entry.exists = attributes != nullptr;
        if (!attributes) { // gone: its destruction is queued
            setClient(stale[i], entry, std::nullopt);
            continue;
        }
        entry.inputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
        entry.overrideRedirect = attributes->override_redirect;
        entry.viewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        const bool framed = !entry.inputOnly && !entry.overrideRedirect;
        setClient(stale[i], entry,
                  framed ? m_inspector->clientBelow(stale[i]) : std::optional<xcb_window_t>());
        // A shown frame whose client is not marked yet is being adopted by
        // the window manager: look again next time.
        if (framed && m_wmCheck && entry.viewable && !entry.client)
            entry.structureKnown = false;
    }
}

void X11DiscoveryCache::setClient(xcb_window_t topLevel, TopLevelEntry& entry,
                                  std::optional<xcb_window_t> client)
{
    if (entry.client == client)
        return;
    if (entry.client && *entry.client != topLevel) {
        const auto it = m_topLevelOfClient.find(*entry.client);
        if (it != m_topLevelOfClient.end() && it->second == topLevel)
            m_topLevelOfClient.erase(it);
    }
    entry.client = client;
    if (client && *client != topLevel) {
        m_topLevelOfClient[*client] = topLevel;
        follow(*client);
    }
}

QList<X11DiscoveryCache::Candidate> X11DiscoveryCache::candidates() const
{
    // Managed clients (found below their frames) and mapped windows that no
    // window manager frames (override-redirect, or everything when none runs).
    const bool managed = m_wmCheck.has_value();
    QSet<xcb_window_t> listed;
    if (m_clientList)
        listed = QSet<xcb_window_t>(m_clientList->cbegin(), m_clientList->cend());
    QList<Candidate> result;
    for (xcb_window_t window : m_stacking) {
        const TopLevelEntry& entry = m_topLevels.at(window);
        if (!entry.exists || entry.inputOnly)
            continue;
        if (entry.overrideRedirect) {
            if (entry.viewable)
                result << Candidate{window, window};
            continue;
        }
        if (entry.client) {
            if (!m_clientList || listed.contains(*entry.client))
                result << Candidate{*entry.client, window};
        } else if (entry.viewable && !managed) {
            result << Candidate{window, window};
        }
    }
    return result;
}

void X11DiscoveryCache::follow(xcb_window_t window)
{
    // Unchecked: a window that has already gone answers with an error event,
    // which the invalidation ignores.
    xcb_change_window_attributes(m_c, window, XCB_CW_EVENT_MASK, &followedEvents);
}

} // namespace vistrel::x11
