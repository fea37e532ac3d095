#include "control/SelectionCard.h"

#include "control/DeckText.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace vistrel {

SelectionCard::SelectionCard(const QString& title, QWidget* parent)
    : QFrame(parent), m_note(new QLabel(this)), m_content(new QVBoxLayout)
{
    QLabel* heading = sectionTitle(title, this);
    m_note->setFont(heading->font());
    m_note->setForegroundRole(QPalette::PlaceholderText);
    m_note->hide();

    auto* titleRow = new QHBoxLayout;
    titleRow->addWidget(heading);
    titleRow->addWidget(m_note);
    titleRow->addStretch();

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
    layout->addLayout(titleRow);
    layout->addWidget(card);
}

void SelectionCard::setNote(const QString& note)
{
    m_note->setText(note);
    m_note->setVisible(!note.isEmpty());
}

} // namespace vistrel
