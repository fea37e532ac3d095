// The control widgets driven like a user on the scripted desktop (Qt's
// offscreen platform) with a real main view model: the deck's tiles and
// single-choice popovers, the Canvas and Camera Overlay popovers, the
// presets popover from creation to deletion, and the source picker across
// a refresh.

#include "control/ApplicationRowView.h"
#include "control/CameraPopover.h"
#include "control/CanvasPopover.h"
#include "control/CompactTile.h"
#include "control/ControlDeck.h"
#include "control/ImageDropZone.h"
#include "control/OptionRow.h"
#include "control/PresetCardView.h"
#include "control/PresetNameForm.h"
#include "control/PresetPopover.h"
#include "control/SourcePickerList.h"
#include "control/SourcePickerView.h"
#include "control/WindowRowView.h"
#include "coordination/support_coordination_rig.h"
#include "presentation/PopoverHub.h"
#include "presentation/WindowRegistry.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

// The main view model on the scripted platform, with what the deck needs
// beside it.
struct Desk {
    explicit Desk(SimScene scene = standardScene()) : rig(std::move(scene)) {}
    CoordinationRig rig;
    MainViewModel& model = rig.makeMainViewModel();
    WindowRegistry registry;
    PopoverHub hub;
};

// The rows of the popover that is open.
QList<OptionRow*> openRows(const ControlDeck& deck)
{
    for (Popover* popover : deck.findChildren<Popover*>())
        if (popover->isVisible())
            return popover->findChildren<OptionRow*>();
    return {};
}

// A drag of `data` over the zone, then a drop, as the window system sends it.
bool dropOn(ImageDropZone* zone, const QList<QUrl>& urls, const QString& text = {})
{
    QMimeData data;
    if (!urls.isEmpty())
        data.setUrls(urls);
    if (!text.isEmpty())
        data.setText(text);
    const QPoint centre = zone->rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(zone, &enter);
    const bool targeted = zone->isDropTargeted();
    QDropEvent drop(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(zone, &drop);
    return targeted && !zone->isDropTargeted();
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

// 30 applications with two windows each on one display.
constexpr int applicationCount = 30;
qint32 pid(int app)
{
    return 100 + app;
}
quint32 windowID(int app, int window)
{
    return quint32(1000 + app * 10 + window);
}
QString key(int app)
{
    return u"org.example.app%1"_s.arg(app, 2, 10, QChar(u'0'));
}
SimScene pickerScene()
{
    SimScene s;
    s.displays = {makeSimDisplay(1, QRectF(0, 0, 1920, 1080), u"Main"_s)};
    for (int a = 0; a < applicationCount; ++a) {
        s.applications.append({pid(a), key(a), u"Application %1"_s.arg(a, 2, 10, QChar(u'0'))});
        for (int w = 0; w < 2; ++w)
            s.windows.append(makeSimWindow(windowID(a, w), pid(a), QRectF(10 * a, 10 * w, 300, 200),
                                           Qt::gray, u"Document %1-%2"_s.arg(a).arg(w)));
    }
    return s;
}

bool publish(CoordinationRig& rig)
{
    QSignalSpy published(rig.mainViewModel->appListViewModel(),
                         &AppListViewModel::allApplicationsChanged);
    rig.discovery.refreshOnce();
    if (!published.wait(3000))
        return false;
    settle();
    return true;
}

} // namespace

class TestControlViews : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Tiles act on the view model, one popover at a time, the
    // application-wide close request, and choices in the single-choice
    // popovers.
    void deckTilesAndPopovers()
    {
        Desk desk;
        MainViewModel& model = desk.model;
        int previewToggles = 0;
        ControlDeck::Actions actions{[&] { ++previewToggles; },
                                     [] {
                                     }};
        const QString panicKeyProblem = u"Ctrl+Shift+H is taken by another application"_s;
        actions.panicKeyProblem = [&] {
            return panicKeyProblem;
        };
        ControlDeck deck(model, desk.registry, desk.hub, std::move(actions), nullptr);
        deck.resize(520, 170);
        deck.show();
        QVERIFY(desk.rig.startAndDiscover());

        // Panic and preview act at once; the panic tile follows.
        QTest::mouseClick(deck.tile(DeckTile::panic), Qt::LeftButton);
        QVERIFY(model.isPanicHidden());
        QCOMPARE(deck.tile(DeckTile::panic)->state().title, u"Resume"_s);
        QTest::mouseClick(deck.tile(DeckTile::preview), Qt::LeftButton);
        QCOMPARE(previewToggles, 1);

        // One popover at a time; the application-wide request closes it.
        QTest::mouseClick(deck.tile(DeckTile::mode), Qt::LeftButton);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::mode));
        deck.openPopover(DeckPopover::frame);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::frame));
        QCOMPARE(openRows(deck).size(), 2);
        desk.hub.requestClosePopovers();
        QTRY_COMPARE(deck.activePopover(), std::optional<DeckPopover>());

        // Choosing the selected row closes the popover and changes nothing.
        deck.openPopover(DeckPopover::frame);
        QSignalSpy changes(&model, &MainViewModel::configurationChanged);
        QVERIFY(openRows(deck).first()->isSelected());
        QTest::mouseClick(openRows(deck).first(), Qt::LeftButton);
        QTRY_COMPARE(deck.activePopover(), std::optional<DeckPopover>());
        QCOMPARE(changes.size(), 0);

        // The display popover: one row per display and "No Display".
        deck.openPopover(DeckPopover::display);
        const QList<OptionRow*> displayRows = openRows(deck);
        QCOMPARE(displayRows.size(), model.displays().size() + 1);
        QCOMPARE(displayRows.last()->text(), u"No Display"_s);
        QTest::mouseClick(displayRows.last(), Qt::LeftButton);
        QCOMPARE(model.selectedDisplayID(), std::optional<quint32>());
        QCOMPARE(deck.tile(DeckTile::display)->state().subtitle, u"Select"_s);

        // The Presets tile opens the presets popover.
        QTest::mouseClick(deck.tile(DeckTile::presets), Qt::LeftButton);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::presets));
        QVERIFY(deck.findChild<PresetPopover*>());

        // The information popover says when the panic key works only here.
        deck.openPopover(DeckPopover::info);
        bool said = false;
        for (const QLabel* label : deck.findChildren<QLabel*>())
            said = said || (label->isVisible() && label->text() == panicKeyProblem);
        QVERIFY(said);

        // Another mode from its popover.
        deck.openPopover(DeckPopover::mode);
        QTest::mouseClick(openRows(deck).last(), Qt::LeftButton);
        QCOMPARE(model.policy().mode, VisibilityMode::blockList);
        QCOMPARE(deck.tile(DeckTile::mode)->state().subtitle, u"Block List"_s);
    }

    void canvasPopoverImportsAndChooses()
    {
        Desk desk;
        const QTemporaryDir& root = desk.rig.dataRoot;
        ControlDeck deck(desk.model, desk.registry, desk.hub, {}, nullptr);
        deck.resize(520, 170);
        deck.show();
        QTest::mouseClick(deck.tile(DeckTile::canvas), Qt::LeftButton, {}, QPoint(20, 20));
        auto* popover = deck.findChild<CanvasPopover*>();
        QVERIFY(popover && popover->isVisible());

        // Output and background rows act at once and the popover stays.
        const QList<OptionRow*> rows = popover->findChildren<OptionRow*>();
        QCOMPARE(rows.size(), 6);
        QTest::mouseClick(rows.at(1), Qt::LeftButton);
        QCOMPARE(desk.model.outputContentMode(), OutputContentMode::fullDesktop);
        QVERIFY(rows.at(1)->isSelected() && !rows.at(0)->isSelected());
        QTest::mouseClick(rows.at(0), Qt::LeftButton);
        QTest::mouseClick(rows.at(3), Qt::LeftButton);
        QCOMPARE(desk.model.canvasBackground().mode, CanvasBackgroundMode::white);
        QVERIFY(popover->isVisible());

        // A dropped text file changes nothing and says why.
        const QString notes = root.filePath(u"notes.txt"_s);
        QFile(notes).open(QIODevice::WriteOnly);
        const CanvasBackgroundSelection before = desk.model.canvasBackground();
        QVERIFY(dropOn(popover->dropZone(), {QUrl::fromLocalFile(notes)}));
        QCOMPARE(desk.model.canvasBackground(), before);
        QVERIFY2(popover->importMessage().contains(u"only accepts image files"_s),
                 qPrintable(popover->importMessage()));
        // Dragged text is not a file: no highlight, nothing imported.
        QVERIFY(!dropOn(popover->dropZone(), {}, notes));

        // A dropped picture becomes the canvas; the message goes.
        QImage picture(40, 30, QImage::Format_RGB32);
        picture.fill(Qt::magenta);
        const QString sunset = root.filePath(u"sunset.png"_s);
        QVERIFY(picture.save(sunset));
        QVERIFY(dropOn(popover->dropZone(), {QUrl::fromLocalFile(sunset)}));
        QCOMPARE(desk.model.canvasBackground().mode, CanvasBackgroundMode::customImage);
        QCOMPARE(desk.model.canvasBackground().imageDisplayName, std::optional(u"sunset.png"_s));
        QCOMPARE(popover->importMessage(), QString());

        // "Choose Image": a file dialog for images; confirming imports.
        const QString dawn = root.filePath(u"dawn.jpg"_s);
        QVERIFY(picture.save(dawn));
        QTest::mouseClick(popover->chooseButton(), Qt::LeftButton);
        auto* dialog = popover->findChild<QFileDialog*>();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(dialog->fileMode(), QFileDialog::ExistingFile);
        QVERIFY(dialog->nameFilters().join(u' ').contains(u"*.png"_s));
        dialog->selectFile(dawn);
        QMetaObject::invokeMethod(dialog, "accept");
        QCOMPARE(desk.model.canvasBackground().imageDisplayName, std::optional(u"dawn.jpg"_s));

        // It survives presses elsewhere, but a press on its tile closes it
        // without opening it again, and a hidden deck takes it along.
        QTest::mouseClick(deck.tile(DeckTile::canvas), Qt::LeftButton, {}, QPoint(20, 20));
        QTRY_VERIFY(!deck.activePopover());
        deck.openPopover(DeckPopover::canvas);
        QVERIFY(deck.activePopover());
        deck.hide();
        QTRY_VERIFY(!deck.activePopover());
    }

    void cameraPopoverEditsTheOverlay()
    {
        Desk desk;
        TestPatternOptions options;
        options.deviceCount = 2;
        TestPatternCameraPort port(options);
        int helpOpened = 0;
        const auto help = [&] {
            ++helpOpened;
        };
        auto owner = std::make_unique<CameraPopover>(
            desk.model, CameraPopover::Camera{&port, nullptr, help}, desk.hub, nullptr);
        CameraPopover* popover = owner.get();
        popover->show();

        // Opening picks the first camera and saves it.
        QTRY_COMPARE(popover->availableCameras().size(), 2);
        QCOMPARE(desk.model.cameraOverlay().cameraDeviceID,
                 std::optional(TestPatternCameraPort::deviceID(0)));
        QVERIFY(desk.model.hasPendingSave());
        QCOMPARE(popover->sourceChoice()->count(), 3);
        QVERIFY(!popover->cameraPermissionDenied() && popover->deniedPanel()->isHidden());

        popover->enableToggle()->click();
        popover->mirrorToggle()->click();
        popover->sourceChoice()->setCurrentIndex(2);
        Q_EMIT popover->sourceChoice()->activated(2);
        popover->shapeButtons()->button(int(CameraShape::roundedSquare))->click();
        popover->sizeSlider()->setValue(12);
        popover->marginSliders().at(3)->setValue(120);
        popover->positionButton(CameraPosition::topLeft)->click();
        CameraOverlayConfiguration expected = desk.model.cameraOverlay();
        expected.isEnabled = true;
        expected.isMirrored = true;
        expected.cameraDeviceID = TestPatternCameraPort::deviceID(1);
        expected.shape = CameraShape::roundedSquare;
        expected.sizeScale = 1.2;
        expected.marginRight = 120;
        expected.position = CameraPosition::topLeft;
        QCOMPARE(desk.model.cameraOverlay(), expected);
        QVERIFY(popover->marginsPanel()->isVisibleTo(popover));

        // The centre has no margins; "None" clears the camera.
        popover->positionButton(CameraPosition::center)->click();
        QVERIFY(!popover->marginsPanel()->isVisibleTo(popover));
        Q_EMIT popover->sourceChoice()->activated(0);
        QCOMPARE(desk.model.cameraOverlay().cameraDeviceID, std::nullopt);

        // Without access: the denied state, and Settings opens the help.
        TestPatternOptions refused;
        refused.accessGranted = false;
        TestPatternCameraPort deniedPort(refused);
        CameraPopover denied(desk.model, {&deniedPort, nullptr, help}, desk.hub, nullptr);
        denied.show();
        QTRY_VERIFY(denied.cameraPermissionDenied());
        QVERIFY(denied.deniedPanel()->isVisible());
        denied.deniedPanel()->findChild<QPushButton*>()->click();
        QCOMPARE(helpOpened, 1);

        // A device the user may not open shows the same state as soon as
        // the session says so.
        TestPatternOptions deniedDevice;
        deniedDevice.deniedDevices = {TestPatternCameraPort::deviceID(0)};
        TestPatternCameraPort devicePort(deniedDevice);
        CameraSessionManager session(devicePort);
        desk.model.setCameraOverlay(CameraOverlayConfiguration::defaultValue());
        CameraPopover refusedDevice(desk.model, {&devicePort, &session, {}}, desk.hub, nullptr);
        refusedDevice.show();
        QTRY_COMPARE(refusedDevice.availableCameras().size(), 1);
        QVERIFY(!refusedDevice.cameraPermissionDenied());
        refusedDevice.enableToggle()->click();
        session.apply(desk.model.cameraOverlay());
        QTRY_VERIFY(refusedDevice.cameraPermissionDenied());
        QVERIFY(refusedDevice.deniedPanel()->isVisible());
    }

    // A custom preset made through the form (and refused past the limit),
    // live state stored, applied and reset, then renamed, moved and deleted
    // after the question, the way the user does it.
    void presetsCreateSaveApplyRenameMoveDelete()
    {
        Desk desk;
        CoordinationRig& rig = desk.rig;
        MainViewModel& model = desk.model;
        QVERIFY(rig.startAndDiscover());
        PresetModel& presets = *model.presetModel();
        QPointer<PresetPopover> popover =
            new PresetPopover(model, desk.hub, nullptr, [&rig] { return rig.clock.now(); });
        popover->show();
        QVERIFY(QTest::qWaitForWindowExposed(popover));
        PresetNameForm* form = popover->form();
        QCOMPARE(popover->customCount()->text(), u"0"_s);
        const auto typeNewName = [&](const QString& name) {
            QTest::mouseClick(popover->newPresetButton(), Qt::LeftButton);
            QTest::keyClicks(form->nameField(), name);
        };

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

        typeNewName(u"Review"_s);
        QTest::mouseClick(form->primaryButton(), Qt::LeftButton);
        QCOMPARE(presets.customPresets().size(), 2);
        const QString review = presets.customPresets()[1].id;

        // A third is refused: the message shows, Create and Return change
        // nothing, Escape leaves the form but not the popover.
        typeNewName(u"Third"_s);
        QCOMPARE(form->message()->text(),
                 u"You have reached the maximum limit of 2 custom presets."_s);
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

    // A refresh keeps the rows, the scroll position, the expansion and the
    // focus; the action checks the whole application; a search with no match
    // shows the empty state.
    void pickerRefreshKeepsRowsScrollExpansionAndFocus()
    {
        Desk desk(pickerScene());
        MainViewModel& model = desk.model;
        QVERIFY(publish(desk.rig));

        SourcePickerView view(model, nullptr);
        view.resize(520, 420);
        view.show();
        QVERIFY(QTest::qWaitForWindowActive(&view));
        SourcePickerList* list = view.list();
        QScrollBar* scroll = list->verticalScrollBar();
        QVERIFY(scroll->maximum() > 0);
        scroll->setValue(scroll->maximum() / 2);
        const int scrolled = scroll->value();

        list->applicationRow(key(15))->expandButton()->click();
        QVERIFY(list->windowRow(windowID(15, 0)));
        QCheckBox* focused = list->applicationRow(key(16))->actionButton();
        focused->setFocus();
        QCOMPARE(QApplication::focusWidget(), focused);

        QList<QWidget*> before;
        for (int a = 0; a < applicationCount - 1; ++a)
            before.append(list->applicationRow(key(a)));
        WindowRowView* renamed = list->windowRow(windowID(15, 1));

        // A title changed, a window added, an application gone.
        desk.rig.world.edit([](SimScene& s) {
            for (SimWindow& w : s.windows) {
                if (w.windowID == windowID(15, 1))
                    w.title = u"Document renamed"_s;
            }
            s.windows.append(makeSimWindow(windowID(3, 5), pid(3), QRectF(0, 0, 100, 100), Qt::gray,
                                           u"Document added"_s));
            s.windows.removeIf([](const SimWindow& w) { return w.ownerProcessID == pid(29); });
        });
        QVERIFY(publish(desk.rig));

        for (int a = 0; a < applicationCount - 1; ++a)
            QCOMPARE(list->applicationRow(key(a)), before[a]);
        QVERIFY(!list->applicationRow(key(29)));
        QCOMPARE(list->windowRow(windowID(15, 1)), renamed);
        QCOMPARE(renamed->row().title, u"Document renamed"_s);
        QCOMPARE(list->applicationRow(key(3))->row().windowCount, u"3 windows"_s);
        QCOMPARE(scroll->value(), scrolled);
        QCOMPARE(QApplication::focusWidget(), focused);

        // The action checks the whole application into the active list.
        const ShareableApp app16 = list->applicationRow(key(16))->row().app;
        focused->click();
        settle();
        QVERIFY(model.policy().allowList.applications.contains(app16.identity));
        QVERIFY(focused->isChecked());
        QCOMPARE(focused->text(), u"Show"_s);

        QTest::keyClicks(view.searchField(), u"zzz"_s);
        QCOMPARE(model.appListViewModel()->searchQuery(), u"zzz"_s);
        settle();
        QCOMPARE(view.content().emptyState->title, u"No Matching Sources"_s);
        QVERIFY(!list->isVisible());
    }
};

QTEST_MAIN(TestControlViews)
#include "tst_control_views.moc"
