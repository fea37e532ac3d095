#include "control/Popover.h"

#include "presentation/PopoverHub.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QScreen>
#include <QVBoxLayout>

namespace vistrel {

namespace {
constexpr int anchorGap = 4;
}

namespace {
Qt::WindowFlags flagsFor(Popover::Dismissal dismissal)
{
    if (dismissal == Popover::Dismissal::staysOpenForDrops)
        return Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    return Qt::Popup | Qt::FramelessWindowHint;
}
} // namespace

Popover::Popover(const QString& title, PopoverHub& hub, QWidget* parent, Dismissal dismissal)
    : QFrame(parent, flagsFor(dismissal)), m_content(new QVBoxLayout), m_dismissal(dismissal)
{
    setAttribute(Qt::WA_DeleteOnClose);
    // What a window manager or a test names a popover that is a window of its own.
    setWindowTitle(title);
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    auto* heading = new QLabel(title, this);
    QFont font = heading->font();
    font.setBold(true);
    heading->setFont(font);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 12);
    layout->setSpacing(8);
    layout->addWidget(heading);
    layout->addLayout(m_content);
    connect(&hub, &PopoverHub::closePopovers, this, &QWidget::close);
    if (m_dismissal == Dismissal::staysOpenForDrops)
        qApp->installEventFilter(this);
}

Popover::~Popover()
{
    if (m_dismissal == Dismissal::staysOpenForDrops)
        qApp->removeEventFilter(this);
}

QPoint Popover::placement(const QRect& anchor, const QSize& size, const QRect& screen)
{
    QPoint origin(anchor.x() + (anchor.width() - size.width()) / 2,
                  anchor.bottom() + 1 + anchorGap);
    // Not enough room below: above the anchor instead.
    if (origin.y() + size.height() > screen.bottom() + 1)
        origin.setY(anchor.top() - anchorGap - size.height());
    origin.setX(std::clamp(origin.x(), screen.left(),
                           std::max(screen.left(), screen.right() + 1 - size.width())));
    origin.setY(std::clamp(origin.y(), screen.top(),
                           std::max(screen.top(), screen.bottom() + 1 - size.height())));
    return origin;
}

void Popover::showUnder(QWidget* anchor)
{
    adjustSize();
    const QRect anchorRect(anchor->mapToGlobal(QPoint()), anchor->size());
    const QScreen* screen = anchor->screen();
    const QRect area = screen ? screen->availableGeometry() : anchorRect;
    move(placement(anchorRect, size(), area));
    m_anchor = anchor;
    show();
    if (m_dismissal == Dismissal::staysOpenForDrops) {
        activateWindow();
        setFocus(Qt::PopupFocusReason);
    }
}

void Popover::keyPressEvent(QKeyEvent* event)
{
    if (m_dismissal == Dismissal::staysOpenForDrops && event->matches(QKeySequence::Cancel)) {
        close();
        return;
    }
    QFrame::keyPressEvent(event);
}

bool Popover::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::MouseButtonPress || !isVisible() || !watched->isWidgetType())
        return false;
    auto* widget = static_cast<QWidget*>(watched);
    if (widget == this || isAncestorOf(widget) || widget->window() == window() ||
        widget->window()->isModal())
        return false;
    // Only the press's own target: the event reaches every ancestor too.
    const auto* press = static_cast<QMouseEvent*>(event);
    if (QApplication::widgetAt(press->globalPosition().toPoint()) != widget)
        return false;
    const bool onAnchor = m_anchor && (widget == m_anchor || m_anchor->isAncestorOf(widget));
    close();
    return onAnchor;
}

void Popover::hideEvent(QHideEvent* event)
{
    QFrame::hideEvent(event);
    Q_EMIT closed();
}

} // namespace vistrel
