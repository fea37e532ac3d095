// Feeds the state document reader with many deterministically mutated
// documents and with hand-made extremes. Nothing may crash, hang or upset
// the sanitizers, and every document the reader accepts must write and read
// back as the same value (support_state_property.h).
//
// VISTREL_FUZZ_SEED and VISTREL_FUZZ_SCALE (a multiplier of the iteration
// counts) allow longer or different runs; a failing document is saved to the
// temporary folder and its path printed.

#include "support_document_mutator.h"
#include "support_state_property.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

using namespace vistrel::fuzz;
using namespace Qt::StringLiterals;

namespace {

QByteArray exampleDocument()
{
    QFile file(QStringLiteral(VISTREL_EXAMPLE_STATE));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("Cannot read the example state document %s", VISTREL_EXAMPLE_STATE);
    return file.readAll();
}

const QByteArray emptyRules = R"({"applications": [], "windows": []})";

// The complete example document, and the corpus: a file of the older format
// (presets with "kind" and no "id", a canvas mode that no longer exists, no
// camera overlay), what a hand edit leaves (nulls for optional keys, offset
// and fractional dates, unknown keys, a custom preset before the built-ins,
// a repeated id) and a document holding only the policy.
QList<std::pair<QString, QByteArray>> seedDocuments()
{
    QList<std::pair<QString, QByteArray>> seeds{{u"example"_s, exampleDocument()}};
    const QDir corpus(QStringLiteral(VISTREL_FUZZ_CORPUS));
    const QStringList names = corpus.entryList({u"*.json"_s}, QDir::Files, QDir::Name);
    if (names.isEmpty())
        qFatal("No seed documents in %s", VISTREL_FUZZ_CORPUS);
    for (const QString& name : names) {
        QFile file(corpus.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("Cannot read the seed document %s", qPrintable(file.fileName()));
        seeds.append({name, file.readAll()});
    }
    return seeds;
}

quint32 baseSeed()
{
    bool ok = false;
    const quint32 seed = qEnvironmentVariable("VISTREL_FUZZ_SEED").toUInt(&ok);
    return ok ? seed : 20251123u;
}

int scaled(int iterations)
{
    bool ok = false;
    const int scale = qEnvironmentVariableIntValue("VISTREL_FUZZ_SCALE", &ok);
    return ok && scale > 0 ? iterations * scale : iterations;
}

QString saveFailingDocument(const QByteArray& bytes, const QString& name)
{
    const QString path = QDir::temp().filePath(u"vistrel-fuzz-"_s + name + u".json"_s);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
    return path;
}

QByteArray repeated(const QByteArray& part, int count)
{
    return part.repeated(count);
}

enum class Expect { accepted, rejected, either };

} // namespace

Q_DECLARE_METATYPE(MutationFamily)
Q_DECLARE_METATYPE(Expect)

class StateFuzzTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void seedsHoldTheContract_data();
    void seedsHoldTheContract();
    void mutatedDocuments_data();
    void mutatedDocuments();
    void extremeDocuments_data();
    void extremeDocuments();
};

void StateFuzzTest::seedsHoldTheContract_data()
{
    QTest::addColumn<QByteArray>("bytes");
    for (const auto& [name, bytes] : seedDocuments())
        QTest::newRow(qPrintable(name)) << bytes;
}

void StateFuzzTest::seedsHoldTheContract()
{
    // Mutations of documents the reader rejects would mostly test the first
    // failure, so every seed must be accepted as it is.
    QFETCH(QByteArray, bytes);
    const StatePropertyOutcome outcome = checkStateDocument(bytes);
    QVERIFY2(outcome.accepted, qPrintable(outcome.rejection));
    QVERIFY2(outcome.failure.isEmpty(), qPrintable(outcome.failure));
}

void StateFuzzTest::mutatedDocuments_data()
{
    QTest::addColumn<MutationFamily>("family");
    QTest::addColumn<int>("iterations");
    // Shares of accepted documents below which the family no longer tests
    // the round trip (too few accepted) or the rejections (too few rejected).
    QTest::addColumn<double>("minimumAccepted");
    QTest::addColumn<double>("minimumRejected");
    QTest::newRow("bytes") << MutationFamily::bytes << 3000 << 0.01 << 0.5;
    QTest::newRow("tokens") << MutationFamily::tokens << 3000 << 0.01 << 0.5;
    QTest::newRow("values") << MutationFamily::values << 1500 << 0.1 << 0.3;
    QTest::newRow("numbers") << MutationFamily::numbers << 1000 << 0.2 << 0.3;
    QTest::newRow("dates") << MutationFamily::dates << 1000 << 0.1 << 0.3;
    QTest::newRow("strings") << MutationFamily::strings << 1000 << 0.2 << 0.3;
    QTest::newRow("duplicates") << MutationFamily::duplicates << 600 << 0.4 << 0.1;
    QTest::newRow("nesting") << MutationFamily::nesting << 400 << 0.005 << 0.5;
    QTest::newRow("mixed") << MutationFamily::mixed << 1500 << 0.05 << 0.5;
}

void StateFuzzTest::mutatedDocuments()
{
    QFETCH(MutationFamily, family);
    QFETCH(int, iterations);
    QFETCH(double, minimumAccepted);
    QFETCH(double, minimumRejected);
    iterations = scaled(iterations);
    const quint32 seed = baseSeed() + quint32(family) * 7919u;

    QList<QByteArray> seeds;
    for (const auto& [name, bytes] : seedDocuments())
        seeds.append(bytes);
    DocumentMutator mutator(seed, seeds);

    int accepted = 0;
    qint64 slowestNs = 0;
    qint64 checkingNs = 0;
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < iterations; ++i) {
        const QByteArray document = mutator.next(family);
        QElapsedTimer one;
        one.start();
        const StatePropertyOutcome outcome = checkStateDocument(document);
        const qint64 elapsed = one.nsecsElapsed();
        checkingNs += elapsed;
        slowestNs = std::max(slowestNs, elapsed);
        if (!outcome.failure.isEmpty()) {
            const QString name =
                u"%1-%2-%3"_s.arg(QString::fromLatin1(QTest::currentDataTag())).arg(seed).arg(i);
            const QString path = saveFailingDocument(document, name);
            QFAIL(qPrintable(u"document %1 (seed %2): %3; saved to %4"_s.arg(i).arg(seed).arg(
                outcome.failure, path)));
        }
        accepted += outcome.accepted ? 1 : 0;
    }
    const double acceptedShare = double(accepted) / iterations;
    qInfo("%d documents, %d accepted (%.1f%%); %lld ms in all, %lld ms of them checking, "
          "slowest document %lld ms",
          iterations, accepted, acceptedShare * 100, total.elapsed(), checkingNs / 1000000,
          slowestNs / 1000000);
    QVERIFY2(acceptedShare >= minimumAccepted,
             qPrintable(u"only %1% accepted"_s.arg(acceptedShare * 100)));
    QVERIFY2(1 - acceptedShare >= minimumRejected,
             qPrintable(u"only %1% rejected"_s.arg((1 - acceptedShare) * 100)));
}

void StateFuzzTest::extremeDocuments_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Expect>("expect");
    const QByteArray policy = R"("policy": {"mode": "allowList", "allowList": )" + emptyRules +
                              R"(, "blockList": )" + emptyRules + "}";
    const auto document = [&](const QByteArray& members) {
        return "{" + policy + (members.isEmpty() ? QByteArray() : ", " + members) + "}";
    };
    const QByteArray example = exampleDocument();

    QTest::newRow("empty") << QByteArray() << Expect::rejected;
    QTest::newRow("whitespace") << QByteArray(" \n\t ") << Expect::rejected;
    QTest::newRow("null") << QByteArray("null") << Expect::rejected;
    QTest::newRow("number") << QByteArray("1") << Expect::rejected;
    QTest::newRow("trailing garbage") << example + "x" << Expect::rejected;
    QTest::newRow("two documents") << example + example << Expect::rejected;
    QTest::newRow("UTF-16") << QByteArray(reinterpret_cast<const char*>(u"{\"policy\":{}}"), 26)
                            << Expect::rejected;
    QTest::newRow("byte order mark") << "\xEF\xBB\xBF" + example << Expect::either;
    QTest::newRow("100000 nested arrays")
        << repeated("[", 100000) + repeated("]", 100000) << Expect::rejected;
    QTest::newRow("100000 nested objects in the policy")
        << "{\"policy\":" + repeated("{\"a\":", 100000) + "1" + repeated("}", 100001)
        << Expect::rejected;
    QTest::newRow("unterminated nesting") << repeated("{\"policy\":[", 50000) << Expect::rejected;
    QTest::newRow("display 4294967295")
        << document("\"selectedDisplayID\": 4294967295") << Expect::accepted;
    QTest::newRow("display 1e999999")
        << document("\"selectedDisplayID\": 1e999999") << Expect::rejected;
    QTest::newRow("display 400 digits")
        << document("\"selectedDisplayID\": " + repeated("9", 400)) << Expect::rejected;
    QTest::newRow("display -0") << document("\"selectedDisplayID\": -0") << Expect::accepted;
    QTest::newRow("display 1.0") << document("\"selectedDisplayID\": 1.0") << Expect::accepted;
    QTest::newRow("margin 1e308") << QByteArray(example).replace("\"marginTop\" : 50",
                                                                 "\"marginTop\" : 1e308")
                                  << Expect::accepted;
    QTest::newRow("lone surrogate in a title")
        << document(R"("presets": [{"id": "custom.x", "title": "a\ud800b"}])") << Expect::either;
    QTest::newRow("reversed surrogates in an app name")
        << document(R"("presets": [{"id": "custom.x", "policy": {"mode": "allowList",
           "allowList": {"applications": [{"applicationName": "\udc00\ud800"}], "windows": []},
           "blockList": {"applications": [], "windows": []}}}])")
        << Expect::either;
    QTest::newRow("escaped NUL in an id")
        << document(R"("presets": [{"id": "custom.\u0000"}])") << Expect::accepted;
    QTest::newRow("raw NUL in an id")
        << document(QByteArray("\"presets\": [{\"id\": \"custom.") + '\0' + "\"}]")
        << Expect::either;
    QTest::newRow("invalid UTF-8 in a title")
        << document(
               "\"presets\": [{\"id\": \"custom.x\", \"title\": \"\xC0\xAF\xED\xA0\x80\xFF\"}]")
        << Expect::either;
    QTest::newRow("title of 700 000 escaped characters")
        << document(R"("presets": [{"id": "custom.x", "title": ")" +
                    repeated("\\u00e9", (4 << 20) / 6) + "\"}]")
        << Expect::accepted;

    QByteArray manyPresets;
    for (int i = 0; i < 2000; ++i)
        manyPresets +=
            QByteArray(i ? "," : "") + "{\"id\": \"custom." + QByteArray::number(i % 1500) + "\"}";
    QTest::newRow("2000 presets, 500 repeated ids")
        << document("\"presets\": [" + manyPresets + "]") << Expect::accepted;
    QByteArray manyApps;
    for (int i = 0; i < 20000; ++i)
        manyApps += QByteArray(i ? "," : "") + "{\"applicationName\": \"App " +
                    QByteArray::number(i % 15000) + "\"}";
    QTest::newRow("20000 applications, some equal")
        << "{\"policy\": {\"mode\": \"allowList\", \"allowList\": {\"applications\": [" + manyApps +
               "], \"windows\": []}, \"blockList\": " + emptyRules + "}}"
        << Expect::accepted;
}

void StateFuzzTest::extremeDocuments()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Expect, expect);
    const StatePropertyOutcome outcome = checkStateDocument(bytes);
    QVERIFY2(outcome.failure.isEmpty(), qPrintable(outcome.failure));
    if (expect != Expect::either)
        QVERIFY2(outcome.accepted == (expect == Expect::accepted),
                 qPrintable(outcome.accepted ? u"accepted"_s : outcome.rejection));
}

QTEST_GUILESS_MAIN(StateFuzzTest)
#include "tst_state_fuzz.moc"
