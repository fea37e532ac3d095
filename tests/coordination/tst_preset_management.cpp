#include "coordination/PresetModel.h"
#include "coordination/PresetNaming.h"
#include "support_coordination_rig.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>
#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

const QString emptyMessage = u"Preset name cannot be empty."_s;
const QString lengthMessage = u"Preset name must stay under 32 characters."_s;
const QString duplicateMessage = u"A preset with this name already exists."_s;
const QString limitMessage = u"You have reached the maximum limit of 2 custom presets."_s;

const QString presentationID = caseName(BuiltInPresetKind::presentation);
const QString meetingID = caseName(BuiltInPresetKind::meeting);

// Built-ins plus empty custom presets with these titles.
QList<SharePreset> presetsWith(const QStringList& titles)
{
    QList<SharePreset> presets = defaultBuiltInPresets();
    for (const QString& title : titles)
        presets.append(makeCustomPreset(title));
    return presets;
}

QStringList titles(const QList<SharePreset>& presets)
{
    QStringList result;
    for (const SharePreset& preset : presets)
        result.append(preset.title);
    return result;
}

ShareConfiguration mailConfiguration(std::optional<quint32> display)
{
    ShareConfiguration c;
    c.policy.mode = VisibilityMode::blockList;
    c.policy.activeRules().applications.insert(AppIdentity{u"org.example.mail"_s, u"Mail"_s});
    c.selectedDisplayID = display;
    c.outputFrameMode = OutputFrameMode::dynamic;
    c.outputContentMode = OutputContentMode::fullDesktop;
    c.canvasBackground.mode = CanvasBackgroundMode::gray;
    return c;
}

SharePreset configuredPreset(const QString& title, std::optional<quint32> display)
{
    SharePreset preset = makeCustomPreset(title);
    preset.configuration = mailConfiguration(display);
    preset.lastUpdated = QDateTime(QDate(2025, 3, 1), QTime(12, 0), Qt::UTC);
    return preset;
}

} // namespace

using Change = std::function<void(ShareConfiguration&)>;

class PresetManagementTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Length in graphemes, and whether a second name counts as the same.
    void naming_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("length");
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("same");
        QTest::newRow("accents") << u"Résumé"_s << 6 << u"resume"_s << true;
        QTest::newRow("decomposed accents") << u"Re\u0301sume\u0301"_s << 6 << u"RÉSUMÉ"_s << true;
        QTest::newRow("trimmed") << u"Meeting\n"_s << 8 << u"  meeting"_s << true;
        QTest::newRow("sharp s") << u"Straße"_s << 6 << u"STRASSE"_s << true;
        QTest::newRow("greek final sigma") << u"ΟΔΟΣ"_s << 4 << u"οδος"_s << true;
        QTest::newRow("inner spacing differs") << u"Team Sync"_s << 9 << u"TeamSync"_s << false;
        QTest::newRow("different letters") << u"Résumé"_s << 6 << u"Resumes"_s << false;
        QTest::newRow("family emoji")
            << u"\U0001F468\u200D\U0001F469\u200D\U0001F467!"_s << 2 << u"!"_s << false;
        QTest::newRow("flag pair") << u"\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA"_s << 2
                                   << u"\U0001F1EB\U0001F1F7"_s << false;
        QTest::newRow("hangul jamo") << u"\u1100\u1161\u11A8"_s << 1 << u"\uAC01"_s << true;
        QTest::newRow("empty") << QString() << 0 << u" "_s << true;
    }

    void naming()
    {
        QFETCH(QString, name);
        QFETCH(int, length);
        QFETCH(QString, other);
        QFETCH(bool, same);
        QCOMPARE(presetNameLength(name), length);
        QCOMPARE(presetNamesEqual(name, other), same);
    }

    void creationValidatesInOrder_data()
    {
        QTest::addColumn<QStringList>("customTitles");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message"); // empty: accepted

        const QStringList one{u"resume"_s};
        const QStringList two{u"resume"_s, u"Standup"_s};
        QTest::newRow("empty") << one << u""_s << emptyMessage;
        QTest::newRow("blanks") << one << u" \t\n\u2003"_s << emptyMessage;
        QTest::newRow("32 letters") << one << u"a"_s.repeated(32) << QString();
        QTest::newRow("33 letters") << one << u"a"_s.repeated(33) << lengthMessage;
        QTest::newRow("32 letters with blanks around")
            << one << u"  "_s + u"b"_s.repeated(32) + u"\n"_s << QString();
        QTest::newRow("32 accented graphemes") << one << u"e\u0301"_s.repeated(32) << QString();
        QTest::newRow("33 accented graphemes") << one << u"e\u0301"_s.repeated(33) << lengthMessage;
        QTest::newRow("built-in name, lower case") << one << u"presentation"_s << duplicateMessage;
        QTest::newRow("built-in name with blanks") << one << u"  Meeting "_s << duplicateMessage;
        QTest::newRow("custom name with accents") << one << u"Résumé"_s << duplicateMessage;
        QTest::newRow("distinct name") << one << u"Résumés"_s << QString();
        QTest::newRow("limit") << two << u"Retro"_s << limitMessage;
        QTest::newRow("more loaded than the limit")
            << QStringList{u"A"_s, u"B"_s, u"C"_s} << u"D"_s << limitMessage;
        QTest::newRow("length before limit") << two << u"x"_s.repeated(33) << lengthMessage;
        QTest::newRow("duplicate before limit") << two << u"STANDUP"_s << duplicateMessage;
        QTest::newRow("empty before limit") << two << u"   "_s << emptyMessage;
    }

    void creationValidatesInOrder()
    {
        QFETCH(QStringList, customTitles);
        QFETCH(QString, name);
        QFETCH(QString, message);

        const QList<SharePreset> before = presetsWith(customTitles);
        PresetModel model(before);
        model.setActivePresetID(meetingID);
        QSignalSpy edited(&model, &PresetModel::edited);
        QCOMPARE(model.validatePresetName(name).value_or(QString()), message);
        const std::optional<QString> id = model.createCustomPreset(name);
        QCOMPARE(id.has_value(), message.isEmpty());
        QCOMPARE(edited.count(), id ? 1 : 0);
        if (!id) {
            QCOMPARE(model.presets(), before);
            return;
        }
        // Appended, trimmed, empty, and not made active.
        const SharePreset created = model.presets().last();
        QVERIFY(created.id.startsWith(u"custom."_s));
        QCOMPARE(created.id, *id);
        QCOMPARE(created.title, name.trimmed());
        QCOMPARE(created.symbolName, u"bookmark"_s);
        QCOMPARE(created.category, PresetCategory::custom);
        QVERIFY(!created.hasSavedConfiguration());
        QCOMPARE(model.presets().size(), customTitles.size() + 3);
        QCOMPARE(model.activePresetID(), std::optional(meetingID));
    }

    void renameDeleteAndMove()
    {
        PresetModel model(presetsWith({u"resume"_s, u"Standup"_s}));
        const QString resumeID = model.customPresets().at(0).id;
        const QString standupID = model.customPresets().at(1).id;
        QSignalSpy edited(&model, &PresetModel::edited);

        // Renaming is not creation: the limit does not apply, and its own
        // name in other capitals is no duplicate.
        QCOMPARE(model.validatePresetName(u"Retro"_s, resumeID), std::nullopt);
        QVERIFY(model.renamePreset(resumeID, u"  RÉSUMÉ "_s));
        QCOMPARE(model.customPresets().at(0).title, u"RÉSUMÉ"_s);
        QCOMPARE(edited.count(), 1);

        for (const QString& refused : {u"resume"_s, u"Meeting"_s, u"z"_s.repeated(33), u" "_s})
            QVERIFY(!model.renamePreset(standupID, refused));
        QVERIFY(!model.renamePreset(presentationID, u"Talks"_s));
        QVERIFY(!model.renamePreset(u"custom.unknown"_s, u"Talks"_s));
        // Moving past either end, a built-in or an unknown id: nothing.
        model.moveCustomPreset(resumeID, false);
        model.moveCustomPreset(standupID, true);
        model.moveCustomPreset(presentationID, true);
        model.moveCustomPreset(u"custom.unknown"_s, true);
        model.deletePreset(presentationID);
        model.deletePreset(u"custom.unknown"_s);
        QCOMPARE(edited.count(), 1);
        QCOMPARE(titles(model.presets()),
                 (QStringList{u"Presentation"_s, u"Meeting"_s, u"RÉSUMÉ"_s, u"Standup"_s}));

        model.moveCustomPreset(resumeID, true);
        QCOMPARE(titles(model.customPresets()), (QStringList{u"Standup"_s, u"RÉSUMÉ"_s}));
        model.moveCustomPreset(resumeID, false);
        QCOMPARE(titles(model.customPresets()), (QStringList{u"RÉSUMÉ"_s, u"Standup"_s}));

        // Deleting the active preset makes none active.
        model.setActivePresetID(standupID);
        model.deletePreset(standupID);
        QCOMPARE(titles(model.presets()),
                 (QStringList{u"Presentation"_s, u"Meeting"_s, u"RÉSUMÉ"_s}));
        QCOMPARE(model.activePresetID(), std::nullopt);
        QCOMPARE(edited.count(), 4);
    }

    void saveAndClear()
    {
        PresetModel model(defaultBuiltInPresets());
        const ShareConfiguration live = mailConfiguration(std::nullopt);
        // Stamped to the whole second, in UTC.
        model.savePreset(meetingID, live,
                         QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), QTimeZone(3600)));
        const SharePreset meeting = *model.preset(meetingID);
        QCOMPARE(meeting.title, u"Meeting"_s);
        QCOMPARE(meeting.category, PresetCategory::builtIn);
        QCOMPARE(meeting.configuration, live);
        QCOMPARE(meeting.lastUpdated, QDateTime(QDate(2026, 1, 2), QTime(2, 4, 5), Qt::UTC));
        QCOMPARE(model.activePresetID(), std::optional(meetingID));
        QCOMPARE(model.activePresetTitle(live), std::optional(u"Meeting"_s));

        // The live state differs from the emptied preset: no longer active.
        QSignalSpy edited(&model, &PresetModel::edited);
        model.clearPreset(meetingID, live);
        QCOMPARE(*model.preset(meetingID), makeBuiltInPreset(BuiltInPresetKind::meeting));
        QCOMPARE(model.activePresetID(), std::nullopt);
        // Clearing an empty preset or an unknown one changes nothing.
        model.clearPreset(meetingID, live);
        model.clearPreset(u"custom.unknown"_s, live);
        QCOMPARE(edited.count(), 1);

        // An emptied preset that still matches the live state stays active:
        // an empty preset matches any display.
        ShareConfiguration plain;
        plain.selectedDisplayID = scene::leftDisplay;
        model.savePreset(presentationID, plain, QDateTime::currentDateTimeUtc());
        model.clearPreset(presentationID, plain);
        QVERIFY(!model.preset(presentationID)->hasSavedConfiguration());
        QCOMPARE(model.activePresetTitle(plain), std::optional(u"Presentation"_s));
    }

    // A stored configuration describes the live one when all is equal, except
    // that one stored without a display matches any selection.
    void matching_data()
    {
        QTest::addColumn<std::optional<quint32>>("stored");
        QTest::addColumn<Change>("change");
        QTest::addColumn<bool>("matches");
        const auto row = [](const char* name, std::optional<quint32> stored, bool matches,
                            const Change& change) {
            QTest::newRow(name) << stored << change << matches;
        };
        const auto display = [](std::optional<quint32> id) {
            return Change([id](ShareConfiguration& c) { c.selectedDisplayID = id; });
        };
        using C = ShareConfiguration;
        const std::optional<quint32> none;
        row("same", 2, true, Change());
        row("other display", 2, false, display(1));
        row("no display selected", 2, false, display(none));
        row("stored without display, other one", none, true, display(1));
        row("stored without display, none", none, true, display(none));
        row("policy mode", none, false, [](C& c) { c.policy.setMode(VisibilityMode::allowList); });
        row("frame", none, false, [](C& c) { c.outputFrameMode = OutputFrameMode::screen; });
        row("content", none, false,
            [](C& c) { c.outputContentMode = OutputContentMode::sanitized; });
        row("image name", none, false,
            [](C& c) { c.canvasBackground.imageDisplayName = u"b.png"_s; });
    }

    void matching()
    {
        QFETCH(std::optional<quint32>, stored);
        QFETCH(Change, change);
        QFETCH(bool, matches);
        ShareConfiguration preset = mailConfiguration(stored);
        preset.canvasBackground = {CanvasBackgroundMode::customImage, u"CanvasBackgrounds/a.png"_s,
                                   u"a.png"_s};
        ShareConfiguration live = preset;
        live.selectedDisplayID = 2;
        if (change)
            change(live);
        QCOMPARE(preset.matches(live), matches);
    }

    void applyAndSaveThroughTheMainModel()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.presets.append(configuredPreset(u"Demo"_s, scene::rightDisplay));
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        model.setPanicHidden(true);
        model.setAlwaysOnTop(false);
        rig.runJobs();
        const CameraOverlayConfiguration camera = model.cameraOverlay();
        const SharePreset demo = model.presetModel()->customPresets().at(0);

        model.applyPreset(demo.id);
        QCOMPARE(model.configuration(), demo.configuration);
        QVERIFY(!model.isPanicHidden());
        QCOMPARE(model.presetModel()->activePresetID(), std::optional(demo.id));
        QCOMPARE(model.activePresetTitle(), std::optional(u"Demo"_s));
        // Neither the camera nor the window level belongs to presets.
        QCOMPARE(model.cameraOverlay(), camera);
        QVERIFY(!model.isAlwaysOnTop());
        // The source list shows the preset's display and rules.
        QCOMPARE(model.appListViewModel()->policy(), demo.configuration.policy);
        QCOMPARE(model.appListViewModel()->allApplications().size(), 1);
        QCOMPARE(model.appListViewModel()->allApplications().at(0).applicationName, u"Editor"_s);
        // The engine's canvas follows at once; the capture after the delay.
        QCOMPARE(rig.engine.outputContentMode(), OutputContentMode::fullDesktop);
        QVERIFY(model.hasPendingCaptureUpdate());
        QVERIFY(model.hasPendingSave());
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.activeDisplay().value_or(ShareableDisplay{}).id,
                                  scene::rightDisplay, 5000);

        // Editing by hand hides the title without forgetting the preset;
        // resetting the rules forgets it.
        model.setOutputFrameMode(OutputFrameMode::screen);
        QCOMPARE(model.activePresetTitle(), std::nullopt);
        model.setOutputFrameMode(OutputFrameMode::dynamic);
        QCOMPARE(model.activePresetTitle(), std::optional(u"Demo"_s));
        model.resetRules();
        QCOMPARE(model.presetModel()->activePresetID(), std::nullopt);

        // Saving stores the live configuration, dated by the model's clock,
        // and the file follows.
        model.savePreset(meetingID);
        const SharePreset meeting = model.presetModel()->builtInPresets().at(1);
        QCOMPARE(meeting.configuration, model.configuration());
        QCOMPARE(meeting.lastUpdated.secsTo(rig.clock.now()), 0);
        rig.runJobs();
        QCOMPARE(rig.savedState().presets.at(1), meeting);
        QCOMPARE(rig.savedState().configuration, model.configuration());
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
        model.applyPreset(meetingID);
        QCOMPARE(model.selectedDisplayID(), selectedAfter);
        QCOMPARE(model.policy(), VisibilityPolicy{});
        QCOMPARE(model.presetModel()->activePresetID(), std::optional(meetingID));
    }
};

QTEST_GUILESS_MAIN(PresetManagementTest)
#include "tst_preset_management.moc"
