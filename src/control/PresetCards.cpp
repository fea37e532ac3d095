#include "control/PresetCards.h"

#include "control/DeckText.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTimeZone>
#include <algorithm>

namespace vistrel {

namespace {

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;
constexpr qint64 week = 7 * day;
// From here on a count of weeks stops being a useful answer.
constexpr qint64 dateFrom = 60 * day;

constexpr int fixedHeight = 26 + 94;
constexpr int groupHeadingHeight = 26;
constexpr int cardHeight = 138;
constexpr int minimumListHeight = 318;
constexpr int maximumListHeight = 560;

} // namespace

QString relativeSavedText(const QDateTime& saved, const QDateTime& now)
{
    const qint64 seconds = saved.secsTo(now);
    if (seconds < minute)
        return deckTr("just now");
    if (seconds < hour) {
        const qint64 minutes = seconds / minute;
        return minutes == 1 ? deckTr("1 minute ago") : deckTr("%1 minutes ago").arg(minutes);
    }
    if (seconds < day) {
        const qint64 hours = seconds / hour;
        return hours == 1 ? deckTr("1 hour ago") : deckTr("%1 hours ago").arg(hours);
    }
    if (seconds < 2 * day)
        return deckTr("yesterday");
    if (seconds < week)
        return deckTr("%1 days ago").arg(seconds / day);
    if (seconds < 2 * week)
        return deckTr("last week");
    if (seconds < dateFrom)
        return deckTr("%1 weeks ago").arg(seconds / week);
    return QLocale().toString(saved.toTimeZone(now.timeZone()).date(), QLocale::ShortFormat);
}

PresetCardState presetCardState(const SharePreset& preset, const PresetCardContext& context)
{
    PresetCardState card;
    card.id = preset.id;
    card.title = preset.title;
    card.symbolName = preset.symbolName;
    card.isCustom = preset.category == PresetCategory::custom;
    card.categoryBadge = card.isCustom ? deckTr("Custom") : deckTr("Default");
    card.isActive = context.activePresetID == preset.id && context.matchesLive;
    card.canReset = preset.hasSavedConfiguration();
    if (card.canReset) {
        const ShareConfiguration& stored = preset.configuration;
        card.contentBadge = stored.outputContentMode == OutputContentMode::fullDesktop
                                ? deckTr("Desktop")
                                : deckTr("Sanitized");
        card.frameBadge = stored.outputFrameMode == OutputFrameMode::dynamic ? deckTr("Dynamic")
                                                                             : deckTr("Screen");
    }
    card.summary = preset.summaryText();
    if (preset.lastUpdated != distantPast())
        card.status = deckTr("Saved ") + relativeSavedText(preset.lastUpdated, context.now);
    else
        card.status = card.isCustom ? deckTr("Custom preset slot ready")
                                    : deckTr("Built-in preset slot ready");
    card.canMoveUp = card.isCustom && context.position > 0;
    card.canMoveDown = card.isCustom && context.position < context.groupSize - 1;
    return card;
}

int presetListHeight(int builtInCount, int customCount)
{
    int height = fixedHeight + cardHeight * builtInCount;
    if (customCount >= 1)
        height += groupHeadingHeight + cardHeight * customCount;
    return std::clamp(height, minimumListHeight, maximumListHeight);
}

} // namespace vistrel
