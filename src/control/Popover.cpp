#include "control/Popover.h"

#include "presentation/PopoverHub.h"

#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>

namespace vistrel {

namespace {
constexpr int anchorGap = 4;
}

Popover::Popover(const QString& title, PopoverHub& hub, QWidget* parent)
    : QFrame(parent, Qt::Popup | Qt::FramelessWindowHint), m_content(new QVBoxLayout)
{
    setAttribute(Qt::WA_DeleteOnClose);
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
    show();
}

void Popover::hideEvent(QHideEvent* event)
{
    QFrame::hideEvent(event);
    Q_EMIT closed();
}

} // namespace vistrel
