#include "model/SourceIdentity.h"
#include "support_json.h"

#include <QSet>
#include <QTest>
#include <limits>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

class SourceIdentityTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void appIDLowerCasesFully_data()
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

    void appIDLowerCasesFully()
    {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        QCOMPARE(AppIdentity({}, name).id(), expected);
    }

    void bundleAndNameIdentitiesDiffer()
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

    void windowIdentities()
    {
        QCOMPARE(WindowIdentity({u"B"_s, u"App"_s}, u"Notes"_s, 4711).id(), u"B#4711"_s);
        QCOMPARE(WindowIdentity({std::nullopt, u"Foo Tool"_s}, u"Untitled"_s, std::nullopt).id(),
                 u"name:foo tool#untitled"_s);

        // One made from a live window keeps its number and its untrimmed title,
        // so it never equals the stored identity without a number.
        ShareableWindow window;
        window.id = 7;
        window.title = u"  "_s;
        window.application = {std::nullopt, u"Editor"_s};
        const WindowIdentity live(window);
        QCOMPARE(live.windowTitle, u"  "_s);
        QCOMPARE(live.lastWindowID, std::optional<quint32>(7));
        const WindowIdentity stored(window.application, window.title, std::nullopt);
        QVERIFY(!(stored == live));
        QVERIFY(stored.id().endsWith(u"#  "_s));
    }

    void displayTitle_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("two spaces") << u"  "_s << u"Untitled Window"_s;
        QTest::newRow("empty") << QString() << u"Untitled Window"_s;
        QTest::newRow("line breaks and tabs") << u"\n\t\r "_s << u"Untitled Window"_s;
        QTest::newRow("trimmed") << u" \tReport.odt \n"_s << u"Report.odt"_s;
        QTest::newRow("inner space kept") << u"a  b"_s << u"a  b"_s;
    }

    void displayTitle()
    {
        QFETCH(QString, title);
        QFETCH(QString, expected);
        ShareableWindow window;
        window.title = title;
        QCOMPARE(window.displayTitle(), expected);
    }

    void resolutionText_data()
    {
        QTest::addColumn<QSizeF>("size");
        QTest::addColumn<QString>("expected"); // empty: any text, but no failure
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("plain") << QSizeF(1512, 982) << u"1512 x 982"_s;
        QTest::newRow("truncated") << QSizeF(1512.9, 982.5) << u"1512 x 982"_s;
        QTest::newRow("toward zero") << QSizeF(-3.7, 0.4) << u"-3 x 0"_s;
        QTest::newRow("infinite") << QSizeF(inf, -inf) << u"inf x -inf"_s;
        QTest::newRow("nan") << QSizeF(std::numeric_limits<double>::quiet_NaN(), 1) << u"nan x 1"_s;
        QTest::newRow("beyond int64") << QSizeF(1e300, 9.3e18) << QString();
    }

    void resolutionText()
    {
        QFETCH(QSizeF, size);
        QFETCH(QString, expected);
        ShareableDisplay display;
        display.logicalSize = size;
        const QString text = display.resolutionText();
        if (expected.isEmpty())
            QVERIFY(text.contains(u" x "_s));
        else
            QCOMPARE(text, expected);
    }

    void json_data()
    {
        addJsonColumns();
        QTest::addColumn<bool>("isWindow");
        const auto app = [](const char* name, const QByteArray& json, const QByteArray& written,
                            const QString& path) {
            QTest::newRow(name) << json << written << path << false;
        };
        app("app without bundle", R"({"applicationName": "Tool"})",
            R"({"applicationName": "Tool", "bundleIdentifier": null})", {});
        app("app name missing", R"({"bundleIdentifier": "x"})", {}, u"applicationName"_s);
        app("bundle not a string", R"({"applicationName": "Tool", "bundleIdentifier": 3})", {},
            u"bundleIdentifier"_s);

        const auto window = [](const char* name, const QByteArray& id, bool accepted) {
            const QByteArray json = R"({"application": {"applicationName": "A"},
                "windowTitle": "T", "lastWindowID": )" +
                                    id + "}";
            QTest::newRow(name) << json << QByteArray(R"({"lastWindowID": )" + id + "}")
                                << (accepted ? QString() : u"lastWindowID"_s) << true;
        };
        window("window id zero", "0", true);
        window("window id max", "4294967295", true);
        window("window id integral double", "12.0", true);
        window("window id fraction", "1.5", false);
        window("window id negative", "-1", false);
        window("window id too large", "4294967296", false);
        window("window id string", R"("1")", false);
        window("window id bool", "true", false);
    }

    void json()
    {
        QFETCH(bool, isWindow);
        if (isWindow)
            checkJsonRow<WindowIdentity>();
        else
            checkJsonRow<AppIdentity>();
    }

    void geometryEqualityAgreesWithHash()
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
};

QTEST_GUILESS_MAIN(SourceIdentityTest)
#include "tst_source_identity.moc"
