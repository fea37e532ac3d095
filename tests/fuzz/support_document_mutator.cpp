#include "support_document_mutator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <array>
#include <limits>

// Every random draw is a statement of its own: compilers evaluate a call's
// arguments in different orders, and the documents must not differ.

namespace vistrel::fuzz {

using namespace Qt::StringLiterals;

namespace {

struct Node {
    QString key; // member name; empty for array elements and the root
    QJsonValue value;
};

void collect(const QJsonValue& value, const QString& key, QList<Node>& out)
{
    out.append({key, value});
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        collect(it.value(), it.key(), out);
    for (const QJsonValue& element : value.toArray())
        collect(element, QString(), out);
}

// `value` with the node at pre-order position `target` replaced by `with`; an
// undefined `with` removes the node from its parent.
QJsonValue replaced(const QJsonValue& value, int& index, int target, const QJsonValue& with)
{
    const int mine = index++;
    if (mine == target)
        return with;
    if (mine > target || !(value.isArray() || value.isObject()))
        return value;
    QJsonArray array;
    QJsonObject object;
    const auto keep = [&](const QString& key, const QJsonValue& child) {
        const QJsonValue result = replaced(child, index, target, with);
        if (!result.isUndefined())
            value.isArray() ? array.append(result) : void(object.insert(key, result));
    };
    for (const QJsonValue& element : value.toArray())
        keep(QString(), element);
    const QJsonObject original = value.toObject();
    for (auto it = original.begin(); it != original.end(); ++it)
        keep(it.key(), it.value());
    return value.isArray() ? QJsonValue(array) : QJsonValue(object);
}

QByteArray compact(const QJsonValue& value)
{
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}

const QStringList numericKeys =
    u"selectedDisplayID lastWindowID sizeScale marginTop marginBottom marginLeft marginRight"_s
        .split(u' ');

// Inserted as text: valid tokens, broken structure, and bytes that are not
// UTF-8 (overlong, surrogate halves, past U+10FFFF, stray continuation bytes).
const QList<QByteArray> tokens =
    QByteArray("null true false 0 -0 1.5 -1 4294967295 4294967296 1e308 1e309 -1e400 1e-400 "
               "9007199254740993 0.1e1 01 +1 .5 1. - NaN Infinity \"\" \"NaN\" \"\\u0000\" "
               "\"\\ud800\" \"\\udc00\\ud800\" \"\\ud83d\\ude00\" \"\\x41\" {} [] {\"a\":1} [null] "
               ", : { } [ ] \" \\ /* // \xC3 \xFF\xFE \xED\xA0\x80 \xF4\x90\x80\x80 \xC0\xAF \x80 "
               "\xEF\xBB\xBF \t \x7F")
        .split(' ') +
    QList<QByteArray>{QByteArray("\0", 1)};
const QByteArray interestingBytes("\0\xFF\"\\{}[],:0-.e\xC0\x80 ", 17);

const QStringList specialStrings =
    u"|NaN|nan|Infinity|-Infinity|1e999|1|-1|true|null|undefined|a\u0000b|\U0001F600|\u202Eevil|"
    "\uFFFF|\uFEFF|   |\n\t\r|../../etc/passwd|CanvasBackgrounds/|\u0000"_s.split(u'|')
    << QString(QChar(char16_t(0xD800))) << QString(QChar(char16_t(0xDC00))) + u'x';
const QStringList zones =
    u"Z|Z|Z||z|+01:00|-23:59|+24:00|+0100|+01| UTC|-00:00|+05:3"_s.split(u'|');

const QJsonArray interestingNumbers = [] {
    QJsonArray numbers =
        QJsonDocument::fromJson("[0, 1, -1, 0.5, 1.5, 1.0000000001, 4294967295, 4294967296, "
                                "4294967294.5, 4294967295.5, 2147483647, 2147483648, -2147483648, "
                                "9007199254740993, 1e308, -1e308, 1e-300, 1.2345678901234567e29, "
                                "50, 0.1]")
            .array();
    for (const QJsonValue& extreme :
         {QJsonValue(-0.0), QJsonValue(std::numeric_limits<qint64>::max()),
          QJsonValue(std::numeric_limits<qint64>::min()),
          QJsonValue(std::numeric_limits<double>::max()),
          QJsonValue(std::numeric_limits<double>::denorm_min())})
        numbers.append(extreme);
    return numbers;
}();

} // namespace

DocumentMutator::DocumentMutator(quint32 seed, const QList<QByteArray>& seeds)
    : m_random(seed), m_texts(seeds)
{
    for (const QByteArray& bytes : seeds) {
        const QJsonDocument document = QJsonDocument::fromJson(bytes);
        m_trees.append(document.isArray() ? QJsonValue(document.array())
                                          : QJsonValue(document.object()));
        QList<Node> nodes;
        collect(m_trees.last(), QString(), nodes);
        for (const Node& node : std::as_const(nodes)) {
            m_subtrees.append(node.value);
            if (!node.key.isEmpty() && !m_keys.contains(node.key))
                m_keys.append(node.key);
            if (node.value.isString() && !m_strings.contains(node.value.toString()))
                m_strings.append(node.value.toString());
        }
    }
}

QByteArray DocumentMutator::next(MutationFamily family)
{
    using enum MutationFamily;
    const qsizetype which = below(m_texts.size());
    QJsonValue root = m_trees.at(which);
    if (family == duplicates || family == nesting)
        return rewritten(root, family == duplicates);
    QByteArray text;
    if (family == bytes || family == tokens) {
        text = family == tokens || chance(70) ? m_texts.at(which) : serialized(root);
        for (quint32 n = 1 + below(family == tokens ? 3 : 4); n > 0; --n)
            text = textEdit(text, family == tokens);
        return text;
    }
    if (family != mixed)
        return serialized(treeEdit(root, family));
    for (quint32 n = 1 + below(3); n > 0; --n) {
        const auto treeFamily = MutationFamily(int(values) + int(below(4)));
        root = treeEdit(root, treeFamily); // values, numbers, dates or strings
    }
    const quint32 roll = below(100);
    text = roll < 30 ? rewritten(root, roll < 20) : serialized(root);
    return chance(40) ? textEdit(text, chance(50)) : text;
}

QByteArray DocumentMutator::serialized(const QJsonValue& root)
{
    return root.isObject() && chance(50) ? QJsonDocument(root.toObject()).toJson() : compact(root);
}

QJsonValue DocumentMutator::treeEdit(const QJsonValue& root, MutationFamily family)
{
    QList<Node> nodes;
    collect(root, QString(), nodes);
    // The nodes the family is about, else any node but the root.
    QList<int> fitting, others;
    for (int i = 1; i < nodes.size(); ++i) {
        const Node& node = nodes.at(i);
        const bool fits = family == MutationFamily::numbers
                              ? node.value.isDouble() || numericKeys.contains(node.key)
                          : family == MutationFamily::dates   ? node.key == u"lastUpdated"_s
                          : family == MutationFamily::strings ? node.value.isString()
                                                              : true;
        (fits ? fitting : others).append(i);
    }
    const QList<int>& candidates = fitting.isEmpty() ? others : fitting;
    const int target = candidates.isEmpty() || (family == MutationFamily::values && chance(3))
                           ? 0
                           : pick(candidates);
    const QJsonValue with = replacement(nodes.at(target).value, family);
    int index = 0;
    return replaced(root, index, target, with);
}

QJsonValue DocumentMutator::replacement(const QJsonValue& node, MutationFamily family)
{
    if (family == MutationFamily::numbers)
        return randomNumber();
    if (family == MutationFamily::dates)
        return randomDate();
    if (family == MutationFamily::strings) {
        if (!node.isString() || chance(30))
            return randomString();
        QString text = node.toString();
        const quint32 edit = below(6);
        if (edit == 4) {
            const qsizetype at = below(text.size() + 1);
            return text.insert(at, QChar(char16_t(0xD800 + below(0x800)))); // a lone surrogate
        }
        return edit == 0   ? text.toUpper()
               : edit == 1 ? text.left(below(text.size() + 1))
               : edit == 2 ? text + randomString()
               : edit == 3 ? randomString() + text
                           : text + text;
    }
    // Another type, a realistic value from elsewhere, removal, or a container
    // gaining or losing a member.
    const quint32 roll = below(100);
    if (node.isObject() && roll < 35) {
        QJsonObject object = node.toObject();
        if (roll < 20 || object.isEmpty()) {
            const QString name = chance(80) ? pick(m_keys) : randomString();
            object.insert(name, chance(50) ? pick(m_subtrees) : randomValue(2));
        } else {
            object.remove(object.keys().at(below(object.size())));
        }
        return object;
    }
    if (node.isArray() && roll < 35) {
        QJsonArray array = node.toArray();
        if (!array.isEmpty() && chance(50)) {
            array.removeAt(below(array.size()));
        } else {
            const qsizetype at = below(array.size() + 1);
            array.insert(at, chance(60) && !array.isEmpty() ? array.at(below(array.size()))
                                                            : pick(m_subtrees));
        }
        return array;
    }
    return roll < 45   ? QJsonValue(QJsonValue::Undefined)
           : roll < 70 ? pick(m_subtrees)
                       : randomValue(2);
}

QJsonValue DocumentMutator::randomValue(int depth)
{
    const quint32 kind = below(depth > 0 ? 7 : 4);
    if (kind < 4)
        return kind == 0   ? QJsonValue()
               : kind == 1 ? QJsonValue(chance(50))
               : kind == 2 ? randomNumber()
                           : QJsonValue(randomString());
    if (kind == 6)
        return pick(m_subtrees);
    QJsonArray array;
    QJsonObject object;
    for (quint32 n = below(4); n > 0; --n) {
        const QString name = kind == 5 ? pick(m_keys) : QString();
        const QJsonValue value = randomValue(depth - 1);
        kind == 4 ? array.append(value) : void(object.insert(name, value));
    }
    return kind == 4 ? QJsonValue(array) : QJsonValue(object);
}

QJsonValue DocumentMutator::randomNumber()
{
    const quint32 kind = below(3);
    if (kind == 0)
        return pick(interestingNumbers);
    if (kind == 1) { // around the 32-bit range
        const qint64 high = qint64(below(2)) << 32;
        return high | qint64(m_random.generate());
    }
    double value = m_random.generateDouble();
    value *= chance(50) ? 1 : -1;
    for (int exponent = int(below(40)) - 20; exponent != 0; exponent += exponent > 0 ? -1 : 1)
        value = exponent > 0 ? value * 10 : value / 10;
    return value;
}

// Usually valid fields, sometimes out of range, a fraction of any length,
// zones of every shape, sometimes a space for the T.
QString DocumentMutator::randomDate()
{
    static const std::array years{1, 2, 1969, 1970, 2025, 9998, 9999, 0, 10000};
    const auto field = [this](quint32 percent, quint32 first, quint32 count) {
        const quint32 value = chance(percent) ? first + below(count) : below(100);
        return u"%1"_s.arg(value, 2, 10, QChar(u'0'));
    };
    const quint32 year = chance(70) ? 1 + below(9999) : years[below(years.size())];
    QString text = u"%1-%2-%3T%4:%5:%6"_s.arg(year, 4, 10, QChar(u'0'))
                       .arg(field(90, 1, 12))
                       .arg(field(90, 1, 31))
                       .arg(field(90, 0, 24))
                       .arg(field(95, 0, 60))
                       .arg(field(95, 0, 60));
    if (chance(35)) {
        text += u'.';
        for (quint32 n = below(12); n > 0; --n)
            text += QChar(u'0' + below(10));
    }
    text += pick(zones);
    if (chance(5))
        text.replace(10, 1, u' ');
    return text;
}

QString DocumentMutator::randomString()
{
    const quint32 roll = below(100);
    if (roll < 40 && !m_strings.isEmpty()) {
        const QString base = pick(m_strings);
        return chance(50) ? base : chance(50) ? base.toUpper() : base + u' ';
    }
    if (roll < 75)
        return pick(specialStrings);
    if (roll < 77)
        return QString(qsizetype(1 + below(200000)), QChar(u'x'));
    QString text;
    for (quint32 n = 1 + below(20); n > 0; --n)
        text += QChar(char16_t(chance(70) ? 0x20 + below(0x5F) : below(0x10000)));
    return text;
}

// Tokens in place of the value after a colon, inside a string or anywhere;
// or bit flips, overwrites, truncation, deleted, repeated and random spans.
QByteArray DocumentMutator::textEdit(QByteArray bytes, bool token)
{
    if (bytes.isEmpty())
        return pick(tokens);
    const qsizetype at = below(bytes.size());
    const quint32 roll = below(100);
    if (token) {
        const QByteArray text = pick(tokens);
        const qsizetype colon = bytes.indexOf(':', at);
        const qsizetype quote = bytes.indexOf('"', at);
        if (roll < 40 && colon >= 0) {
            const auto end = std::find_first_of(bytes.begin() + colon + 1, bytes.end(),
                                                std::begin(",}]\n"), std::end(",}]\n") - 1);
            return bytes.replace(colon + 1, end - bytes.begin() - colon - 1, text);
        }
        const qsizetype position = roll < 70 && quote >= 0 ? quote + 1 : below(bytes.size() + 1);
        return bytes.insert(position, text);
    }
    if (roll < 20) {
        bytes[at] = char(bytes[at] ^ (1 << below(8)));
    } else if (roll < 35) {
        bytes[at] = pick(interestingBytes);
    } else if (roll < 45) {
        bytes.truncate(at);
    } else if (roll < 60) {
        bytes.remove(at, 1 + below(32));
    } else if (roll < 80) {
        const QByteArray span = bytes.mid(at, 1 + below(64));
        bytes.insert(below(bytes.size() + 1), span);
    } else {
        for (quint32 n = 1 + below(8); n > 0; --n) {
            const qsizetype position = below(bytes.size() + 1);
            bytes.insert(position, char(below(256)));
        }
    }
    return bytes;
}

// The document as compact text with one node written by hand: an object with
// a member twice (QJsonObject cannot hold that), or a value buried in arrays
// and objects (wrapping a QJsonValue level by level copies it at every level).
QByteArray DocumentMutator::rewritten(const QJsonValue& root, bool duplicate)
{
    QList<Node> nodes;
    collect(root, QString(), nodes);
    QList<int> candidates;
    for (int i = duplicate ? 0 : 1; i < nodes.size(); ++i) {
        if (!duplicate || !nodes.at(i).value.toObject().isEmpty())
            candidates.append(i);
    }
    if (candidates.isEmpty() && duplicate)
        return compact(root);
    const int target = candidates.isEmpty() ? 0 : pick(candidates);
    const Node& node = nodes.at(target);
    QByteArray text;
    if (duplicate) {
        const QJsonObject object = node.value.toObject();
        const qsizetype twice = below(object.size());
        QByteArrayList members;
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QByteArray key = compact(it.key()) + ':';
            members.append(key + compact(it.value()));
            if (members.size() - 1 == twice) {
                const QByteArray extra = key + compact(chance(50) ? it.value() : randomValue(1));
                members.insert(members.size() - (chance(50) ? 1 : 0), extra);
            }
        }
        text = '{' + members.join(',') + '}';
    } else {
        static const std::array depths{1, 2, 3, 8, 64, 1022, 1023, 1024, 1025, 4000};
        const QByteArray key = compact(node.key.isEmpty() ? pick(m_keys) : node.key) + ':';
        QByteArray suffix;
        for (int level = depths[below(depths.size())]; level > 0; --level) {
            const bool array = chance(50);
            text += array ? QByteArray("[") : '{' + key;
            suffix.prepend(array ? ']' : '}');
        }
        text += compact(node.value) + suffix;
    }
    const QJsonValue marker(u"\u0001mutated\u0001"_s);
    int index = 0;
    return compact(replaced(root, index, target, marker)).replace(compact(marker), text);
}

} // namespace vistrel::fuzz
