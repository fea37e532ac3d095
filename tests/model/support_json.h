#pragma once

// Model values as JSON in table-driven tests. A row holds a document as JSON
// text and either the error path reading it must fail at, or what writing the
// value read from it must produce. Only the keys a row names are compared
// (a null asks for an absent key): the example state document proves the
// complete written form.

#include "model/ModelJson.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace vistrel::test {

using namespace Qt::StringLiterals;

inline QJsonObject jsonObject(const QByteArray& text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (!document.isObject())
        qFatal("a test document is not a JSON object (%s): %s", qPrintable(error.errorString()),
               text.constData());
    return document.object();
}

// The keys of `expected` that `actual` does not hold as given, as readable
// text. Objects are compared key by key in turn, arrays as a whole.
inline QString jsonMismatch(const QJsonObject& actual, const QJsonObject& expected,
                            const QString& prefix = {})
{
    QString result;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        const QString key = prefix + it.key();
        const QJsonValue value = actual.value(it.key());
        if (it->isObject() && value.isObject())
            result += jsonMismatch(value.toObject(), it->toObject(), key + u'.');
        else if (it->isNull() ? !value.isUndefined() : value != *it)
            result += key + u": "_s +
                      (value.isUndefined()
                           ? u"absent"_s
                           : QString::fromUtf8(
                                 QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact))) +
                      u"; "_s;
    }
    return result;
}

inline void addJsonColumns()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("written"); // keys the value writes back
    QTest::addColumn<QString>("errorPath");  // set: reading fails there
}

inline void acceptRow(const char* name, const QByteArray& json, const QByteArray& written = "{}")
{
    QTest::newRow(name) << json << written << QString();
}

inline void rejectRow(const char* name, const QByteArray& json, const QString& path)
{
    QTest::newRow(name) << json << QByteArray() << path;
}

// The current row, read as T: it fails at the row's path with a reason, or it
// is written back with the row's keys and that reads as the same value.
template<class T> void checkJsonRow()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, written);
    QFETCH(QString, errorPath);
    const JsonResult<T> decoded = decodeJson<T>(jsonObject(json));
    if (!errorPath.isEmpty()) {
        QVERIFY2(!decoded, "the document was accepted");
        QCOMPARE(decoded.error().path, errorPath);
        QVERIFY(!decoded.error().reason.isEmpty());
        return;
    }
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    const JsonResult<QJsonValue> encoded = encodeJson(decoded.value());
    QVERIFY2(encoded, qPrintable(encoded ? QString() : encoded.error().description()));
    const QJsonObject object = encoded.value().toObject();
    const QString mismatch = jsonMismatch(object, jsonObject(written));
    QVERIFY2(mismatch.isEmpty(), qPrintable(mismatch));
    const JsonResult<T> again = decodeJson<T>(object);
    QVERIFY2(again, qPrintable(again ? QString() : again.error().description()));
    QVERIFY(again.value() == decoded.value());
}

} // namespace vistrel::test
