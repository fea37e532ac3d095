#include "model/JsonContext.h"

#include "model/IsoDate.h"

#include <QJsonDocument>
#include <algorithm>
#include <cmath>

namespace vistrel::json {

using namespace Qt::StringLiterals;

Context::Scope::Scope(Context& context, const QString& key) : m_context(context)
{
    m_context.m_path.append(m_context.m_path.isEmpty() ? key : u'.' + key);
}

Context::Scope::Scope(Context& context, qsizetype index) : m_context(context)
{
    m_context.m_path.append(u'[' + QString::number(index) + u']');
}

Context::Scope::~Scope()
{
    m_context.m_path.removeLast();
}

QString Context::currentPath() const
{
    QString path;
    for (const QString& part : m_path)
        path += part;
    return path;
}

bool Context::fail(const QString& reason)
{
    if (!m_error)
        m_error = JsonError{currentPath(), reason};
    return false;
}

QString describe(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return u"a boolean"_s;
    case QJsonValue::Double:
        return u"the number "_s + QString::number(value.toDouble(), 'g', 17);
    case QJsonValue::String:
        return u"a string"_s;
    case QJsonValue::Array:
        return u"an array"_s;
    case QJsonValue::Object:
        return u"an object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

std::optional<QJsonValue> optionalMember(const QJsonObject& object, const QString& key)
{
    const auto found = object.constFind(key);
    if (found == object.constEnd() || found->isNull())
        return std::nullopt;
    return *found;
}

namespace {
bool mismatch(Context& context, const QString& expected, const QJsonValue& found)
{
    return context.fail(u"expected "_s + expected + u", found "_s + describe(found));
}
} // namespace

bool readObject(Context& context, const QJsonValue& value, QJsonObject& out)
{
    if (!value.isObject())
        return mismatch(context, u"an object"_s, value);
    out = value.toObject();
    return true;
}

bool readArray(Context& context, const QJsonValue& value, QJsonArray& out)
{
    if (!value.isArray())
        return mismatch(context, u"an array"_s, value);
    out = value.toArray();
    return true;
}

bool readString(Context& context, const QJsonValue& value, QString& out)
{
    if (!value.isString())
        return mismatch(context, u"a string"_s, value);
    out = value.toString();
    return true;
}

bool readBool(Context& context, const QJsonValue& value, bool& out)
{
    if (!value.isBool())
        return mismatch(context, u"a boolean"_s, value);
    out = value.toBool();
    return true;
}

bool readDouble(Context& context, const QJsonValue& value, double& out)
{
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return mismatch(context, u"a number"_s, value);
    out = value.toDouble();
    return true;
}

bool readUInt32(Context& context, const QJsonValue& value, quint32& out)
{
    const double number = value.toDouble();
    if (!value.isDouble() || !std::isfinite(number) || number != std::floor(number) || number < 0 ||
        number > 4294967295.0)
        return mismatch(context, u"an unsigned 32-bit integer"_s, value);
    out = static_cast<quint32>(number);
    return true;
}

bool readDate(Context& context, const QJsonValue& value, QDateTime& out)
{
    QString text;
    if (!readString(context, value, text))
        return false;
    const std::optional<QDateTime> date = parseIsoDate(text);
    if (!date)
        return context.fail(u"expected an ISO-8601 date with a time zone such as "
                            "2025-03-14T09:26:53Z, found \""_s +
                            text.left(64) + u'"');
    out = *date;
    return true;
}

QJsonValue writeDouble(Context& context, double value)
{
    if (!std::isfinite(value)) {
        context.fail(u"the number "_s + QString::number(value) + u" cannot be written as JSON"_s);
        return QJsonValue(0);
    }
    return QJsonValue(value);
}

QJsonValue writeDate(Context& context, const QDateTime& value)
{
    const std::optional<QString> text = formatIsoDate(value);
    if (!text) {
        context.fail(u"the date cannot be written: it is invalid or outside years 1 to 9999"_s);
        return QJsonValue(QString());
    }
    return QJsonValue(*text);
}

QJsonArray sortedArray(QList<QJsonValue> elements)
{
    const auto key = [](const QJsonValue& value) {
        return value.isObject() ? QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact)
                                : QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    };
    QList<std::pair<QByteArray, QJsonValue>> keyed;
    keyed.reserve(elements.size());
    for (QJsonValue& element : elements)
        keyed.append({key(element), std::move(element)});
    std::sort(keyed.begin(), keyed.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    QJsonArray array;
    for (auto& [text, value] : keyed)
        array.append(value);
    return array;
}

} // namespace vistrel::json
