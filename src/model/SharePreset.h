#pragma once

// A named snapshot of what to share. Two built-in presets always exist;
// custom ones are made by the user.

#include "model/ShareConfiguration.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <array>
#include <optional>

namespace vistrel {

enum class PresetCategory {
    builtIn,
    custom,
};
inline constexpr std::array allPresetCategories{PresetCategory::builtIn, PresetCategory::custom};
QString caseName(PresetCategory category);

// The case order is the order built-ins are listed in everywhere.
enum class BuiltInPresetKind {
    presentation,
    meeting,
};
inline constexpr std::array allBuiltInPresetKinds{BuiltInPresetKind::presentation,
                                                  BuiltInPresetKind::meeting};
QString caseName(BuiltInPresetKind kind);

// Read only, from files of the older format ("kind" instead of "id").
enum class LegacyPresetKind {
    presentation,
    coding,
    meeting,
};
inline constexpr std::array allLegacyPresetKinds{
    LegacyPresetKind::presentation, LegacyPresetKind::coding, LegacyPresetKind::meeting};
QString caseName(LegacyPresetKind kind);

// 0001-01-01T00:00:00Z: a preset whose lastUpdated is this was never saved.
QDateTime distantPast();

struct SharePreset {
    // Identity, never changed after creation: the built-in kind's raw value,
    // "custom." + lower-case UUID, or "custom.legacy.coding".
    QString id;
    QString title;
    QString symbolName;
    PresetCategory category = PresetCategory::custom;
    std::optional<BuiltInPresetKind> builtInKind;
    ShareConfiguration configuration;
    QDateTime lastUpdated = distantPast(); // UTC

    // False exactly when the configuration is empty and was never saved
    // (id, title, symbol and category are not consulted).
    bool hasSavedConfiguration() const;
    // The same preset, emptied and never saved; identity, title, symbol,
    // category and kind stay.
    SharePreset cleared() const;

    // One line under the preset's title, e.g.
    // "Sanitized Windows • Allow List • 2 apps • 1 windows • Frame Dynamic • Canvas Gray",
    // or "Nothing is currently selected • Frame Screen" for an empty preset.
    QString summaryText() const;

    friend bool operator==(const SharePreset&, const SharePreset&) = default;
};
size_t qHash(const SharePreset& preset, size_t seed = 0) noexcept;

// The built-in preset of `kind` with the empty configuration.
SharePreset makeBuiltInPreset(BuiltInPresetKind kind);
// Presentation, then Meeting, both empty.
QList<SharePreset> defaultBuiltInPresets();
// A new custom preset ("custom." + fresh lower-case UUID) with the empty
// configuration. `title` is used as given: the caller trims and validates it.
SharePreset makeCustomPreset(const QString& title);

// Title and symbol of the built-in table.
QString builtInPresetTitle(BuiltInPresetKind kind);
QString builtInPresetSymbolName(BuiltInPresetKind kind);

// The id of the custom preset an older file's "coding" preset becomes.
inline constexpr char16_t legacyCodingPresetID[] = u"custom.legacy.coding";

} // namespace vistrel
