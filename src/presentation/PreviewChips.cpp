#include "presentation/PreviewChips.h"

namespace vistrel {

QList<PreviewChip> previewChips(const QList<SharePreset>& presets,
                                const std::optional<QString>& activePresetID)
{
    QList<PreviewChip> chips;
    for (const SharePreset& preset : presets) {
        // A preset never saved is only a slot: nothing to switch to.
        if (preset.lastUpdated == distantPast())
            continue;
        chips.append({preset.id, preset.title, preset.id == activePresetID});
    }
    return chips;
}

} // namespace vistrel
