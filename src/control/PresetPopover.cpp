#include "control/PresetPopover.h"

#include "control/DeckState.h"
#include "control/DeckText.h"
#include "control/PresetCardView.h"
#include "control/PresetCards.h"
#include "control/PresetNameForm.h"
#include "coordination/MainViewModel.h"
#include "coordination/PresetModel.h"
#include "presentation/SymbolIcon.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vistrel {

namespace {

// The width the cards are laid out for; the list adds its scroll bar.
constexpr int listWidth = 420;

QLabel* groupHeading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QPushButton* pageButton(const QString& text, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setAutoDefault(true);
    return button;
}

} // namespace

PresetPopover::PresetPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent,
                             std::function<QDateTime()> now)
    : Popover(deckTr("Presets"), hub, parent), m_model(model),
      m_now(now ? std::move(now) : [] { return QDateTime::currentDateTime(); })
{
    m_pages = new QStackedWidget(this);
    m_pages->addWidget(buildList());
    m_form = new PresetNameForm(m_pages);
    m_pages->addWidget(m_form);
    m_question = buildDeleteQuestion();
    m_pages->addWidget(m_question);
    contentLayout()->addWidget(m_pages);

    connect(m_form, &PresetNameForm::submitted, this, &PresetPopover::submitName);
    connect(m_form, &PresetNameForm::cancelled, this, &PresetPopover::showList);
    const PresetModel* presets = m_model.presetModel();
    connect(presets, &PresetModel::presetsChanged, this, &PresetPopover::refresh);
    connect(presets, &PresetModel::activePresetIDChanged, this, &PresetPopover::refresh);
    connect(&m_model, &MainViewModel::configurationChanged, this, &PresetPopover::refresh);
    // "Saved just now" becomes "1 minute ago" while the popover stays open.
    auto* tick = new QTimer(this);
    connect(tick, &QTimer::timeout, this, &PresetPopover::refresh);
    tick->start(30s);
    refresh();
}

QWidget* PresetPopover::buildList()
{
    m_scroll = new QScrollArea(m_pages);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Tab goes straight to the cards; the list scrolls to the focused one.
    m_scroll->setFocusPolicy(Qt::NoFocus);
    m_scroll->setFixedWidth(listWidth + style()->pixelMetric(QStyle::PM_ScrollBarExtent) + 4);

    auto* content = new QWidget(m_scroll);
    content->setBackgroundRole(QPalette::Window);
    m_builtInCards = new QVBoxLayout;
    m_builtInCards->setSpacing(8);
    m_customCards = new QVBoxLayout;
    m_customCards->setSpacing(8);
    m_customCount = new QLabel(content);
    m_customCount->setForegroundRole(QPalette::PlaceholderText);
    m_newPreset = pageButton(deckTr("New Preset"), content);
    m_newPreset->setIcon(QIcon(QPixmap::fromImage(
        symbolImage(u"plus", 14, palette().color(QPalette::ButtonText), devicePixelRatioF()))));
    connect(m_newPreset, &QPushButton::clicked, this, [this] { openForm(std::nullopt); });

    auto* customHeading = new QHBoxLayout;
    customHeading->setSpacing(6);
    customHeading->addWidget(groupHeading(deckTr("Custom Presets"), content));
    customHeading->addWidget(m_customCount);
    customHeading->addStretch();
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 4, 4);
    layout->setSpacing(8);
    layout->addWidget(
        secondaryText(deckTr("All presets start with nothing selected, use the Screen "
                             "frame, and keep the default black canvas. Custom presets "
                             "can be reordered."),
                      content));
    layout->addSpacing(4);
    layout->addWidget(groupHeading(deckTr("Built-in Presets"), content));
    layout->addLayout(m_builtInCards);
    layout->addSpacing(6);
    layout->addLayout(customHeading);
    layout->addLayout(m_customCards);
    layout->addWidget(m_newPreset, 0, Qt::AlignLeft);
    layout->addStretch();
    m_scroll->setWidget(content);
    return m_scroll;
}

QWidget* PresetPopover::buildDeleteQuestion()
{
    auto* page = new QWidget(m_pages);
    auto* symbol = new QLabel(page);
    symbol->setPixmap(QPixmap::fromImage(
        symbolImage(u"exclamationmark.triangle.fill", 18, deckColor::orange, devicePixelRatioF())));
    m_cancelDelete = pageButton(deckTr("Cancel"), page);
    m_confirmDelete = pageButton(deckTr("Delete"), page);
    QPalette destructive = m_confirmDelete->palette();
    destructive.setColor(QPalette::ButtonText, deckColor::red);
    m_confirmDelete->setPalette(destructive);
    connect(m_cancelDelete, &QPushButton::clicked, this, &PresetPopover::showList);
    connect(m_confirmDelete, &QPushButton::clicked, this, [this] {
        if (m_pendingDeletion)
            m_model.presetModel()->deletePreset(m_pendingDeletion->id);
        showList();
    });

    auto* heading = new QHBoxLayout;
    heading->setSpacing(6);
    heading->addWidget(symbol);
    heading->addWidget(groupHeading(deckTr("Delete Preset?"), page), 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancelDelete);
    buttons->addWidget(m_confirmDelete);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addLayout(heading);
    layout->addWidget(
        secondaryText(deckTr("This only removes the custom preset. It does not change "
                             "the current Vistrel session."),
                      page));
    layout->addLayout(buttons);
    layout->addStretch();
    return page;
}

PresetCardView* PresetPopover::card(const QString& presetID) const
{
    const auto found = m_cards.find(presetID);
    return found == m_cards.end() ? nullptr : found->second;
}

bool PresetPopover::isFormOpen() const
{
    return m_pages->currentWidget() == m_form;
}

bool PresetPopover::isAskingToDelete() const
{
    return m_pages->currentWidget() == m_question;
}

PresetCardView* PresetPopover::makeCard(const QString& id)
{
    auto* card = new PresetCardView(m_scroll->widget());
    PresetModel* presets = m_model.presetModel();
    connect(card, &PresetCardView::applyRequested, this, [this, id] { m_model.applyPreset(id); });
    connect(card, &PresetCardView::saveRequested, this, [this, id] { m_model.savePreset(id); });
    connect(card, &PresetCardView::resetRequested, this, [this, id] { m_model.clearPreset(id); });
    connect(card, &PresetCardView::moveRequested, this,
            [presets, id](bool downward) { presets->moveCustomPreset(id, downward); });
    connect(card, &PresetCardView::renameRequested, this, [this, id] { openForm(id); });
    connect(card, &PresetCardView::deleteRequested, this, [this, id] { askToDelete(id); });
    m_cards[id] = card;
    return card;
}

void PresetPopover::refresh()
{
    const PresetModel& presets = *m_model.presetModel();
    const QList<SharePreset> builtIns = presets.builtInPresets();
    const QList<SharePreset> customs = presets.customPresets();
    const QDateTime now = m_now();
    std::map<QString, PresetCardView*> gone = m_cards;
    // Cards are kept by id and only moved, so focus and the open menu
    // survive a reorder or a live change.
    const auto place = [&](const QList<SharePreset>& group, QVBoxLayout* layout) {
        for (int index = 0; index < group.size(); ++index) {
            const SharePreset& preset = group[index];
            PresetCardView* view = gone.erase(preset.id) ? card(preset.id) : makeCard(preset.id);
            const PresetCardContext context{presets.activePresetID(),
                                            m_model.presetMatchesCurrentState(preset), now, index,
                                            int(group.size())};
            view->setState(presetCardState(preset, context));
            if (layout->indexOf(view) != index) {
                layout->removeWidget(view);
                layout->insertWidget(index, view);
            }
        }
    };
    place(builtIns, m_builtInCards);
    place(customs, m_customCards);
    for (const auto& [id, view] : gone) {
        m_cards.erase(id);
        m_builtInCards->removeWidget(view);
        m_customCards->removeWidget(view);
        view->hide();
        view->deleteLater();
    }
    // Cards made later or moved would otherwise be reached by Tab in the
    // order they were made, not the order they are shown.
    QWidget* previous = nullptr;
    for (QVBoxLayout* group : {m_builtInCards, m_customCards}) {
        for (int index = 0; index < group->count(); ++index) {
            const auto* view = static_cast<PresetCardView*>(group->itemAt(index)->widget());
            for (QWidget* control : view->focusOrder()) {
                if (previous)
                    setTabOrder(previous, control);
                previous = control;
            }
        }
    }
    if (previous)
        setTabOrder(previous, m_newPreset);
    m_customCount->setText(QString::number(customs.size()));
    m_scroll->setFixedHeight(presetListHeight(int(builtIns.size()), int(customs.size())));

    // What the form or the question is about may be gone by now.
    if ((m_pendingDeletion && !presets.preset(m_pendingDeletion->id)) ||
        (m_editingPresetID && !presets.preset(*m_editingPresetID)))
        showList();
    else if (isFormOpen())
        m_form->recheck();
    if (isVisible())
        adjustSize();
}

void PresetPopover::openForm(const std::optional<QString>& editingPresetID)
{
    const PresetModel* presets = m_model.presetModel();
    const SharePreset* editing = editingPresetID ? presets->preset(*editingPresetID) : nullptr;
    if (editingPresetID && !editing)
        return;
    m_isCreatingPreset = !editing;
    m_editingPresetID = editingPresetID;
    m_returnFocus = editing ? static_cast<QWidget*>(card(editing->id)->menuButton()) : m_newPreset;
    m_pages->setCurrentWidget(m_form);
    m_form->open(editing ? PresetNameForm::Purpose::rename : PresetNameForm::Purpose::create,
                 editing ? editing->title : QString(),
                 [presets, editingPresetID](const QString& name) {
                     return presets->validatePresetName(name, editingPresetID);
                 });
}

void PresetPopover::submitName(const QString& name)
{
    PresetModel* presets = m_model.presetModel();
    if (m_isCreatingPreset) {
        const std::optional<QString> created = presets->createCustomPreset(name);
        if (!created) {
            m_form->recheck();
            return;
        }
        showList();
        // Once the list has laid the new card out.
        if (PresetCardView* view = card(*created))
            QTimer::singleShot(0, view, [this, view] { m_scroll->ensureWidgetVisible(view); });
    } else if (m_editingPresetID) {
        if (!presets->renamePreset(*m_editingPresetID, name)) {
            m_form->recheck();
            return;
        }
        showList();
    }
}

void PresetPopover::askToDelete(const QString& presetID)
{
    const SharePreset* preset = m_model.presetModel()->preset(presetID);
    if (!preset)
        return;
    m_pendingDeletion = *preset;
    m_returnFocus = card(presetID) ? card(presetID)->menuButton() : nullptr;
    m_pages->setCurrentWidget(m_question);
    // The safe answer is the one Return gives.
    m_cancelDelete->setFocus();
}

void PresetPopover::showList()
{
    m_isCreatingPreset = false;
    m_editingPresetID.reset();
    m_pendingDeletion.reset();
    m_form->clear();
    m_pages->setCurrentWidget(m_scroll);
    // Back where the user came from; a deleted card's place goes to "New Preset".
    QWidget* focus =
        m_returnFocus && m_returnFocus->isVisibleTo(this) ? m_returnFocus.data() : m_newPreset;
    m_returnFocus = nullptr;
    focus->setFocus();
}

void PresetPopover::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape && m_pages->currentWidget() != m_scroll) {
        showList();
        event->accept();
        return;
    }
    Popover::keyPressEvent(event);
}

} // namespace vistrel
