#pragma once

// A key combination that acts wherever the keyboard focus is: the panic key
// has to work while the user types in the meeting application. Another
// application may hold the same combination; then the shortcut says so and
// the key works only inside Vistrel (through the application's own shortcut).
//
// Main thread only.

#include <QObject>
#include <QString>

namespace vistrel {

enum class GlobalShortcutStatus {
    active,      // grabbed: the key works everywhere
    taken,       // another application holds the combination
    unavailable, // no such key on this keyboard, or no window system
};

class GlobalShortcut : public QObject {
    Q_OBJECT
    Q_PROPERTY(vistrel::GlobalShortcutStatus status READ status NOTIFY statusChanged)

public:
    using QObject::QObject;

    virtual GlobalShortcutStatus status() const = 0;
    // The combination as the user reads it, "Ctrl+Shift+H".
    virtual QString keyText() const = 0;

    // What to tell the user when the key does not work everywhere; empty
    // while it does.
    QString problem() const;

Q_SIGNALS:
    // Once per press; holding the key down does not repeat it.
    void activated();
    void statusChanged(vistrel::GlobalShortcutStatus status);
};

} // namespace vistrel
