#include "model/VisibilityPolicy.h"
#include "support_json.h"

#include <QTest>

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

class VisibilityPolicyTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

    void json_data()
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

    void json() { checkJsonRow<VisibilityPolicy>(); }
};

QTEST_GUILESS_MAIN(VisibilityPolicyTest)
#include "tst_visibility_policy.moc"
