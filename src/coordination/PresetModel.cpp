#include "coordination/PresetModel.h"

#include "coordination/PresetNaming.h"
#include "model/ObservableProperty.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

QList<SharePreset> presetsOf(const QList<SharePreset>& presets, PresetCategory category)
{
    QList<SharePreset> result;
    std::copy_if(presets.cbegin(), presets.cend(), std::back_inserter(result),
                 [category](const SharePreset& preset) { return preset.category == category; });
    return result;
}

} // namespace

PresetModel::PresetModel(QList<SharePreset> presets, QObject* parent)
    : QObject(parent), m_presets(std::move(presets))
{
}

QList<SharePreset> PresetModel::builtInPresets() const
{
    return presetsOf(m_presets, PresetCategory::builtIn);
}

QList<SharePreset> PresetModel::customPresets() const
{
    return presetsOf(m_presets, PresetCategory::custom);
}

const SharePreset* PresetModel::preset(const QString& id) const
{
    const auto found = std::find_if(m_presets.cbegin(), m_presets.cend(),
                                    [&](const SharePreset& preset) { return preset.id == id; });
    return found == m_presets.cend() ? nullptr : &*found;
}

std::optional<QString>
PresetModel::validatePresetName(const QString& name, const std::optional<QString>& excludedID) const
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

std::optional<QString> PresetModel::createCustomPreset(const QString& title)
{
    if (validatePresetName(title))
        return std::nullopt;
    const SharePreset preset = makeCustomPreset(trimmedPresetName(title));
    replacePresets(builtInPresets() + customPresets() + QList<SharePreset>{preset});
    return preset.id;
}

bool PresetModel::renamePreset(const QString& id, const QString& title)
{
    const SharePreset* found = preset(id);
    if (!found || found->category == PresetCategory::builtIn || validatePresetName(title, id))
        return false;
    QList<SharePreset> presets = m_presets;
    presets[found - m_presets.constData()].title = trimmedPresetName(title);
    replacePresets(presets);
    return true;
}

void PresetModel::deletePreset(const QString& id)
{
    const SharePreset* found = preset(id);
    if (!found || found->category == PresetCategory::builtIn)
        return;
    QList<SharePreset> presets = m_presets;
    presets.removeAt(found - m_presets.constData());
    if (m_activePresetID == id)
        setActivePresetID(std::nullopt);
    replacePresets(presets);
}

void PresetModel::moveCustomPreset(const QString& id, bool downward)
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
    replacePresets(builtInPresets() + custom);
}

void PresetModel::savePreset(const QString& id, const ShareConfiguration& live,
                             const QDateTime& now)
{
    const SharePreset* found = preset(id);
    if (!found)
        return;
    // Whole seconds: a preset read back from the file should equal the one saved.
    QDateTime stamp = now.toUTC();
    stamp.setTime(QTime(stamp.time().hour(), stamp.time().minute(), stamp.time().second()));
    QList<SharePreset> presets = m_presets;
    SharePreset& saved = presets[found - m_presets.constData()];
    saved.configuration = live;
    saved.lastUpdated = stamp;
    replacePresets(presets);
    setActivePresetID(id);
}

void PresetModel::clearPreset(const QString& id, const ShareConfiguration& live)
{
    const SharePreset* found = preset(id);
    if (!found || !found->hasSavedConfiguration())
        return;
    const SharePreset cleared = found->cleared();
    QList<SharePreset> presets = m_presets;
    presets[found - m_presets.constData()] = cleared;
    if (m_activePresetID == id && !cleared.configuration.matches(live))
        setActivePresetID(std::nullopt);
    replacePresets(presets);
}

void PresetModel::setActivePresetID(const std::optional<QString>& id)
{
    updateProperty(this, m_activePresetID, id, &PresetModel::activePresetIDChanged);
}

std::optional<QString> PresetModel::activePresetTitle(const ShareConfiguration& live) const
{
    const SharePreset* active = m_activePresetID ? preset(*m_activePresetID) : nullptr;
    if (!active || !active->configuration.matches(live))
        return std::nullopt;
    return active->title;
}

void PresetModel::replacePresets(const QList<SharePreset>& presets)
{
    updateProperty(this, m_presets, presets, &PresetModel::presetsChanged);
    Q_EMIT edited();
}

} // namespace vistrel
