#include "capture/support_message_log.h"
#include "coordination/PresetStore.h"

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
#include <limits>
#include <sys/resource.h>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

namespace {

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

class PresetStoreTest : public QObject {
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

    void defaultLocation()
    {
        QStandardPaths::setTestModeEnabled(true);
        const PresetStore store;
        QCOMPARE(store.stateFilePath(),
                 QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                     u"/Vistrel/VistrelState.json"_s);
        QStandardPaths::setTestModeEnabled(false);
    }

    void firstStartCreatesNothingUntilSave()
    {
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

    void importFolderBlockedIsFileSystemError()
    {
        const PresetStore store(m_root->filePath(u"data"_s));
        QVERIFY(writeFile(store.applicationDirectory() + u"/CanvasBackgrounds"_s, "a file"));
        const QString source = m_sources + u"/ok.png"_s;
        QVERIFY(writeFile(source, imageBytes(8, 8, "PNG")));
        const CanvasImportResult result = store.importCanvasBackground(QUrl::fromLocalFile(source));
        QVERIFY(std::holds_alternative<CanvasImportError>(result));
        const auto& error = std::get<CanvasImportError>(result);
        QVERIFY(!error.storeError);
        QVERIFY(error.description.contains(u"CanvasBackgrounds"_s));
    }

    void canvasImageURL()
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
};

QTEST_GUILESS_MAIN(PresetStoreTest)
#include "tst_preset_store.moc"
