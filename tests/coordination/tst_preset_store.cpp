#include "coordination/PresetStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>
#include <csignal>
#include <limits>
#include <sys/resource.h>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

// Collects what the store logs, with the category, while in scope.
class LogCapture {
public:
    LogCapture()
    {
        s_messages.clear();
        m_previous = qInstallMessageHandler(&LogCapture::handler);
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    static QStringList messages() { return s_messages; }

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        const QString level = type == QtCriticalMsg ? u"critical"_s : u"other"_s;
        s_messages.append(level + u' ' + QString::fromUtf8(context.category) + u' ' + text);
    }
    static inline QStringList s_messages;
    QtMessageHandler m_previous = nullptr;
};

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

QString imageFile(const QString& folder, const QString& name, QSize size, const char* format)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    const QString path = QDir(folder).filePath(name);
    return image.save(path, format) ? path : QString();
}

const QString loadFailure =
    u"critical quorbit.Vistrel.Persistence Failed to load persisted state: "_s;
const QString saveFailure =
    u"critical quorbit.Vistrel.Persistence Failed to save persisted state: "_s;

} // namespace

class PresetStoreTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void defaultLocation();
    void firstStartCreatesNothingUntilSave();
    void unreadableFileFallsBackUntouched_data();
    void unreadableFileFallsBackUntouched();
    void unreadablePathFallsBack();
    void failedSaveKeepsPreviousFile_data();
    void failedSaveKeepsPreviousFile();
    void writeFailureMidwayKeepsPreviousFile();
    void importsImages_data();
    void importsImages();
    void rejectsNonImages_data();
    void rejectsNonImages();
    void importFolderBlockedIsFileSystemError();
    void canvasImageURL();

private:
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_sources;
};

void PresetStoreTest::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_sources = m_root->filePath(u"sources"_s);
    QVERIFY(QDir().mkpath(m_sources));
}

void PresetStoreTest::defaultLocation()
{
    QStandardPaths::setTestModeEnabled(true);
    const PresetStore store;
    QCOMPARE(store.stateFilePath(),
             QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                 u"/Vistrel/VistrelState.json"_s);
    QStandardPaths::setTestModeEnabled(false);
}

void PresetStoreTest::firstStartCreatesNothingUntilSave()
{
    const QString root = m_root->filePath(u"data"_s);
    const PresetStore store(root);
    QCOMPARE(store.stateFilePath(), root + u"/Vistrel/VistrelState.json"_s);
    LogCapture log;
    QCOMPARE(store.load(), PersistedAppState::defaultState());
    QVERIFY(!QFileInfo::exists(root));
    QVERIFY(log.messages().isEmpty());

    const PersistedAppState state = changedState();
    QVERIFY(store.save(state));
    QVERIFY(QFileInfo(store.stateFilePath()).isFile());
    QCOMPARE(store.load(), state.normalized());
    QVERIFY(log.messages().isEmpty());
    // Saving again replaces the file completely and leaves no temporary behind.
    QVERIFY(store.save(PersistedAppState::defaultState()));
    QCOMPARE(store.load(), PersistedAppState::defaultState());
    QCOMPARE(QDir(store.applicationDirectory()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList({u"VistrelState.json"_s}));
}

void PresetStoreTest::unreadableFileFallsBackUntouched_data()
{
    // One row per way the reader rejects a document.
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QByteArray rules = R"({"applications": [], "windows": []})";
    const QByteArray policy = R"("policy": {"mode": "allowList", "allowList": )" + rules +
                              R"(, "blockList": )" + rules + "}";
    const auto document = [&](const QByteArray& members) {
        return "{" + policy + ", " + members + "}";
    };
    QTest::newRow("empty object") << QByteArray("{}") << u"policy: required key is missing"_s;
    QTest::newRow("null policy") << QByteArray(R"({"policy": null})")
                                 << u"policy: required value is null"_s;
    QTest::newRow("invalid JSON") << QByteArray("{\"policy\": ") << u"not valid JSON"_s;
    QTest::newRow("empty file") << QByteArray() << u"not valid JSON"_s;
    QTest::newRow("binary") << QByteArray("\x89PNG\r\n\x1a\n\0\0", 10) << u"not valid JSON"_s;
    QTest::newRow("array document") << QByteArray("[]") << u"the document is not a JSON object"_s;
    QTest::newRow("unknown mode")
        << QByteArray(R"({"policy": {"mode": "everything", "allowList": {"applications": [],
           "windows": []}, "blockList": {"applications": [], "windows": []}}})")
        << u"policy.mode: unknown value \"everything\""_s;
    QTest::newRow("wrong type") << document(R"("isAlwaysOnTop": "yes")")
                                << u"isAlwaysOnTop: expected a boolean, found a string"_s;
    QTest::newRow("wrong type deep inside")
        << document(R"("presets": [{"id": "custom.a", "policy": {"mode": "allowList",
           "allowList": {"applications": {}, "windows": []}}}])")
        << u"presets[0].policy.allowList.applications: expected an array"_s;
    QTest::newRow("unknown preset kind")
        << document(R"("presets": [{"id": "x", "builtInKind": "lecture"}])")
        << u"presets[0].builtInKind: unknown value \"lecture\""_s;
    QTest::newRow("older preset without kind")
        << document(R"("presets": [{"title": "Old"}])") << u"presets[0].kind: required key"_s;
    QTest::newRow("display 1.5") << document(R"("selectedDisplayID": 1.5)")
                                 << u"selectedDisplayID: expected an unsigned 32-bit integer"_s;
    QTest::newRow("display -1") << document(R"("selectedDisplayID": -1)")
                                << u"selectedDisplayID: expected an unsigned 32-bit integer"_s;
    QTest::newRow("display 2^32") << document(R"("selectedDisplayID": 4294967296)")
                                  << u"selectedDisplayID: expected an unsigned 32-bit integer"_s;
    QTest::newRow("display as text")
        << document(R"("selectedDisplayID": "1")")
        << u"selectedDisplayID: expected an unsigned 32-bit integer, found a string"_s;
    QTest::newRow("date without zone")
        << document(R"("presets": [{"id": "custom.a", "lastUpdated": "2025-03-14T09:26:53"}])")
        << u"presets[0].lastUpdated: expected an ISO-8601 date"_s;
    QTest::newRow("number too large for a double")
        << document(R"("cameraOverlay": {"sizeScale": 1e999})") << QString();
}

void PresetStoreTest::unreadableFileFallsBackUntouched()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    const PresetStore store(m_root->path());
    QVERIFY(writeFile(store.stateFilePath(), bytes));
    const FileSnapshot before = snapshot(store.stateFilePath());
    const QStringList entries = folderEntries(store.applicationDirectory());
    QTest::qWait(20); // so a rewrite would show in the modification time
    {
        LogCapture log;
        QCOMPARE(store.load(), PersistedAppState::defaultState());
        QCOMPARE(log.messages().size(), 1);
        QVERIFY2(log.messages().first().startsWith(loadFailure + reason),
                 qPrintable(log.messages().first()));
    }
    QCOMPARE(snapshot(store.stateFilePath()), before);
    QCOMPARE(folderEntries(store.applicationDirectory()), entries);

    // The next save replaces the unreadable file.
    LogCapture log;
    const PersistedAppState state = changedState();
    QVERIFY(store.save(state));
    QCOMPARE(store.load(), state.normalized());
    QVERIFY(log.messages().isEmpty());
}

void PresetStoreTest::unreadablePathFallsBack()
{
    // A folder where the file should be cannot be read as a document.
    const PresetStore store(m_root->path());
    QVERIFY(QDir().mkpath(store.stateFilePath()));
    LogCapture log;
    QCOMPARE(store.load(), PersistedAppState::defaultState());
    QCOMPARE(log.messages().size(), 1);
    QVERIFY2(log.messages().first().startsWith(loadFailure), qPrintable(log.messages().first()));
    QVERIFY(QFileInfo(store.stateFilePath()).isDir());
}

void PresetStoreTest::failedSaveKeepsPreviousFile_data()
{
    QTest::addColumn<QString>("blocker"); // what makes the target unwritable
    QTest::newRow("state path is a folder") << u"folder"_s;
    QTest::newRow("application folder is a file") << u"file"_s;
    QTest::newRow("value cannot be encoded") << u"encoding"_s;
}

void PresetStoreTest::failedSaveKeepsPreviousFile()
{
    QFETCH(QString, blocker);
    const PresetStore store(m_root->path());
    PersistedAppState state = changedState();
    QString guarded; // the file that must stay byte-for-byte as it was
    if (blocker == u"folder"_s) {
        QVERIFY(QDir().mkpath(store.stateFilePath()));
        guarded = store.stateFilePath() + u"/keep.txt"_s;
        QVERIFY(writeFile(guarded, "inside"));
    } else if (blocker == u"file"_s) {
        guarded = store.applicationDirectory();
        QVERIFY(writeFile(guarded, "not a folder"));
    } else {
        QVERIFY(store.save(PersistedAppState::defaultState()));
        guarded = store.stateFilePath();
        state.cameraOverlay.sizeScale = std::numeric_limits<double>::infinity();
    }
    const FileSnapshot before = snapshot(guarded);
    QVERIFY(!before.bytes.isEmpty());
    LogCapture log;
    QVERIFY(!store.save(state));
    QCOMPARE(log.messages().size(), 1);
    QVERIFY2(log.messages().first().startsWith(saveFailure), qPrintable(log.messages().first()));
    QCOMPARE(snapshot(guarded), before);
    if (blocker == u"encoding"_s)
        QVERIFY(log.messages().first().contains(u"cameraOverlay.sizeScale"_s));
    // Loading still works from what is there.
    if (blocker == u"encoding"_s)
        QCOMPARE(store.load(), PersistedAppState::defaultState());
}

void PresetStoreTest::writeFailureMidwayKeepsPreviousFile()
{
    // Root ignores permission bits, so make the write itself fail: a file size
    // limit smaller than the document (EFBIG instead of the default SIGXFSZ).
    const PresetStore store(m_root->path());
    QVERIFY(store.save(PersistedAppState::defaultState()));
    const FileSnapshot before = snapshot(store.stateFilePath());
    QVERIFY(before.bytes.size() > 512);

    rlimit original{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &original), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = original;
    small.rlim_cur = 256;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
    bool saved = true;
    QStringList messages;
    {
        LogCapture log;
        saved = store.save(changedState());
        messages = log.messages();
    }
    setrlimit(RLIMIT_FSIZE, &original);
    std::signal(SIGXFSZ, previousHandler);

    QVERIFY(!saved);
    QCOMPARE(messages.size(), 1);
    QVERIFY2(messages.first().startsWith(saveFailure + u"File too large"_s),
             qPrintable(messages.first()));
    QCOMPARE(snapshot(store.stateFilePath()), before);
    QCOMPARE(QDir(store.applicationDirectory()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList({u"VistrelState.json"_s}));
}

void PresetStoreTest::importsImages_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("format");
    QTest::addColumn<QString>("extension");
    QTest::newRow("upper-case extension") << u"photo.JPG"_s << QByteArray("JPG") << u"JPG"_s;
    QTest::newRow("no extension") << u"picture"_s << QByteArray("PNG") << u"png"_s;
    QTest::newRow("two by two") << u"tiny.bmp"_s << QByteArray("BMP") << u"bmp"_s;
    QTest::newRow("unicode name") << u"Hintergrund äö.png"_s << QByteArray("PNG") << u"png"_s;
}

void PresetStoreTest::importsImages()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, format);
    QFETCH(QString, extension);
    const QSize size = name.startsWith(u"tiny"_s) ? QSize(2, 2) : QSize(64, 48);
    const QString source = imageFile(m_sources, name, size, format.constData());
    QVERIFY(!source.isEmpty());
    const PresetStore store(m_root->filePath(u"data"_s));
    const CanvasImportResult result = store.importCanvasBackground(QUrl::fromLocalFile(source));
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
    QCOMPARE(snapshot(copy->toLocalFile()).bytes, snapshot(source).bytes);

    // Every import adds a file; earlier ones stay.
    const auto again = store.importCanvasBackground(QUrl::fromLocalFile(source));
    QVERIFY(std::get<CanvasBackgroundSelection>(again).imageRelativePath != relative);
    QCOMPARE(QDir(store.applicationDirectory() + u"/CanvasBackgrounds"_s).count(), 4u);
}

void PresetStoreTest::rejectsNonImages_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("text file") << u"text"_s;
    QTest::newRow("1x1 image") << u"1x1"_s;
    QTest::newRow("1 pixel high") << u"40x1"_s;
    QTest::newRow("truncated PNG") << u"truncated"_s;
    QTest::newRow("PNG signature over garbage") << u"garbage"_s;
    QTest::newRow("empty file") << u"empty"_s;
    QTest::newRow("missing file") << u"missing"_s;
    QTest::newRow("folder") << u"folder"_s;
    QTest::newRow("remote URL") << u"remote"_s;
}

void PresetStoreTest::rejectsNonImages()
{
    QFETCH(QString, kind);
    QUrl url;
    if (kind == u"text"_s) {
        const QString path = m_sources + u"/notes.png"_s;
        QVERIFY(writeFile(path, "just some text, named like an image\n"));
        url = QUrl::fromLocalFile(path);
    } else if (kind == u"1x1"_s || kind == u"40x1"_s) {
        const QSize size = kind == u"1x1"_s ? QSize(1, 1) : QSize(40, 1);
        url = QUrl::fromLocalFile(imageFile(m_sources, u"dot.png"_s, size, "PNG"));
    } else if (kind == u"truncated"_s) {
        const QString full = imageFile(m_sources, u"full.png"_s, QSize(300, 200), "PNG");
        const QByteArray bytes = snapshot(full).bytes;
        QVERIFY(writeFile(m_sources + u"/cut.png"_s, bytes.left(bytes.size() / 2)));
        url = QUrl::fromLocalFile(m_sources + u"/cut.png"_s);
    } else if (kind == u"garbage"_s || kind == u"empty"_s) {
        QByteArray bytes;
        if (kind == u"garbage"_s) {
            bytes = QByteArray("\x89PNG\r\n\x1a\n");
            for (int i = 0; i < 4096; ++i)
                bytes += char((i * 131) % 251);
        }
        QVERIFY(writeFile(m_sources + u"/broken.png"_s, bytes));
        url = QUrl::fromLocalFile(m_sources + u"/broken.png"_s);
    } else if (kind == u"missing"_s) {
        url = QUrl::fromLocalFile(m_sources + u"/gone.png"_s);
    } else if (kind == u"folder"_s) {
        url = QUrl::fromLocalFile(m_sources);
    } else {
        url = QUrl(u"https://example.org/a.png"_s);
    }
    const PresetStore store(m_root->filePath(u"data"_s));
    const CanvasImportResult result = store.importCanvasBackground(url);
    QVERIFY(std::holds_alternative<CanvasImportError>(result));
    const auto& error = std::get<CanvasImportError>(result);
    QVERIFY(error.storeError == PresetStoreError::invalidCanvasBackground);
    QCOMPARE(error.description,
             u"Vistrel only accepts image files for the custom background canvas."_s);
    QVERIFY(!QFileInfo::exists(m_root->filePath(u"data"_s)));
}

void PresetStoreTest::importFolderBlockedIsFileSystemError()
{
    const PresetStore store(m_root->filePath(u"data"_s));
    QVERIFY(writeFile(store.applicationDirectory() + u"/CanvasBackgrounds"_s, "a file"));
    const QString source = imageFile(m_sources, u"ok.png"_s, QSize(8, 8), "PNG");
    const CanvasImportResult result = store.importCanvasBackground(QUrl::fromLocalFile(source));
    QVERIFY(std::holds_alternative<CanvasImportError>(result));
    const auto& error = std::get<CanvasImportError>(result);
    QVERIFY(!error.storeError);
    QVERIFY(error.description.contains(u"CanvasBackgrounds"_s));
}

void PresetStoreTest::canvasImageURL()
{
    const PresetStore store(m_root->filePath(u"data"_s));
    QVERIFY(!store.canvasImageURL(std::nullopt));
    QVERIFY(!store.canvasImageURL(u""_s));
    QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds/none.png"_s));
    const QString path = store.applicationDirectory() + u"/CanvasBackgrounds/a.png"_s;
    QVERIFY(writeFile(path, "x"));
    QCOMPARE(store.canvasImageURL(u"CanvasBackgrounds/a.png"_s), QUrl::fromLocalFile(path));
    QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds"_s)); // a folder is not an image file
    QVERIFY(QFile::remove(path));
    QVERIFY(!store.canvasImageURL(u"CanvasBackgrounds/a.png"_s));
}

QTEST_GUILESS_MAIN(PresetStoreTest)
#include "tst_preset_store.moc"
