#include "coordination/PresetStore.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUuid>

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcPersistence, "quorbit.Vistrel.Persistence")

// A state document is a few kilobytes; anything this large is not one, and
// reading it whole would only waste memory.
constexpr qint64 maximumStateFileSize = 64 * 1024 * 1024;
// Decoding limit for imported images (the default of 128 MB would reject an
// ordinary 8K photo).
constexpr int imageAllocationLimitMB = 1024;

QString folderError(const QString& path)
{
    return u"Could not create the folder \u201C%1\u201D."_s.arg(QDir::toNativeSeparators(path));
}

} // namespace

QString localizedDescription(PresetStoreError error)
{
    switch (error) {
    case PresetStoreError::invalidCanvasBackground:
        break;
    }
    return u"Vistrel only accepts image files for the custom background canvas."_s;
}

PresetStore::PresetStore(const QString& dataRoot, QObject* parent) : QObject(parent)
{
    QString root = dataRoot;
    if (root.isEmpty())
        root = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (root.isEmpty())
        root = QDir::tempPath();
    m_applicationDirectory = QDir(root).filePath(u"Vistrel"_s);
    m_stateFilePath = QDir(m_applicationDirectory).filePath(u"VistrelState.json"_s);
}

PersistedAppState PresetStore::load()
{
    const QFileInfo info(m_stateFilePath);
    if (!info.exists() && !info.isSymLink())
        return PersistedAppState::defaultState();

    const auto fail = [this](const QString& description) {
        qCCritical(lcPersistence, "Failed to load persisted state: %s",
                   qUtf8Printable(description));
        m_rejected = RejectedState{description, std::nullopt};
        const QString copy = freeRejectedPath();
        if (QFileInfo(m_stateFilePath).isFile() && QFile::copy(m_stateFilePath, copy)) {
            m_rejected->keptCopy = copy;
            qCInfo(lcPersistence, "The rejected state file was copied to %s.",
                   qUtf8Printable(copy));
            Q_EMIT rejectedStateKept(copy);
        } else {
            m_mustMoveRejectedAside = true;
        }
        return PersistedAppState::defaultState();
    };
    QFile file(m_stateFilePath);
    if (info.isDir())
        return fail(u"\u201C%1\u201D is a folder, not a file."_s.arg(m_stateFilePath));
    if (!file.open(QIODevice::ReadOnly))
        return fail(file.errorString());
    if (file.size() > maximumStateFileSize)
        return fail(u"The file is too large to be a state document (%1 bytes)."_s.arg(file.size()));
    const QByteArray bytes = file.read(maximumStateFileSize + 1);
    if (file.error() != QFileDevice::NoError)
        return fail(file.errorString());
    const JsonResult<PersistedAppState> decoded = decodePersistedAppState(bytes);
    if (!decoded)
        return fail(decoded.error().description());
    return decoded->normalized();
}

bool PresetStore::save(const PersistedAppState& state)
{
    const auto fail = [](const QString& description) {
        qCCritical(lcPersistence, "Failed to save persisted state: %s",
                   qUtf8Printable(description));
        return false;
    };
    if (!QDir().mkpath(m_applicationDirectory))
        return fail(folderError(m_applicationDirectory));
    if (m_mustMoveRejectedAside && !moveRejectedAside())
        return fail(u"The earlier state file could not be kept aside, so it is not replaced."_s);
    const JsonResult<QByteArray> encoded = encodePersistedAppState(state);
    if (!encoded)
        return fail(u"The state cannot be written: "_s + encoded.error().description());

    // QSaveFile writes a temporary file beside the target and renames it over
    // the old one only when everything was written. Unbuffered, because a
    // short write (disk full, file size limit) of buffered data is flushed
    // only by commit(), which then does not notice it and installs a
    // truncated file; written directly, every short write is seen here.
    QSaveFile file(m_stateFilePath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return fail(file.errorString());
    const QByteArray& bytes = encoded.value();
    for (qsizetype written = 0; written < bytes.size();) {
        // After a short write, writing the rest fails with the reason.
        const qint64 count = file.write(bytes.constData() + written, bytes.size() - written);
        if (count <= 0) {
            const QString error = file.errorString();
            file.cancelWriting();
            return fail(error);
        }
        written += count;
    }
    if (!file.commit())
        return fail(file.errorString());
    return true;
}

QString PresetStore::freeRejectedPath() const
{
    const QString stamp = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd'T'HHmmss'Z'"_s);
    const QString base = QDir(m_applicationDirectory).filePath(u"VistrelState.rejected-"_s + stamp);
    QString path = base + u".json"_s;
    for (int n = 2; QFileInfo::exists(path) || QFileInfo(path).isSymLink(); ++n)
        path = base + u"-%1.json"_s.arg(n);
    return path;
}

bool PresetStore::moveRejectedAside()
{
    const QFileInfo info(m_stateFilePath);
    if (info.exists() || info.isSymLink()) {
        const QString target = freeRejectedPath();
        if (!QDir().rename(m_stateFilePath, target))
            return false;
        m_rejected->keptCopy = target;
        qCInfo(lcPersistence, "The rejected state file was moved to %s.", qUtf8Printable(target));
        Q_EMIT rejectedStateKept(target);
    }
    m_mustMoveRejectedAside = false;
    return true;
}

CanvasImportResult PresetStore::importCanvasBackground(const QUrl& sourceFile) const
{
    const CanvasImportError invalid{
        PresetStoreError::invalidCanvasBackground,
        localizedDescription(PresetStoreError::invalidCanvasBackground)};
    if (!sourceFile.isLocalFile())
        return invalid;
    const QString sourcePath = sourceFile.toLocalFile();
    const QFileInfo source(sourcePath);
    if (!source.isFile())
        return invalid;

    QImageReader reader(sourcePath);
    reader.setAllocationLimit(imageAllocationLimitMB);
    const QImage image = reader.read();
    if (image.isNull() || image.width() <= 1 || image.height() <= 1)
        return invalid;

    const QString folder = QDir(m_applicationDirectory).filePath(u"CanvasBackgrounds"_s);
    if (!QDir().mkpath(folder))
        return CanvasImportError{std::nullopt, folderError(folder)};

    QString extension = source.suffix();
    if (extension.isEmpty())
        extension = u"png"_s;
    const QString name =
        QUuid::createUuid().toString(QUuid::WithoutBraces).toLower() + u'.' + extension;
    const QString target = QDir(folder).filePath(name);
    if (QFileInfo::exists(target)) {
        QFile existing(target);
        if (!existing.remove())
            return CanvasImportError{std::nullopt, existing.errorString()};
    }
    QFile input(sourcePath);
    if (!input.copy(target))
        return CanvasImportError{std::nullopt, input.errorString()};

    CanvasBackgroundSelection selection;
    selection.mode = CanvasBackgroundMode::customImage;
    selection.imageRelativePath = u"CanvasBackgrounds/"_s + name;
    selection.imageDisplayName = source.fileName();
    return selection;
}

std::optional<QUrl> PresetStore::canvasImageURL(const std::optional<QString>& relativePath) const
{
    if (!relativePath || relativePath->isEmpty())
        return std::nullopt;
    // Appended as given (like a path component), never resolved as absolute.
    const QString path = QDir::cleanPath(m_applicationDirectory + u'/' + *relativePath);
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    return QUrl::fromLocalFile(path);
}

} // namespace vistrel
