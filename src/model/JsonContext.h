#pragma once

// Internal to the model's JSON code: tracks the key path while reading or
// writing and records the first failure with that path. Readers return false
// on failure and stop; callers return false straight away.

#include "model/JsonResult.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <optional>

namespace vistrel::json {

class Context {
public:
    // Enters a key or an array element for the lifetime of the scope.
    class Scope {
    public:
        Scope(Context& context, const QString& key);
        Scope(Context& context, qsizetype index);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Context& m_context;
    };

    // Records `reason` at the current path (the first failure wins); returns false.
    bool fail(const QString& reason);
    bool failed() const { return m_error.has_value(); }
    JsonError error() const { return m_error.value_or(JsonError{}); }
    QString currentPath() const;

private:
    QList<QString> m_path;
    std::optional<JsonError> m_error;
};

// JSON type name for messages ("a string", "null", ...).
QString describe(const QJsonValue& value);

// The value of `key`, or nullopt when the key is missing or null (an optional
// key that is null counts as absent).
std::optional<QJsonValue> optionalMember(const QJsonObject& object, const QString& key);

bool readObject(Context& context, const QJsonValue& value, QJsonObject& out);
bool readArray(Context& context, const QJsonValue& value, QJsonArray& out);
bool readString(Context& context, const QJsonValue& value, QString& out);
bool readBool(Context& context, const QJsonValue& value, bool& out);
// Any finite JSON number.
bool readDouble(Context& context, const QJsonValue& value, double& out);
// An integral number in 0...4294967295 (1.0 counts as 1; 1.5, -1, 2^32 and
// "1" fail).
bool readUInt32(Context& context, const QJsonValue& value, quint32& out);
bool readDate(Context& context, const QJsonValue& value, QDateTime& out);

// Reads the enumeration whose raw value (toString) equals the string.
template<class Enum, class Cases>
bool readEnum(Context& context, const QJsonValue& value, const Cases& cases, Enum& out)
{
    QString raw;
    if (!readString(context, value, raw))
        return false;
    QStringList names;
    for (Enum candidate : cases) {
        if (caseName(candidate) == raw) {
            out = candidate;
            return true;
        }
        names.append(caseName(candidate));
    }
    return context.fail(QStringLiteral("unknown value \"%1\"; expected one of: %2")
                            .arg(raw, names.join(QStringLiteral(", "))));
}

// Required member: missing or null fails; otherwise `read` (a callable
// (Context&, const QJsonValue&) -> bool) runs inside the member's scope.
template<class Read>
bool readRequired(Context& context, const QJsonObject& object, const QString& key, Read&& read)
{
    Context::Scope scope(context, key);
    const auto found = object.constFind(key);
    if (found == object.constEnd())
        return context.fail(QStringLiteral("required key is missing"));
    if (found->isNull())
        return context.fail(QStringLiteral("required value is null"));
    return read(context, *found);
}

// Optional member: missing or null leaves everything untouched and succeeds.
// `present` is set when the member was there.
template<class Read>
bool readOptional(Context& context, const QJsonObject& object, const QString& key, Read&& read,
                  bool* present = nullptr)
{
    const std::optional<QJsonValue> member = optionalMember(object, key);
    if (present)
        *present = member.has_value();
    if (!member)
        return true;
    Context::Scope scope(context, key);
    return read(context, *member);
}

// Writing: non-finite numbers and dates outside the file's range cannot be
// represented, so they fail like a reader would.
QJsonValue writeDouble(Context& context, double value);
QJsonValue writeDate(Context& context, const QDateTime& value);

// Arrays whose order carries no meaning are written sorted by their compact
// text, so the same state always gives the same bytes.
QJsonArray sortedArray(QList<QJsonValue> elements);

} // namespace vistrel::json
