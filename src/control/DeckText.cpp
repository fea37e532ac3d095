#include "control/DeckText.h"

#include <QLabel>

namespace vistrel {

QLabel* secondaryText(const QString& text, QWidget* parent, int maximumWidth)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    if (maximumWidth > 0)
        label->setMaximumWidth(maximumWidth);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QLabel* sectionTitle(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace vistrel
