#include "model/ModelJson.h"
#include "model/SourceIdentity.h"

#include <QJsonObject>
#include <QSet>
#include <QTest>
#include <limits>

using namespace vistrel;
using namespace Qt::StringLiterals;

class SourceIdentityTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void appIDLowerCasesFully_data();
    void appIDLowerCasesFully();
    void bundleAndNameIdentitiesDiffer();
    void windowIDs();
    void storedIdentityNeverEqualsLiveOne();
    void displayTitle_data();
    void displayTitle();
    void resolutionText_data();
    void resolutionText();
    void appIdentityJson();
    void windowIdentityJson_data();
    void windowIdentityJson();
    void geometryEqualityAgreesWithHash();
};

void SourceIdentityTest::appIDLowerCasesFully_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("ascii") << u"Foo Tool"_s << u"name:foo tool"_s;
    QTest::newRow("capital sharp s") << u"STRAẞE"_s << u"name:straße"_s;
    // Dotted capital I expands to i + combining dot above.
    QTest::newRow("dotted I") << u"İSTANBUL"_s << u"name:i\u0307stanbul"_s;
    // Capital sigma becomes final ς (U+03C2) at the end of a word, σ elsewhere.
    QTest::newRow("final sigma") << u"ΟΔΟΣ"_s << u"name:οδο\u03C2"_s;
    QTest::newRow("sigma inside and final") << u"ΣΟΦΟΣ ΣΑΣ"_s << u"name:σοφο\u03C2 σα\u03C2"_s;
    QTest::newRow("lone sigma") << u"Σ"_s << u"name:σ"_s;
    QTest::newRow("sigma before apostrophe") << u"ΑΣ'"_s << u"name:α\u03C2'"_s;
    QTest::newRow("sigma before letter") << u"ΑΣ'Α"_s << u"name:ασ'α"_s;
    QTest::newRow("untrimmed") << u"  Mixed Case  "_s << u"name:  mixed case  "_s;
    QTest::newRow("no diacritic folding") << u"ÉCLAIR"_s << u"name:éclair"_s;
}

void SourceIdentityTest::appIDLowerCasesFully()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QCOMPARE(AppIdentity({}, name).id(), expected);
}

void SourceIdentityTest::bundleAndNameIdentitiesDiffer()
{
    const AppIdentity withBundle{u"org.example.Tool"_s, u"Tool"_s};
    const AppIdentity withoutBundle{std::nullopt, u"Tool"_s};
    QVERIFY(!(withBundle == withoutBundle));
    QCOMPARE(withBundle.id(), u"org.example.Tool"_s);
    QCOMPARE(withoutBundle.id(), u"name:tool"_s);
    QCOMPARE(QSet<AppIdentity>({withBundle, withoutBundle, withBundle}).size(), 2);
    // Case matters for equality, even though ids lower-case the name.
    QVERIFY(!(AppIdentity{std::nullopt, u"tool"_s} == withoutBundle));
}

void SourceIdentityTest::windowIDs()
{
    const WindowIdentity live({u"B"_s, u"App"_s}, u"Notes"_s, 4711);
    QCOMPARE(live.id(), u"B#4711"_s);
    const WindowIdentity stored({std::nullopt, u"Foo Tool"_s}, u"Untitled"_s, std::nullopt);
    QCOMPARE(stored.id(), u"name:foo tool#untitled"_s);
}

void SourceIdentityTest::storedIdentityNeverEqualsLiveOne()
{
    ShareableWindow window;
    window.id = 7;
    window.title = u"  "_s;
    window.application = {std::nullopt, u"Editor"_s};
    const WindowIdentity live(window);
    QCOMPARE(live.windowTitle, u"  "_s); // kept untrimmed
    QCOMPARE(live.lastWindowID, std::optional<quint32>(7));
    const WindowIdentity stored(window.application, window.title, std::nullopt);
    QVERIFY(!(stored == live));
    QVERIFY(stored.id().endsWith(u"#  "_s));
}

void SourceIdentityTest::displayTitle_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("expected");
    QTest::newRow("two spaces") << u"  "_s << u"Untitled Window"_s;
    QTest::newRow("empty") << QString() << u"Untitled Window"_s;
    QTest::newRow("line breaks and tabs") << u"\n\t\r "_s << u"Untitled Window"_s;
    QTest::newRow("trimmed") << u" \tReport.odt \n"_s << u"Report.odt"_s;
    QTest::newRow("inner space kept") << u"a  b"_s << u"a  b"_s;
}

void SourceIdentityTest::displayTitle()
{
    QFETCH(QString, title);
    QFETCH(QString, expected);
    ShareableWindow window;
    window.title = title;
    QCOMPARE(window.displayTitle(), expected);
}

void SourceIdentityTest::resolutionText_data()
{
    QTest::addColumn<double>("width");
    QTest::addColumn<double>("height");
    QTest::addColumn<QString>("expected");
    const double inf = std::numeric_limits<double>::infinity();
    QTest::newRow("plain") << 1512.0 << 982.0 << u"1512 x 982"_s;
    QTest::newRow("truncated") << 1512.9 << 982.5 << u"1512 x 982"_s;
    QTest::newRow("toward zero") << -3.7 << 0.4 << u"-3 x 0"_s;
    QTest::newRow("infinite") << inf << -inf << u"inf x -inf"_s;
    QTest::newRow("nan") << std::numeric_limits<double>::quiet_NaN() << 1.0 << u"nan x 1"_s;
    QTest::newRow("beyond int64") << 1e300 << 9.3e18 << QString();
}

void SourceIdentityTest::resolutionText()
{
    QFETCH(double, width);
    QFETCH(double, height);
    QFETCH(QString, expected);
    ShareableDisplay display;
    display.logicalSize = QSizeF(width, height);
    const QString text = display.resolutionText();
    if (expected.isEmpty())
        QVERIFY(text.contains(u" x "_s) && !text.isEmpty()); // any text, no failure
    else
        QCOMPARE(text, expected);
}

void SourceIdentityTest::appIdentityJson()
{
    const auto encoded = encodeJson(AppIdentity{std::nullopt, u"Tool"_s});
    QVERIFY(encoded);
    QCOMPARE(encoded.value().toObject(), QJsonObject({{u"applicationName"_s, u"Tool"_s}}));

    const auto decoded = decodeJson<AppIdentity>(QJsonObject{{u"applicationName"_s, u"Tool"_s}});
    QVERIFY(decoded);
    QVERIFY(!decoded->bundleIdentifier);

    const auto missing = decodeJson<AppIdentity>(QJsonObject{{u"bundleIdentifier"_s, u"x"_s}});
    QVERIFY(!missing);
    QCOMPARE(missing.error().path, u"applicationName"_s);

    const auto wrongType = decodeJson<AppIdentity>(
        QJsonObject{{u"applicationName"_s, u"Tool"_s}, {u"bundleIdentifier"_s, 3}});
    QVERIFY(!wrongType);
    QCOMPARE(wrongType.error().path, u"bundleIdentifier"_s);
}

void SourceIdentityTest::windowIdentityJson_data()
{
    QTest::addColumn<QJsonValue>("lastWindowID");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("zero") << QJsonValue(0) << true;
    QTest::newRow("max") << QJsonValue(4294967295.0) << true;
    QTest::newRow("integral double") << QJsonValue(12.0) << true;
    QTest::newRow("fraction") << QJsonValue(1.5) << false;
    QTest::newRow("negative") << QJsonValue(-1) << false;
    QTest::newRow("too large") << QJsonValue(qint64(4294967296)) << false;
    QTest::newRow("string") << QJsonValue(u"1"_s) << false;
    QTest::newRow("bool") << QJsonValue(true) << false;
}

void SourceIdentityTest::windowIdentityJson()
{
    QFETCH(QJsonValue, lastWindowID);
    QFETCH(bool, accepted);
    const QJsonObject json{{u"application"_s, QJsonObject{{u"applicationName"_s, u"A"_s}}},
                           {u"windowTitle"_s, u"T"_s},
                           {u"lastWindowID"_s, lastWindowID}};
    const auto decoded = decodeJson<WindowIdentity>(json);
    QCOMPARE(decoded.ok(), accepted);
    if (!accepted) {
        QCOMPARE(decoded.error().path, u"lastWindowID"_s);
        return;
    }
    QCOMPARE(qint64(decoded->lastWindowID.value()), lastWindowID.toInteger());
    const auto encoded = encodeJson(decoded.value());
    QVERIFY(encoded);
    QCOMPARE(decodeJson<WindowIdentity>(encoded.value()).value(), decoded.value());
}

void SourceIdentityTest::geometryEqualityAgreesWithHash()
{
    ShareableDisplay a;
    a.frame = QRectF(0, 0, 1920, 1080);
    ShareableDisplay b = a;
    b.frame.setWidth(1920.0000000001); // QRectF's fuzzy == would call these equal
    QVERIFY(!(a == b));
    ShareableDisplay c = a;
    c.frame.moveLeft(-0.0);
    QVERIFY(a == c);
    QCOMPARE(qHash(a), qHash(c));
}

QTEST_GUILESS_MAIN(SourceIdentityTest)
#include "tst_source_identity.moc"
