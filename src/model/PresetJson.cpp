// JSON form of a preset, including the migration of the older format whose
// presets carried a "kind" instead of an "id".

#include "model/ModelJson.h"

namespace vistrel::json {

using namespace Qt::StringLiterals;

QJsonValue write(Context& context, const SharePreset& value)
{
    QJsonObject object{
        {u"id"_s, value.id},
        {u"title"_s, value.title},
        {u"symbolName"_s, value.symbolName},
        {u"category"_s, caseName(value.category)},
    };
    if (value.builtInKind)
        object.insert(u"builtInKind"_s, caseName(*value.builtInKind));
    writeMembers(context, value.configuration, object);
    {
        Context::Scope scope(context, u"lastUpdated"_s);
        object.insert(u"lastUpdated"_s, writeDate(context, value.lastUpdated));
    }
    return object;
}

namespace {

auto intoDate(QDateTime& target)
{
    return [&target](Context& c, const QJsonValue& v) {
        return readDate(c, v, target);
    };
}

auto intoDisplay(std::optional<quint32>& target)
{
    return [&target](Context& c, const QJsonValue& v) {
        quint32 id = 0;
        if (!readUInt32(c, v, id))
            return false;
        target = id;
        return true;
    };
}

template<class T> auto intoValue(T& target)
{
    return [&target](Context& c, const QJsonValue& v) {
        return read(c, v, target);
    };
}

auto intoString(QString& target)
{
    return [&target](Context& c, const QJsonValue& v) {
        return readString(c, v, target);
    };
}

bool readCurrent(Context& context, const QJsonObject& object, const QString& id, SharePreset& out)
{
    out = SharePreset{};
    out.id = id;
    std::optional<BuiltInPresetKind> kind;
    const auto intoKind = [&kind](Context& c, const QJsonValue& v) {
        BuiltInPresetKind k{};
        if (!readEnum(c, v, allBuiltInPresetKinds, k))
            return false;
        kind = k;
        return true;
    };
    const auto category = [&out](Context& c, const QJsonValue& v) {
        return readEnum(c, v, allPresetCategories, out.category);
    };
    if (!readOptional(context, object, u"category"_s, category) ||
        !readOptional(context, object, u"builtInKind"_s, intoKind) ||
        !readMembers(context, object, out.configuration, false) ||
        !readOptional(context, object, u"lastUpdated"_s, intoDate(out.lastUpdated)))
        return false;
    out.builtInKind = kind;
    if (out.category == PresetCategory::builtIn && kind) {
        // A built-in's name and symbol always come from the table; stored
        // ones are not even read.
        out.title = builtInPresetTitle(*kind);
        out.symbolName = builtInPresetSymbolName(*kind);
        return true;
    }
    out.title = u"Preset"_s;
    out.symbolName = u"bookmark"_s;
    return readOptional(context, object, u"title"_s, intoString(out.title)) &&
           readOptional(context, object, u"symbolName"_s, intoString(out.symbolName));
}

bool readLegacy(Context& context, const QJsonObject& object, SharePreset& out)
{
    LegacyPresetKind kind{};
    const auto intoKind = [&kind](Context& c, const QJsonValue& v) {
        return readEnum(c, v, allLegacyPresetKinds, kind);
    };
    if (!readRequired(context, object, u"kind"_s, intoKind))
        return false;
    VisibilityPolicy policy;
    policy.mode =
        kind == LegacyPresetKind::meeting ? VisibilityMode::blockList : VisibilityMode::allowList;
    std::optional<quint32> displayID;
    QDateTime lastUpdated = distantPast();
    if (!readOptional(context, object, u"policy"_s, intoValue(policy)) ||
        !readOptional(context, object, u"selectedDisplayID"_s, intoDisplay(displayID)) ||
        !readOptional(context, object, u"lastUpdated"_s, intoDate(lastUpdated)))
        return false;

    const RuleSet& active = policy.activeRules();
    const bool hasContent = lastUpdated != distantPast() || displayID.has_value() ||
                            !active.applications.isEmpty() || !active.windows.isEmpty();
    if (kind == LegacyPresetKind::coding) {
        out = SharePreset{};
        out.id = QString::fromUtf16(legacyCodingPresetID);
        out.title = u"Coding"_s;
        out.symbolName = u"curlybraces"_s;
        out.category = PresetCategory::custom;
    } else {
        out =
            makeBuiltInPreset(kind == LegacyPresetKind::meeting ? BuiltInPresetKind::meeting
                                                                : BuiltInPresetKind::presentation);
        if (!hasContent)
            return true; // stays empty, whatever mode the stored policy had
    }
    out.configuration.policy = policy;
    out.configuration.selectedDisplayID = displayID;
    out.lastUpdated = lastUpdated;
    return true;
}

} // namespace

void writeMembers(Context& context, const ShareConfiguration& value, QJsonObject& object)
{
    {
        Context::Scope scope(context, u"policy"_s);
        object.insert(u"policy"_s, write(context, value.policy));
    }
    if (value.selectedDisplayID)
        object.insert(u"selectedDisplayID"_s, qint64(*value.selectedDisplayID));
    object.insert(u"outputFrameMode"_s, caseName(value.outputFrameMode));
    object.insert(u"outputContentMode"_s, caseName(value.outputContentMode));
    {
        Context::Scope scope(context, u"canvasBackground"_s);
        object.insert(u"canvasBackground"_s, write(context, value.canvasBackground));
    }
}

bool readMembers(Context& context, const QJsonObject& object, ShareConfiguration& out,
                 bool policyRequired)
{
    const auto frame = [&out](Context& c, const QJsonValue& v) {
        return readEnum(c, v, allOutputFrameModes, out.outputFrameMode);
    };
    const auto content = [&out](Context& c, const QJsonValue& v) {
        return readEnum(c, v, allOutputContentModes, out.outputContentMode);
    };
    const bool policy = policyRequired
                            ? readRequired(context, object, u"policy"_s, intoValue(out.policy))
                            : readOptional(context, object, u"policy"_s, intoValue(out.policy));
    return policy &&
           readOptional(context, object, u"selectedDisplayID"_s,
                        intoDisplay(out.selectedDisplayID)) &&
           readOptional(context, object, u"outputFrameMode"_s, frame) &&
           readOptional(context, object, u"outputContentMode"_s, content) &&
           readOptional(context, object, u"canvasBackground"_s, intoValue(out.canvasBackground));
}

bool read(Context& context, const QJsonValue& json, SharePreset& out)
{
    QJsonObject object;
    if (!readObject(context, json, object))
        return false;
    const std::optional<QJsonValue> id = optionalMember(object, u"id"_s);
    if (!id)
        return readLegacy(context, object, out);
    QString idText;
    {
        Context::Scope scope(context, u"id"_s);
        if (!readString(context, *id, idText))
            return false;
    }
    return readCurrent(context, object, idText, out);
}

} // namespace vistrel::json
