// Preset management of the main view model: validation of names, creation,
// renaming, deletion, reordering, and moving configurations between the live
// state and presets. Every change is saved through the debounced save job.

#include "coordination/MainViewModel.h"
#include "coordination/PresetNaming.h"

#include <QDateTime>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

QList<SharePreset> presetsOf(const QList<SharePreset>& presets, PresetCategory category)
{
    QList<SharePreset> result;
    for (const SharePreset& preset : presets) {
        if (preset.category == category)
            result.append(preset);
    }
    return result;
}

// The preset with its configuration fields reset to the empty configuration;
// identity, title, symbol, category and kind stay.
SharePreset emptied(SharePreset preset)
{
    preset.policy = VisibilityPolicy::defaultValue();
    preset.selectedDisplayID = std::nullopt;
    preset.outputFrameMode = OutputFrameMode::screen;
    preset.outputContentMode = OutputContentMode::sanitized;
    preset.canvasBackground = CanvasBackgroundSelection{};
    preset.lastUpdated = distantPast();
    return preset;
}

} // namespace

QList<SharePreset> MainViewModel::builtInPresets() const
{
    return presetsOf(m_presets, PresetCategory::builtIn);
}

QList<SharePreset> MainViewModel::customPresets() const
{
    return presetsOf(m_presets, PresetCategory::custom);
}

SharePreset* MainViewModel::findPreset(const QString& id)
{
    const auto found = std::find_if(m_presets.begin(), m_presets.end(),
                                    [&](const SharePreset& preset) { return preset.id == id; });
    return found == m_presets.end() ? nullptr : &*found;
}

std::optional<QString>
MainViewModel::validatePresetName(const QString& name,
                                  const std::optional<QString>& excludedID) const
{
    const QString trimmed = trimmedPresetName(name);
    if (trimmed.isEmpty())
        return u"Preset name cannot be empty."_s;
    if (presetNameLength(trimmed) > maximumPresetNameLength)
        return u"Preset name must stay under 32 characters."_s;
    const QString folded = foldedPresetName(trimmed);
    for (const SharePreset& preset : m_presets) {
        if (excludedID && preset.id == *excludedID)
            continue;
        if (foldedPresetName(preset.title) == folded)
            return u"A preset with this name already exists."_s;
    }
    if (!excludedID && customPresets().size() >= maximumCustomPresets)
        return u"You have reached the maximum limit of 2 custom presets."_s;
    return std::nullopt;
}

std::optional<QString> MainViewModel::createCustomPreset(const QString& title)
{
    if (validatePresetName(title))
        return std::nullopt;
    const SharePreset preset = makeCustomPreset(trimmedPresetName(title));
    setPresets(builtInPresets() + customPresets() + QList<SharePreset>{preset});
    schedulePersistence();
    return preset.id;
}

bool MainViewModel::renamePreset(const QString& id, const QString& title)
{
    const SharePreset* preset = findPreset(id);
    if (!preset || preset->category == PresetCategory::builtIn)
        return false;
    if (validatePresetName(title, id))
        return false;
    QList<SharePreset> presets = m_presets;
    for (SharePreset& candidate : presets) {
        if (candidate.id == id)
            candidate.title = trimmedPresetName(title);
    }
    setPresets(presets);
    schedulePersistence();
    return true;
}

void MainViewModel::deletePreset(const QString& id)
{
    const SharePreset* preset = findPreset(id);
    if (!preset || preset->category == PresetCategory::builtIn)
        return;
    QList<SharePreset> presets = m_presets;
    presets.removeIf([&](const SharePreset& candidate) { return candidate.id == id; });
    setPresets(presets);
    if (m_activePresetID == id)
        setActivePresetID(std::nullopt);
    schedulePersistence();
}

void MainViewModel::moveCustomPreset(const QString& id, bool downward)
{
    QList<SharePreset> custom = customPresets();
    const auto found = std::find_if(custom.cbegin(), custom.cend(),
                                    [&](const SharePreset& preset) { return preset.id == id; });
    if (found == custom.cend())
        return;
    const qsizetype from = found - custom.cbegin();
    const qsizetype to = downward ? from + 1 : from - 1;
    if (to < 0 || to >= custom.size())
        return;
    custom.move(from, to);
    setPresets(builtInPresets() + custom);
    schedulePersistence();
}

void MainViewModel::applyPreset(const QString& id)
{
    const SharePreset* found = findPreset(id);
    if (!found)
        return;
    const SharePreset preset = *found;

    setPolicy(preset.policy);
    if (preset.selectedDisplayID)
        setSelectedDisplayID(preset.selectedDisplayID);
    else if (!m_selectedDisplayID)
        setSelectedDisplayID(m_displays.isEmpty() ? std::nullopt
                                                  : std::optional<quint32>(m_displays.first().id));
    assignOutputFrameMode(preset.outputFrameMode);
    assignOutputContentMode(preset.outputContentMode);
    setCanvasBackground(preset.canvasBackground);
    assignPanicHidden(false);
    setActivePresetID(preset.id);

    syncSourceList();
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::savePreset(const QString& id)
{
    if (!findPreset(id))
        return;
    // Whole seconds: the state file keeps no more, and a preset read back
    // should equal the one saved.
    QDateTime now = QDateTime::currentDateTimeUtc();
    now.setTime(QTime(now.time().hour(), now.time().minute(), now.time().second()));

    QList<SharePreset> presets = m_presets;
    for (SharePreset& preset : presets) {
        if (preset.id != id)
            continue;
        preset.policy = m_policy;
        preset.selectedDisplayID = m_selectedDisplayID;
        preset.outputFrameMode = m_outputFrameMode;
        preset.outputContentMode = m_outputContentMode;
        preset.canvasBackground = m_canvasBackground;
        preset.lastUpdated = now;
    }
    setPresets(presets);
    setActivePresetID(id);
    schedulePersistence();
}

void MainViewModel::clearPreset(const QString& id)
{
    const SharePreset* found = findPreset(id);
    if (!found || !found->hasSavedConfiguration())
        return;
    const SharePreset cleared = emptied(*found);
    QList<SharePreset> presets = m_presets;
    for (SharePreset& preset : presets) {
        if (preset.id == id)
            preset = cleared;
    }
    setPresets(presets);
    if (m_activePresetID == id && !presetMatchesCurrentState(cleared))
        setActivePresetID(std::nullopt);
    schedulePersistence();
}

bool MainViewModel::presetMatchesCurrentState(const SharePreset& preset) const
{
    if (preset.policy != m_policy)
        return false;
    // A preset without a display matches any selection, none included.
    if (preset.selectedDisplayID && preset.selectedDisplayID != m_selectedDisplayID)
        return false;
    return preset.outputFrameMode == m_outputFrameMode &&
           preset.outputContentMode == m_outputContentMode &&
           preset.canvasBackground == m_canvasBackground;
}

std::optional<QString> MainViewModel::activePresetTitle() const
{
    if (!m_activePresetID)
        return std::nullopt;
    for (const SharePreset& preset : m_presets) {
        if (preset.id == *m_activePresetID)
            return presetMatchesCurrentState(preset) ? std::optional(preset.title) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace vistrel
