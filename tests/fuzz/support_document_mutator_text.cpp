// The text-level half of DocumentMutator: writing trees as JSON text (with
// what QJsonDocument cannot write, such as a member twice) and editing bytes.

#include "support_document_mutator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vistrel::fuzz {

namespace {

// Inserted as text: valid tokens, broken structure, and byte sequences that
// are not UTF-8 (overlong, surrogate halves, past U+10FFFF, stray
// continuation bytes).
const QList<QByteArray> tokens{"null",
                               "true",
                               "false",
                               "0",
                               "-0",
                               "1.5",
                               "-1",
                               "4294967295",
                               "4294967296",
                               "1e308",
                               "1e309",
                               "-1e400",
                               "1e-400",
                               "9007199254740993",
                               "0.1e1",
                               "01",
                               "+1",
                               ".5",
                               "1.",
                               "-",
                               "NaN",
                               "Infinity",
                               "\"\"",
                               "\"NaN\"",
                               "\"\\u0000\"",
                               "\"\\ud800\"",
                               "\"\\udc00\\ud800\"",
                               "\"\\ud83d\\ude00\"",
                               "\"\\x41\"",
                               "{}",
                               "[]",
                               "{\"a\":1}",
                               "[null]",
                               ",",
                               ":",
                               "{",
                               "}",
                               "[",
                               "]",
                               "\"",
                               "\\",
                               "/*",
                               "//",
                               "\xC3",
                               "\xFF\xFE",
                               "\xED\xA0\x80",
                               "\xF4\x90\x80\x80",
                               "\xC0\xAF",
                               "\x80",
                               "\xEF\xBB\xBF",
                               QByteArray("\0", 1),
                               "\t",
                               "\x7F"};

const QList<QByteArray> interestingBytes{QByteArray("\0", 1),
                                         "\xFF",
                                         "\"",
                                         "\\",
                                         "{",
                                         "}",
                                         "[",
                                         "]",
                                         ",",
                                         ":",
                                         "0",
                                         "-",
                                         ".",
                                         "e",
                                         "\xC0",
                                         "\x80",
                                         " "};

} // namespace

QByteArray DocumentMutator::serialize(const QJsonValue& root)
{
    if (root.isObject())
        return QJsonDocument(root.toObject())
            .toJson(chance(50) ? QJsonDocument::Indented : QJsonDocument::Compact);
    if (root.isArray())
        return QJsonDocument(root.toArray()).toJson(QJsonDocument::Compact);
    const QByteArray wrapped = QJsonDocument(QJsonArray{root}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}

QByteArray DocumentMutator::compact(const QJsonValue& value)
{
    QByteArray out;
    int objectIndex = 0;
    writeCompact(out, value, objectIndex, -1);
    return out;
}

// Compact JSON, except that the object at `duplicateAt` (counting objects in
// pre-order) has one member written twice; QJsonObject cannot hold that.
void DocumentMutator::writeCompact(QByteArray& out, const QJsonValue& value, int& objectIndex,
                                   int duplicateAt)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        const bool duplicate = objectIndex++ == duplicateAt && !object.isEmpty();
        qsizetype twice = -1;
        bool extraFirst = false;
        QJsonValue extra;
        if (duplicate) {
            twice = below(object.size());
            extraFirst = chance(50);
            extra = chance(50) ? (object.begin() + twice).value() : randomValue(1);
        }
        out += '{';
        qsizetype position = 0;
        bool first = true;
        const auto member = [&](const QString& key, const QJsonValue& memberValue) {
            if (!first)
                out += ',';
            first = false;
            writeCompact(out, key, objectIndex, duplicateAt);
            out += ':';
            writeCompact(out, memberValue, objectIndex, duplicateAt);
        };
        for (auto it = object.begin(); it != object.end(); ++it, ++position) {
            if (position == twice && extraFirst)
                member(it.key(), extra);
            member(it.key(), it.value());
            if (position == twice && !extraFirst)
                member(it.key(), extra);
        }
        out += '}';
    } else if (value.isArray()) {
        out += '[';
        const QJsonArray array = value.toArray();
        for (qsizetype i = 0; i < array.size(); ++i) {
            if (i > 0)
                out += ',';
            writeCompact(out, array.at(i), objectIndex, duplicateAt);
        }
        out += ']';
    } else {
        const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
        out += wrapped.mid(1, wrapped.size() - 2);
    }
}

QByteArray DocumentMutator::byteEdit(QByteArray bytes)
{
    if (bytes.isEmpty())
        return pick(tokens);
    const qsizetype at = below(bytes.size());
    switch (below(6)) {
    case 0:
        bytes[at] = char(bytes[at] ^ (1 << below(8)));
        break;
    case 1:
        bytes.replace(at, 1, pick(interestingBytes));
        break;
    case 2:
        bytes.truncate(at);
        break;
    case 3:
        bytes.remove(at, 1 + below(32));
        break;
    case 4: {
        const QByteArray span = bytes.mid(at, 1 + below(64));
        bytes.insert(below(bytes.size() + 1), span);
        break;
    }
    default:
        for (quint32 n = 1 + below(8); n > 0; --n) {
            const qsizetype position = below(bytes.size() + 1);
            bytes.insert(position, char(below(256)));
        }
        break;
    }
    return bytes;
}

QByteArray DocumentMutator::tokenEdit(QByteArray bytes)
{
    const QByteArray token = pick(tokens);
    const quint32 roll = below(100);
    if (roll < 40) {
        // In place of the value after a random colon.
        QList<qsizetype> colons;
        for (qsizetype i = bytes.indexOf(':'); i >= 0; i = bytes.indexOf(':', i + 1))
            colons.append(i);
        if (!colons.isEmpty()) {
            qsizetype start = pick(colons) + 1;
            while (start < bytes.size() && (bytes[start] == ' ' || bytes[start] == '\n'))
                ++start;
            qsizetype end = start;
            if (end < bytes.size() && bytes[end] == '"') {
                end = bytes.indexOf('"', end + 1);
                end = end < 0 ? bytes.size() : end + 1;
            } else {
                while (end < bytes.size() && !QByteArrayView(",}]\n").contains(bytes[end]))
                    ++end;
            }
            return bytes.replace(start, end - start, token);
        }
    }
    if (roll < 70) {
        // Inside a string.
        const qsizetype quote = bytes.indexOf('"', below(bytes.size() + 1));
        if (quote >= 0)
            return bytes.insert(quote + 1, token);
    }
    return bytes.insert(below(bytes.size() + 1), token);
}

} // namespace vistrel::fuzz
