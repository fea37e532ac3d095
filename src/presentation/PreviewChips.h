#pragma once

// What the preview panel's chips show: one per saved preset, in list order,
// the active one emphasised. Pure, so the rule is checked without widgets.

#include "model/SharePreset.h"

#include <QList>
#include <QString>
#include <optional>

namespace vistrel {

struct PreviewChip {
    QString presetID;
    QString title;
    bool isActive = false;

    friend bool operator==(const PreviewChip&, const PreviewChip&) = default;
};

QList<PreviewChip> previewChips(const QList<SharePreset>& presets,
                                const std::optional<QString>& activePresetID);

} // namespace vistrel
