#pragma once

// Deterministic mutations of JSON state documents: the same seed and the same
// calls give the same documents on every machine (a seeded QRandomGenerator
// is a fixed Mersenne Twister; nothing here depends on hashing or the clock).

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QRandomGenerator>
#include <QStringList>

namespace vistrel::fuzz {

enum class MutationFamily {
    bytes,      // bit flips, overwrites, truncation, deleted, repeated and random spans
    tokens,     // JSON tokens and invalid UTF-8 in place of a value, in a string, anywhere
    values,     // a value replaced by another type or a realistic one; members added, removed
    numbers,    // integers around the 32-bit bounds, fractions, huge, tiny, -0
    dates,      // ISO-8601-like texts: fractions, offsets, no zone, bad fields
    strings,    // case changes, NaN-ish words, control and non-BMP characters, lone surrogates
    duplicates, // an object member written twice, with the same or another value
    nesting,    // a value buried in arrays and objects, up to past the parser's limit
    mixed,      // several tree edits, then maybe a text edit
};

class DocumentMutator {
public:
    DocumentMutator(quint32 seed, const QList<QByteArray>& seeds);

    // One mutated document, made from a randomly chosen seed document.
    QByteArray next(MutationFamily family);

private:
    quint32 below(qsizetype bound) { return bound > 0 ? m_random.bounded(quint32(bound)) : 0; }
    bool chance(quint32 percent) { return below(100) < percent; }
    template<class List> auto pick(const List& list) { return list.at(below(list.size())); }

    QJsonValue treeEdit(const QJsonValue& root, MutationFamily family);
    QJsonValue replacement(const QJsonValue& node, MutationFamily family);
    QJsonValue randomValue(int depth);
    QJsonValue randomNumber();
    QString randomDate();
    QString randomString();
    QByteArray textEdit(QByteArray bytes, bool tokens);
    QByteArray serialized(const QJsonValue& root);
    QByteArray rewritten(const QJsonValue& root, bool duplicate); // duplicates, nesting

    QRandomGenerator m_random;
    QList<QByteArray> m_texts;
    QList<QJsonValue> m_trees;
    QList<QJsonValue> m_subtrees; // every value found in the seeds
    QStringList m_keys;           // every key found in the seeds
    QStringList m_strings;        // every string value found in the seeds
};

} // namespace vistrel::fuzz
