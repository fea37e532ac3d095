#include "model/IsoDate.h"
#include "model/PersistedAppState.h"
#include "support_json.h"

#include <QFile>
#include <QTest>
#include <QTimeZone>
#include <limits>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

namespace {

QByteArray exampleBytes()
{
    QFile file(QFINDTESTDATA("example-state.json"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("example-state.json is missing");
    return file.readAll();
}

QByteArray bytesOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson();
}

// A document with the empty policy and these members besides.
JsonResult<PersistedAppState> decodeWith(const QByteArray& members)
{
    return decodePersistedAppState(
        R"({"policy": {"mode": "allowList", "allowList": {"applications": [], "windows": []},
            "blockList": {"applications": [], "windows": []}})" +
        (members.isEmpty() ? QByteArray() : ", " + members) + "}");
}

QStringList ids(const QList<SharePreset>& presets)
{
    QStringList result;
    for (const SharePreset& preset : presets)
        result.append(preset.id);
    return result;
}

} // namespace

class PersistedStateTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exampleDocument()
    {
        const QByteArray original = exampleBytes();
        const auto decoded = decodePersistedAppState(original);
        QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
        QCOMPARE(decoded->normalized(), decoded.value());
        const PersistedAppState& state = decoded.value();
        QCOMPARE(state.configuration.selectedDisplayID, std::optional<quint32>(1));
        QCOMPARE(state.configuration.outputFrameMode, OutputFrameMode::dynamic);
        QCOMPARE(state.configuration.canvasBackground.title(), u"Image \u2022 Backdrop.jpg"_s);
        QCOMPARE(state.cameraOverlay, CameraOverlayConfiguration::defaultValue());
        QCOMPARE(ids(state.presets),
                 QStringList({u"presentation"_s, u"meeting"_s,
                              u"custom.0b9e4d7a-51c2-4f0e-8d3b-a2e6c9f14b77"_s}));
        QCOMPARE(state.presets[0].lastUpdated,
                 QDateTime(QDate(2025, 3, 14), QTime(9, 26, 53), QTimeZone::utc()));
        QVERIFY(!state.presets[1].hasSavedConfiguration());
        QCOMPARE(state.presets[2].summaryText(),
                 u"Full Desktop \u2022 Block List \u2022 0 apps \u2022 1 windows \u2022 Frame "
                 "Screen \u2022 Canvas Gray"_s);

        const auto encoded = encodePersistedAppState(state);
        QVERIFY(encoded);
        QCOMPARE(QJsonDocument::fromJson(encoded.value()), QJsonDocument::fromJson(original));
        // Byte for byte the canonical form: every object's keys sorted, one
        // member per line.
        QCOMPARE(encoded.value(), QJsonDocument::fromJson(encoded.value()).toJson());
        QVERIFY(encoded.value().contains("\"lastUpdated\": \"0001-01-01T00:00:00Z\""));
        QCOMPARE(decodePersistedAppState(encoded.value()).value(), state);
    }

    // Any failure anywhere rejects the whole document, named by its path.
    void rejectsWholeDocument_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("reason"); // how the reason starts
        const auto row = [](const char* name, const QByteArray& bytes, const QString& path,
                            const QString& reason) {
            QTest::newRow(name) << bytes << path << reason;
        };
        const QJsonObject example = QJsonDocument::fromJson(exampleBytes()).object();
        const auto with = [&](const QString& key, const QJsonValue& value) {
            QJsonObject copy = example;
            copy.insert(key, value);
            return bytesOf(copy);
        };
        // The example as written, with one piece of text replaced.
        const auto edited = [](const QByteArray& from, const QByteArray& to) {
            QByteArray bytes = exampleBytes();
            if (!bytes.contains(from))
                qFatal("the example holds no %s", from.constData());
            return bytes.replace(from, to);
        };
        QJsonObject policy = example.value(u"policy"_s).toObject();
        policy.insert(u"mode"_s, u"everything"_s);
        const QString json = u"not valid JSON"_s;
        const QString u32 = u"expected an unsigned 32-bit integer"_s;

        row("cut short", "{\"policy\": ", {}, json);
        row("empty", {}, {}, json);
        row("binary", QByteArray("\x89PNG\r\n\x1a\n\0\0", 10), {}, json);
        row("array", "[]", {}, u"the document is not a JSON object"_s);
        row("no policy", edited("\"policy\" : {\n    \"allowList\"", "\"rules\" : {\n    \"a\""),
            u"policy"_s, u"required key is missing"_s);
        row("null policy", with(u"policy"_s, QJsonValue::Null), u"policy"_s,
            u"required value is null"_s);
        row("unknown mode", with(u"policy"_s, policy), u"policy.mode"_s,
            u"unknown value \"everything\""_s);
        row("display fraction", with(u"selectedDisplayID"_s, 1.5), u"selectedDisplayID"_s, u32);
        row("display string", with(u"selectedDisplayID"_s, u"1"_s), u"selectedDisplayID"_s,
            u32 + u", found a string"_s);
        row("presets object", with(u"presets"_s, QJsonObject()), u"presets"_s,
            u"expected an array"_s);
        row("always on top string", with(u"isAlwaysOnTop"_s, u"yes"_s), u"isAlwaysOnTop"_s,
            u"expected a boolean, found a string"_s);
        row("canvas mode number", edited("\"mode\" : \"customImage\"", "\"mode\" : 1"),
            u"canvasBackground.mode"_s, {});
        row("camera key missing", edited("\"sizeScale\"", "\"scale\""),
            u"cameraOverlay.sizeScale"_s, {});
        row("number too large for a double", edited("1.5", "1e999"), {}, {});
        row("preset unknown kind",
            edited("\"meeting\",\n      \"canvas", "\"lecture\",\n \"canvas"),
            u"presets[1].builtInKind"_s, u"unknown value \"lecture\""_s);
        row("older preset without kind", edited("\"id\" : \"meeting\"", "\"name\" : \"meeting\""),
            u"presets[1].kind"_s, u"required key"_s);
        row("preset date without zone", edited("09:26:53Z", "09:26:53"),
            u"presets[0].lastUpdated"_s, u"expected an ISO-8601 date"_s);
        row("window id string", edited(": 4821", ": \"4821\""),
            u"presets[2].policy.blockList.windows[0].lastWindowID"_s, u32);
    }

    void rejectsWholeDocument()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, path);
        QFETCH(QString, reason);
        const auto decoded = decodePersistedAppState(bytes);
        QVERIFY(!decoded);
        QCOMPARE(decoded.error().path, path);
        QVERIFY2(decoded.error().reason.startsWith(reason) && !decoded.error().reason.isEmpty(),
                 qPrintable(decoded.error().description()));
    }

    void displayIDsAtTheBounds_data()
    {
        // Written as JSON text, because how a number is spelled decides how the
        // parser stores it (integer or double).
        QTest::addColumn<QByteArray>("number");
        QTest::addColumn<quint32>("id");
        QTest::newRow("zero") << QByteArray("0") << 0u;
        QTest::newRow("negative zero") << QByteArray("-0") << 0u;
        QTest::newRow("largest") << QByteArray("4294967295") << 4294967295u;
        QTest::newRow("largest as double") << QByteArray("4294967295.0") << 4294967295u;
        QTest::newRow("exponent") << QByteArray("1e3") << 1000u;
    }

    void displayIDsAtTheBounds()
    {
        QFETCH(QByteArray, number);
        QFETCH(quint32, id);
        const auto decoded = decodeWith("\"selectedDisplayID\": " + number);
        QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
        QCOMPARE(decoded->configuration.selectedDisplayID, std::optional<quint32>(id));
        // Written back as a plain integer that reads the same.
        const QByteArray written = encodePersistedAppState(decoded.value()).value();
        QVERIFY(written.contains("\"selectedDisplayID\": " + QByteArray::number(id) + "\n"));
        QCOMPARE(decodePersistedAppState(written).value(), decoded.value());
    }

    void missingKeysTakeTheDefaults()
    {
        // Null optional members count as missing.
        for (const QByteArray& members : {""_ba, R"("presets": null, "cameraOverlay": null)"_ba}) {
            const auto decoded = decodeWith(members);
            QVERIFY(decoded);
            QCOMPARE(decoded.value(), PersistedAppState::defaultState());
        }
        QVERIFY(PersistedAppState::defaultState().isAlwaysOnTop);
        QCOMPARE(ids(PersistedAppState::defaultState().presets),
                 QStringList({u"presentation"_s, u"meeting"_s}));

        // Written, the defaults omit the display; a display 0 and "not always
        // on top" are kept.
        PersistedAppState state = PersistedAppState::defaultState();
        QCOMPARE(
            QJsonDocument::fromJson(encodePersistedAppState(state).value()).object().keys(),
            QStringList({u"cameraOverlay"_s, u"canvasBackground"_s, u"isAlwaysOnTop"_s,
                         u"outputContentMode"_s, u"outputFrameMode"_s, u"policy"_s, u"presets"_s}));
        state.configuration.selectedDisplayID = 0;
        state.isAlwaysOnTop = false;
        const auto again = decodePersistedAppState(encodePersistedAppState(state).value());
        QVERIFY(again);
        QCOMPARE(again.value(), state);
    }

    // Built-ins first, exactly one of each kind; then the custom presets in
    // stored order. Each kept preset as "id title [display]".
    void normalisation_data()
    {
        QTest::addColumn<QByteArray>("presets");
        QTest::addColumn<QStringList>("expected");
        const QByteArray meeting = R"({"id": "meeting", "category": "builtIn",
            "builtInKind": "meeting", "selectedDisplayID": 9})";
        const auto custom = [](const char* id, const char* title) {
            return QByteArray(R"({"id": "ID", "title": "TITLE", "category": "custom"})")
                .replace("ID", id)
                .replace("TITLE", title);
        };
        const QString presentation = u"presentation Presentation"_s;
        QTest::newRow("customs first")
            << "[" + custom("c1", "One") + ", " + meeting + "]"
            << QStringList{presentation, u"meeting Meeting 9"_s, u"c1 One"_s};
        QTest::newRow("three customs, more than may be made")
            << "[" + custom("c1", "1") + "," + custom("c2", "2") + "," + custom("c3", "3") + "]"
            << QStringList{presentation, u"meeting Meeting"_s, u"c1 1"_s, u"c2 2"_s, u"c3 3"_s};
        QTest::newRow("duplicate ids, first wins")
            << "[" + custom("c1", "first") + "," + custom("c2", "2") + "," +
                   custom("c1", "second") + "]"
            << QStringList{presentation, u"meeting Meeting"_s, u"c1 first"_s, u"c2 2"_s};
        QTest::newRow("two of a kind, first wins")
            << "[" + meeting + R"(, {"id": "meeting-2", "category": "builtIn",
                   "builtInKind": "meeting"}])"
            << QStringList{presentation, u"meeting Meeting 9"_s};
        QTest::newRow("custom carrying a kind fills the slot only")
            << R"([{"id": "odd", "title": "Odd", "category": "custom",
                    "builtInKind": "presentation"}])"_ba
            << QStringList{u"odd Odd"_s, u"meeting Meeting"_s};
        QTest::newRow("custom reusing a built-in id")
            << "[" + custom("meeting", "Fake") + "]"
            << QStringList{presentation, u"meeting Meeting"_s};
        QTest::newRow("older file")
            << R"([{"kind": "presentation", "selectedDisplayID": 2}, {"kind": "coding"},
                   {"kind": "meeting"}])"_ba
            << QStringList{u"presentation Presentation 2"_s, u"meeting Meeting"_s,
                           u"custom.legacy.coding Coding"_s};
    }

    void normalisation()
    {
        QFETCH(QByteArray, presets);
        QFETCH(QStringList, expected);
        const auto decoded = decodeWith("\"presets\": " + presets);
        QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
        const PersistedAppState normal = decoded->normalized();
        QStringList kept;
        for (const SharePreset& preset : normal.presets) {
            const auto display = preset.configuration.selectedDisplayID;
            kept.append(preset.id + u' ' + preset.title +
                        (display ? u' ' + QString::number(*display) : QString()));
        }
        QCOMPARE(kept, expected);
        QCOMPARE(normal.normalized(), normal);
        // Written in the current format, it reads the same.
        QCOMPARE(decodePersistedAppState(encodePersistedAppState(normal).value()).value(), normal);
    }

    void dates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("utc"); // empty: rejected
        QTest::newRow("plain") << u"2025-03-14T09:26:53Z"_s << u"2025-03-14T09:26:53Z"_s;
        QTest::newRow("distant past") << u"0001-01-01T00:00:00Z"_s << u"0001-01-01T00:00:00Z"_s;
        QTest::newRow("last second") << u"9999-12-31T23:59:59Z"_s << u"9999-12-31T23:59:59Z"_s;
        QTest::newRow("fraction dropped")
            << u"2025-03-14T09:26:53.999Z"_s << u"2025-03-14T09:26:53Z"_s;
        QTest::newRow("offset") << u"2025-03-14T10:26:53+01:00"_s << u"2025-03-14T09:26:53Z"_s;
        QTest::newRow("negative offset")
            << u"2024-12-31T23:30:00-01:00"_s << u"2025-01-01T00:30:00Z"_s;
        QTest::newRow("leap day") << u"2024-02-29T00:00:00Z"_s << u"2024-02-29T00:00:00Z"_s;
        QTest::newRow("no zone") << u"2025-03-14T09:26:53"_s << QString();
        QTest::newRow("lower-case z") << u"2025-03-14T09:26:53z"_s << QString();
        QTest::newRow("space separator") << u"2025-03-14 09:26:53Z"_s << QString();
        QTest::newRow("date only") << u"2025-03-14"_s << QString();
        QTest::newRow("empty fraction") << u"2025-03-14T09:26:53.Z"_s << QString();
        QTest::newRow("hour 24") << u"2025-03-14T24:00:00Z"_s << QString();
        QTest::newRow("leap second") << u"2016-12-31T23:59:60Z"_s << QString();
        QTest::newRow("feb 29, no leap") << u"2025-02-29T00:00:00Z"_s << QString();
        QTest::newRow("month 13") << u"2025-13-01T00:00:00Z"_s << QString();
        QTest::newRow("year 0") << u"0000-06-01T00:00:00Z"_s << QString();
        QTest::newRow("before year 1 in UTC") << u"0001-01-01T00:30:00+01:00"_s << QString();
        QTest::newRow("after 9999 in UTC") << u"9999-12-31T23:30:00-01:00"_s << QString();
        QTest::newRow("trailing text") << u"2025-03-14T09:26:53Zjunk"_s << QString();
        QTest::newRow("full-width digit") << u"2025-03-14T09:26:5\uFF13Z"_s << QString();
        QTest::newRow("offset 24 hours") << u"2025-03-14T09:26:53+24:00"_s << QString();
    }

    void dates()
    {
        QFETCH(QString, text);
        QFETCH(QString, utc);
        const std::optional<QDateTime> parsed = parseIsoDate(text);
        QCOMPARE(parsed.has_value(), !utc.isEmpty());
        if (parsed)
            QCOMPARE(formatIsoDate(*parsed), std::optional<QString>(utc));
    }

    void unwritableValuesFailEncoding()
    {
        PersistedAppState state = PersistedAppState::defaultState();
        state.presets[1].lastUpdated = QDateTime();
        const auto encoded = encodePersistedAppState(state);
        QVERIFY(!encoded);
        QCOMPARE(encoded.error().path, u"presets[1].lastUpdated"_s);

        state = PersistedAppState::defaultState();
        state.cameraOverlay.sizeScale = std::numeric_limits<double>::quiet_NaN();
        QCOMPARE(encodePersistedAppState(state).error().path, u"cameraOverlay.sizeScale"_s);

        // A date before 1970 with a fraction still rounds toward the earlier second.
        const QDateTime early(QDate(1969, 12, 31), QTime(23, 59, 59, 500), QTimeZone::utc());
        QCOMPARE(formatIsoDate(early), std::optional<QString>(u"1969-12-31T23:59:59Z"_s));
    }
};

QTEST_GUILESS_MAIN(PersistedStateTest)
#include "tst_persisted_state.moc"
