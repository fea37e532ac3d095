#pragma once

// ManagedWindow for a top-level QWidget. The handle is a child of its widget,
// so it dies with it and a QPointer to it reads null once the window is freed.
// It watches the widget through an event filter; no subclassing needed.
//
// willClose follows a granted close request once the widget has accepted it.
// A widget should refuse closes through the close guard rather than in its
// own closeEvent: a hidden widget that refuses on its own is taken as closed.

#include "platform/ManagedWindow.h"

class QWidget;

namespace vistrel {

class WidgetWindowHandle final : public ManagedWindow {
    Q_OBJECT

public:
    // The handle of `widget`'s top-level window, created on first use; the
    // same handle on every later call. Null for a null widget.
    static WidgetWindowHandle* forWidget(QWidget* widget);

    QWidget* widget() const { return m_widget; }

    // The X11 id of the top-level; creates the native window if needed.
    quint32 windowNumber() const override;
    bool isVisible() const override;
    bool isMinimized() const override;
    void deminiaturize() override;
    void makeKeyAndOrderFront() override;
    void orderFrontRegardless() override;
    void orderOut() override;
    void activateApplication() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    explicit WidgetWindowHandle(QWidget* window);
    void settleClose();
    void mapAndRaise(bool mayTakeFocus);

    QWidget* m_widget; // the parent; outlives the handle
    bool m_activationRequested = false;
    // A close request went ahead and its outcome is not known yet.
    bool m_closePending = false;
};

} // namespace vistrel
