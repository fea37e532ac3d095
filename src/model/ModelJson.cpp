#include "model/ModelJson.h"

namespace vistrel {

using namespace Qt::StringLiterals;

template<class T> JsonResult<QJsonValue> encodeJson(const T& value)
{
    json::Context context;
    QJsonValue result = json::write(context, value);
    if (context.failed())
        return context.error();
    return result;
}

template<class T> JsonResult<T> decodeJson(const QJsonValue& value)
{
    json::Context context;
    T result;
    if (!json::read(context, value, result))
        return context.error();
    return result;
}

#define VISTREL_JSON_INSTANTIATE(T)                                                                \
    template JsonResult<QJsonValue> encodeJson<T>(const T&);                                       \
    template JsonResult<T> decodeJson<T>(const QJsonValue&);
VISTREL_JSON_INSTANTIATE(AppIdentity)
VISTREL_JSON_INSTANTIATE(WindowIdentity)
VISTREL_JSON_INSTANTIATE(RuleSet)
VISTREL_JSON_INSTANTIATE(VisibilityPolicy)
VISTREL_JSON_INSTANTIATE(CanvasBackgroundSelection)
VISTREL_JSON_INSTANTIATE(CameraOverlayConfiguration)
VISTREL_JSON_INSTANTIATE(SharePreset)
#undef VISTREL_JSON_INSTANTIATE

namespace json {

namespace {

// Reader of one member into `target` with the plain readers above.
template<class T> auto into(T& target)
{
    return [&target](Context& context, const QJsonValue& value) {
        if constexpr (std::is_same_v<T, QString>)
            return readString(context, value, target);
        else if constexpr (std::is_same_v<T, bool>)
            return readBool(context, value, target);
        else if constexpr (std::is_same_v<T, double>)
            return readDouble(context, value, target);
        else if constexpr (std::is_same_v<T, quint32>)
            return readUInt32(context, value, target);
        else
            return read(context, value, target);
    };
}

template<class T> auto intoOptional(std::optional<T>& target)
{
    return [&target](Context& context, const QJsonValue& value) {
        T inner{};
        if (!into(inner)(context, value))
            return false;
        target = std::move(inner);
        return true;
    };
}

template<class Enum, class Cases> auto intoEnum(Enum& target, const Cases& cases)
{
    return [&target, &cases](Context& context, const QJsonValue& value) {
        return readEnum(context, value, cases, target);
    };
}

template<class Element> bool readSet(Context& context, const QJsonValue& value, QSet<Element>& out)
{
    QJsonArray array;
    if (!readArray(context, value, array))
        return false;
    out.clear();
    for (qsizetype i = 0; i < array.size(); ++i) {
        Context::Scope scope(context, i);
        Element element;
        if (!read(context, array.at(i), element))
            return false;
        out.insert(std::move(element));
    }
    return true;
}

template<class Element> QJsonArray writeSet(Context& context, const QSet<Element>& set)
{
    QList<QJsonValue> elements;
    elements.reserve(set.size());
    for (const Element& element : set)
        elements.append(write(context, element));
    return sortedArray(std::move(elements));
}

} // namespace

QJsonValue write(Context&, const AppIdentity& value)
{
    QJsonObject object{{u"applicationName"_s, value.applicationName}};
    if (value.bundleIdentifier)
        object.insert(u"bundleIdentifier"_s, *value.bundleIdentifier);
    return object;
}

bool read(Context& context, const QJsonValue& json, AppIdentity& out)
{
    QJsonObject object;
    out = AppIdentity{};
    return readObject(context, json, object) &&
           readOptional(context, object, u"bundleIdentifier"_s,
                        intoOptional(out.bundleIdentifier)) &&
           readRequired(context, object, u"applicationName"_s, into(out.applicationName));
}

QJsonValue write(Context& context, const WindowIdentity& value)
{
    QJsonObject object{{u"application"_s, write(context, value.application)},
                       {u"windowTitle"_s, value.windowTitle}};
    if (value.lastWindowID)
        object.insert(u"lastWindowID"_s, qint64(*value.lastWindowID));
    return object;
}

bool read(Context& context, const QJsonValue& json, WindowIdentity& out)
{
    QJsonObject object;
    out = WindowIdentity{};
    return readObject(context, json, object) &&
           readRequired(context, object, u"application"_s, into(out.application)) &&
           readRequired(context, object, u"windowTitle"_s, into(out.windowTitle)) &&
           readOptional(context, object, u"lastWindowID"_s, intoOptional(out.lastWindowID));
}

QJsonValue write(Context& context, const RuleSet& value)
{
    return QJsonObject{{u"applications"_s, writeSet(context, value.applications)},
                       {u"windows"_s, writeSet(context, value.windows)}};
}

bool read(Context& context, const QJsonValue& json, RuleSet& out)
{
    QJsonObject object;
    out = RuleSet{};
    const auto apps = [&out](Context& c, const QJsonValue& v) {
        return readSet(c, v, out.applications);
    };
    const auto windows = [&out](Context& c, const QJsonValue& v) {
        return readSet(c, v, out.windows);
    };
    return readObject(context, json, object) &&
           readRequired(context, object, u"applications"_s, apps) &&
           readRequired(context, object, u"windows"_s, windows);
}

QJsonValue write(Context& context, const VisibilityPolicy& value)
{
    return QJsonObject{{u"mode"_s, caseName(value.mode)},
                       {u"allowList"_s, write(context, value.allowList)},
                       {u"blockList"_s, write(context, value.blockList)}};
}

bool read(Context& context, const QJsonValue& json, VisibilityPolicy& out)
{
    QJsonObject object;
    out = VisibilityPolicy{};
    return readObject(context, json, object) &&
           readRequired(context, object, u"mode"_s, intoEnum(out.mode, allVisibilityModes)) &&
           readRequired(context, object, u"allowList"_s, into(out.allowList)) &&
           readRequired(context, object, u"blockList"_s, into(out.blockList));
}

QJsonValue write(Context&, const CanvasBackgroundSelection& value)
{
    QJsonObject object{{u"mode"_s, caseName(value.mode)}};
    if (value.imageRelativePath)
        object.insert(u"imageRelativePath"_s, *value.imageRelativePath);
    if (value.imageDisplayName)
        object.insert(u"imageDisplayName"_s, *value.imageDisplayName);
    return object;
}

bool read(Context& context, const QJsonValue& json, CanvasBackgroundSelection& out)
{
    QJsonObject object;
    out = CanvasBackgroundSelection{};
    // Lenient: an unknown mode string (e.g. the retired "desktop") is black.
    const auto mode = [&out](Context& c, const QJsonValue& v) {
        QString raw;
        if (!readString(c, v, raw))
            return false;
        out.mode = CanvasBackgroundMode::black;
        for (CanvasBackgroundMode candidate : allCanvasBackgroundModes) {
            if (caseName(candidate) == raw)
                out.mode = candidate;
        }
        return true;
    };
    return readObject(context, json, object) && readRequired(context, object, u"mode"_s, mode) &&
           readOptional(context, object, u"imageRelativePath"_s,
                        intoOptional(out.imageRelativePath)) &&
           readOptional(context, object, u"imageDisplayName"_s, intoOptional(out.imageDisplayName));
}

QJsonValue write(Context& context, const CameraOverlayConfiguration& value)
{
    QJsonObject object;
    const auto number = [&](const QString& key, double v) {
        Context::Scope scope(context, key);
        object.insert(key, writeDouble(context, v));
    };
    object.insert(u"isEnabled"_s, value.isEnabled);
    if (value.cameraDeviceID)
        object.insert(u"cameraDeviceID"_s, *value.cameraDeviceID);
    object.insert(u"position"_s, caseName(value.position));
    object.insert(u"shape"_s, caseName(value.shape));
    object.insert(u"isMirrored"_s, value.isMirrored);
    number(u"sizeScale"_s, value.sizeScale);
    number(u"marginTop"_s, value.marginTop);
    number(u"marginBottom"_s, value.marginBottom);
    number(u"marginLeft"_s, value.marginLeft);
    number(u"marginRight"_s, value.marginRight);
    return object;
}

bool read(Context& context, const QJsonValue& json, CameraOverlayConfiguration& out)
{
    QJsonObject object;
    out = CameraOverlayConfiguration{};
    return readObject(context, json, object) &&
           readRequired(context, object, u"isEnabled"_s, into(out.isEnabled)) &&
           readOptional(context, object, u"cameraDeviceID"_s, intoOptional(out.cameraDeviceID)) &&
           readRequired(context, object, u"position"_s,
                        intoEnum(out.position, allCameraPositions)) &&
           readRequired(context, object, u"shape"_s, intoEnum(out.shape, allCameraShapes)) &&
           readRequired(context, object, u"isMirrored"_s, into(out.isMirrored)) &&
           readRequired(context, object, u"sizeScale"_s, into(out.sizeScale)) &&
           readRequired(context, object, u"marginTop"_s, into(out.marginTop)) &&
           readRequired(context, object, u"marginBottom"_s, into(out.marginBottom)) &&
           readRequired(context, object, u"marginLeft"_s, into(out.marginLeft)) &&
           readRequired(context, object, u"marginRight"_s, into(out.marginRight));
}

} // namespace json
} // namespace vistrel
