#include "control/PresetNameForm.h"

#include "control/DeckState.h"
#include "control/DeckText.h"
#include "presentation/SymbolIcon.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr int symbolSize = 18;

} // namespace

PresetNameForm::PresetNameForm(QWidget* parent)
    : QWidget(parent), m_symbol(new QLabel(this)), m_heading(new QLabel(this)),
      m_name(new QLineEdit(this)), m_hint(new QLabel(this)), m_message(new QLabel(this)),
      m_cancel(new QPushButton(deckTr("Cancel"), this)), m_primary(new QPushButton(this))
{
    QFont bold = m_heading->font();
    bold.setWeight(QFont::DemiBold);
    m_heading->setFont(bold);
    m_symbol->setFixedSize(symbolSize, symbolSize);
    m_name->setPlaceholderText(deckTr("Preset name"));
    m_name->setClearButtonEnabled(true);
    m_hint->setWordWrap(true);
    m_hint->setForegroundRole(QPalette::PlaceholderText);
    m_message->setWordWrap(true);
    QPalette warning = m_message->palette();
    warning.setColor(QPalette::WindowText, deckColor::red);
    m_message->setPalette(warning);
    for (QPushButton* button : {m_cancel, m_primary})
        button->setAutoDefault(true);

    connect(m_name, &QLineEdit::textChanged, this, &PresetNameForm::recheck);
    connect(m_name, &QLineEdit::returnPressed, this, &PresetNameForm::submit);
    connect(m_primary, &QPushButton::clicked, this, &PresetNameForm::submit);
    connect(m_cancel, &QPushButton::clicked, this, &PresetNameForm::cancelled);

    auto* heading = new QHBoxLayout;
    heading->setSpacing(6);
    heading->addWidget(m_symbol);
    heading->addWidget(m_heading, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_primary);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addLayout(heading);
    layout->addWidget(m_name);
    layout->addWidget(m_hint);
    layout->addWidget(m_message);
    layout->addLayout(buttons);
    layout->addStretch();
}

void PresetNameForm::open(Purpose purpose, const QString& name, Check check)
{
    const bool create = purpose == Purpose::create;
    m_check = std::move(check);
    m_symbol->setPixmap(
        QPixmap::fromImage(symbolImage(create ? u"plus.circle"_s : u"pencil"_s, symbolSize,
                                       deckColor::indigo, devicePixelRatioF())));
    m_heading->setText(create ? deckTr("Create Custom Preset") : deckTr("Rename Preset"));
    m_hint->setText(create ? deckTr("Create a reusable preset, then use Save Current on any preset "
                                    "card to store the active Vistrel setup.")
                           : deckTr("Only the custom preset name changes here. Use Save Current to "
                                    "update its stored sharing rules."));
    m_primary->setText(create ? deckTr("Create") : deckTr("Save Name"));
    m_name->setText(name);
    m_name->selectAll();
    recheck();
    m_name->setFocus();
}

void PresetNameForm::recheck()
{
    const std::optional<QString> refusal = m_check ? m_check(m_name->text()) : std::nullopt;
    m_message->setText(refusal.value_or(QString()));
    m_message->setVisible(refusal.has_value());
    m_primary->setEnabled(m_check && !refusal);
}

void PresetNameForm::clear()
{
    m_check = {};
    m_name->clear();
}

void PresetNameForm::submit()
{
    recheck();
    if (m_primary->isEnabled())
        Q_EMIT submitted(m_name->text());
}

} // namespace vistrel
