#pragma once

// The user's presets: built-ins first (Presentation, Meeting), then custom
// ones in user order, and which one is active (the one last applied or
// saved; never saved itself). Names are validated here; the live
// configuration a preset is compared with or filled from is the caller's.
//
// Every change that belongs in the state file is followed by edited(), which
// the main view model turns into a debounced save.
//
// Threading: main thread only.

#include "model/ShareConfiguration.h"
#include "model/SharePreset.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <optional>

namespace vistrel {

class PresetModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<vistrel::SharePreset> presets READ presets NOTIFY presetsChanged)
    Q_PROPERTY(
        std::optional<QString> activePresetID READ activePresetID NOTIFY activePresetIDChanged)

public:
    static constexpr int maximumCustomPresets = 2;
    // In user-perceived characters, after trimming; this many is accepted.
    static constexpr int maximumPresetNameLength = 32;

    explicit PresetModel(QList<SharePreset> presets, QObject* parent = nullptr);

    const QList<SharePreset>& presets() const { return m_presets; }
    std::optional<QString> activePresetID() const { return m_activePresetID; }
    QList<SharePreset> builtInPresets() const;
    QList<SharePreset> customPresets() const;
    const SharePreset* preset(const QString& id) const;

    // The message to show, or none when the name is acceptable. excludedID is
    // the preset being renamed; absent when creating.
    std::optional<QString>
    validatePresetName(const QString& name,
                       const std::optional<QString>& excludedID = std::nullopt) const;
    // The new preset's id; none when the name is refused. The preset starts
    // empty and is not made active.
    std::optional<QString> createCustomPreset(const QString& title);
    // False for built-ins, unknown ids and refused names.
    bool renamePreset(const QString& id, const QString& title);
    // Custom presets only; the active one stops being active.
    void deletePreset(const QString& id);
    // One place among the custom presets; nothing at either end.
    void moveCustomPreset(const QString& id, bool downward);
    // Stores `live` into the preset, stamped `now` (to the whole second, as
    // the state file keeps it), and makes it active.
    void savePreset(const QString& id, const ShareConfiguration& live, const QDateTime& now);
    // Empties a saved preset; it stays active only while `live` still
    // matches it. Nothing for a preset without a saved configuration.
    void clearPreset(const QString& id, const ShareConfiguration& live);
    void setActivePresetID(const std::optional<QString>& id);
    // The active preset's title while `live` matches it.
    std::optional<QString> activePresetTitle(const ShareConfiguration& live) const;

Q_SIGNALS:
    void presetsChanged(const QList<vistrel::SharePreset>& presets);
    void activePresetIDChanged(const std::optional<QString>& activePresetID);
    // After every change that the state file must receive.
    void edited();

private:
    void replacePresets(const QList<SharePreset>& presets);

    QList<SharePreset> m_presets;
    std::optional<QString> m_activePresetID;
};

} // namespace vistrel
