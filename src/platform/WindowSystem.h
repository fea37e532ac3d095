#pragma once

// What the window placement needs of the window system beyond Qt: the state
// hints a window manager reads (stay above, stay below, keep out of the
// taskbar and pager), the pointer buttons while the window manager moves a
// window (it holds the pointer then, so the application sees no mouse events),
// and contents that stay readable while other windows cover the window.
//
// Windows are named by their X11 ids (QWidget::winId()). Main thread only.
// Failures (a vanished window, a lost connection) are logged and ignored: the
// hints are a courtesy to the user, never needed for correctness.

#include <QtGlobal>

namespace vistrel {

struct WindowStateHints {
    bool above = false;
    bool below = false;
    bool skipTaskbar = false;
    bool skipPager = false;

    friend bool operator==(const WindowStateHints&, const WindowStateHints&) = default;
};

class WindowSystem {
public:
    virtual ~WindowSystem() = default;

    // Replaces the four hints on the window, mapped or not, without
    // re-creating it; other states (maximised, hidden, ...) stay as they are.
    virtual void setStateHints(quint32 window, const WindowStateHints& hints) = 0;
    // Whether any pointer button is held down right now, whoever grabs it.
    virtual bool isPointerButtonPressed() const = 0;
    // Keeps the window's pixels in storage of their own, so that a capture of
    // the window reads its picture even where other windows cover it.
    virtual void keepContentsReadable(quint32 window) = 0;
};

} // namespace vistrel
