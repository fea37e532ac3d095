#include "model/PersistedAppState.h"

#include "model/ModelJson.h"

#include <QJsonDocument>
#include <QSet>

namespace vistrel {

using namespace Qt::StringLiterals;

const PersistedAppState& PersistedAppState::defaultState()
{
    static const PersistedAppState state;
    return state;
}

PersistedAppState PersistedAppState::normalized() const
{
    PersistedAppState result = *this;
    result.presets.clear();
    QSet<QString> keptIDs;
    for (BuiltInPresetKind kind : allBuiltInPresetKinds) {
        const auto stored = std::find_if(presets.begin(), presets.end(),
                                         [kind](const auto& p) { return p.builtInKind == kind; });
        result.presets.append(stored != presets.end() ? *stored : makeBuiltInPreset(kind));
        keptIDs.insert(result.presets.last().id);
    }
    for (const SharePreset& preset : presets) {
        if (preset.category != PresetCategory::custom || preset.builtInKind ||
            keptIDs.contains(preset.id))
            continue;
        keptIDs.insert(preset.id);
        result.presets.append(preset);
    }
    return result;
}

JsonResult<QByteArray> encodePersistedAppState(const PersistedAppState& state)
{
    json::Context context;
    QJsonObject object;
    json::writeMembers(context, state.configuration, object);
    {
        json::Context::Scope scope(context, u"presets"_s);
        QJsonArray presets;
        for (qsizetype i = 0; i < state.presets.size(); ++i) {
            json::Context::Scope element(context, i);
            presets.append(json::write(context, state.presets.at(i)));
        }
        object.insert(u"presets"_s, presets);
    }
    object.insert(u"isAlwaysOnTop"_s, state.isAlwaysOnTop);
    {
        json::Context::Scope scope(context, u"cameraOverlay"_s);
        object.insert(u"cameraOverlay"_s, json::write(context, state.cameraOverlay));
    }
    if (context.failed())
        return context.error();
    // QJsonObject keeps its keys sorted, so the indented text is sorted too.
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

JsonResult<PersistedAppState> decodePersistedAppState(const QByteArray& bytes)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return JsonError{{},
                         u"not valid JSON (%1 at offset %2)"_s.arg(parseError.errorString())
                             .arg(parseError.offset)};
    if (!document.isObject())
        return JsonError{{}, u"the document is not a JSON object"_s};
    const QJsonObject object = document.object();

    json::Context context;
    PersistedAppState state;
    const auto presets = [&state](json::Context& c, const QJsonValue& v) {
        QJsonArray array;
        if (!json::readArray(c, v, array))
            return false;
        state.presets.clear();
        for (qsizetype i = 0; i < array.size(); ++i) {
            json::Context::Scope scope(c, i);
            SharePreset preset;
            if (!json::read(c, array.at(i), preset))
                return false;
            state.presets.append(std::move(preset));
        }
        return true;
    };
    const auto alwaysOnTop = [&state](json::Context& c, const QJsonValue& v) {
        return json::readBool(c, v, state.isAlwaysOnTop);
    };
    const auto camera = [&state](json::Context& c, const QJsonValue& v) {
        return json::read(c, v, state.cameraOverlay);
    };
    const bool ok = json::readMembers(context, object, state.configuration, true) &&
                    json::readOptional(context, object, u"presets"_s, presets) &&
                    json::readOptional(context, object, u"isAlwaysOnTop"_s, alwaysOnTop) &&
                    json::readOptional(context, object, u"cameraOverlay"_s, camera);
    if (!ok)
        return context.error();
    return state;
}

} // namespace vistrel
