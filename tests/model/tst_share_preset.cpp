#include "model/ModelJson.h"
#include "model/SharePreset.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>
#include <QTimeZone>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

SharePreset decodePreset(const QByteArray& json)
{
    const auto decoded = decodeJson<SharePreset>(QJsonDocument::fromJson(json).object());
    if (!decoded) {
        qWarning("%s", qPrintable(decoded.error().description()));
        return {};
    }
    return decoded.value();
}

const QDateTime saved(QDate(2025, 3, 14), QTime(9, 26, 53), QTimeZone::utc());

} // namespace

class SharePresetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void factories();
    void summaryAndSavedState_data();
    void summaryAndSavedState();
    void builtInTakesTableTitle_data();
    void builtInTakesTableTitle();
    void currentFormatDefaults();
    void legacyMigration_data();
    void legacyMigration();
    void rejects_data();
    void rejects();
    void encodingOmitsAbsentKeys();
    void roundTrip();
};

void SharePresetTest::factories()
{
    const QList<SharePreset> builtIns = defaultBuiltInPresets();
    QCOMPARE(builtIns.size(), 2);
    QCOMPARE(builtIns[0].id, u"presentation"_s);
    QCOMPARE(builtIns[0].symbolName, u"rectangle.on.rectangle.angled"_s);
    QCOMPARE(builtIns[1].title, u"Meeting"_s);
    QCOMPARE(builtIns[1].symbolName, u"person.2.crop.square.stack"_s);
    QCOMPARE(caseName(builtIns[1].category), caseName(PresetCategory::builtIn));
    QVERIFY(builtIns[1].builtInKind == BuiltInPresetKind::meeting);

    const SharePreset custom = makeCustomPreset(u"Demo"_s);
    QCOMPARE(custom.id.size(), 43);
    QVERIFY(QRegularExpression(u"^custom\\.[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-"
                               "[0-9a-f]{12}$"_s)
                .match(custom.id)
                .hasMatch());
    QVERIFY(custom.id != makeCustomPreset(u"Demo"_s).id);
    QCOMPARE(custom.symbolName, u"bookmark"_s);
    QVERIFY(!custom.builtInKind);
    QCOMPARE(custom.lastUpdated, distantPast());
    QVERIFY(!custom.hasSavedConfiguration());
}

void SharePresetTest::summaryAndSavedState_data()
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
    oneApp.lastUpdated = saved;
    QTest::newRow("one app") << oneApp << true
                             << u"Sanitized Windows \u2022 Allow List \u2022 1 apps \u2022 0 "
                                "windows \u2022 Frame Screen \u2022 Canvas Black"_s;

    SharePreset full = fresh;
    full.configuration.policy.allowList.applications = {{u"a"_s, u"A"_s}, {u"b"_s, u"B"_s}};
    full.configuration.policy.allowList.windows.insert(WindowIdentity({u"c"_s, u"C"_s}, u"t"_s, 3));
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
}

void SharePresetTest::summaryAndSavedState()
{
    QFETCH(SharePreset, preset);
    QFETCH(bool, hasSaved);
    QFETCH(QString, summary);
    QCOMPARE(preset.hasSavedConfiguration(), hasSaved);
    QCOMPARE(preset.summaryText(), summary);
}

void SharePresetTest::builtInTakesTableTitle_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("symbol");
    QTest::newRow("presentation") << u"presentation"_s << u"Presentation"_s
                                  << u"rectangle.on.rectangle.angled"_s;
    QTest::newRow("meeting") << u"meeting"_s << u"Meeting"_s << u"person.2.crop.square.stack"_s;
}

void SharePresetTest::builtInTakesTableTitle()
{
    QFETCH(QString, kind);
    QFETCH(QString, title);
    QFETCH(QString, symbol);
    // The stored title is not even read, so a wrong type there is harmless.
    const QJsonObject json{{u"id"_s, u"whatever"_s},
                           {u"category"_s, u"builtIn"_s},
                           {u"builtInKind"_s, kind},
                           {u"title"_s, 42},
                           {u"symbolName"_s, u"star"_s}};
    const auto decoded = decodeJson<SharePreset>(json);
    QVERIFY(decoded);
    QCOMPARE(decoded->title, title);
    QCOMPARE(decoded->symbolName, symbol);
    QCOMPARE(decoded->id, u"whatever"_s);
}

void SharePresetTest::currentFormatDefaults()
{
    const SharePreset preset = decodePreset(R"({"id": "custom.x"})");
    QCOMPARE(preset.id, u"custom.x"_s);
    QCOMPARE(caseName(preset.category), caseName(PresetCategory::custom));
    QCOMPARE(preset.title, u"Preset"_s);
    QCOMPARE(preset.symbolName, u"bookmark"_s);
    QVERIFY(!preset.hasSavedConfiguration());

    // Built-in category without a kind keeps its stored texts.
    const SharePreset loose =
        decodePreset(R"({"id": "p", "category": "builtIn", "title": "Mine", "builtInKind": null})");
    QCOMPARE(loose.title, u"Mine"_s);
    QVERIFY(!loose.builtInKind);
}

void SharePresetTest::legacyMigration_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("hasSaved");
    QTest::newRow("meeting, kind only")
        << QByteArray(R"({"kind": "meeting"})") << u"meeting"_s << u"allowList"_s << false;
    QTest::newRow("meeting, dated")
        << QByteArray(R"({"kind": "meeting", "lastUpdated": "2025-03-14T09:26:53Z"})")
        << u"meeting"_s << u"blockList"_s << true;
    QTest::newRow("presentation, display")
        << QByteArray(R"({"kind": "presentation", "selectedDisplayID": 3, "title": 5})")
        << u"presentation"_s << u"allowList"_s << true;
    QTest::newRow("coding, empty") << QByteArray(R"({"kind": "coding", "id": null})")
                                   << u"custom.legacy.coding"_s << u"allowList"_s << false;
    QTest::newRow("meeting, block rules stored under allow mode")
        << QByteArray(R"({"kind": "meeting", "policy": {"mode": "allowList",
             "allowList": {"applications": [], "windows": []},
             "blockList": {"applications": [{"applicationName": "A"}], "windows": []}}})")
        << u"meeting"_s << u"allowList"_s << false;
}

void SharePresetTest::legacyMigration()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, id);
    QFETCH(QString, mode);
    QFETCH(bool, hasSaved);
    const SharePreset preset = decodePreset(json);
    QCOMPARE(preset.id, id);
    QCOMPARE(caseName(preset.configuration.policy.mode), mode);
    QCOMPARE(preset.hasSavedConfiguration(), hasSaved);
    QCOMPARE(caseName(preset.configuration.outputFrameMode), u"screen"_s);
    if (id == u"custom.legacy.coding"_s) {
        QCOMPARE(preset.title, u"Coding"_s);
        QCOMPARE(preset.symbolName, u"curlybraces"_s);
        QCOMPARE(caseName(preset.category), caseName(PresetCategory::custom));
        QVERIFY(!preset.builtInKind);
    } else {
        QCOMPARE(caseName(preset.category), caseName(PresetCategory::builtIn));
        QCOMPARE(preset.title, id == u"meeting"_s ? u"Meeting"_s : u"Presentation"_s);
    }
    if (json.contains("lastUpdated"))
        QCOMPARE(preset.lastUpdated, saved);
    if (json.contains("selectedDisplayID"))
        QCOMPARE(preset.configuration.selectedDisplayID, std::optional<quint32>(3));
}

void SharePresetTest::rejects_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("path");
    QTest::newRow("no id, no kind") << QByteArray(R"({"title": "x"})") << u"kind"_s;
    QTest::newRow("unknown kind") << QByteArray(R"({"kind": "gaming"})") << u"kind"_s;
    QTest::newRow("id not string") << QByteArray(R"({"id": 7})") << u"id"_s;
    QTest::newRow("unknown category")
        << QByteArray(R"({"id": "a", "category": "shared"})") << u"category"_s;
    QTest::newRow("unknown builtInKind")
        << QByteArray(R"({"id": "a", "builtInKind": "coding"})") << u"builtInKind"_s;
    QTest::newRow("frame") << QByteArray(R"({"id": "a", "outputFrameMode": "window"})")
                           << u"outputFrameMode"_s;
    QTest::newRow("content") << QByteArray(R"({"id": "a", "outputContentMode": true})")
                             << u"outputContentMode"_s;
    QTest::newRow("display negative")
        << QByteArray(R"({"id": "a", "selectedDisplayID": -1})") << u"selectedDisplayID"_s;
    QTest::newRow("title not string") << QByteArray(R"({"id": "a", "title": ["x"]})") << u"title"_s;
    QTest::newRow("date without zone")
        << QByteArray(R"({"id": "a", "lastUpdated": "2025-03-14T09:26:53"})") << u"lastUpdated"_s;
    QTest::newRow("date as number")
        << QByteArray(R"({"id": "a", "lastUpdated": 0})") << u"lastUpdated"_s;
    QTest::newRow("legacy bad policy")
        << QByteArray(R"({"kind": "coding", "policy": {}})") << u"policy.mode"_s;
    QTest::newRow("legacy bad date")
        << QByteArray(R"({"kind": "meeting", "lastUpdated": "yesterday"})") << u"lastUpdated"_s;
}

void SharePresetTest::rejects()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, path);
    const auto decoded = decodeJson<SharePreset>(QJsonDocument::fromJson(json).object());
    QVERIFY(!decoded);
    QCOMPARE(decoded.error().path, path);
    QVERIFY(!decoded.error().reason.isEmpty());
}

void SharePresetTest::encodingOmitsAbsentKeys()
{
    const QJsonObject custom = encodeJson(makeCustomPreset(u"A"_s)).value().toObject();
    QVERIFY(!custom.contains(u"builtInKind"_s));
    QVERIFY(!custom.contains(u"selectedDisplayID"_s));
    QVERIFY(!custom.contains(u"kind"_s));
    QCOMPARE(custom.value(u"lastUpdated"_s).toString(), u"0001-01-01T00:00:00Z"_s);
    QCOMPARE(custom.size(), 9);

    const SharePreset legacy = decodePreset(R"({"kind": "presentation"})");
    const QJsonObject builtIn = encodeJson(legacy).value().toObject();
    QVERIFY(!builtIn.contains(u"kind"_s));
    QCOMPARE(builtIn.value(u"builtInKind"_s).toString(), u"presentation"_s);
}

void SharePresetTest::roundTrip()
{
    SharePreset preset = makeBuiltInPreset(BuiltInPresetKind::meeting);
    preset.configuration.policy.mode = VisibilityMode::blockList;
    preset.configuration.policy.blockList.windows.insert(
        WindowIdentity({u"m"_s, u"Mail"_s}, u"Inbox"_s, 4821));
    preset.configuration.selectedDisplayID = 4294967295u;
    preset.configuration.outputContentMode = OutputContentMode::fullDesktop;
    preset.configuration.canvasBackground = {CanvasBackgroundMode::customImage,
                                             u"CanvasBackgrounds/a.png"_s, u"a.png"_s};
    preset.lastUpdated = saved.addMSecs(999); // fractions are not kept
    const auto again = decodeJson<SharePreset>(encodeJson(preset).value());
    QVERIFY(again);
    preset.lastUpdated = saved;
    QCOMPARE(again.value(), preset);
    QCOMPARE(qHash(again.value()), qHash(preset));
}

QTEST_GUILESS_MAIN(SharePresetTest)
#include "tst_share_preset.moc"
