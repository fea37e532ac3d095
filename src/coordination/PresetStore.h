#pragma once

// Everything the application keeps on disk: the state document and the
// folder of imported canvas background images.
//
//   <root>/Vistrel/VistrelState.json       the PersistedAppState document
//   <root>/Vistrel/CanvasBackgrounds/      one copy per imported image
//
// <root> is the user's generic data folder (~/.local/share) unless the
// constructor is given another. Nothing is created on disk by construction
// or load(); the folders appear on the first save or import.
//
// Main thread only, synchronous. load() and save() never fail towards the
// caller: failures are logged on quorbit.Vistrel.Persistence and the
// application goes on with the default document or the previous file.

#include "model/OutputSettings.h"
#include "model/PersistedAppState.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <optional>
#include <variant>

namespace vistrel {

enum class PresetStoreError {
    invalidCanvasBackground, // not an image, or 1 pixel or less in a direction
};
// "Vistrel only accepts image files for the custom background canvas."
QString localizedDescription(PresetStoreError error);

// A failed import: the store's own error, or a file-system failure (no
// storeError) described by the system's message.
struct CanvasImportError {
    std::optional<PresetStoreError> storeError;
    QString description;

    friend bool operator==(const CanvasImportError&, const CanvasImportError&) = default;
};
using CanvasImportResult = std::variant<CanvasBackgroundSelection, CanvasImportError>;

class PresetStore : public QObject {
    Q_OBJECT

public:
    // `dataRoot` replaces the user's data folder (tests); empty means the
    // standard location, or the temporary folder when there is none.
    explicit PresetStore(const QString& dataRoot = QString(), QObject* parent = nullptr);

    // <root>/Vistrel
    QString applicationDirectory() const { return m_applicationDirectory; }
    // <root>/Vistrel/VistrelState.json
    QString stateFilePath() const { return m_stateFilePath; }

    // The stored document, normalised; the default document when there is no
    // file (silently) or it cannot be read or is rejected (logged).
    //
    // A rejected file is never lost: it is copied at once to
    // "VistrelState.rejected-<UTC time>.json" beside it (never over an
    // existing file), or, when it cannot be copied (unreadable, a folder),
    // moved there before the next save. A save that cannot move it aside
    // fails and leaves it in place.
    PersistedAppState load();

    // After a rejected load: why it was rejected, and the path of the kept
    // copy once there is one.
    struct RejectedState {
        QString reason;
        std::optional<QString> keptCopy;

        friend bool operator==(const RejectedState&, const RejectedState&) = default;
    };
    std::optional<RejectedState> rejectedState() const { return m_rejected; }

    // Writes the whole document atomically. On failure (folder cannot be made,
    // value cannot be encoded, write or rename fails) logs and leaves the
    // previous file as it was. Returns whether the file was written.
    bool save(const PersistedAppState& state);

    // Copies a user-chosen image into CanvasBackgrounds/ under a fresh
    // "<uuid>.<extension>" name (extension kept as given, "png" when there is
    // none) and returns a customImage selection pointing at it. Nothing is
    // written for a file that is not a decodable image larger than 1x1 pixel.
    CanvasImportResult importCanvasBackground(const QUrl& sourceFile) const;

    // The file a stored relative image path points to, when it exists.
    std::optional<QUrl> canvasImageURL(const std::optional<QString>& relativePath) const;

Q_SIGNALS:
    // A rejected file was kept aside (at load or before a save).
    void rejectedStateKept(const QString& path);

private:
    // A name beside the state file that no file has yet.
    QString freeRejectedPath() const;
    bool moveRejectedAside();

    QString m_applicationDirectory;
    QString m_stateFilePath;
    std::optional<RejectedState> m_rejected;
    bool m_mustMoveRejectedAside = false;
};

} // namespace vistrel
