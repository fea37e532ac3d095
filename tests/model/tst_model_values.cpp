// The model's values: identities, the visibility policy, share presets and
// output settings; what they say about themselves and how they read and
// write as JSON (one table per type, shared helper in support_json.h).

#include "model/OutputSettings.h"
#include "model/SharePreset.h"
#include "model/SourceIdentity.h"
#include "model/VisibilityPolicy.h"
#include "support_json.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <QTimeZone>
#include <limits>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

namespace {

using State = SourceVisibilityState;

const AppIdentity appA{u"org.example.A"_s, u"A"_s};
const AppIdentity appB{std::nullopt, u"B"_s};

WindowIdentity windowOf(const AppIdentity& app, quint32 number)
{
    return WindowIdentity(app, u"w"_s + QString::number(number), number);
}

const QList<WindowIdentity> windowsA{windowOf(appA, 1), windowOf(appA, 2), windowOf(appA, 3)};

} // namespace

class TestModelValues : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // ---- identities
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

    void identityJson_data()
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

    void identityJson()
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

    // ---- visibility policy
    void workedExample()
    {
        VisibilityPolicy policy;
        const auto& [w1, w2, w3] = std::tie(windowsA[0], windowsA[1], windowsA[2]);

        policy.toggleWindow(w1, windowsA);
        QCOMPARE(policy.allowList.windows, QSet<WindowIdentity>({w1}));
        QCOMPARE(policy.applicationState(appA, windowsA), State::partial);

        policy.toggleWindow(w2, windowsA);
        policy.toggleWindow(w3, windowsA);
        QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appA}));
        QVERIFY(policy.allowList.windows.isEmpty());
        QCOMPARE(policy.applicationState(appA, windowsA), State::shown);

        policy.toggleWindow(w2, windowsA);
        QVERIFY(policy.allowList.applications.isEmpty());
        QCOMPARE(policy.allowList.windows, QSet<WindowIdentity>({w1, w3}));
        QCOMPARE(policy.applicationState(appA, windowsA), State::partial);
        QCOMPARE(policy.windowState(w2), State::hidden);

        policy.toggleApplication(appA, windowsA);
        QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appA}));
        QVERIFY(policy.allowList.windows.isEmpty());

        policy.toggleApplication(appA, windowsA);
        QCOMPARE(policy, VisibilityPolicy::defaultValue());
    }

    void promotionAndDemotion()
    {
        RuleSet rules;
        const WindowIdentity stale(appA, u"gone"_s, 99);
        const WindowIdentity otherApp = windowOf(appB, 5);
        rules.applications.insert(appA);
        rules.windows = {stale, otherApp};
        // Demotion keeps the listed siblings only; stale rules of the app go.
        rules.setWindow(windowsA[0], false, windowsA);
        QVERIFY(rules.applications.isEmpty());
        QCOMPARE(rules.windows, QSet<WindowIdentity>({windowsA[1], windowsA[2], otherApp}));

        // Selecting a window already covered by its application changes nothing.
        RuleSet covered;
        covered.applications.insert(appA);
        const RuleSet before = covered;
        covered.setWindow(windowsA[1], true, windowsA);
        QCOMPARE(covered, before);

        // The only window of an application promotes at once; with no sibling
        // list there is nothing to promote to.
        VisibilityPolicy policy;
        const QList<WindowIdentity> only{windowOf(appB, 8)};
        policy.toggleWindow(only[0], only);
        QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appB}));
        QVERIFY(policy.allowList.windows.isEmpty());
        RuleSet unlisted;
        unlisted.setWindow(only[0], true, {});
        QVERIFY(unlisted.applications.isEmpty());
        QCOMPARE(unlisted.windows.size(), 1);

        // Setting the application replaces its listed window rules.
        policy = {};
        policy.allowList.windows = {windowsA[0], windowsA[1]};
        policy.setApplication(appA, false, windowsA);
        QVERIFY(policy.allowList.isEmpty());
        policy.setApplication(appA, true, windowsA);
        QCOMPARE(policy.activeRuleCount(), 1);
    }

    void applicationWithoutWindows_data()
    {
        QTest::addColumn<VisibilityMode>("mode");
        QTest::addColumn<bool>("hasRule");
        QTest::addColumn<State>("expected");
        QTest::newRow("allow, no rule") << VisibilityMode::allowList << false << State::hidden;
        QTest::newRow("block, no rule") << VisibilityMode::blockList << false << State::shown;
        QTest::newRow("allow, rule") << VisibilityMode::allowList << true << State::shown;
        QTest::newRow("block, rule") << VisibilityMode::blockList << true << State::hidden;
    }

    void applicationWithoutWindows()
    {
        QFETCH(VisibilityMode, mode);
        QFETCH(bool, hasRule);
        QFETCH(State, expected);
        VisibilityPolicy policy;
        policy.setMode(mode);
        if (hasRule)
            policy.activeRules().applications.insert(appB);
        QCOMPARE(policy.isApplicationSelected(appB, {}), hasRule);
        QCOMPARE(policy.applicationState(appB, {}), expected);
    }

    void windowRulesAreExact()
    {
        VisibilityPolicy policy;
        policy.allowList.windows.insert(WindowIdentity(appA, u"Notes"_s, 4711));
        QVERIFY(policy.covers(WindowIdentity(appA, u"Notes"_s, 4711)));
        QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes"_s, 4712)));
        QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes 2"_s, 4711)));
        QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes"_s, std::nullopt)));
    }

    void editsTouchOnlyTheActiveList()
    {
        VisibilityPolicy policy;
        policy.toggleWindow(windowsA[0], windowsA);
        const RuleSet allow = policy.allowList;
        policy.setMode(VisibilityMode::blockList);
        QVERIFY(!policy.hasActiveRules());
        QCOMPARE(policy.applicationState(appA, windowsA), State::shown);
        policy.toggleApplication(appA, windowsA);
        QCOMPARE(policy.applicationState(appA, windowsA), State::hidden);
        QCOMPARE(policy.windowState(windowsA[2]), State::hidden);
        QCOMPARE(policy.allowList, allow);
        policy.setMode(VisibilityMode::allowList);
        QCOMPARE(policy.activeRules(), allow);
        QCOMPARE(policy.blockList.applications, QSet<AppIdentity>({appA}));

        policy.clearActiveRules();
        QVERIFY(policy.allowList.isEmpty());
        QCOMPARE(policy.blockList.applications.size(), 1);
    }

    void ruleCountText_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << 0 << u"0 rules"_s;
        QTest::newRow("1") << 1 << u"1 rule"_s;
        QTest::newRow("2") << 2 << u"2 rules"_s;
    }

    void ruleCountText()
    {
        QFETCH(int, count);
        QFETCH(QString, text);
        VisibilityPolicy policy;
        const QList<AppIdentity> apps{appA, appB};
        for (int i = 0; i < count; ++i)
            policy.allowList.applications.insert(apps[i]);
        policy.blockList.applications.insert(appA); // inactive: never counted
        QCOMPARE(policy.activeRuleCount(), count);
        QCOMPARE(policy.activeRuleCountText(), text);
        QCOMPARE(policy.hasActiveRules(), count > 0);
    }

    void policyJson_data()
    {
        addJsonColumns();
        const QByteArray empty = R"({"applications": [], "windows": []})";
        const auto policy = [&](const QByteArray& mode, const QByteArray& allow,
                                const QByteArray& block) {
            return R"({"mode": )" + mode + R"(, "allowList": )" + allow + R"(, "blockList": )" +
                   block + "}";
        };
        acceptRow("both lists",
                  policy(R"("blockList")", R"({"applications": [
            {"applicationName": "A", "bundleIdentifier": "org.example.A"},
            {"applicationName": "B"}], "windows": []})",
                         R"({"applications": [], "windows": [
            {"application": {"applicationName": "A"}, "windowTitle": "w1", "lastWindowID": 1},
            {"application": {"applicationName": "B"}, "windowTitle": "x"}]})"),
                  R"({"mode": "blockList"})");
        rejectRow("no blockList", R"({"mode": "allowList", "allowList": )" + empty + "}",
                  u"blockList"_s);
        rejectRow("unknown mode", policy(R"("both")", empty, empty), u"mode"_s);
        rejectRow("null mode", policy("null", empty, empty), u"mode"_s);
        rejectRow("windows missing", policy(R"("allowList")", R"({"applications": []})", empty),
                  u"allowList.windows"_s);
        rejectRow("bad element",
                  policy(R"("allowList")",
                         R"({"applications": [{"applicationName": "a"}, {}], "windows": []})",
                         empty),
                  u"allowList.applications[1].applicationName"_s);
    }

    void policyJson() { checkJsonRow<VisibilityPolicy>(); }

    // ---- share presets
    // The built-ins are checked where the state document's defaults are.
    void customPresetsAreNewAndEmpty()
    {
        const SharePreset custom = makeCustomPreset(u"Demo"_s);
        QVERIFY2(QRegularExpression(u"^custom\\.[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-"
                                    "[0-9a-f]{12}$"_s)
                     .match(custom.id)
                     .hasMatch(),
                 qPrintable(custom.id));
        QVERIFY(custom.id != makeCustomPreset(u"Demo"_s).id);
        QCOMPARE(custom.symbolName, u"bookmark"_s);
        QVERIFY(!custom.builtInKind);
        QCOMPARE(custom.lastUpdated, distantPast());
        QVERIFY(!custom.hasSavedConfiguration());
    }

    void summaryAndSavedState_data()
    {
        QTest::addColumn<SharePreset>("preset");
        QTest::addColumn<bool>("hasSaved");
        QTest::addColumn<QString>("summary");
        const QString nothing = u"Nothing is currently selected \u2022 Frame Screen"_s;
        const SharePreset fresh = makeCustomPreset(u"X"_s);
        QTest::newRow("fresh") << fresh << false << nothing;

        SharePreset blockOnly = fresh;
        blockOnly.configuration.policy.mode = VisibilityMode::blockList;
        QTest::newRow("only block mode") << blockOnly << true << nothing;

        SharePreset inactiveRules = fresh;
        inactiveRules.configuration.policy.blockList.applications.insert({std::nullopt, u"A"_s});
        QTest::newRow("inactive rules only") << inactiveRules << true << nothing;

        SharePreset oneApp = fresh;
        oneApp.configuration.policy.allowList.applications.insert({u"a"_s, u"A"_s});
        QTest::newRow("one app") << oneApp << true
                                 << u"Sanitized Windows \u2022 Allow List \u2022 1 apps \u2022 0 "
                                    "windows \u2022 Frame Screen \u2022 Canvas Black"_s;

        SharePreset full = fresh;
        full.configuration.policy.allowList.applications = {{u"a"_s, u"A"_s}, {u"b"_s, u"B"_s}};
        full.configuration.policy.allowList.windows.insert(
            WindowIdentity({u"c"_s, u"C"_s}, u"t"_s, 3));
        full.configuration.outputFrameMode = OutputFrameMode::dynamic;
        full.configuration.canvasBackground.mode = CanvasBackgroundMode::gray;
        QTest::newRow("example") << full << true
                                 << u"Sanitized Windows \u2022 Allow List \u2022 2 apps \u2022 1 "
                                    "windows \u2022 Frame Dynamic \u2022 Canvas Gray"_s;

        SharePreset display = fresh;
        display.configuration.selectedDisplayID = 0;
        display.configuration.outputContentMode = OutputContentMode::fullDesktop;
        display.configuration.canvasBackground.mode = CanvasBackgroundMode::customImage;
        display.configuration.policy.mode = VisibilityMode::blockList;
        QTest::newRow("display zero") << display << true
                                      << u"Full Desktop \u2022 Block List \u2022 0 apps \u2022 0 "
                                         "windows \u2022 Frame Screen \u2022 Canvas Image"_s;

        SharePreset imageOnly = fresh;
        imageOnly.configuration.canvasBackground.imageDisplayName = u"a.png"_s;
        QTest::newRow("black with image name")
            << imageOnly << true
            << u"Sanitized Windows \u2022 Allow List \u2022 0 apps \u2022 0 windows \u2022 Frame "
               "Screen \u2022 Canvas Black"_s;

        SharePreset dated = fresh;
        dated.lastUpdated = QDateTime(QDate(2025, 3, 14), QTime(9, 26, 53), QTimeZone::utc());
        QTest::newRow("saved empty")
            << dated << true
            << u"Sanitized Windows \u2022 Allow List \u2022 0 apps \u2022 0 windows \u2022 Frame "
               "Screen \u2022 Canvas Black"_s;
    }

    void summaryAndSavedState()
    {
        QFETCH(SharePreset, preset);
        QFETCH(bool, hasSaved);
        QFETCH(QString, summary);
        QCOMPARE(preset.hasSavedConfiguration(), hasSaved);
        QCOMPARE(preset.summaryText(), summary);
    }

    // The current format ("id"), and the older one ("kind") migrated.
    void presetJson_data()
    {
        addJsonColumns();
        const QByteArray never = R"("lastUpdated": "0001-01-01T00:00:00Z")";
        acceptRow("defaults", R"({"id": "custom.x"})",
                  R"({"id": "custom.x", "category": "custom", "title": "Preset",
                      "symbolName": "bookmark", "builtInKind": null, "selectedDisplayID": null,
                      "kind": null, )" +
                      never + "}");
        // A built-in's title and symbol come from the table, the stored ones are not read.
        acceptRow("built-in presentation",
                  R"({"id": "whatever", "category": "builtIn", "builtInKind": "presentation",
                      "title": 42, "symbolName": "star"})",
                  R"({"id": "whatever", "title": "Presentation",
                      "symbolName": "rectangle.on.rectangle.angled"})");
        acceptRow("built-in meeting",
                  R"({"id": "m", "category": "builtIn", "builtInKind": "meeting", "title": "x"})",
                  R"({"title": "Meeting", "symbolName": "person.2.crop.square.stack"})");
        acceptRow("built-in category without a kind",
                  R"({"id": "p", "category": "builtIn", "title": "Mine", "builtInKind": null})",
                  R"({"title": "Mine", "builtInKind": null})");
        acceptRow("configured",
                  R"({"id": "m", "category": "builtIn", "builtInKind": "meeting",
                      "selectedDisplayID": 4294967295, "outputContentMode": "fullDesktop",
                      "canvasBackground": {"mode": "customImage", "imageDisplayName": "a.png",
                          "imageRelativePath": "CanvasBackgrounds/a.png"},
                      "policy": {"mode": "blockList", "allowList": {"applications": [],
                          "windows": []}, "blockList": {"applications": [], "windows": [
                          {"application": {"applicationName": "Mail"}, "windowTitle": "Inbox",
                           "lastWindowID": 4821}]}},
                      "lastUpdated": "2025-03-14T09:26:53.999Z"})",
                  R"({"selectedDisplayID": 4294967295, "lastUpdated": "2025-03-14T09:26:53Z"})");

        acceptRow("older meeting, kind only", R"({"kind": "meeting"})",
                  R"({"id": "meeting", "category": "builtIn", "builtInKind": "meeting",
                      "title": "Meeting", "policy": {"mode": "allowList"},
                      "selectedDisplayID": null, )" +
                      never + "}");
        acceptRow("older meeting, dated",
                  R"({"kind": "meeting", "lastUpdated": "2025-03-14T09:26:53Z"})",
                  R"({"id": "meeting", "policy": {"mode": "blockList"},
                      "outputFrameMode": "screen", "lastUpdated": "2025-03-14T09:26:53Z"})");
        acceptRow("older presentation with a display",
                  R"({"kind": "presentation", "selectedDisplayID": 3, "title": 5})",
                  R"({"id": "presentation", "category": "builtIn", "builtInKind": "presentation",
                      "kind": null, "title": "Presentation", "policy": {"mode": "allowList"},
                      "selectedDisplayID": 3})");
        acceptRow("older coding", R"({"kind": "coding", "id": null})",
                  R"({"id": "custom.legacy.coding", "category": "custom", "title": "Coding",
                      "symbolName": "curlybraces", "builtInKind": null, )" +
                      never + "}");
        // Rules only in the inactive list are no content: the preset stays empty.
        acceptRow("older meeting, block rules under allow mode",
                  R"({"kind": "meeting", "policy": {"mode": "allowList",
                      "allowList": {"applications": [], "windows": []},
                      "blockList": {"applications": [{"applicationName": "A"}], "windows": []}}})",
                  R"({"policy": {"mode": "allowList", "blockList": {"applications": []}}, )" +
                      never + "}");

        rejectRow("no id, no kind", R"({"title": "x"})", u"kind"_s);
        rejectRow("unknown kind", R"({"kind": "gaming"})", u"kind"_s);
        rejectRow("id not a string", R"({"id": 7})", u"id"_s);
        rejectRow("unknown category", R"({"id": "a", "category": "shared"})", u"category"_s);
        rejectRow("unknown builtInKind", R"({"id": "a", "builtInKind": "coding"})",
                  u"builtInKind"_s);
        rejectRow("frame", R"({"id": "a", "outputFrameMode": "window"})", u"outputFrameMode"_s);
        rejectRow("content", R"({"id": "a", "outputContentMode": true})", u"outputContentMode"_s);
        rejectRow("display negative", R"({"id": "a", "selectedDisplayID": -1})",
                  u"selectedDisplayID"_s);
        rejectRow("title not a string", R"({"id": "a", "title": ["x"]})", u"title"_s);
        rejectRow("date without zone", R"({"id": "a", "lastUpdated": "2025-03-14T09:26:53"})",
                  u"lastUpdated"_s);
        rejectRow("date as number", R"({"id": "a", "lastUpdated": 0})", u"lastUpdated"_s);
        rejectRow("older, bad policy", R"({"kind": "coding", "policy": {}})", u"policy.mode"_s);
        rejectRow("older, bad date", R"({"kind": "meeting", "lastUpdated": "yesterday"})",
                  u"lastUpdated"_s);
    }

    void presetJson() { checkJsonRow<SharePreset>(); }

    void writtenFromAValue()
    {
        // Dates are written to the whole second; equal values hash alike.
        SharePreset preset = makeBuiltInPreset(BuiltInPresetKind::meeting);
        preset.configuration.policy.mode = VisibilityMode::blockList;
        const QDateTime saved(QDate(2025, 3, 14), QTime(9, 26, 53), QTimeZone::utc());
        preset.lastUpdated = saved.addMSecs(999);
        const auto again = decodeJson<SharePreset>(encodeJson(preset).value());
        QVERIFY(again);
        preset.lastUpdated = saved;
        QCOMPARE(again.value(), preset);
        QCOMPARE(qHash(again.value()), qHash(preset));
    }

    // ---- output settings
    void canvasTitle_data()
    {
        QTest::addColumn<CanvasBackgroundSelection>("canvas");
        QTest::addColumn<QString>("title");
        using M = CanvasBackgroundMode;
        QTest::newRow("black") << CanvasBackgroundSelection{} << u"Black"_s;
        QTest::newRow("custom without fields")
            << CanvasBackgroundSelection{M::customImage, {}, {}} << u"Image \u2022 Not Selected"_s;
        QTest::newRow("empty name") << CanvasBackgroundSelection{M::customImage, {}, u""_s}
                                    << u"Image \u2022 Not Selected"_s;
        QTest::newRow("named") << CanvasBackgroundSelection{M::customImage, {}, u"Backdrop.jpg"_s}
                               << u"Image \u2022 Backdrop.jpg"_s;
        QTest::newRow("colour keeps image")
            << CanvasBackgroundSelection{M::white, u"a/b.jpg"_s, u"Backdrop.jpg"_s} << u"White"_s;
    }

    void canvasTitle()
    {
        QFETCH(CanvasBackgroundSelection, canvas);
        QFETCH(QString, title);
        QCOMPARE(canvas.title(), title);
    }

    void cameraSummary()
    {
        CameraOverlayConfiguration overlay;
        overlay.position = CameraPosition::center;
        QCOMPARE(overlay.summaryText(), u"Off"_s);
        overlay.isEnabled = true;
        QCOMPARE(overlay.summaryText(), u"Center"_s);
        overlay.position = CameraPosition::bottomRight;
        QCOMPARE(overlay.summaryText(), u"Bottom Right"_s);
        overlay.position = CameraPosition::topLeft;
        QCOMPARE(overlay.summaryText(), u"Top Left"_s);
    }

    // The canvas mode alone reads leniently; every camera key but the device
    // is required.
    void outputSettingsJson_data()
    {
        addJsonColumns();
        QTest::addColumn<bool>("isCamera");
        const auto canvas = [](const char* name, const QByteArray& json, const QByteArray& written,
                               const QString& path = {}) {
            QTest::newRow(name) << json << written << path << false;
        };
        canvas("older desktop mode", R"({"mode": "desktop"})", R"({"mode": "black"})");
        canvas("unknown mode", R"({"mode": "Gray"})", R"({"mode": "black"})");
        canvas("gray", R"({"mode": "gray"})",
               R"({"mode": "gray", "imageRelativePath": null, "imageDisplayName": null})");
        canvas("colour with image",
               R"({"mode": "gray", "imageRelativePath": "CanvasBackgrounds/x.png",
                   "imageDisplayName": "x.png"})",
               R"({"imageRelativePath": "CanvasBackgrounds/x.png", "imageDisplayName": "x.png"})");
        canvas("mode a number", R"({"mode": 2})", {}, u"mode"_s);
        canvas("mode missing", R"({"imageDisplayName": "a.png"})", {}, u"mode"_s);
        canvas("path not a string", R"({"mode": "customImage", "imageRelativePath": []})", {},
               u"imageRelativePath"_s);

        const QJsonObject defaults =
            encodeJson(CameraOverlayConfiguration::defaultValue()).value().toObject();
        const QByteArray defaultText = QJsonDocument(defaults).toJson();
        QTest::newRow("camera defaults") << defaultText << defaultText << QString() << true;
        QJsonObject chosen = defaults;
        chosen.insert(u"cameraDeviceID"_s, u"/dev/video0"_s);
        chosen.insert(u"shape"_s, u"roundedSquare"_s);
        chosen.insert(u"marginTop"_s, 12.25);
        const QByteArray chosenText = QJsonDocument(chosen).toJson();
        QTest::newRow("camera chosen") << chosenText << chosenText << QString() << true;
        for (auto it = defaults.begin(); it != defaults.end(); ++it) {
            QJsonObject missing = defaults;
            missing.remove(it.key());
            QTest::addRow("camera without %s", qPrintable(it.key()))
                << QJsonDocument(missing).toJson() << QByteArray() << it.key() << true;
            missing.insert(it.key(), u"x"_s);
            QTest::addRow("camera %s a string", qPrintable(it.key()))
                << QJsonDocument(missing).toJson() << QByteArray() << it.key() << true;
        }
    }

    void outputSettingsJson()
    {
        QFETCH(bool, isCamera);
        if (isCamera)
            checkJsonRow<CameraOverlayConfiguration>();
        else
            checkJsonRow<CanvasBackgroundSelection>();
    }

    void cameraDefaults()
    {
        const auto encoded = encodeJson(CameraOverlayConfiguration::defaultValue());
        QVERIFY(encoded);
        QCOMPARE(encoded.value().toObject(), jsonObject(R"({"isEnabled": false,
            "position": "bottomRight", "shape": "circle", "isMirrored": false, "sizeScale": 1.5,
            "marginTop": 50, "marginBottom": 50, "marginLeft": 50, "marginRight": 50})"));

        CameraOverlayConfiguration overlay;
        overlay.marginRight = std::numeric_limits<double>::infinity();
        const auto infinite = encodeJson(overlay);
        QVERIFY(!infinite);
        QCOMPARE(infinite.error().path, u"marginRight"_s);
    }
};

QTEST_GUILESS_MAIN(TestModelValues)
#include "tst_model_values.moc"
