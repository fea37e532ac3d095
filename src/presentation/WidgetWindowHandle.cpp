#include "presentation/WidgetWindowHandle.h"

#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <QWidget>
#include <QWindow>
#include <QWindowStateChangeEvent>

namespace vistrel {

WidgetWindowHandle* WidgetWindowHandle::forWidget(QWidget* widget)
{
    if (!widget)
        return nullptr;
    QWidget* window = widget->window();
    if (auto* existing =
            window->findChild<WidgetWindowHandle*>(QString(), Qt::FindDirectChildrenOnly))
        return existing;
    return new WidgetWindowHandle(window);
}

WidgetWindowHandle::WidgetWindowHandle(QWidget* window) : ManagedWindow(window), m_widget(window)
{
    m_widget->installEventFilter(this);
}

quint32 WidgetWindowHandle::windowNumber() const
{
    return static_cast<quint32>(m_widget->winId());
}

bool WidgetWindowHandle::isVisible() const
{
    return m_widget->isVisible();
}

bool WidgetWindowHandle::isMinimized() const
{
    return m_widget->isMinimized();
}

void WidgetWindowHandle::deminiaturize()
{
    if (!m_widget->isMinimized())
        return;
    m_widget->setWindowState(m_widget->windowState() & ~Qt::WindowMinimized);
    mapAndRaise(m_activationRequested ||
                QGuiApplication::applicationState() == Qt::ApplicationActive);
}

void WidgetWindowHandle::makeKeyAndOrderFront()
{
    // Taking the focus while another application is active would steal it;
    // only an explicit activation may do that.
    const bool takeFocus =
        m_activationRequested || QGuiApplication::applicationState() == Qt::ApplicationActive;
    m_activationRequested = false;
    mapAndRaise(takeFocus);
    if (takeFocus)
        m_widget->activateWindow();
}

void WidgetWindowHandle::orderFrontRegardless()
{
    mapAndRaise(QGuiApplication::applicationState() == Qt::ApplicationActive);
}

void WidgetWindowHandle::mapAndRaise(bool mayTakeFocus)
{
    if (!m_widget->isVisible()) {
        // Window managers focus a newly mapped window unless its user time
        // says otherwise. The widget attribute for that is only read when the
        // native window is created, so the request goes to the window itself
        // (the property Qt's X11 backend reads on every show).
        m_widget->winId();
        if (QWindow* window = m_widget->windowHandle()) {
            window->setProperty("_q_showWithoutActivating",
                                !mayTakeFocus ||
                                    m_widget->testAttribute(Qt::WA_ShowWithoutActivating));
        }
        m_widget->show();
    }
    m_widget->raise();
}

void WidgetWindowHandle::orderOut()
{
    m_widget->hide();
}

void WidgetWindowHandle::activateApplication()
{
    // An unmapped window cannot take the focus; the request then waits for
    // the next makeKeyAndOrderFront.
    m_activationRequested = true;
    if (m_widget->isVisible() && !m_widget->isMinimized())
        m_widget->activateWindow();
}

bool WidgetWindowHandle::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_widget)
        return false;
    switch (event->type()) {
    case QEvent::Close:
        if (!shouldClose()) {
            event->ignore();
            return true; // the widget never sees a refused request
        }
        // The widget itself may still refuse; a granted close hides it right
        // after this event, and settleClose covers an already hidden widget.
        m_closePending = true;
        QTimer::singleShot(0, this, &WidgetWindowHandle::settleClose);
        break;
    case QEvent::Hide:
        if (m_closePending) {
            m_closePending = false;
            Q_EMIT willClose();
        }
        Q_EMIT visibilityChanged();
        break;
    case QEvent::Show:
        Q_EMIT visibilityChanged();
        break;
    case QEvent::WindowStateChange: {
        const bool was =
            static_cast<QWindowStateChangeEvent*>(event)->oldState() & Qt::WindowMinimized;
        const bool is = m_widget->windowState() & Qt::WindowMinimized;
        if (!was && is)
            Q_EMIT didMinimize();
        else if (was && !is)
            Q_EMIT didDeminimize();
        break;
    }
    case QEvent::WinIdChange:
        Q_EMIT windowNumberChanged();
        break;
    default:
        break;
    }
    return false;
}

void WidgetWindowHandle::settleClose()
{
    if (!m_closePending)
        return;
    m_closePending = false;
    // No hide followed: either the widget refused, or it was already hidden
    // and the close went through silently.
    if (m_widget->isHidden())
        Q_EMIT willClose();
}

} // namespace vistrel
