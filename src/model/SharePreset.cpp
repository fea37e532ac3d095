#include "model/SharePreset.h"

#include <QTimeZone>
#include <QUuid>

namespace vistrel {

using namespace Qt::StringLiterals;

QString caseName(PresetCategory category)
{
    return category == PresetCategory::builtIn ? u"builtIn"_s : u"custom"_s;
}

QString caseName(BuiltInPresetKind kind)
{
    return kind == BuiltInPresetKind::meeting ? u"meeting"_s : u"presentation"_s;
}

QString caseName(LegacyPresetKind kind)
{
    switch (kind) {
    case LegacyPresetKind::presentation:
        return u"presentation"_s;
    case LegacyPresetKind::coding:
        return u"coding"_s;
    case LegacyPresetKind::meeting:
        return u"meeting"_s;
    }
    return {};
}

QDateTime distantPast()
{
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), QTimeZone::utc());
}

QString builtInPresetTitle(BuiltInPresetKind kind)
{
    return kind == BuiltInPresetKind::meeting ? u"Meeting"_s : u"Presentation"_s;
}

QString builtInPresetSymbolName(BuiltInPresetKind kind)
{
    return kind == BuiltInPresetKind::meeting ? u"person.2.crop.square.stack"_s
                                              : u"rectangle.on.rectangle.angled"_s;
}

bool SharePreset::hasSavedConfiguration() const
{
    return !(configuration.isEmpty() && lastUpdated == distantPast());
}

SharePreset SharePreset::cleared() const
{
    SharePreset preset = *this;
    preset.configuration = ShareConfiguration{};
    preset.lastUpdated = distantPast();
    return preset;
}

QString SharePreset::summaryText() const
{
    const ShareConfiguration& c = configuration;
    const RuleSet& rules = c.policy.activeRules();
    const qsizetype apps = rules.applications.size();
    const qsizetype windows = rules.windows.size();
    // Only the active rules count here: a never-saved preset whose mode alone
    // changed still reads as empty.
    const bool nothing = lastUpdated == distantPast() && !c.selectedDisplayID && apps == 0 &&
                         windows == 0 && c.outputFrameMode == OutputFrameMode::screen &&
                         c.outputContentMode == OutputContentMode::sanitized &&
                         c.canvasBackground.isDefault();
    if (nothing)
        return u"Nothing is currently selected \u2022 Frame "_s + vistrel::title(c.outputFrameMode);
    const QStringList parts{
        vistrel::title(c.outputContentMode),
        vistrel::title(c.policy.mode),
        QString::number(apps) + u" apps"_s,
        QString::number(windows) + u" windows"_s,
        u"Frame "_s + vistrel::title(c.outputFrameMode),
        u"Canvas "_s + vistrel::title(c.canvasBackground.mode),
    };
    return parts.join(u" \u2022 "_s);
}

size_t qHash(const SharePreset& p, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, p.id);
    seed = combine(seed, p.title);
    seed = combine(seed, p.symbolName);
    seed = combine(seed, qToUnderlying(p.category));
    seed = combine(seed, p.builtInKind.has_value());
    seed = combine(seed, qToUnderlying(p.builtInKind.value_or(BuiltInPresetKind::presentation)));
    seed = combine(seed, p.configuration);
    // Equal instants in different zones compare equal, so hash the instant.
    return combine(seed, p.lastUpdated.isValid() ? p.lastUpdated.toMSecsSinceEpoch() : 0);
}

SharePreset makeBuiltInPreset(BuiltInPresetKind kind)
{
    SharePreset preset;
    preset.id = caseName(kind);
    preset.title = builtInPresetTitle(kind);
    preset.symbolName = builtInPresetSymbolName(kind);
    preset.category = PresetCategory::builtIn;
    preset.builtInKind = kind;
    return preset;
}

QList<SharePreset> defaultBuiltInPresets()
{
    QList<SharePreset> presets;
    for (BuiltInPresetKind kind : allBuiltInPresetKinds)
        presets.append(makeBuiltInPreset(kind));
    return presets;
}

SharePreset makeCustomPreset(const QString& title)
{
    SharePreset preset;
    preset.id = u"custom."_s + QUuid::createUuid().toString(QUuid::WithoutBraces).toLower();
    preset.title = title;
    preset.symbolName = u"bookmark"_s;
    preset.category = PresetCategory::custom;
    return preset;
}

} // namespace vistrel
