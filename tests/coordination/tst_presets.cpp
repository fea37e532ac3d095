// Presets and the state file: preset names and their rules, creating,
// renaming, moving, saving and clearing presets, which stored configuration
// matches the live one, presets applied and saved through the main view
// model; then the store that keeps it all on disk, rejected and unwritable
// files, and imported canvas images.

#include "capture/support_message_log.h"
#include "coordination/PresetModel.h"
#include "coordination/PresetNaming.h"
#include "coordination/PresetStore.h"
#include "support_coordination_rig.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <csignal>
#include <functional>
#include <limits>
#include <sys/resource.h>

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

struct FileSnapshot {
    QByteArray bytes;
    QDateTime modified;
    friend bool operator==(const FileSnapshot&, const FileSnapshot&) = default;
};

FileSnapshot snapshot(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return {file.readAll(), QFileInfo(path).fileTime(QFileDevice::FileModificationTime)};
}

QStringList folderEntries(const QString& path)
{
    return QDir(path).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden);
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

PersistedAppState changedState()
{
    PersistedAppState state = PersistedAppState::defaultState();
    state.configuration.policy.allowList.applications.insert(
        {u"org.example.Editor"_s, u"Editor"_s});
    state.configuration.selectedDisplayID = 421;
    state.isAlwaysOnTop = false;
    state.cameraOverlay.isEnabled = true;
    SharePreset custom = makeCustomPreset(u"Demo"_s);
    custom.lastUpdated = QDateTime(QDate(2025, 3, 15), QTime(17, 2, 11), QTimeZone::utc());
    state.presets.append(custom);
    return state;
}

QByteArray imageBytes(int width, int height, const char* format)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

const QString persistence = u"quorbit.Vistrel.Persistence"_s;
const QString loadFailure = u"Failed to load persisted state: "_s;
const QString saveFailure = u"Failed to save persisted state: "_s;

// The one message logged, which must be a critical one on the persistence channel.
QString onlyMessage(const MessageLog& log)
{
    const QStringList texts = log.texts(persistence);
    return log.messages.size() == 1 && texts.size() == 1 ? texts.first() : u"<none or more>"_s;
}

} // namespace

using Change = std::function<void(ShareConfiguration&)>;

class PresetsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_sources;

private Q_SLOTS:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        m_sources = m_root->filePath(u"sources"_s);
        QVERIFY(QDir().mkpath(m_sources));
    }

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

    void firstStartCreatesNothingUntilSave()
    {
        QStandardPaths::setTestModeEnabled(true);
        QCOMPARE(PresetStore().stateFilePath(),
                 QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                     u"/Vistrel/VistrelState.json"_s);
        QStandardPaths::setTestModeEnabled(false);
        const QString root = m_root->filePath(u"data"_s);
        PresetStore store(root);
        QCOMPARE(store.stateFilePath(), root + u"/Vistrel/VistrelState.json"_s);
        MessageLog log;
        QCOMPARE(store.load(), PersistedAppState::defaultState());
        QVERIFY(!QFileInfo::exists(root));

        const PersistedAppState state = changedState();
        QVERIFY(store.save(state));
        QVERIFY(QFileInfo(store.stateFilePath()).isFile());
        QCOMPARE(store.load(), state.normalized());
        QVERIFY(log.messages.isEmpty());
        // Saving again replaces the file completely and leaves no temporary behind.
        QVERIFY(store.save(PersistedAppState::defaultState()));
        QCOMPARE(store.load(), PersistedAppState::defaultState());
        QCOMPARE(
            QDir(store.applicationDirectory()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
            QStringList({u"VistrelState.json"_s}));
    }

    void rejectedFileIsKept_data()
    {
        // The reader's reasons are the model's; the store logs them.
        QTest::addColumn<QByteArray>("bytes"); // null: a folder where the file should be
        QTest::addColumn<QString>("reason");
        QTest::newRow("invalid JSON") << QByteArray("{\"policy\": ") << u"not valid JSON"_s;
        QTest::newRow("empty file") << QByteArray("") << u"not valid JSON"_s;
        QTest::newRow("rejected value")
            << QByteArray(R"({"policy": {"mode": "allowList", "allowList": {"applications": [],
               "windows": []}, "blockList": {"applications": [], "windows": []}},
               "selectedDisplayID": "1"})")
            << u"selectedDisplayID: expected an unsigned 32-bit integer, found a string"_s;
        QTest::newRow("folder") << QByteArray() << u"\u201C"_s;
    }

    // A file that cannot be read is never lost: the store starts from the
    // default document, copies the file aside at once (or, a folder, moves it
    // aside before the next save) under a name no file has, and then saves.
    void rejectedFileIsKept()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        PresetStore store(m_root->path());
        QSignalSpy kept(&store, &PresetStore::rejectedStateKept);
        if (bytes.isNull()) {
            QVERIFY(writeFile(store.stateFilePath() + u"/inside.txt"_s, "inside"));
        } else {
            QVERIFY(writeFile(store.stateFilePath(), bytes));
        }
        const FileSnapshot before = snapshot(store.stateFilePath());
        {
            MessageLog log;
            QCOMPARE(store.load(), PersistedAppState::defaultState());
            const QString failure = log.texts(persistence).value(0);
            QVERIFY2(failure.startsWith(loadFailure + reason), qPrintable(failure));
        }
        QCOMPARE(snapshot(store.stateFilePath()), before);
        QCOMPARE(store.rejectedState()->reason.isEmpty(), false);
        QCOMPARE(store.rejectedState()->keptCopy.has_value(), !bytes.isNull());
        QCOMPARE(kept.size(), bytes.isNull() ? 0 : 1);

        // A second rejected load (another start) keeps a second copy.
        if (!bytes.isNull()) {
            PresetStore again(m_root->path());
            again.load();
            QVERIFY(again.rejectedState()->keptCopy != store.rejectedState()->keptCopy);
        }

        const PersistedAppState state = changedState();
        QVERIFY(store.save(state));
        QCOMPARE(store.load(), state.normalized());
        const QString copy = *store.rejectedState()->keptCopy;
        QVERIFY2(QFileInfo(copy).fileName().startsWith(u"VistrelState.rejected-"_s),
                 qPrintable(copy));
        if (bytes.isNull())
            QCOMPARE(snapshot(copy + u"/inside.txt"_s).bytes, QByteArray("inside"));
        else
            QCOMPARE(snapshot(copy).bytes, bytes);
        const QStringList copies = QDir(store.applicationDirectory())
                                       .entryList({u"VistrelState.rejected-*"_s}, QDir::AllEntries);
        QCOMPARE(copies.size(), bytes.isNull() ? 1 : 2);
    }

    void failedSaveKeepsPreviousFile_data()
    {
        QTest::addColumn<QString>("blocker"); // what makes the target unwritable
        QTest::addColumn<QString>("reason");
        QTest::newRow("state path is a folder") << u"folder"_s << QString();
        QTest::newRow("application folder is a file") << u"file"_s << QString();
        QTest::newRow("value cannot be encoded")
            << u"encoding"_s << u"The state cannot be written: cameraOverlay.sizeScale"_s;
        // Root ignores permission bits, so the write itself fails: a file size
        // limit smaller than the document (EFBIG instead of the default SIGXFSZ).
        QTest::newRow("write fails midway") << u"size"_s << u"File too large"_s;
    }

    void failedSaveKeepsPreviousFile()
    {
        QFETCH(QString, blocker);
        QFETCH(QString, reason);
        PresetStore store(m_root->path());
        PersistedAppState state = changedState();
        QString guarded = store.stateFilePath(); // must stay byte-for-byte as it was
        if (blocker == u"folder"_s) {
            QVERIFY(QDir().mkpath(store.stateFilePath()));
            guarded = store.stateFilePath() + u"/keep.txt"_s;
            QVERIFY(writeFile(guarded, "inside"));
        } else if (blocker == u"file"_s) {
            guarded = store.applicationDirectory();
            QVERIFY(writeFile(guarded, "not a folder"));
        } else {
            QVERIFY(store.save(PersistedAppState::defaultState()));
            if (blocker == u"encoding"_s)
                state.cameraOverlay.sizeScale = std::numeric_limits<double>::infinity();
        }
        const FileSnapshot before = snapshot(guarded);
        QVERIFY(before.bytes.size() > (blocker == u"size"_s ? 512 : 0));
        const QStringList entries = folderEntries(store.applicationDirectory());

        rlimit original{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &original), 0);
        const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = original;
        small.rlim_cur = blocker == u"size"_s ? 256 : original.rlim_cur;
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
        bool saved = true;
        QString message;
        {
            MessageLog log;
            saved = store.save(state);
            message = onlyMessage(log);
        }
        setrlimit(RLIMIT_FSIZE, &original);
        std::signal(SIGXFSZ, previousHandler);

        QVERIFY(!saved);
        QVERIFY2(message.startsWith(saveFailure + reason), qPrintable(message));
        QCOMPARE(snapshot(guarded), before);
        QCOMPARE(folderEntries(store.applicationDirectory()), entries);
        // Loading still works from what is there.
        if (blocker == u"encoding"_s)
            QCOMPARE(store.load(), PersistedAppState::defaultState());
    }

    void imports_data()
    {
        QTest::addColumn<QString>("name");      // in the sources folder, or a URL
        QTest::addColumn<QByteArray>("bytes");  // null: no such file
        QTest::addColumn<QString>("extension"); // of the copy; empty: refused
        QTest::newRow("upper-case extension")
            << u"photo.JPG"_s << imageBytes(64, 48, "JPG") << u"JPG"_s;
        QTest::newRow("no extension") << u"picture"_s << imageBytes(64, 48, "PNG") << u"png"_s;
        QTest::newRow("two by two") << u"tiny.bmp"_s << imageBytes(2, 2, "BMP") << u"bmp"_s;
        QTest::newRow("unicode name")
            << u"Hintergrund äö.png"_s << imageBytes(64, 48, "PNG") << u"png"_s;

        QTest::newRow("text file")
            << u"notes.png"_s << QByteArray("just some text, named like an image\n") << QString();
        QTest::newRow("1x1 image") << u"dot.png"_s << imageBytes(1, 1, "PNG") << QString();
        QTest::newRow("1 pixel high") << u"dot.png"_s << imageBytes(40, 1, "PNG") << QString();
        const QByteArray full = imageBytes(300, 200, "PNG");
        QTest::newRow("truncated PNG") << u"cut.png"_s << full.left(full.size() / 2) << QString();
        QByteArray garbage("\x89PNG\r\n\x1a\n");
        for (int i = 0; i < 4096; ++i)
            garbage += char((i * 131) % 251);
        QTest::newRow("PNG signature over garbage") << u"broken.png"_s << garbage << QString();
        QTest::newRow("empty file") << u"empty.png"_s << QByteArray("") << QString();
        QTest::newRow("missing file") << u"gone.png"_s << QByteArray() << QString();
        QTest::newRow("folder") << QString() << QByteArray() << QString();
        QTest::newRow("remote URL") << u"https://example.org/a.png"_s << QByteArray() << QString();
    }

    void imports()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, extension);
        const QString source = m_sources + u'/' + name;
        if (!bytes.isNull())
            QVERIFY(writeFile(source, bytes));
        const QUrl url = name.contains(u"://"_s) ? QUrl(name) : QUrl::fromLocalFile(source);
        const PresetStore store(m_root->filePath(u"data"_s));
        const CanvasImportResult result = store.importCanvasBackground(url);
        if (extension.isEmpty()) {
            QVERIFY(std::holds_alternative<CanvasImportError>(result));
            const auto& error = std::get<CanvasImportError>(result);
            QVERIFY(error.storeError == PresetStoreError::invalidCanvasBackground);
            QCOMPARE(error.description,
                     u"Vistrel only accepts image files for the custom background canvas."_s);
            QVERIFY(!QFileInfo::exists(m_root->filePath(u"data"_s)));
            return;
        }
        QVERIFY(std::holds_alternative<CanvasBackgroundSelection>(result));
        const auto& selection = std::get<CanvasBackgroundSelection>(result);
        QCOMPARE(selection.mode, CanvasBackgroundMode::customImage);
        QCOMPARE(selection.imageDisplayName, std::optional<QString>(name));
        const QString relative = selection.imageRelativePath.value_or(QString());
        QVERIFY2(QRegularExpression(u"^CanvasBackgrounds/[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-"
                                    "[0-9a-f]{4}-[0-9a-f]{12}\\."_s +
                                    QRegularExpression::escape(extension) + u'$')
                     .match(relative)
                     .hasMatch(),
                 qPrintable(relative));
        const std::optional<QUrl> copy = store.canvasImageURL(relative);
        QVERIFY(copy);
        QCOMPARE(snapshot(copy->toLocalFile()).bytes, bytes);

        // Every import adds a file; earlier ones stay.
        const auto again = store.importCanvasBackground(url);
        QVERIFY(std::get<CanvasBackgroundSelection>(again).imageRelativePath != relative);
        QCOMPARE(QDir(store.applicationDirectory() + u"/CanvasBackgrounds"_s).count(), 4u);
    }

    // Imported images live in one folder: a URL only for a file there; a file
    // where the folder should be is a file-system error.
    void canvasFolder()
    {
        const PresetStore store(m_root->filePath(u"data"_s));
        QVERIFY(!store.canvasImageURL(std::nullopt));
        QVERIFY(!store.canvasImageURL(u""_s));
        QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds/none.png"_s));
        const QString folder = store.applicationDirectory() + u"/CanvasBackgrounds"_s;
        QVERIFY(writeFile(folder + u"/a.png"_s, "x"));
        QCOMPARE(store.canvasImageURL(u"CanvasBackgrounds/a.png"_s),
                 QUrl::fromLocalFile(folder + u"/a.png"_s));
        QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds"_s)); // a folder is not an image file
        QVERIFY(QDir(folder).removeRecursively());
        QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds/a.png"_s));

        QVERIFY(writeFile(folder, "a file"));
        const QString source = m_sources + u"/ok.png"_s;
        QVERIFY(writeFile(source, imageBytes(8, 8, "PNG")));
        const CanvasImportResult result = store.importCanvasBackground(QUrl::fromLocalFile(source));
        QVERIFY(std::holds_alternative<CanvasImportError>(result));
        QVERIFY(!std::get<CanvasImportError>(result).storeError);
        QVERIFY(std::get<CanvasImportError>(result).description.contains(u"CanvasBackgrounds"_s));
    }
};

QTEST_GUILESS_MAIN(PresetsTest)
#include "tst_presets.moc"
