#include "model/SharePreset.h"
#include "support_json.h"

#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

class SharePresetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void factories()
    {
        const QList<SharePreset> builtIns = defaultBuiltInPresets();
        // Titles and symbols come from the table the JSON rows check.
        QCOMPARE(builtIns.size(), 2);
        QCOMPARE(builtIns[0].id, u"presentation"_s);
        QCOMPARE(builtIns[1].title, u"Meeting"_s);
        QCOMPARE(builtIns[1].category, PresetCategory::builtIn);
        QVERIFY(builtIns[1].builtInKind == BuiltInPresetKind::meeting);

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
    void json_data()
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

    void json() { checkJsonRow<SharePreset>(); }

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
};

QTEST_GUILESS_MAIN(SharePresetTest)
#include "tst_share_preset.moc"
