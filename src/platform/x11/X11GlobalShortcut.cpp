#include "platform/x11/X11GlobalShortcut.h"

#include "platform/x11/X11KeyGrabs.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

namespace vistrel::x11 {

namespace {

Q_LOGGING_CATEGORY(lcShortcut, "quorbit.Vistrel.Shortcut")

constexpr quint16 combination = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT;
// Modifiers that make it another combination; locks and the rest do not.
constexpr quint16 significant =
    XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
constexpr uint8_t badAccess = 10;

} // namespace

X11GlobalShortcut::X11GlobalShortcut(const QByteArray& displayName, QObject* parent)
    : GlobalShortcut(parent)
{
    const QByteArray name = displayName.isEmpty() ? qgetenv("DISPLAY") : displayName;
    m_connection.reset(xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr));
    if (!m_connection || xcb_connection_has_error(m_connection.get())) {
        qCWarning(lcShortcut, "%s", qUtf8Printable(problem()));
        return;
    }
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get())).data->root;
    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection.get()),
                                     QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11GlobalShortcut::readEvents);
    grab();
}

X11GlobalShortcut::~X11GlobalShortcut()
{
    ungrab();
}

QString X11GlobalShortcut::keyText() const
{
    return QStringLiteral("Ctrl+Shift+H");
}

void X11GlobalShortcut::grab()
{
    xcb_connection_t* c = m_connection.get();
    const xcb_setup_t* setup = xcb_get_setup(c);
    auto [mapping, mappingError] =
        xcbReply(xcb_get_keyboard_mapping_reply, c,
                 xcb_get_keyboard_mapping(c, setup->min_keycode,
                                          uint8_t(setup->max_keycode - setup->min_keycode + 1)));
    auto [modifiers, modifiersError] =
        xcbReply(xcb_get_modifier_mapping_reply, c, xcb_get_modifier_mapping(c));
    if (!mapping || !modifiers) {
        setStatus(GlobalShortcutStatus::unavailable);
        return;
    }
    const auto* keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const QList<quint32> table(keysyms,
                               keysyms + xcb_get_keyboard_mapping_keysyms_length(mapping.get()));
    const int perKeycode = mapping->keysyms_per_keycode;
    const auto* modifierKeys = xcb_get_modifier_mapping_keycodes(modifiers.get());
    const QList<quint8> modifierTable(
        modifierKeys, modifierKeys + xcb_get_modifier_mapping_keycodes_length(modifiers.get()));
    const auto lockMask = [&](quint32 lock) {
        return modifierMaskFor(
            keycodesFor({lock}, setup->min_keycode, perKeycode, table, perKeycode),
            modifiers->keycodes_per_modifier, modifierTable);
    };

    m_keycodes = keycodesFor({keysym::h, keysym::H}, setup->min_keycode, perKeycode, table, 2);
    if (m_keycodes.isEmpty()) {
        setStatus(GlobalShortcutStatus::unavailable);
        qCWarning(lcShortcut, "No key produces H: %s", qUtf8Printable(problem()));
        return;
    }
    const QList<quint16> locks =
        lockCombinations(lockMask(keysym::numLock), lockMask(keysym::scrollLock));
    QList<xcb_void_cookie_t> cookies;
    for (const quint8 keycode : std::as_const(m_keycodes))
        for (const quint16 lock : locks)
            cookies.append(xcb_grab_key_checked(c, 0, m_root, combination | lock, keycode,
                                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    bool taken = false;
    for (const xcb_void_cookie_t cookie : std::as_const(cookies)) {
        const XcbError error(xcb_request_check(c, cookie));
        taken = taken || (error && error->error_code == badAccess);
    }
    m_grabbedLocks = locks;
    if (taken) {
        // Half a grab would make the key work only in some lock states.
        ungrab();
        setStatus(GlobalShortcutStatus::taken);
        qCWarning(lcShortcut, "%s", qUtf8Printable(problem()));
        return;
    }
    setStatus(GlobalShortcutStatus::active);
}

void X11GlobalShortcut::ungrab()
{
    xcb_connection_t* c = m_connection.get();
    if (!c || xcb_connection_has_error(c))
        return;
    for (const quint8 keycode : std::as_const(m_keycodes))
        for (const quint16 lock : std::as_const(m_grabbedLocks))
            xcb_ungrab_key(c, keycode, m_root, combination | lock);
    m_grabbedLocks.clear();
    xcb_flush(c);
}

void X11GlobalShortcut::readEvents()
{
    xcb_connection_t* c = m_connection.get();
    while (XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(c)}) {
        switch (event->response_type & ~0x80) {
        case XCB_KEY_PRESS: {
            const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
            if (!m_keycodes.contains(press->detail) || (press->state & significant) != combination)
                break;
            const bool repeat = m_isDown || press->time == m_lastRelease;
            m_isDown = true;
            if (!repeat)
                Q_EMIT activated();
            break;
        }
        case XCB_KEY_RELEASE: {
            const auto* release = reinterpret_cast<const xcb_key_release_event_t*>(event.get());
            if (m_keycodes.contains(release->detail)) {
                m_isDown = false;
                m_lastRelease = release->time;
            }
            break;
        }
        case XCB_MAPPING_NOTIFY: {
            const auto* notify = reinterpret_cast<const xcb_mapping_notify_event_t*>(event.get());
            if (notify->request != XCB_MAPPING_POINTER) {
                ungrab();
                grab();
            }
            break;
        }
        default:
            break;
        }
    }
    if (xcb_connection_has_error(c)) {
        m_notifier->setEnabled(false);
        setStatus(GlobalShortcutStatus::unavailable);
    }
}

void X11GlobalShortcut::setStatus(GlobalShortcutStatus status)
{
    if (status == m_status)
        return;
    m_status = status;
    Q_EMIT statusChanged(status);
}

} // namespace vistrel::x11
