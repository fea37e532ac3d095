#pragma once

// Deterministic mutations of JSON state documents: the same seed and the same
// calls give the same documents on every machine (QRandomGenerator with a
// seed is a fixed Mersenne Twister, and nothing here depends on hashing or
// on the clock).

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QRandomGenerator>
#include <QString>
#include <QStringList>

namespace vistrel::fuzz {

enum class MutationFamily {
    bytes,      // bit flips, byte overwrites, truncation, deleted and repeated spans
    tokens,     // JSON tokens and invalid UTF-8 inserted or put in place of a value
    values,     // a value at a random key replaced by one of another type or a
                // realistic one taken from elsewhere; keys removed or added
    numbers,    // integers around the 32-bit bounds, fractions, huge, tiny, -0
    dates,      // ISO-8601-like texts: fractions, offsets, no zone, bad fields
    strings,    // case changes, NaN-ish words, control and non-BMP characters,
                // lone surrogates, very long texts
    duplicates, // an object member written twice, with the same or another value
    nesting,    // a value buried in arrays and objects, up to past the parser's limit
    mixed,      // several of the above, tree edits first, byte edits last
};

class DocumentMutator {
public:
    DocumentMutator(quint32 seed, QList<QByteArray> seeds);

    // One mutated document, made from a randomly chosen seed document.
    QByteArray next(MutationFamily family);

private:
    quint32 below(quint32 bound) { return bound == 0 ? 0 : m_random.bounded(bound); }
    bool chance(quint32 percent) { return below(100) < percent; }
    template<class List> const auto& pick(const List& list) { return list.at(below(list.size())); }

    QJsonValue treeEdit(const QJsonValue& root, MutationFamily family);
    QJsonValue editNodes(const QJsonValue& root, MutationFamily family);
    QJsonValue replacement(const QJsonValue& node, MutationFamily family);

    QJsonValue randomValue(int depth);
    QJsonValue randomNumber();
    QString randomDate();
    QString randomString();
    QJsonValue randomSubtree();

    QByteArray serialize(const QJsonValue& root);
    QByteArray withDuplicateMember(const QJsonValue& root);
    QByteArray withNesting(const QJsonValue& root);
    QByteArray compact(const QJsonValue& value);
    void writeCompact(QByteArray& out, const QJsonValue& value, int& objectIndex, int duplicateAt);
    QByteArray byteEdit(QByteArray bytes);
    QByteArray tokenEdit(QByteArray bytes);

    QRandomGenerator m_random;
    QList<QByteArray> m_seedBytes;
    QList<QJsonValue> m_seedTrees;
    QList<QJsonValue> m_subtrees; // every value found in the seeds
    QStringList m_keys;           // every key found in the seeds
    QStringList m_strings;        // every string value found in the seeds
};

} // namespace vistrel::fuzz
