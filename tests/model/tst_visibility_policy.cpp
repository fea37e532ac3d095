#include "model/ModelJson.h"
#include "model/VisibilityPolicy.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

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
    void workedExample();
    void demotionDropsStaleRules();
    void oneWindowApplicationPromotesAtOnce();
    void applicationWithoutWindows_data();
    void applicationWithoutWindows();
    void windowRulesAreExact();
    void editsTouchOnlyTheActiveList();
    void clearActiveRules();
    void setApplicationRemovesListedWindowRules();
    void ruleCountText_data();
    void ruleCountText();
    void jsonRoundTrip();
    void jsonRejects_data();
    void jsonRejects();
};

void VisibilityPolicyTest::workedExample()
{
    VisibilityPolicy policy;
    const auto& [w1, w2, w3] = std::tie(windowsA[0], windowsA[1], windowsA[2]);

    policy.toggleWindow(w1, windowsA);
    QCOMPARE(policy.allowList.windows, QSet<WindowIdentity>({w1}));
    QCOMPARE(caseName(policy.applicationState(appA, windowsA)),
             caseName(SourceVisibilityState::partial));

    policy.toggleWindow(w2, windowsA);
    policy.toggleWindow(w3, windowsA);
    QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appA}));
    QVERIFY(policy.allowList.windows.isEmpty());
    QCOMPARE(caseName(policy.applicationState(appA, windowsA)),
             caseName(SourceVisibilityState::shown));

    policy.toggleWindow(w2, windowsA);
    QVERIFY(policy.allowList.applications.isEmpty());
    QCOMPARE(policy.allowList.windows, QSet<WindowIdentity>({w1, w3}));
    QCOMPARE(caseName(policy.applicationState(appA, windowsA)),
             caseName(SourceVisibilityState::partial));
    QCOMPARE(caseName(policy.windowState(w2)), caseName(SourceVisibilityState::hidden));

    policy.toggleApplication(appA, windowsA);
    QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appA}));
    QVERIFY(policy.allowList.windows.isEmpty());

    policy.toggleApplication(appA, windowsA);
    QVERIFY(policy.allowList.isEmpty());
    QVERIFY(policy.blockList.isEmpty());
}

void VisibilityPolicyTest::demotionDropsStaleRules()
{
    RuleSet rules;
    const WindowIdentity stale(appA, u"gone"_s, 99);
    const WindowIdentity otherApp = windowOf(appB, 5);
    rules.applications.insert(appA);
    rules.windows = {stale, otherApp};
    rules.setWindow(windowsA[0], false, windowsA);
    QVERIFY(rules.applications.isEmpty());
    QCOMPARE(rules.windows, QSet<WindowIdentity>({windowsA[1], windowsA[2], otherApp}));

    // Selecting a window already covered by its application changes nothing.
    RuleSet covered;
    covered.applications.insert(appA);
    const RuleSet before = covered;
    covered.setWindow(windowsA[1], true, windowsA);
    QCOMPARE(covered, before);
}

void VisibilityPolicyTest::oneWindowApplicationPromotesAtOnce()
{
    VisibilityPolicy policy;
    const QList<WindowIdentity> only{windowOf(appB, 8)};
    policy.toggleWindow(only[0], only);
    QCOMPARE(policy.allowList.applications, QSet<AppIdentity>({appB}));
    QVERIFY(policy.allowList.windows.isEmpty());

    // With no sibling list there is nothing to promote to.
    RuleSet rules;
    rules.setWindow(only[0], true, {});
    QVERIFY(rules.applications.isEmpty());
    QCOMPARE(rules.windows.size(), 1);
}

void VisibilityPolicyTest::applicationWithoutWindows_data()
{
    QTest::addColumn<VisibilityMode>("mode");
    QTest::addColumn<bool>("hasRule");
    QTest::addColumn<SourceVisibilityState>("expected");
    QTest::newRow("allow, no rule")
        << VisibilityMode::allowList << false << SourceVisibilityState::hidden;
    QTest::newRow("block, no rule")
        << VisibilityMode::blockList << false << SourceVisibilityState::shown;
    QTest::newRow("allow, rule") << VisibilityMode::allowList << true
                                 << SourceVisibilityState::shown;
    QTest::newRow("block, rule") << VisibilityMode::blockList << true
                                 << SourceVisibilityState::hidden;
}

void VisibilityPolicyTest::applicationWithoutWindows()
{
    QFETCH(VisibilityMode, mode);
    QFETCH(bool, hasRule);
    QFETCH(SourceVisibilityState, expected);
    VisibilityPolicy policy;
    policy.setMode(mode);
    if (hasRule)
        policy.activeRules().applications.insert(appB);
    QCOMPARE(policy.isApplicationSelected(appB, {}), hasRule);
    QCOMPARE(caseName(policy.applicationState(appB, {})), caseName(expected));
}

void VisibilityPolicyTest::windowRulesAreExact()
{
    VisibilityPolicy policy;
    policy.allowList.windows.insert(WindowIdentity(appA, u"Notes"_s, 4711));
    QVERIFY(policy.covers(WindowIdentity(appA, u"Notes"_s, 4711)));
    QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes"_s, 4712)));
    QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes 2"_s, 4711)));
    QVERIFY(!policy.covers(WindowIdentity(appA, u"Notes"_s, std::nullopt)));
}

void VisibilityPolicyTest::editsTouchOnlyTheActiveList()
{
    VisibilityPolicy policy;
    policy.toggleWindow(windowsA[0], windowsA);
    const RuleSet allow = policy.allowList;
    policy.setMode(VisibilityMode::blockList);
    QVERIFY(!policy.hasActiveRules());
    QCOMPARE(caseName(policy.applicationState(appA, windowsA)),
             caseName(SourceVisibilityState::shown));
    policy.toggleApplication(appA, windowsA);
    QCOMPARE(caseName(policy.applicationState(appA, windowsA)),
             caseName(SourceVisibilityState::hidden));
    QCOMPARE(caseName(policy.windowState(windowsA[2])), caseName(SourceVisibilityState::hidden));
    QCOMPARE(policy.allowList, allow);
    policy.setMode(VisibilityMode::allowList);
    QCOMPARE(policy.activeRules(), allow);
    QCOMPARE(policy.blockList.applications, QSet<AppIdentity>({appA}));
}

void VisibilityPolicyTest::clearActiveRules()
{
    VisibilityPolicy policy;
    policy.clearActiveRules();
    QCOMPARE(policy, VisibilityPolicy::defaultValue());
    policy.blockList.applications.insert(appB);
    policy.allowList.windows.insert(windowsA[0]);
    policy.clearActiveRules();
    QVERIFY(policy.allowList.isEmpty());
    QCOMPARE(policy.blockList.applications.size(), 1);
}

void VisibilityPolicyTest::setApplicationRemovesListedWindowRules()
{
    VisibilityPolicy policy;
    policy.allowList.windows = {windowsA[0], windowsA[1]};
    policy.setApplication(appA, false, windowsA);
    QVERIFY(policy.allowList.isEmpty());
    policy.setApplication(appA, true, windowsA);
    QCOMPARE(policy.activeRuleCount(), 1);
}

void VisibilityPolicyTest::ruleCountText_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << 0 << u"0 rules"_s;
    QTest::newRow("1") << 1 << u"1 rule"_s;
    QTest::newRow("2") << 2 << u"2 rules"_s;
}

void VisibilityPolicyTest::ruleCountText()
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

void VisibilityPolicyTest::jsonRoundTrip()
{
    VisibilityPolicy policy;
    policy.setMode(VisibilityMode::blockList);
    policy.allowList.applications = {appA, appB};
    policy.blockList.windows = {windowsA[0], WindowIdentity(appB, u"x"_s, std::nullopt)};
    const auto encoded = encodeJson(policy);
    QVERIFY(encoded);
    const QJsonObject object = encoded.value().toObject();
    QCOMPARE(object.value(u"mode"_s).toString(), u"blockList"_s);
    QCOMPARE(object.value(u"blockList"_s)[u"windows"_s].toArray().size(), 2);
    const auto decoded = decodeJson<VisibilityPolicy>(encoded.value());
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    QCOMPARE(decoded.value(), policy);
}

void VisibilityPolicyTest::jsonRejects_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("path");
    const QByteArray empty = R"({"applications": [], "windows": []})";
    QTest::newRow("no blockList") << R"({"mode": "allowList", "allowList": )" + empty + "}"
                                  << u"blockList"_s;
    QTest::newRow("unknown mode") << R"({"mode": "both", "allowList": )" + empty +
                                         R"(, "blockList": )" + empty + "}"
                                  << u"mode"_s;
    QTest::newRow("windows missing")
        << R"({"mode": "allowList", "allowList": {"applications": []}, "blockList": )" + empty + "}"
        << u"allowList.windows"_s;
    QTest::newRow("bad element")
        << R"({"mode": "allowList", "allowList": {"applications": [{"applicationName": "a"}, {}], "windows": []}, "blockList": )" +
               empty + "}"
        << u"allowList.applications[1].applicationName"_s;
    QTest::newRow("null mode") << R"({"mode": null, "allowList": )" + empty + R"(, "blockList": )" +
                                      empty + "}"
                               << u"mode"_s;
}

void VisibilityPolicyTest::jsonRejects()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, path);
    const auto decoded = decodeJson<VisibilityPolicy>(QJsonDocument::fromJson(json).object());
    QVERIFY(!decoded);
    QCOMPARE(decoded.error().path, path);
}

QTEST_GUILESS_MAIN(VisibilityPolicyTest)
#include "tst_visibility_policy.moc"
