#include "control/CompactTile.h"

#include "presentation/SymbolIcon.h"

#include <QPainter>

namespace vistrel {

namespace {
constexpr qreal cornerRadius = 12;
constexpr int padding = 8;
constexpr int symbolSize = 16;
constexpr int accessorySize = 10;
} // namespace

CompactTile::CompactTile(QWidget* parent) : QAbstractButton(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void CompactTile::setState(const TileState& state)
{
    if (state == m_state)
        return;
    m_state = state;
    setText(state.title);
    setAccessibleName(state.title);
    setAccessibleDescription(state.subtitle);
    setToolTip(state.title + QString::fromUtf16(u" · ") + state.subtitle);
    setEnabled(state.isEnabled);
    update();
}

QSize CompactTile::sizeHint() const
{
    return {92, 56};
}

void CompactTile::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled())
        painter.setOpacity(0.4);

    const bool filled = m_state.prominence == TileProminence::filled;
    QColor fill = m_state.tint;
    fill.setAlphaF(filled ? (isDown() ? 1.0f : 0.88f) : (isDown() ? 0.30f : 0.16f));
    const QRectF body = QRectF(rect()).adjusted(1, 1, -1, -1);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(body, cornerRadius, cornerRadius);
    if (hasFocus()) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawRoundedRect(body.adjusted(1, 1, -1, -1), cornerRadius - 1, cornerRadius - 1);
    }

    const QColor ink = filled ? QColor(Qt::white) : m_state.tint.darker(130);
    const QColor text = filled ? QColor(Qt::white) : palette().color(QPalette::WindowText);
    const qreal ratio = devicePixelRatioF();
    painter.drawImage(QRect(padding, padding, symbolSize, symbolSize),
                      symbolImage(m_state.symbolName, symbolSize, ink, ratio));
    if (m_state.accessorySymbolName)
        painter.drawImage(
            QRect(width() - padding - accessorySize, padding + 3, accessorySize, accessorySize),
            symbolImage(*m_state.accessorySymbolName, accessorySize, ink, ratio));

    QFont titleFont = font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 0.92);
    titleFont.setWeight(QFont::DemiBold);
    QFont subtitleFont = font();
    subtitleFont.setPointSizeF(subtitleFont.pointSizeF() * 0.82);
    const int textLeft = padding;
    const int textWidth = width() - 2 * padding;
    const int subtitleHeight = QFontMetrics(subtitleFont).height();
    const int titleHeight = QFontMetrics(titleFont).height();
    const int subtitleTop = height() - padding - subtitleHeight + 2;
    painter.setFont(titleFont);
    painter.setPen(text);
    painter.drawText(QRect(textLeft, subtitleTop - titleHeight, textWidth, titleHeight),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     QFontMetrics(titleFont).elidedText(m_state.title, Qt::ElideRight, textWidth));
    QColor secondary = text;
    secondary.setAlphaF(0.72f);
    painter.setFont(subtitleFont);
    painter.setPen(secondary);
    painter.drawText(
        QRect(textLeft, subtitleTop, textWidth, subtitleHeight), Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(subtitleFont).elidedText(m_state.subtitle, Qt::ElideRight, textWidth));
}

} // namespace vistrel
