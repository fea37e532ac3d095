#include "control/SourceBadgeView.h"

#include <QPainter>
#include <QPainterPath>

namespace vistrel {

namespace {

constexpr int horizontalPadding = 7;
constexpr int verticalPadding = 2;

} // namespace

SourceBadgeView::SourceBadgeView(QWidget* parent) : QWidget(parent)
{
    QFont caption = font();
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    caption.setWeight(QFont::DemiBold);
    setFont(caption);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void SourceBadgeView::setBadge(const QString& text, const QColor& tint)
{
    if (text == m_text && tint == m_tint)
        return;
    const bool resized = text != m_text;
    m_text = text;
    m_tint = tint;
    if (resized)
        updateGeometry();
    update();
}

QSize SourceBadgeView::sizeHint() const
{
    const QFontMetrics metrics = fontMetrics();
    return {metrics.horizontalAdvance(m_text) + 2 * horizontalPadding,
            metrics.height() + 2 * verticalPadding};
}

void SourceBadgeView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = m_tint;
    fill.setAlphaF(0.16f);
    const QRectF pill = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const qreal radius = pill.height() / 2;
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(pill, radius, radius);
    painter.setPen(m_tint);
    painter.drawText(rect(), Qt::AlignCenter, m_text);
}

} // namespace vistrel
