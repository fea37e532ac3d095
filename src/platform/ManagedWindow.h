#pragma once

// One top-level window of the application, as the window registry and the
// placement code see it. The presentation layer implements it for its widget
// windows; tests implement it with plain data.
//
// Threading: main thread only, like the windows themselves.
// Lifetime: a handle lives exactly as long as its window; holders keep
// QPointer<ManagedWindow> so that a freed window reads as null.

#include <QObject>
#include <functional>

namespace vistrel {

class ManagedWindow : public QObject {
    Q_OBJECT

public:
    // Answers whether a close request may go ahead (true) or is refused (false).
    using CloseGuard = std::function<bool()>;

    explicit ManagedWindow(QObject* parent = nullptr);
    ~ManagedWindow() override;

    // The window server's number for the window: the X11 window id of the
    // top-level. Stable while the native window lives; see windowNumberChanged.
    virtual quint32 windowNumber() const = 0;
    // Mapped by the application (a minimised window still counts as visible).
    virtual bool isVisible() const = 0;
    virtual bool isMinimized() const = 0;

    // Restores a minimised window; no effect otherwise.
    virtual void deminiaturize() = 0;
    // Shows the window, raises it and gives it the keyboard focus when the
    // application is active or activation was requested just before.
    virtual void makeKeyAndOrderFront() = 0;
    // Shows and raises the window without asking for the focus.
    virtual void orderFrontRegardless() = 0;
    // Unmaps the window; it keeps its state and can be shown again.
    virtual void orderOut() = 0;
    // Makes the application the active one, ignoring other applications. The
    // window system hands focus to windows, not to processes, so the request
    // goes through this window (or waits until it is shown).
    virtual void activateApplication() = 0;

    // Decides close requests (window manager, keyboard, programmatic close)
    // before the window sees them. A refused request leaves the window as it
    // is and emits nothing; without a guard every request goes ahead.
    void setCloseGuard(CloseGuard guard);
    bool shouldClose() const;

Q_SIGNALS:
    // A close request was granted: the window is about to go away.
    void willClose();
    void didMinimize();
    void didDeminimize();
    // Mapped or unmapped, for any reason.
    void visibilityChanged();
    // The native window was re-created (for example after a reparent).
    void windowNumberChanged();

private:
    CloseGuard m_closeGuard;
};

} // namespace vistrel
