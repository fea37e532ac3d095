#include "support_document_mutator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <functional>
#include <limits>

namespace vistrel::fuzz {

using namespace Qt::StringLiterals;

namespace {

struct NodeInfo {
    QString key; // member name; empty for array elements and the root
    QJsonValue::Type type;
};

void collectNodes(const QJsonValue& value, const QString& key, QList<NodeInfo>& out)
{
    out.append({key, value.type()});
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            collectNodes(it.value(), it.key(), out);
    } else if (value.isArray()) {
        for (const QJsonValue& element : value.toArray())
            collectNodes(element, QString(), out);
    }
}

using Edit = std::function<QJsonValue(const QJsonValue& node, const QString& key)>;

// Rebuilds `value` with the node at pre-order position `target` replaced by
// what `edit` returns; an undefined result removes the node from its parent.
QJsonValue rebuild(const QJsonValue& value, const QString& key, int& index, int target,
                   const Edit& edit)
{
    const int mine = index++;
    if (mine == target)
        return edit(value, key);
    if (mine > target)
        return value;
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        QJsonObject result;
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QJsonValue child = rebuild(it.value(), it.key(), index, target, edit);
            if (!child.isUndefined())
                result.insert(it.key(), child);
        }
        return result;
    }
    if (value.isArray()) {
        QJsonArray result;
        for (const QJsonValue& element : value.toArray()) {
            const QJsonValue child = rebuild(element, QString(), index, target, edit);
            if (!child.isUndefined())
                result.append(child);
        }
        return result;
    }
    return value;
}

void collectVocabulary(const QJsonValue& value, QList<QJsonValue>& subtrees, QStringList& keys,
                       QStringList& strings)
{
    subtrees.append(value);
    if (value.isString() && !strings.contains(value.toString()))
        strings.append(value.toString());
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (!keys.contains(it.key()))
                keys.append(it.key());
            collectVocabulary(it.value(), subtrees, keys, strings);
        }
    } else if (value.isArray()) {
        for (const QJsonValue& element : value.toArray())
            collectVocabulary(element, subtrees, keys, strings);
    }
}

const QStringList numericKeys{u"selectedDisplayID"_s, u"lastWindowID"_s, u"sizeScale"_s,
                              u"marginTop"_s,         u"marginBottom"_s, u"marginLeft"_s,
                              u"marginRight"_s};

} // namespace

DocumentMutator::DocumentMutator(quint32 seed, QList<QByteArray> seeds)
    : m_random(seed), m_seedBytes(std::move(seeds))
{
    for (const QByteArray& bytes : std::as_const(m_seedBytes)) {
        const QJsonDocument document = QJsonDocument::fromJson(bytes);
        const QJsonValue root =
            document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
        m_seedTrees.append(root);
        collectVocabulary(root, m_subtrees, m_keys, m_strings);
    }
}

QByteArray DocumentMutator::next(MutationFamily family)
{
    const qsizetype which = below(m_seedBytes.size());
    switch (family) {
    case MutationFamily::bytes: {
        QByteArray bytes = chance(70) ? m_seedBytes.at(which) : serialize(m_seedTrees.at(which));
        for (quint32 n = 1 + below(4); n > 0; --n)
            bytes = byteEdit(bytes);
        return bytes;
    }
    case MutationFamily::tokens: {
        QByteArray bytes = m_seedBytes.at(which);
        for (quint32 n = 1 + below(3); n > 0; --n)
            bytes = tokenEdit(bytes);
        return bytes;
    }
    case MutationFamily::duplicates:
        return withDuplicateMember(m_seedTrees.at(which));
    case MutationFamily::nesting:
        return withNesting(m_seedTrees.at(which));
    case MutationFamily::mixed: {
        static const std::array treeFamilies{MutationFamily::values, MutationFamily::numbers,
                                             MutationFamily::dates, MutationFamily::strings};
        QJsonValue root = m_seedTrees.at(which);
        for (quint32 n = 1 + below(3); n > 0; --n)
            root = treeEdit(root, treeFamilies[below(treeFamilies.size())]);
        const quint32 roll = below(100);
        QByteArray bytes = roll < 20   ? withDuplicateMember(root)
                           : roll < 30 ? withNesting(root)
                                       : serialize(root);
        if (chance(40))
            bytes = chance(50) ? byteEdit(bytes) : tokenEdit(bytes);
        return bytes;
    }
    default:
        return serialize(treeEdit(m_seedTrees.at(which), family));
    }
}

QJsonValue DocumentMutator::treeEdit(const QJsonValue& root, MutationFamily family)
{
    QList<NodeInfo> nodes;
    collectNodes(root, QString(), nodes);
    // Prefer the nodes the family is about; fall back to any node but the root.
    QList<int> candidates;
    for (int i = 1; i < nodes.size(); ++i) {
        const NodeInfo& node = nodes.at(i);
        const bool fits = family == MutationFamily::numbers
                              ? node.type == QJsonValue::Double || numericKeys.contains(node.key)
                          : family == MutationFamily::dates   ? node.key == u"lastUpdated"_s
                          : family == MutationFamily::strings ? node.type == QJsonValue::String
                                                              : true;
        if (fits)
            candidates.append(i);
    }
    if (candidates.isEmpty())
        for (int i = 1; i < nodes.size(); ++i)
            candidates.append(i);
    const int target = candidates.isEmpty() || (family == MutationFamily::values && chance(3))
                           ? 0
                           : pick(candidates);
    int index = 0;
    return rebuild(root, QString(), index, target,
                   [this, family](const QJsonValue& node, const QString&) {
                       return replacement(node, family);
                   });
}

QJsonValue DocumentMutator::replacement(const QJsonValue& node, MutationFamily family)
{
    switch (family) {
    case MutationFamily::numbers:
        return randomNumber();
    case MutationFamily::dates:
        return randomDate();
    case MutationFamily::strings: {
        if (!node.isString() || chance(30))
            return randomString();
        QString text = node.toString();
        switch (below(6)) {
        case 0:
            return text.toUpper();
        case 1:
            return text.left(below(text.size() + 1));
        case 2:
            return text + randomString();
        case 3:
            return randomString() + text;
        case 4: {
            const qsizetype at = below(text.size() + 1);
            text.insert(at, QChar(char16_t(0xD800 + below(0x800)))); // a lone surrogate
            return text;
        }
        default:
            return text + text;
        }
    }
    default:
        break;
    }
    // values: another type, a realistic value from elsewhere, removal, or an
    // object gaining or losing a member.
    const quint32 roll = below(100);
    if (node.isObject() && roll < 35) {
        QJsonObject object = node.toObject();
        if (roll < 20 || object.isEmpty()) {
            const QString name = chance(80) ? pick(m_keys) : randomString();
            object.insert(name, chance(50) ? randomSubtree() : randomValue(2));
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
                                                            : randomSubtree());
        }
        return array;
    }
    if (roll < 45)
        return QJsonValue(QJsonValue::Undefined); // removed
    if (roll < 70)
        return randomSubtree();
    return randomValue(2);
}

QJsonValue DocumentMutator::randomValue(int depth)
{
    switch (below(depth > 0 ? 7 : 4)) {
    case 0:
        return QJsonValue::Null;
    case 1:
        return chance(50);
    case 2:
        return randomNumber();
    case 3:
        return randomString();
    case 4: {
        QJsonArray array;
        for (quint32 n = below(4); n > 0; --n)
            array.append(randomValue(depth - 1));
        return array;
    }
    case 5: {
        QJsonObject object;
        for (quint32 n = below(4); n > 0; --n) {
            const QString name = pick(m_keys);
            object.insert(name, randomValue(depth - 1));
        }
        return object;
    }
    default:
        return randomSubtree();
    }
}

QJsonValue DocumentMutator::randomNumber()
{
    static const QList<QJsonValue> interesting{0,
                                               -0.0,
                                               1,
                                               -1,
                                               0.5,
                                               1.5,
                                               1.0000000001,
                                               qint64(4294967295),
                                               qint64(4294967296),
                                               4294967294.5,
                                               4294967295.5,
                                               qint64(2147483647),
                                               qint64(2147483648),
                                               qint64(-2147483648),
                                               qint64(9007199254740993),
                                               std::numeric_limits<qint64>::max(),
                                               std::numeric_limits<qint64>::min(),
                                               1e308,
                                               -1e308,
                                               std::numeric_limits<double>::max(),
                                               std::numeric_limits<double>::denorm_min(),
                                               1e-300,
                                               1.2345678901234567e29,
                                               50,
                                               0.1};
    switch (below(3)) {
    case 0:
        return pick(interesting);
    case 1:
        return qint64(below(2)) << 32 | qint64(m_random.generate()); // around the 32-bit range
    default: {
        const double mantissa = m_random.generateDouble() * (chance(50) ? 1 : -1);
        double scale = 1;
        for (int exponent = int(below(40)) - 20; exponent != 0; exponent += exponent > 0 ? -1 : 1)
            scale = exponent > 0 ? scale * 10 : scale / 10;
        return mantissa * scale;
    }
    }
}

QString DocumentMutator::randomDate()
{
    static const std::array years{1, 2, 1969, 1970, 2025, 9998, 9999, 0, 10000};
    const auto two = [](quint32 value) {
        return u"%1"_s.arg(value, 2, 10, QChar(u'0'));
    };
    QString text = u"%1-%2-%3T%4:%5:%6"_s
                       .arg(chance(70) ? 1 + below(9999) : years[below(9)], 4, 10, QChar(u'0'))
                       .arg(two(chance(90) ? 1 + below(12) : below(100)))
                       .arg(two(chance(90) ? 1 + below(31) : below(100)))
                       .arg(two(chance(90) ? below(24) : 24 + below(76)))
                       .arg(two(chance(95) ? below(60) : 60 + below(40)))
                       .arg(two(chance(95) ? below(60) : 60 + below(40)));
    if (chance(35)) {
        text += u'.';
        for (quint32 n = below(12); n > 0; --n)
            text += QChar(u'0' + below(10));
    }
    static const QStringList zones{u"Z"_s,      u"Z"_s,      u"Z"_s,      u""_s,      u"z"_s,
                                   u"+01:00"_s, u"-23:59"_s, u"+24:00"_s, u"+0100"_s, u"+01"_s,
                                   u" UTC"_s,   u"-00:00"_s, u"+05:3"_s};
    text += pick(zones);
    if (chance(5))
        text.replace(10, 1, u' ');
    return text;
}

QString DocumentMutator::randomString()
{
    static const QStringList special{u""_s,
                                     u"NaN"_s,
                                     u"nan"_s,
                                     u"Infinity"_s,
                                     u"-Infinity"_s,
                                     u"1e999"_s,
                                     u"1"_s,
                                     u"-1"_s,
                                     u"true"_s,
                                     u"null"_s,
                                     u"undefined"_s,
                                     QString(QChar(u'\0')),
                                     u"a\u0000b"_s,
                                     QString(QChar(char16_t(0xD800))),
                                     QString(QChar(char16_t(0xDC00))) + u'x',
                                     u"\U0001F600"_s,
                                     u"\u202Eevil"_s,
                                     u"\uFFFF"_s,
                                     u"\uFEFF"_s,
                                     u"   "_s,
                                     u"\n\t\r"_s,
                                     u"../../etc/passwd"_s,
                                     u"CanvasBackgrounds/"_s};
    const quint32 roll = below(100);
    if (roll < 40 && !m_strings.isEmpty()) {
        const QString base = pick(m_strings);
        return chance(50) ? base : chance(50) ? base.toUpper() : base + u' ';
    }
    if (roll < 75)
        return pick(special);
    if (roll < 77)
        return QString(qsizetype(1 + below(200000)), QChar(u'x'));
    QString text;
    for (quint32 n = 1 + below(20); n > 0; --n)
        text += QChar(char16_t(chance(70) ? 0x20 + below(0x5F) : below(0x10000)));
    return text;
}

QJsonValue DocumentMutator::randomSubtree()
{
    return m_subtrees.isEmpty() ? QJsonValue::Null : pick(m_subtrees);
}

// Buries one value in arrays and objects. Done on the text: wrapping a
// QJsonValue level by level copies the whole subtree at every level.
QByteArray DocumentMutator::withNesting(const QJsonValue& root)
{
    static const std::array depths{1, 2, 3, 8, 64, 1022, 1023, 1024, 1025, 4000};
    static const QString marker = u"\u0001nested\u0001"_s;
    QList<NodeInfo> nodes;
    collectNodes(root, QString(), nodes);
    QJsonValue buried;
    QString key;
    int index = 0;
    const QJsonValue marked =
        rebuild(root, QString(), index, nodes.size() > 1 ? 1 + int(below(nodes.size() - 1)) : 0,
                [&](const QJsonValue& node, const QString& nodeKey) {
                    buried = node;
                    key = nodeKey.isEmpty() ? pick(m_keys) : nodeKey;
                    return QJsonValue(marker);
                });
    QByteArray prefix;
    QByteArray suffix;
    const QByteArray keyText = compact(QJsonValue(key)) + ':';
    for (int level = depths[below(depths.size())]; level > 0; --level) {
        const bool array = chance(50);
        prefix += array ? QByteArray("[") : '{' + keyText;
        suffix.prepend(array ? ']' : '}');
    }
    QByteArray text = compact(marked);
    text.replace(compact(QJsonValue(marker)), prefix + compact(buried) + suffix);
    return text;
}

QByteArray DocumentMutator::withDuplicateMember(const QJsonValue& root)
{
    QList<NodeInfo> nodes;
    collectNodes(root, QString(), nodes);
    int objects = 0;
    for (const NodeInfo& node : std::as_const(nodes))
        objects += node.type == QJsonValue::Object ? 1 : 0;
    QByteArray out;
    int objectIndex = 0;
    writeCompact(out, root, objectIndex, int(below(objects)));
    return out;
}

} // namespace vistrel::fuzz
