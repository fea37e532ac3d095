#include "coordination/PresetNaming.h"
#include "support_coordination_rig.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

const QString emptyMessage = u"Preset name cannot be empty."_s;
const QString lengthMessage = u"Preset name must stay under 32 characters."_s;
const QString duplicateMessage = u"A preset with this name already exists."_s;
const QString limitMessage = u"You have reached the maximum limit of 2 custom presets."_s;

const QString presentationID = caseName(BuiltInPresetKind::presentation);
const QString meetingID = caseName(BuiltInPresetKind::meeting);

// Built-ins plus custom presets with these titles, all empty.
PersistedAppState stateWithCustomPresets(const QStringList& titles)
{
    PersistedAppState state;
    for (const QString& title : titles)
        state.presets.append(makeCustomPreset(title));
    return state;
}

QString repeated(const QString& unit, int times)
{
    QString result;
    for (int i = 0; i < times; ++i)
        result += unit;
    return result;
}

QStringList titles(const QList<SharePreset>& presets)
{
    QStringList result;
    for (const SharePreset& preset : presets)
        result.append(preset.title);
    return result;
}

AppIdentity mailIdentity()
{
    return AppIdentity{u"org.example.mail"_s, u"Mail"_s};
}

// A policy with one application rule, distinct from the default.
VisibilityPolicy mailPolicy(VisibilityMode mode = VisibilityMode::allowList)
{
    VisibilityPolicy policy;
    policy.mode = mode;
    policy.activeRules().applications.insert(mailIdentity());
    return policy;
}

SharePreset configuredPreset(const QString& title, std::optional<quint32> display)
{
    SharePreset preset = makeCustomPreset(title);
    preset.policy = mailPolicy(VisibilityMode::blockList);
    preset.selectedDisplayID = display;
    preset.outputFrameMode = OutputFrameMode::dynamic;
    preset.outputContentMode = OutputContentMode::fullDesktop;
    preset.canvasBackground.mode = CanvasBackgroundMode::gray;
    preset.lastUpdated = QDateTime(QDate(2025, 3, 1), QTime(12, 0), Qt::UTC);
    return preset;
}

} // namespace

class PresetManagementTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nameLengthCountsGraphemes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("length");

        QTest::newRow("ascii") << u"Deck"_s << 4;
        QTest::newRow("combining accent") << u"e\u0301te\u0301"_s << 3;
        QTest::newRow("family emoji") << u"\U0001F468\u200D\U0001F469\u200D\U0001F467!"_s << 2;
        QTest::newRow("flag pair") << u"\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA"_s << 2;
        QTest::newRow("hangul jamo") << u"\u1100\u1161\u11A8"_s << 1;
        QTest::newRow("empty") << QString() << 0;
    }

    void nameLengthCountsGraphemes()
    {
        QFETCH(QString, name);
        QFETCH(int, length);
        QCOMPARE(presetNameLength(name), length);
    }

    void namesCompareWithoutCaseAndDiacritics_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("same");

        QTest::newRow("accents") << u"Résumé"_s << u"resume"_s << true;
        QTest::newRow("decomposed accents") << u"Re\u0301sume\u0301"_s << u"RÉSUMÉ"_s << true;
        QTest::newRow("trimmed") << u"  Meeting\n"_s << u"meeting"_s << true;
        QTest::newRow("sharp s") << u"Straße"_s << u"STRASSE"_s << true;
        QTest::newRow("greek final sigma") << u"ΟΔΟΣ"_s << u"οδος"_s << true;
        QTest::newRow("inner spacing differs") << u"Team Sync"_s << u"TeamSync"_s << false;
        QTest::newRow("different letters") << u"Résumé"_s << u"Resumes"_s << false;
    }

    void namesCompareWithoutCaseAndDiacritics()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, same);
        QCOMPARE(presetNamesEqual(a, b), same);
    }

    void validationMessagesInOrder_data()
    {
        QTest::addColumn<QStringList>("customTitles");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message"); // empty: accepted

        const QStringList one{u"resume"_s};
        const QStringList two{u"resume"_s, u"Standup"_s};

        QTest::newRow("empty") << one << u""_s << emptyMessage;
        QTest::newRow("blanks") << one << u" \t\n\u2003"_s << emptyMessage;
        QTest::newRow("32 letters") << one << repeated(u"a"_s, 32) << QString();
        QTest::newRow("33 letters") << one << repeated(u"a"_s, 33) << lengthMessage;
        QTest::newRow("32 letters with blanks around")
            << one << u"  "_s + repeated(u"b"_s, 32) + u"\n"_s << QString();
        QTest::newRow("32 accented graphemes") << one << repeated(u"e\u0301"_s, 32) << QString();
        QTest::newRow("33 accented graphemes")
            << one << repeated(u"e\u0301"_s, 33) << lengthMessage;
        QTest::newRow("32 emoji families")
            << one << repeated(u"\U0001F468\u200D\U0001F469\u200D\U0001F467"_s, 32) << QString();
        QTest::newRow("33 flags") << one << repeated(u"\U0001F1EB\U0001F1F7"_s, 33)
                                  << lengthMessage;
        QTest::newRow("built-in name, lower case") << one << u"presentation"_s << duplicateMessage;
        QTest::newRow("built-in name with blanks") << one << u"  Meeting "_s << duplicateMessage;
        QTest::newRow("custom name with accents") << one << u"Résumé"_s << duplicateMessage;
        QTest::newRow("distinct name") << one << u"Résumés"_s << QString();
        QTest::newRow("limit") << two << u"Retro"_s << limitMessage;
        QTest::newRow("length before limit") << two << repeated(u"x"_s, 33) << lengthMessage;
        QTest::newRow("duplicate before limit") << two << u"STANDUP"_s << duplicateMessage;
        QTest::newRow("empty before limit") << two << u"   "_s << emptyMessage;
    }

    void validationMessagesInOrder()
    {
        QFETCH(QStringList, customTitles);
        QFETCH(QString, name);
        QFETCH(QString, message);

        CoordinationRig rig;
        rig.writeState(stateWithCustomPresets(customTitles));
        MainViewModel& model = rig.makeMainViewModel();

        QCOMPARE(model.validatePresetName(name).value_or(QString()), message);
        const qsizetype before = model.presets().size();
        const std::optional<QString> id = model.createCustomPreset(name);
        QCOMPARE(id.has_value(), message.isEmpty());
        QCOMPARE(model.presets().size(), before + (id ? 1 : 0));
        QCOMPARE(model.hasPendingSave(), id.has_value());
    }

    void renameValidation()
    {
        CoordinationRig rig;
        rig.writeState(stateWithCustomPresets({u"resume"_s, u"Standup"_s}));
        MainViewModel& model = rig.makeMainViewModel();
        const QString resumeID = model.customPresets().at(0).id;
        const QString standupID = model.customPresets().at(1).id;

        // Renaming is not creation: the limit does not apply.
        QCOMPARE(model.validatePresetName(u"Retro"_s, resumeID), std::nullopt);
        // Its own name in other capitals is no duplicate.
        QVERIFY(model.renamePreset(resumeID, u"  RÉSUMÉ "_s));
        QCOMPARE(model.customPresets().at(0).title, u"RÉSUMÉ"_s);
        QVERIFY(model.hasPendingSave());

        QSignalSpy presetsChanged(&model, &MainViewModel::presetsChanged);
        QVERIFY(!model.renamePreset(standupID, u"resume"_s));
        QVERIFY(!model.renamePreset(standupID, u"Meeting"_s));
        QVERIFY(!model.renamePreset(standupID, repeated(u"z"_s, 33)));
        QVERIFY(!model.renamePreset(standupID, u" "_s));
        QVERIFY(!model.renamePreset(presentationID, u"Talks"_s));
        QVERIFY(!model.renamePreset(u"custom.unknown"_s, u"Talks"_s));
        QCOMPARE(presetsChanged.count(), 0);
        QCOMPARE(titles(model.builtInPresets()), (QStringList{u"Presentation"_s, u"Meeting"_s}));

        QVERIFY(model.renamePreset(standupID, u"Retro"_s));
        QCOMPARE(titles(model.customPresets()), (QStringList{u"RÉSUMÉ"_s, u"Retro"_s}));
    }

    void creationAppendsAnEmptyInactivePreset()
    {
        CoordinationRig rig;
        rig.writeState(stateWithCustomPresets({u"First"_s}));
        MainViewModel& model = rig.makeMainViewModel();
        model.applyPreset(meetingID);
        QVERIFY(rig.mainViewModel->activePresetID());

        const std::optional<QString> id = model.createCustomPreset(u"  Second \n"_s);
        QVERIFY(id);
        QVERIFY(id->startsWith(u"custom."_s));
        const SharePreset created = model.presets().last();
        QCOMPARE(created.id, *id);
        QCOMPARE(created.title, u"Second"_s);
        QCOMPARE(created.symbolName, u"bookmark"_s);
        QCOMPARE(created.category, PresetCategory::custom);
        QVERIFY(!created.hasSavedConfiguration());
        QCOMPARE(titles(model.presets()),
                 (QStringList{u"Presentation"_s, u"Meeting"_s, u"First"_s, u"Second"_s}));
        QCOMPARE(model.activePresetID(), std::optional(meetingID));
    }

    void threeLoadedCustomPresetsBlockCreationUntilOneIsLeft()
    {
        CoordinationRig rig;
        rig.writeState(stateWithCustomPresets({u"A"_s, u"B"_s, u"C"_s}));
        MainViewModel& model = rig.makeMainViewModel();
        QCOMPARE(titles(model.customPresets()), (QStringList{u"A"_s, u"B"_s, u"C"_s}));

        QCOMPARE(model.createCustomPreset(u"D"_s), std::nullopt);
        model.deletePreset(model.customPresets().at(0).id);
        QCOMPARE(model.validatePresetName(u"D"_s), std::optional(limitMessage));
        model.deletePreset(model.customPresets().at(0).id);
        QVERIFY(model.createCustomPreset(u"D"_s));
        QCOMPARE(titles(model.customPresets()), (QStringList{u"C"_s, u"D"_s}));
    }

    void deletionLeavesBuiltInsAndTheLiveState()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.presets.append(configuredPreset(u"Demo"_s, scene::rightDisplay));
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        const QString demoID = model.customPresets().at(0).id;

        model.deletePreset(presentationID);
        model.deletePreset(u"custom.unknown"_s);
        QCOMPARE(model.presets().size(), 3);

        model.applyPreset(demoID);
        const VisibilityPolicy livePolicy = model.policy();
        QSignalSpy activeChanged(&model, &MainViewModel::activePresetIDChanged);
        model.deletePreset(demoID);
        QCOMPARE(titles(model.presets()), (QStringList{u"Presentation"_s, u"Meeting"_s}));
        QCOMPARE(model.activePresetID(), std::nullopt);
        QCOMPARE(activeChanged.count(), 1);
        QCOMPARE(model.policy(), livePolicy);
        QCOMPARE(model.selectedDisplayID(), std::optional(scene::rightDisplay));
        QCOMPARE(model.outputFrameMode(), OutputFrameMode::dynamic);
        QVERIFY(model.hasPendingSave());
    }

    void moveAmongCustomPresets()
    {
        CoordinationRig rig;
        rig.writeState(stateWithCustomPresets({u"A"_s, u"B"_s}));
        MainViewModel& model = rig.makeMainViewModel();
        const QString a = model.customPresets().at(0).id;
        const QString b = model.customPresets().at(1).id;

        QSignalSpy presetsChanged(&model, &MainViewModel::presetsChanged);
        model.moveCustomPreset(a, false);
        model.moveCustomPreset(b, true);
        model.moveCustomPreset(presentationID, true);
        model.moveCustomPreset(u"custom.unknown"_s, true);
        QCOMPARE(presetsChanged.count(), 0);
        QVERIFY(!model.hasPendingSave());

        model.moveCustomPreset(a, true);
        QCOMPARE(titles(model.presets()),
                 (QStringList{u"Presentation"_s, u"Meeting"_s, u"B"_s, u"A"_s}));
        QVERIFY(model.hasPendingSave());
        model.moveCustomPreset(a, false);
        QCOMPARE(titles(model.customPresets()), (QStringList{u"A"_s, u"B"_s}));
    }

    void applyMakesThePresetLive()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.presets.append(configuredPreset(u"Demo"_s, scene::rightDisplay));
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        QTRY_VERIFY(!model.hasPendingCaptureUpdate());
        model.setPanicHidden(true);
        model.setAlwaysOnTop(false);
        const CameraOverlayConfiguration camera = model.cameraOverlay();
        const SharePreset demo = model.customPresets().at(0);

        model.applyPreset(demo.id);
        QCOMPARE(model.policy(), demo.policy);
        QCOMPARE(model.selectedDisplayID(), std::optional(scene::rightDisplay));
        QCOMPARE(model.outputFrameMode(), OutputFrameMode::dynamic);
        QCOMPARE(model.outputContentMode(), OutputContentMode::fullDesktop);
        QCOMPARE(model.canvasBackground().mode, CanvasBackgroundMode::gray);
        QVERIFY(!model.isPanicHidden());
        QCOMPARE(model.activePresetID(), std::optional(demo.id));
        QCOMPARE(model.activePresetTitle(), std::optional(u"Demo"_s));
        // Neither the camera nor the window level belongs to presets.
        QCOMPARE(model.cameraOverlay(), camera);
        QVERIFY(!model.isAlwaysOnTop());
        // The source list shows the preset's display and rules.
        QCOMPARE(model.appListViewModel()->policy(), demo.policy);
        QCOMPARE(model.appListViewModel()->allApplications().size(), 1);
        QCOMPARE(model.appListViewModel()->allApplications().at(0).applicationName, u"Editor"_s);
        // The engine's canvas follows at once; the capture a moment later.
        QCOMPARE(rig.engine.outputContentMode(), OutputContentMode::fullDesktop);
        QVERIFY(model.hasPendingCaptureUpdate());
        QVERIFY(model.hasPendingSave());
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.activeDisplay().value_or(ShareableDisplay{}).id,
                                  scene::rightDisplay, 3000);
    }

    void applyWithoutStoredDisplay_data()
    {
        QTest::addColumn<bool>("discover");
        QTest::addColumn<std::optional<quint32>>("selectedBefore");
        QTest::addColumn<std::optional<quint32>>("selectedAfter");

        QTest::newRow("keeps the selection")
            << true << std::optional(scene::rightDisplay) << std::optional(scene::rightDisplay);
        QTest::newRow("first known display")
            << true << std::optional<quint32>() << std::optional(scene::leftDisplay);
        QTest::newRow("nothing known")
            << false << std::optional<quint32>() << std::optional<quint32>();
    }

    void applyWithoutStoredDisplay()
    {
        QFETCH(bool, discover);
        QFETCH(std::optional<quint32>, selectedBefore);
        QFETCH(std::optional<quint32>, selectedAfter);

        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        if (discover)
            QVERIFY(rig.startAndDiscover());
        model.selectDisplay(selectedBefore);
        QCOMPARE(model.selectedDisplayID(), selectedBefore);

        model.applyPreset(meetingID);
        QCOMPARE(model.selectedDisplayID(), selectedAfter);
        QCOMPARE(model.policy(), VisibilityPolicy{});
        QCOMPARE(model.activePresetID(), std::optional(meetingID));
    }

    void saveStoresTheLiveConfiguration()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        model.toggleApplication(rig.application(scene::terminalPid));
        model.selectDisplay(std::nullopt);
        model.setOutputFrameMode(OutputFrameMode::dynamic);
        model.setCanvasBackgroundMode(CanvasBackgroundMode::white);

        const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
        model.savePreset(meetingID);
        const SharePreset meeting = model.builtInPresets().at(1);
        QCOMPARE(meeting.id, meetingID);
        QCOMPARE(meeting.title, u"Meeting"_s);
        QCOMPARE(meeting.category, PresetCategory::builtIn);
        QCOMPARE(meeting.policy, model.policy());
        QCOMPARE(meeting.selectedDisplayID, std::nullopt);
        QCOMPARE(meeting.outputFrameMode, OutputFrameMode::dynamic);
        QCOMPARE(meeting.canvasBackground.mode, CanvasBackgroundMode::white);
        QVERIFY(meeting.lastUpdated >= before);
        QVERIFY(meeting.lastUpdated <= QDateTime::currentDateTimeUtc());
        QCOMPARE(model.activePresetID(), std::optional(meetingID));
        QCOMPARE(model.activePresetTitle(), std::optional(u"Meeting"_s));

        // The save job writes the preset as it is now.
        QTRY_VERIFY_WITH_TIMEOUT(!model.hasPendingSave(), 3000);
        QCOMPARE(rig.savedState().presets.at(1), meeting);
    }

    void clearResetsToEmpty()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        model.toggleApplication(rig.application(scene::mailPid));
        model.savePreset(meetingID);
        QTRY_VERIFY_WITH_TIMEOUT(!model.hasPendingSave(), 3000);

        // The live state still differs from the emptied preset: no longer active.
        model.clearPreset(meetingID);
        QCOMPARE(model.builtInPresets().at(1), makeBuiltInPreset(BuiltInPresetKind::meeting));
        QCOMPARE(model.activePresetID(), std::nullopt);
        QVERIFY(model.isApplicationSelected(rig.application(scene::mailPid)));
        QVERIFY(model.hasPendingSave());
        QTRY_VERIFY_WITH_TIMEOUT(!model.hasPendingSave(), 3000);

        // Clearing an empty preset changes nothing and saves nothing.
        QSignalSpy presetsChanged(&model, &MainViewModel::presetsChanged);
        model.clearPreset(meetingID);
        model.clearPreset(u"custom.unknown"_s);
        QCOMPARE(presetsChanged.count(), 0);
        QVERIFY(!model.hasPendingSave());
    }

    void clearingTheActivePresetKeepsItWhileTheLiveStateMatches()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        // Live: default rules, a display; the preset only differs in its date
        // and display, and an empty preset matches any display.
        model.selectDisplay(scene::leftDisplay);
        model.savePreset(presentationID);
        QVERIFY(model.builtInPresets().at(0).hasSavedConfiguration());
        model.clearPreset(presentationID);
        QVERIFY(!model.builtInPresets().at(0).hasSavedConfiguration());
        QCOMPARE(model.activePresetID(), std::optional(presentationID));
        QCOMPARE(model.activePresetTitle(), std::optional(u"Presentation"_s));
    }

    void matchingAndActiveTitle()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.presets.append(configuredPreset(u"Demo"_s, scene::rightDisplay));
        SharePreset anyDisplay = configuredPreset(u"Anywhere"_s, std::nullopt);
        anyDisplay.canvasBackground = {CanvasBackgroundMode::customImage,
                                       u"CanvasBackgrounds/a.png"_s, u"a.png"_s};
        state.presets.append(anyDisplay);
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        const SharePreset demo = model.customPresets().at(0);
        anyDisplay = model.customPresets().at(1);

        model.applyPreset(demo.id);
        QVERIFY(model.presetMatchesCurrentState(demo));
        QVERIFY(!model.presetMatchesCurrentState(anyDisplay));

        // Editing by hand hides the title without forgetting the preset.
        model.setOutputFrameMode(OutputFrameMode::screen);
        QCOMPARE(model.activePresetTitle(), std::nullopt);
        QCOMPARE(model.activePresetID(), std::optional(demo.id));
        model.setOutputFrameMode(OutputFrameMode::dynamic);
        QCOMPARE(model.activePresetTitle(), std::optional(u"Demo"_s));

        model.selectDisplay(scene::leftDisplay);
        QVERIFY(!model.presetMatchesCurrentState(demo));
        model.selectDisplay(std::nullopt);
        QVERIFY(!model.presetMatchesCurrentState(demo));

        // Without a stored display any selection matches, none included; the
        // image's display name counts.
        model.applyPreset(anyDisplay.id);
        QCOMPARE(model.selectedDisplayID(), std::nullopt);
        QVERIFY(model.presetMatchesCurrentState(anyDisplay));
        model.selectDisplay(scene::rightDisplay);
        QVERIFY(model.presetMatchesCurrentState(anyDisplay));
        SharePreset renamedImage = anyDisplay;
        renamedImage.canvasBackground.imageDisplayName = u"b.png"_s;
        QVERIFY(!model.presetMatchesCurrentState(renamedImage));

        // Resetting the rules forgets the active preset.
        model.resetRules();
        QCOMPARE(model.activePresetID(), std::nullopt);
        QCOMPARE(model.activePresetTitle(), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(PresetManagementTest)
#include "tst_preset_management.moc"
