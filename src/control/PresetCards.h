#pragma once

// What the presets popover shows for each preset, as plain values: the
// card's texts, badges and which of its actions make sense, the "Saved …"
// wording and the height the card list gets. No widget is involved, so the
// rules are checked by table; the views only draw these.

#include "model/SharePreset.h"

#include <QDateTime>
#include <QString>
#include <optional>

namespace vistrel {

// How long ago `saved` was, seen from `now`: "just now", "5 minutes ago",
// "2 hours ago", "yesterday", "3 days ago", "last week", "4 weeks ago", and
// from about two months on the short date (in now's time zone and the
// default locale). A time after now (a clock set back) reads "just now".
QString relativeSavedText(const QDateTime& saved, const QDateTime& now);

// Where the card stands: the view model's active preset, whether the live
// configuration still matches this preset, the time "Saved …" is measured
// against, and the card's place among the presets of its group.
struct PresetCardContext {
    std::optional<QString> activePresetID = {};
    bool matchesLive = false;
    QDateTime now = {};
    int position = 0;
    int groupSize = 1;
};

struct PresetCardState {
    QString id;
    QString title;
    QString symbolName;
    bool isCustom = false;
    // "Default" or "Custom".
    QString categoryBadge;
    // Active and still what is live.
    bool isActive = false;
    // "Sanitized" / "Desktop" and "Screen" / "Dynamic"; only for a preset
    // that holds a saved configuration, an empty one stores no choice.
    std::optional<QString> contentBadge = {};
    std::optional<QString> frameBadge = {};
    QString summary;
    // "Saved …", or the "slot ready" line of a never-saved preset.
    QString status;
    bool canReset = false;
    bool canMoveUp = false;
    bool canMoveDown = false;

    friend bool operator==(const PresetCardState&, const PresetCardState&) = default;
};

PresetCardState presetCardState(const SharePreset& preset, const PresetCardContext& context);

// The height of the popover's scrolling content: a fixed part, one card
// height per built-in preset and, once there is a custom preset, the custom
// group's heading and one card height per custom preset; between 318 and
// 560.
int presetListHeight(int builtInCount, int customCount);

} // namespace vistrel
