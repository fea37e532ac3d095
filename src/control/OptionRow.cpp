#include "control/OptionRow.h"

#include "control/DeckState.h"
#include "presentation/SymbolIcon.h"

#include <QPainter>
#include <QStyleOptionFocusRect>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {
constexpr int padding = 8;
constexpr int markSize = 18;
constexpr int textWidth = 300;
} // namespace

OptionRow::OptionRow(const QString& title, const QString& subtitle, bool isSelected,
                     QWidget* parent)
    : QAbstractButton(parent), m_subtitle(subtitle), m_isSelected(isSelected)
{
    setText(title);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize OptionRow::sizeHint() const
{
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    const QRect subtitleBounds = QFontMetrics(small).boundingRect(QRect(0, 0, textWidth, 1000),
                                                                  Qt::TextWordWrap, m_subtitle);
    const int height = fontMetrics().height() + 2 + subtitleBounds.height() + 2 * padding;
    return {textWidth + markSize + 3 * padding, height};
}

void OptionRow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_isHovered || hasFocus() || isDown()) {
        QColor wash = palette().color(QPalette::Highlight);
        wash.setAlphaF(isDown() ? 0.22f : 0.12f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(wash);
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 8, 8);
    }
    const QRect text = rect().adjusted(padding, padding, -(2 * padding + markSize), -padding);
    QFont bold = font();
    bold.setWeight(QFont::DemiBold);
    painter.setFont(bold);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(text, Qt::AlignLeft | Qt::AlignTop, this->text());
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    painter.setFont(small);
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(text.adjusted(0, QFontMetrics(bold).height() + 2, 0, 0),
                     Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, m_subtitle);

    const QString mark = m_isSelected ? u"checkmark.circle.fill"_s : u"circle"_s;
    const QColor tint = m_isSelected ? deckColor::blue : deckColor::secondary;
    const QRect markRect(width() - padding - markSize, (height() - markSize) / 2, markSize,
                         markSize);
    painter.drawImage(markRect, symbolImage(mark, markSize, tint, devicePixelRatioF()));
}

void OptionRow::setSelected(bool selected)
{
    if (m_isSelected == selected)
        return;
    m_isSelected = selected;
    update();
}

void OptionRow::enterEvent(QEnterEvent* event)
{
    m_isHovered = true;
    update();
    QAbstractButton::enterEvent(event);
}

void OptionRow::leaveEvent(QEvent* event)
{
    m_isHovered = false;
    update();
    QAbstractButton::leaveEvent(event);
}

} // namespace vistrel
