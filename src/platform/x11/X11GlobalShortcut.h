#pragma once

// Ctrl+Shift+H for the whole display: passive grabs on the root window, on a
// connection of its own, for every keycode that produces H and every
// combination of the lock modifiers. Grabs are checked: a combination that
// another client holds makes the status "taken" (nothing stays grabbed then,
// so the key keeps working there and inside Vistrel). A change of the
// keyboard mapping renews the grabs.

#include "platform/GlobalShortcut.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QList>

class QSocketNotifier;

namespace vistrel::x11 {

class X11GlobalShortcut final : public GlobalShortcut {
    Q_OBJECT

public:
    // DISPLAY when the name is empty.
    explicit X11GlobalShortcut(const QByteArray& displayName = {}, QObject* parent = nullptr);
    ~X11GlobalShortcut() override;

    GlobalShortcutStatus status() const override { return m_status; }
    QString keyText() const override;

private:
    void grab();
    void ungrab();
    void readEvents();
    void setStatus(GlobalShortcutStatus status);

    XcbConnection m_connection;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    QSocketNotifier* m_notifier = nullptr;
    QList<quint8> m_keycodes;
    QList<quint16> m_grabbedLocks;
    GlobalShortcutStatus m_status = GlobalShortcutStatus::unavailable;
    // Auto-repeat sends release and press with one timestamp: not a new press.
    bool m_isDown = false;
    xcb_timestamp_t m_lastRelease = 0;
};

} // namespace vistrel::x11
