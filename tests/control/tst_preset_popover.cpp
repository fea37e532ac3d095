// The presets popover on a real main view model over the scripted platform:
// a custom preset made through the form (and refused past the limit), live
// state stored, applied and reset, then renamed, moved and deleted after the
// question, the way the user does it.

#include "control/PresetCardView.h"
#include "control/PresetNameForm.h"
#include "control/PresetPopover.h"
#include "coordination/support_coordination_rig.h"
#include "presentation/PopoverHub.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

class PresetPopoverTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void createSaveApplyRenameMoveDelete();
};

namespace {

// Types `name` into the form opened by "New Preset"; the form stays open.
void typeNewName(PresetPopover& popover, const QString& name)
{
    QTest::mouseClick(popover.newPresetButton(), Qt::LeftButton);
    QTest::keyClicks(popover.form()->nameField(), name);
}

// The controls Tab reaches, in order, starting at `first`.
QList<QWidget*> tabStops(QWidget* first)
{
    QList<QWidget*> stops;
    QWidget* widget = first;
    do {
        if ((widget->focusPolicy() & Qt::TabFocus) && widget->isVisibleTo(first->window()))
            stops.append(widget);
        widget = widget->nextInFocusChain();
    } while (widget != first);
    return stops;
}

} // namespace

void PresetPopoverTest::createSaveApplyRenameMoveDelete()
{
    CoordinationRig rig;
    MainViewModel& model = rig.makeMainViewModel();
    QVERIFY(rig.startAndDiscover());
    PresetModel& presets = *model.presetModel();
    PopoverHub hub;
    QPointer<PresetPopover> popover =
        new PresetPopover(model, hub, nullptr, [&rig] { return rig.clock.now(); });
    popover->show();
    QVERIFY(QTest::qWaitForWindowExposed(popover));
    PresetNameForm* form = popover->form();
    QCOMPARE(popover->customCount()->text(), u"0"_s);

    // The form checks as the user types; Return creates.
    QTest::mouseClick(popover->newPresetButton(), Qt::LeftButton);
    QVERIFY(popover->isFormOpen());
    QCOMPARE(form->primaryButton()->text(), u"Create"_s);
    QCOMPARE(form->message()->text(), u"Preset name cannot be empty."_s);
    QVERIFY(!form->primaryButton()->isEnabled());
    QTest::keyClicks(form->nameField(), u"meeting"_s);
    QCOMPARE(form->message()->text(), u"A preset with this name already exists."_s);
    form->nameField()->clear();
    QTest::keyClicks(form->nameField(), u" Team Sync"_s);
    QVERIFY(form->primaryButton()->isEnabled());
    QVERIFY(form->message()->isHidden());
    QTest::keyClick(form->nameField(), Qt::Key_Return);
    QCOMPARE(presets.customPresets().size(), 1);
    const QString team = presets.customPresets()[0].id;
    QCOMPARE(presets.customPresets()[0].title, u"Team Sync"_s);
    QVERIFY(!popover->isFormOpen());
    QVERIFY(form->nameField()->text().isEmpty());
    QCOMPARE(popover->customCount()->text(), u"1"_s);
    PresetCardView* teamCard = popover->card(team);
    QVERIFY(teamCard);
    QCOMPARE(teamCard->state().status, u"Custom preset slot ready"_s);
    QVERIFY(!teamCard->resetButton()->isEnabled());

    typeNewName(*popover, u"Review"_s);
    QTest::mouseClick(form->primaryButton(), Qt::LeftButton);
    QCOMPARE(presets.customPresets().size(), 2);
    const QString review = presets.customPresets()[1].id;

    // A third is refused: the message shows, Create and Return change
    // nothing, Escape leaves the form but not the popover.
    typeNewName(*popover, u"Third"_s);
    QCOMPARE(form->message()->text(), u"You have reached the maximum limit of 2 custom presets."_s);
    QVERIFY(!form->primaryButton()->isEnabled());
    QTest::mouseClick(form->primaryButton(), Qt::LeftButton);
    QTest::keyClick(form->nameField(), Qt::Key_Return);
    QCOMPARE(presets.customPresets().size(), 2);
    QVERIFY(popover->isFormOpen());
    QTest::keyClick(form->nameField(), Qt::Key_Escape);
    QVERIFY(!popover->isFormOpen());
    QVERIFY(popover->isVisible());

    // Save Current stores the live state; "Active" follows what is live.
    model.setOutputFrameMode(OutputFrameMode::dynamic);
    QTest::mouseClick(teamCard->saveButton(), Qt::LeftButton);
    QCOMPARE(presets.activePresetID(), std::optional(team));
    QCOMPARE(teamCard->state().status, u"Saved just now"_s);
    QCOMPARE(teamCard->state().frameBadge, std::optional(u"Dynamic"_s));
    QVERIFY(teamCard->state().isActive);
    QVERIFY(teamCard->resetButton()->isEnabled());
    model.setOutputFrameMode(OutputFrameMode::screen);
    QVERIFY(!teamCard->state().isActive);
    model.setOutputFrameMode(OutputFrameMode::dynamic);
    QVERIFY(teamCard->state().isActive);

    // Apply a built-in; store into the other one, then reset it.
    QTest::mouseClick(popover->card(u"presentation"_s)->applyButton(), Qt::LeftButton);
    QCOMPARE(model.outputFrameMode(), OutputFrameMode::screen);
    QVERIFY(popover->card(u"presentation"_s)->state().isActive);
    QVERIFY(!teamCard->state().isActive);
    PresetCardView* meetingCard = popover->card(u"meeting"_s);
    QTest::mouseClick(meetingCard->saveButton(), Qt::LeftButton);
    QVERIFY(meetingCard->resetButton()->isEnabled());
    QTest::mouseClick(meetingCard->resetButton(), Qt::LeftButton);
    QCOMPARE(meetingCard->state().status, u"Built-in preset slot ready"_s);
    QVERIFY(!meetingCard->resetButton()->isEnabled());

    // Rename from the card's menu: the form starts from the current name.
    teamCard->renameAction()->trigger();
    QVERIFY(popover->isFormOpen());
    QCOMPARE(form->primaryButton()->text(), u"Save Name"_s);
    QCOMPARE(form->nameField()->text(), u"Team Sync"_s);
    QTest::keyClicks(form->nameField(), u"Standup"_s);
    QTest::mouseClick(form->primaryButton(), Qt::LeftButton);
    QCOMPARE(presets.preset(team)->title, u"Standup"_s);
    QCOMPARE(teamCard->state().title, u"Standup"_s);

    // Move: only the ways that exist are offered; the cards and Tab follow.
    QVERIFY(!teamCard->moveUpAction()->isEnabled());
    QVERIFY(teamCard->moveDownAction()->isEnabled());
    teamCard->moveDownAction()->trigger();
    QCOMPARE(presets.customPresets()[1].id, team);
    QVERIFY(teamCard->moveUpAction()->isEnabled());
    QVERIFY(!teamCard->moveDownAction()->isEnabled());
    QTRY_VERIFY(popover->card(review)->y() < teamCard->y());
    const QList<QWidget*> stops = tabStops(popover->card(u"presentation"_s)->applyButton());
    QVERIFY(stops.indexOf(popover->card(review)->resetButton()) <
            stops.indexOf(teamCard->menuButton()));
    QVERIFY(stops.indexOf(teamCard->resetButton()) < stops.indexOf(popover->newPresetButton()));

    // Delete asks first; Cancel keeps the preset, Return on Delete removes it.
    teamCard->deleteAction()->trigger();
    QVERIFY(popover->isAskingToDelete());
    QTest::mouseClick(popover->cancelDeleteButton(), Qt::LeftButton);
    QVERIFY(!popover->isAskingToDelete());
    QCOMPARE(presets.customPresets().size(), 2);
    teamCard->deleteAction()->trigger();
    QTest::keyClick(popover->confirmDeleteButton(), Qt::Key_Return);
    QCOMPARE(presets.customPresets().size(), 1);
    QVERIFY(!popover->card(team));
    QCOMPARE(popover->customCount()->text(), u"1"_s);
    QVERIFY(!popover->isAskingToDelete());

    // Escape on the list closes the popover.
    QTest::keyClick(popover, Qt::Key_Escape);
    QTRY_VERIFY(!popover);
}

QTEST_MAIN(PresetPopoverTest)
#include "tst_preset_popover.moc"
