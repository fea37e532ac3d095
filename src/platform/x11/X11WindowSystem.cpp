#include "platform/x11/X11WindowSystem.h"

#include <QList>
#include <QLoggingCategory>
#include <xcb/composite.h>

namespace vistrel::x11 {

namespace {

Q_LOGGING_CATEGORY(lcWindows, "quorbit.Vistrel.Windows")

// _NET_WM_STATE client message actions.
constexpr quint32 stateRemove = 0;
constexpr quint32 stateAdd = 1;
// Source indication: a normal application.
constexpr quint32 sourceApplication = 1;

xcb_atom_t intern(xcb_connection_t* c, const char* name)
{
    XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<uint16_t>(qstrlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace

X11WindowSystem::X11WindowSystem(const QByteArray& displayName)
{
    const QByteArray name = displayName.isEmpty() ? qgetenv("DISPLAY") : displayName;
    m_connection.reset(xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr));
    if (!isUsable()) {
        qCWarning(lcWindows, "No connection to the X display; window hints are not set.");
        return;
    }
    xcb_connection_t* c = m_connection.get();
    m_root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    m_atoms.state = intern(c, "_NET_WM_STATE");
    m_atoms.above = intern(c, "_NET_WM_STATE_ABOVE");
    m_atoms.below = intern(c, "_NET_WM_STATE_BELOW");
    m_atoms.skipTaskbar = intern(c, "_NET_WM_STATE_SKIP_TASKBAR");
    m_atoms.skipPager = intern(c, "_NET_WM_STATE_SKIP_PAGER");
    XcbReply<xcb_composite_query_version_reply_t> composite(
        xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 4), nullptr));
    m_hasComposite = composite != nullptr;
    if (!m_hasComposite)
        qCWarning(lcWindows, "The X server has no Composite extension; a covered output window "
                             "cannot be read by other applications.");
}

X11WindowSystem::~X11WindowSystem() = default;

bool X11WindowSystem::isUsable() const
{
    return m_connection && !xcb_connection_has_error(m_connection.get());
}

bool X11WindowSystem::isMapped(xcb_window_t window) const
{
    xcb_connection_t* c = m_connection.get();
    XcbReply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    return attributes && attributes->map_state != XCB_MAP_STATE_UNMAPPED;
}

void X11WindowSystem::setStateHints(quint32 window, const WindowStateHints& hints)
{
    if (!isUsable() || window == XCB_WINDOW_NONE)
        return;
    xcb_connection_t* c = m_connection.get();
    if (isMapped(window)) {
        sendStateMessages(window, hints);
        xcb_flush(c);
        return;
    }
    writeStateProperty(window, hints);
    // Qt reads the property back and rewrites it on its own connection as it
    // maps the window: ours must be on the server before that read, or the
    // rewrite drops it and the window manager never sees it.
    XcbReply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

void X11WindowSystem::writeStateProperty(xcb_window_t window, const WindowStateHints& hints)
{
    xcb_connection_t* c = m_connection.get();
    XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        c, xcb_get_property(c, 0, window, m_atoms.state, XCB_ATOM_ATOM, 0, 64), nullptr));
    QList<xcb_atom_t> atoms;
    if (reply && reply->format == 32 && reply->type == XCB_ATOM_ATOM) {
        const auto* data = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
        for (int i = 0; i < xcb_get_property_value_length(reply.get()) / 4; ++i)
            atoms.append(data[i]);
    }
    const std::pair<xcb_atom_t, bool> wanted[] = {{m_atoms.above, hints.above},
                                                  {m_atoms.below, hints.below},
                                                  {m_atoms.skipTaskbar, hints.skipTaskbar},
                                                  {m_atoms.skipPager, hints.skipPager}};
    for (const auto& [atom, on] : wanted) {
        atoms.removeAll(atom);
        if (on && atom != XCB_ATOM_NONE)
            atoms.append(atom);
    }
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, m_atoms.state, XCB_ATOM_ATOM, 32,
                        static_cast<uint32_t>(atoms.size()), atoms.constData());
}

void X11WindowSystem::sendStateMessages(xcb_window_t window, const WindowStateHints& hints)
{
    auto send = [&](bool on, xcb_atom_t first, xcb_atom_t second) {
        xcb_client_message_event_t event = {};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = m_atoms.state;
        event.data.data32[0] = on ? stateAdd : stateRemove;
        event.data.data32[1] = first;
        event.data.data32[2] = second;
        event.data.data32[3] = sourceApplication;
        xcb_send_event(m_connection.get(), 0, m_root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
    };
    // Removals first, so that above and below never hold at the same time.
    if (!hints.above)
        send(false, m_atoms.above, XCB_ATOM_NONE);
    if (!hints.below)
        send(false, m_atoms.below, XCB_ATOM_NONE);
    if (hints.skipTaskbar == hints.skipPager) {
        send(hints.skipTaskbar, m_atoms.skipTaskbar, m_atoms.skipPager);
    } else {
        send(hints.skipTaskbar, m_atoms.skipTaskbar, XCB_ATOM_NONE);
        send(hints.skipPager, m_atoms.skipPager, XCB_ATOM_NONE);
    }
    if (hints.above)
        send(true, m_atoms.above, XCB_ATOM_NONE);
    if (hints.below)
        send(true, m_atoms.below, XCB_ATOM_NONE);
}

bool X11WindowSystem::isPointerButtonPressed() const
{
    if (!isUsable())
        return false;
    xcb_connection_t* c = m_connection.get();
    XcbReply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(c, xcb_query_pointer(c, m_root), nullptr));
    constexpr uint16_t buttons = XCB_BUTTON_MASK_1 | XCB_BUTTON_MASK_2 | XCB_BUTTON_MASK_3;
    return pointer && (pointer->mask & buttons) != 0;
}

void X11WindowSystem::keepContentsReadable(quint32 window)
{
    if (!isUsable() || !m_hasComposite || window == XCB_WINDOW_NONE ||
        m_redirected.contains(window))
        return;
    xcb_connection_t* c = m_connection.get();
    XcbError error(xcb_request_check(
        c, xcb_composite_redirect_window_checked(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC)));
    if (error) {
        qCWarning(lcWindows, "Could not keep the contents of window 0x%x readable (X error %d).",
                  window, error->error_code);
        return;
    }
    m_redirected.insert(window);
}

} // namespace vistrel::x11
