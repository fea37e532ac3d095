// Feeds the state document reader with many deterministically mutated
// documents and with hand-made extremes: nothing may crash, hang or upset the
// sanitizers, and every accepted document keeps the contract of
// support_state_property.h. VISTREL_FUZZ_SEED and VISTREL_FUZZ_SCALE (a
// multiplier of the iteration counts) allow longer or different runs; a
// failing document is saved to the temporary folder.

#include "support_document_mutator.h"
#include "support_state_property.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace vistrel::fuzz;
using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("Cannot read %s", qPrintable(path));
    return file.readAll();
}

// The complete example document and the corpus: a file of the older format,
// what a hand edit leaves, and a document holding only the policy.
QList<std::pair<QString, QByteArray>> seedDocuments()
{
    QList<std::pair<QString, QByteArray>> seeds{
        {u"example"_s, readFile(QStringLiteral(VISTREL_EXAMPLE_STATE))}};
    const QDir corpus(QStringLiteral(VISTREL_FUZZ_CORPUS));
    for (const QString& name : corpus.entryList({u"*.json"_s}, QDir::Files, QDir::Name))
        seeds.append({name, readFile(corpus.filePath(name))});
    if (seeds.size() < 2)
        qFatal("No seed documents in %s", VISTREL_FUZZ_CORPUS);
    return seeds;
}

enum class Expect { accepted, rejected, either };

} // namespace

Q_DECLARE_METATYPE(MutationFamily)
Q_DECLARE_METATYPE(Expect)

class StateFuzzTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Mutations of documents the reader rejects would mostly test the first
    // failure, so every seed must be accepted as it is.
    void seedsHoldTheContract_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        for (const auto& [name, bytes] : seedDocuments())
            QTest::newRow(qPrintable(name)) << bytes;
    }

    void seedsHoldTheContract()
    {
        QFETCH(QByteArray, bytes);
        const StatePropertyOutcome outcome = checkStateDocument(bytes);
        QVERIFY2(outcome.accepted, qPrintable(outcome.rejection));
        QVERIFY2(outcome.failure.isEmpty(), qPrintable(outcome.failure));
    }

    // The shares bound the accepted documents from below and above: too few
    // accepted no longer test the round trip, too few rejected the rejections.
    void mutatedDocuments_data()
    {
        QTest::addColumn<MutationFamily>("family");
        QTest::addColumn<int>("iterations");
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

    void mutatedDocuments()
    {
        QFETCH(MutationFamily, family);
        QFETCH(int, iterations);
        QFETCH(double, minimumAccepted);
        QFETCH(double, minimumRejected);
        bool ok = false;
        const quint32 base = qEnvironmentVariable("VISTREL_FUZZ_SEED").toUInt(&ok);
        const quint32 seed = (ok ? base : 20251123u) + quint32(family) * 7919u;
        iterations *= std::max(1, qEnvironmentVariableIntValue("VISTREL_FUZZ_SCALE"));

        QList<QByteArray> seeds;
        for (const auto& [name, bytes] : seedDocuments())
            seeds.append(bytes);
        DocumentMutator mutator(seed, seeds);
        int accepted = 0;
        for (int i = 0; i < iterations; ++i) {
            const QByteArray document = mutator.next(family);
            const StatePropertyOutcome outcome = checkStateDocument(document);
            if (!outcome.failure.isEmpty()) {
                const QString path = QDir::temp().filePath(
                    u"vistrel-fuzz-%1-%2-%3.json"_s.arg(QLatin1StringView(QTest::currentDataTag()))
                        .arg(seed)
                        .arg(i));
                QFile file(path);
                if (file.open(QIODevice::WriteOnly))
                    file.write(document);
                QFAIL(qPrintable(u"document %1 (seed %2): %3; saved to %4"_s.arg(i).arg(seed).arg(
                    outcome.failure, path)));
            }
            accepted += outcome.accepted ? 1 : 0;
        }
        const double share = double(accepted) / iterations;
        QVERIFY2(share >= minimumAccepted, qPrintable(u"only %1% accepted"_s.arg(share * 100)));
        QVERIFY2(1 - share >= minimumRejected,
                 qPrintable(u"only %1% rejected"_s.arg((1 - share) * 100)));
    }

    void extremeDocuments_data();

    void extremeDocuments()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(Expect, expect);
        const StatePropertyOutcome outcome = checkStateDocument(bytes);
        QVERIFY2(outcome.failure.isEmpty(), qPrintable(outcome.failure));
        if (expect != Expect::either)
            QVERIFY2(outcome.accepted == (expect == Expect::accepted),
                     qPrintable(outcome.accepted ? u"accepted"_s : outcome.rejection));
    }
};

void StateFuzzTest::extremeDocuments_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Expect>("expect");
    const QByteArray rules = R"({"applications": [], "windows": []})";
    const QByteArray policy = R"("policy": {"mode": "allowList", "allowList": )" + rules +
                              R"(, "blockList": )" + rules + "}";
    const auto document = [&](const QByteArray& members) {
        return "{" + policy + (members.isEmpty() ? QByteArray() : ", " + members) + "}";
    };
    const QByteArray example = readFile(QStringLiteral(VISTREL_EXAMPLE_STATE));
    const auto add = [](const char* name, const QByteArray& bytes, Expect expect) {
        QTest::newRow(name) << bytes << expect;
    };
    using enum Expect;

    add("empty", QByteArray(), rejected);
    add("whitespace", " \n\t ", rejected);
    add("null", "null", rejected);
    add("number", "1", rejected);
    add("trailing garbage", example + "x", rejected);
    add("two documents", example + example, rejected);
    add("UTF-16", QByteArray(reinterpret_cast<const char*>(u"{\"policy\":{}}"), 26), rejected);
    add("byte order mark", "\xEF\xBB\xBF" + example, either);
    add("100000 nested arrays", QByteArray(100000, '[') + QByteArray(100000, ']'), rejected);
    add("100000 nested objects in the policy",
        "{\"policy\":" + QByteArray("{\"a\":").repeated(100000) + "1" + QByteArray(100001, '}'),
        rejected);
    add("unterminated nesting", QByteArray("{\"policy\":[").repeated(50000), rejected);
    add("display 4294967295", document("\"selectedDisplayID\": 4294967295"), accepted);
    add("display 1e999999", document("\"selectedDisplayID\": 1e999999"), rejected);
    add("display 400 digits", document("\"selectedDisplayID\": " + QByteArray(400, '9')), rejected);
    add("display -0", document("\"selectedDisplayID\": -0"), accepted);
    add("display 1.0", document("\"selectedDisplayID\": 1.0"), accepted);
    add("margin 1e308", QByteArray(example).replace("\"marginTop\" : 50", "\"marginTop\" : 1e308"),
        accepted);
    add("lone surrogate in a title",
        document(R"("presets": [{"id": "custom.x", "title": "a\ud800b"}])"), either);
    add("reversed surrogates in an app name",
        document(R"("presets": [{"id": "custom.x", "policy": {"mode": "allowList",
           "allowList": {"applications": [{"applicationName": "\udc00\ud800"}], "windows": []},
           "blockList": {"applications": [], "windows": []}}}])"),
        either);
    add("escaped NUL in an id", document(R"("presets": [{"id": "custom.\u0000"}])"), accepted);
    add("raw NUL in an id",
        document(QByteArray("\"presets\": [{\"id\": \"custom.") + '\0' + "\"}]"), either);
    add("invalid UTF-8 in a title",
        document("\"presets\": [{\"id\": \"custom.x\", \"title\": \"\xC0\xAF\xED\xA0\x80\xFF\"}]"),
        either);
    add("title of 700 000 escaped characters",
        document(R"("presets": [{"id": "custom.x", "title": ")" +
                 QByteArray("\\u00e9").repeated((4 << 20) / 6) + "\"}]"),
        accepted);
    QByteArrayList presets, apps;
    for (int i = 0; i < 2000; ++i)
        presets.append("{\"id\": \"custom." + QByteArray::number(i % 1500) + "\"}");
    for (int i = 0; i < 20000; ++i)
        apps.append("{\"applicationName\": \"App " + QByteArray::number(i % 15000) + "\"}");
    add("2000 presets, 500 repeated ids", document("\"presets\": [" + presets.join(',') + "]"),
        accepted);
    add("20000 applications, some equal",
        "{\"policy\": {\"mode\": \"allowList\", \"allowList\": {\"applications\": [" +
            apps.join(',') + "], \"windows\": []}, \"blockList\": " + rules + "}}",
        accepted);
}

QTEST_GUILESS_MAIN(StateFuzzTest)
#include "tst_state_fuzz.moc"
