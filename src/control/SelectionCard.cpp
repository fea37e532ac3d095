#include "control/SelectionCard.h"

#include "control/DeckText.h"

#include <QLabel>
#include <QVBoxLayout>

namespace vistrel {

SelectionCard::SelectionCard(const QString& title, QWidget* parent)
    : QFrame(parent), m_content(new QVBoxLayout)
{

    auto* card = new QFrame(this);
    card->setObjectName(QStringLiteral("selectionCardBody"));
    card->setStyleSheet(QStringLiteral(
        "#selectionCardBody { background: palette(base); border: 1px solid palette(midlight);"
        " border-radius: 8px; }"));
    card->setLayout(m_content);
    m_content->setContentsMargins(4, 4, 4, 4);
    m_content->setSpacing(0);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(sectionTitle(title, this));
    layout->addWidget(card);
}

} // namespace vistrel
