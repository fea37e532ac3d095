#include "control/ChoicePopovers.h"

#include "control/DeckText.h"
#include "control/OptionRow.h"
#include "control/Popover.h"
#include "control/SessionInfo.h"
#include "coordination/MainViewModel.h"

#include <QCoreApplication>
#include <QFormLayout>
#include <QLabel>
#include <QVBoxLayout>
#include <functional>

namespace vistrel {

namespace {

// A row that runs `choose` unless it is already selected; either way the
// popover closes.
void addRow(Popover* popover, const QString& title, const QString& subtitle, bool selected,
            std::function<void()> choose)
{
    auto* row = new OptionRow(title, subtitle, selected, popover);
    QObject::connect(row, &OptionRow::clicked, popover, [popover, selected, choose] {
        if (!selected)
            choose();
        popover->close();
    });
    popover->contentLayout()->addWidget(row);
}

} // namespace

Popover* makeModePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent)
{
    auto* popover = new Popover(deckTr("Visibility Mode"), hub, parent);
    const VisibilityMode mode = model.policy().mode;
    addRow(popover, deckTr("Allow List"),
           deckTr("Only checked apps and windows appear in Vistrel Output."),
           mode == VisibilityMode::allowList,
           [&model] { model.setVisibilityMode(VisibilityMode::allowList); });
    addRow(popover, deckTr("Block List"),
           deckTr("Everything on the selected display appears except checked apps and windows."),
           mode == VisibilityMode::blockList,
           [&model] { model.setVisibilityMode(VisibilityMode::blockList); });
    return popover;
}

Popover* makeFramePopover(MainViewModel& model, PopoverHub& hub, QWidget* parent)
{
    auto* popover = new Popover(deckTr("Frame Style"), hub, parent);
    const OutputFrameMode frame = model.outputFrameMode();
    addRow(popover, deckTr("Screen"), deckTr("Use the full selected display as the output canvas."),
           frame == OutputFrameMode::screen,
           [&model] { model.setOutputFrameMode(OutputFrameMode::screen); });
    addRow(popover, deckTr("Dynamic"),
           deckTr("Automatically crop the output to the outer bounds of the shared windows on the "
                  "selected display."),
           frame == OutputFrameMode::dynamic,
           [&model] { model.setOutputFrameMode(OutputFrameMode::dynamic); });
    return popover;
}

Popover* makeDisplayPopover(MainViewModel& model, PopoverHub& hub, QWidget* parent)
{
    auto* popover = new Popover(deckTr("Display"), hub, parent);
    const std::optional<quint32> selected = model.selectedDisplayID();
    for (const ShareableDisplay& display : model.displays()) {
        const quint32 id = display.id;
        addRow(popover, display.name, display.resolutionText(), selected == id,
               [&model, id] { model.selectDisplay(id); });
    }
    addRow(popover, deckTr("No Display"), deckTr("Pause the output until a display is selected."),
           !selected, [&model] { model.selectDisplay(std::nullopt); });
    return popover;
}

Popover* makeInformationPopover(MainViewModel& model, const QString& note, PopoverHub& hub,
                                QWidget* parent)
{
    auto* popover = new Popover(deckTr("Current Session"), hub, parent);
    SessionInputs inputs;
    inputs.contentMode = model.outputContentMode();
    inputs.visibilityMode = model.policy().mode;
    if (model.selectedDisplayID())
        inputs.displayName = model.selectedDisplayName();
    inputs.frameMode = model.outputFrameMode();
    inputs.canvas = model.canvasBackground();
    inputs.discovered = model.sourceSummary();
    inputs.ruleCount = model.policy().activeRuleCount();
    inputs.status = model.streamStatus();
    const SessionInfo info = sessionInfo(inputs);

    auto* rows = new QFormLayout;
    rows->setHorizontalSpacing(16);
    for (const auto& [label, value] : info.rows) {
        auto* valueLabel = new QLabel(value, popover);
        valueLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
        rows->addRow(new QLabel(label, popover), valueLabel);
    }
    popover->contentLayout()->addLayout(rows);
    for (const QString& explanation : info.explanations) {
        popover->contentLayout()->addWidget(secondaryText(explanation, popover, 340));
    }
    if (!note.isEmpty()) {
        QLabel* warning = secondaryText(note, popover, 340);
        warning->setForegroundRole(QPalette::WindowText);
        popover->contentLayout()->addWidget(warning);
    }
    return popover;
}

} // namespace vistrel
