#include "model/IsoDate.h"
#include "model/PersistedAppState.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QTimeZone>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

QByteArray exampleBytes()
{
    QFile file(QFINDTESTDATA("example-state.json"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("example-state.json is missing");
    return file.readAll();
}

QJsonObject exampleObject()
{
    return QJsonDocument::fromJson(exampleBytes()).object();
}

QByteArray bytesOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson();
}

// Walks pretty-printed JSON (one member per line) and reports the first
// object whose keys are not in ascending order.
QString firstUnsortedObject(const QByteArray& text)
{
    QList<QStringList> stack;
    for (const QByteArray& rawLine : text.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.startsWith(u'"') && !stack.isEmpty()) {
            const qsizetype end = line.indexOf(u'"', 1);
            stack.last().append(line.mid(1, end - 1));
        }
        if (line.endsWith(u'{'))
            stack.append(QStringList());
        if (line.startsWith(u'}') && !stack.isEmpty()) {
            const QStringList keys = stack.takeLast();
            QStringList sorted = keys;
            sorted.sort();
            if (keys != sorted)
                return keys.join(u", "_s);
        }
    }
    return {};
}

JsonResult<PersistedAppState> decode(const QJsonObject& object)
{
    return decodePersistedAppState(bytesOf(object));
}

QJsonObject emptyPolicy()
{
    const QJsonObject rules{{u"applications"_s, QJsonArray()}, {u"windows"_s, QJsonArray()}};
    return {{u"mode"_s, u"allowList"_s}, {u"allowList"_s, rules}, {u"blockList"_s, rules}};
}

QJsonObject customPreset(const QString& id, const QString& title)
{
    return {{u"id"_s, id}, {u"title"_s, title}, {u"category"_s, u"custom"_s}};
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
    void exampleDocumentRoundTrips();
    void exampleDocumentValues();
    void rejectsWholeDocument_data();
    void rejectsWholeDocument();
    void displayIDsAtTheBounds_data();
    void displayIDsAtTheBounds();
    void onlyPolicyReadsAsDefault();
    void alwaysOnTopFalseSurvives();
    void savedDocumentKeys();
    void normalisation_data();
    void normalisation();
    void legacyFileMigrates();
    void dates_data();
    void dates();
    void unwritableValuesFailEncoding();
};

void PersistedStateTest::exampleDocumentRoundTrips()
{
    const QByteArray original = exampleBytes();
    const auto decoded = decodePersistedAppState(original);
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    QCOMPARE(decoded->normalized(), decoded.value());

    const auto encoded = encodePersistedAppState(decoded.value());
    QVERIFY(encoded);
    QCOMPARE(QJsonDocument::fromJson(encoded.value()), QJsonDocument::fromJson(original));
    QCOMPARE(firstUnsortedObject(encoded.value()), QString());
    QVERIFY(encoded.value().count('\n') > 100); // pretty-printed, one member per line
    QVERIFY(encoded.value().contains("\"lastUpdated\": \"0001-01-01T00:00:00Z\""));
    QCOMPARE(decodePersistedAppState(encoded.value()).value(), decoded.value());

    // The checker itself notices unsorted keys.
    QVERIFY(!firstUnsortedObject("{\n\"b\": 1,\n\"a\": 2\n}\n").isEmpty());
}

void PersistedStateTest::exampleDocumentValues()
{
    const PersistedAppState state = decodePersistedAppState(exampleBytes()).value();
    QCOMPARE(state.configuration.selectedDisplayID, std::optional<quint32>(1));
    QCOMPARE(ids(state.presets), QStringList({u"presentation"_s, u"meeting"_s,
                                              u"custom.0b9e4d7a-51c2-4f0e-8d3b-a2e6c9f14b77"_s}));
    QCOMPARE(state.presets[0].lastUpdated,
             QDateTime(QDate(2025, 3, 14), QTime(9, 26, 53), QTimeZone::utc()));
    QCOMPARE(state.presets[1].lastUpdated, distantPast());
    QVERIFY(!state.presets[1].hasSavedConfiguration());
    QCOMPARE(state.presets[2].summaryText(),
             u"Full Desktop \u2022 Block List \u2022 0 apps \u2022 1 windows \u2022 Frame Screen "
             "\u2022 Canvas Gray"_s);
    QCOMPARE(state.configuration.canvasBackground.title(), u"Image \u2022 Backdrop.jpg"_s);
    QCOMPARE(state.cameraOverlay, CameraOverlayConfiguration::defaultValue());
    QCOMPARE(caseName(state.configuration.outputFrameMode), u"dynamic"_s);
}

void PersistedStateTest::rejectsWholeDocument_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("path");
    const QJsonObject example = exampleObject();
    const auto with = [&](const QString& key, const QJsonValue& value) {
        QJsonObject copy = example;
        copy.insert(key, value);
        return bytesOf(copy);
    };
    const auto withPreset = [&](int index, const QString& key, const QJsonValue& value) {
        QJsonObject copy = example;
        QJsonArray presets = copy.value(u"presets"_s).toArray();
        QJsonObject preset = presets[index].toObject();
        if (value.isUndefined())
            preset.remove(key);
        else
            preset.insert(key, value);
        presets[index] = preset;
        copy.insert(u"presets"_s, presets);
        return bytesOf(copy);
    };
    QJsonObject noPolicy = example;
    noPolicy.remove(u"policy"_s);
    QJsonObject noCameraKey = example;
    QJsonObject camera = noCameraKey.value(u"cameraOverlay"_s).toObject();
    camera.remove(u"sizeScale"_s);
    noCameraKey.insert(u"cameraOverlay"_s, camera);

    QTest::newRow("not JSON") << exampleBytes().left(200) << QString();
    QTest::newRow("array") << QByteArray("[]") << QString();
    QTest::newRow("empty object") << QByteArray("{}") << u"policy"_s;
    QTest::newRow("no policy") << bytesOf(noPolicy) << u"policy"_s;
    QTest::newRow("null policy") << with(u"policy"_s, QJsonValue::Null) << u"policy"_s;
    QTest::newRow("display fraction")
        << with(u"selectedDisplayID"_s, 1.5) << u"selectedDisplayID"_s;
    QTest::newRow("display negative") << with(u"selectedDisplayID"_s, -1) << u"selectedDisplayID"_s;
    QTest::newRow("display 2^32") << with(u"selectedDisplayID"_s, qint64(4294967296))
                                  << u"selectedDisplayID"_s;
    QTest::newRow("display string")
        << with(u"selectedDisplayID"_s, u"1"_s) << u"selectedDisplayID"_s;
    QTest::newRow("presets object") << with(u"presets"_s, QJsonObject()) << u"presets"_s;
    QTest::newRow("always on top string")
        << with(u"isAlwaysOnTop"_s, u"yes"_s) << u"isAlwaysOnTop"_s;
    QTest::newRow("unknown frame")
        << with(u"outputFrameMode"_s, u"window"_s) << u"outputFrameMode"_s;
    QTest::newRow("unknown content")
        << with(u"outputContentMode"_s, u"all"_s) << u"outputContentMode"_s;
    QTest::newRow("canvas mode number")
        << with(u"canvasBackground"_s, QJsonObject{{u"mode"_s, 1}}) << u"canvasBackground.mode"_s;
    QTest::newRow("camera key missing") << bytesOf(noCameraKey) << u"cameraOverlay.sizeScale"_s;
    QTest::newRow("preset unknown category")
        << withPreset(2, u"category"_s, u"shared"_s) << u"presets[2].category"_s;
    QTest::newRow("legacy preset without kind")
        << withPreset(1, u"id"_s, QJsonValue::Undefined) << u"presets[1].kind"_s;
    QTest::newRow("preset date without zone")
        << withPreset(0, u"lastUpdated"_s, u"2025-03-14T09:26:53"_s) << u"presets[0].lastUpdated"_s;
    QTest::newRow("preset display -1")
        << withPreset(0, u"selectedDisplayID"_s, -1) << u"presets[0].selectedDisplayID"_s;
    QByteArray badWindow = exampleBytes();
    badWindow.replace("\"lastWindowID\" : 4821", "\"lastWindowID\" : \"4821\"");
    QTest::newRow("window id string")
        << badWindow << u"presets[2].policy.blockList.windows[0].lastWindowID"_s;
}

void PersistedStateTest::rejectsWholeDocument()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, path);
    const auto decoded = decodePersistedAppState(bytes);
    QVERIFY(!decoded);
    QCOMPARE(decoded.error().path, path);
    QVERIFY(!decoded.error().description().isEmpty());
}

void PersistedStateTest::displayIDsAtTheBounds_data()
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

void PersistedStateTest::displayIDsAtTheBounds()
{
    QFETCH(QByteArray, number);
    QFETCH(quint32, id);
    QByteArray document = bytesOf({{u"policy"_s, emptyPolicy()}});
    document.insert(document.indexOf('{') + 1, "\"selectedDisplayID\": " + number + ",");
    const auto decoded = decodePersistedAppState(document);
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    QCOMPARE(decoded->configuration.selectedDisplayID, std::optional<quint32>(id));
    // Written back as a plain integer that reads the same.
    const QByteArray written = encodePersistedAppState(decoded.value()).value();
    QVERIFY(written.contains("\"selectedDisplayID\": " + QByteArray::number(id) + "\n"));
    QCOMPARE(decodePersistedAppState(written).value(), decoded.value());
}

void PersistedStateTest::onlyPolicyReadsAsDefault()
{
    const auto decoded = decode({{u"policy"_s, emptyPolicy()}});
    QVERIFY(decoded);
    QCOMPARE(decoded->normalized(), PersistedAppState::defaultState());
    QCOMPARE(ids(decoded->presets), QStringList({u"presentation"_s, u"meeting"_s}));
    QVERIFY(decoded->isAlwaysOnTop);

    // Null optional members count as missing.
    const auto nulls = decode({{u"policy"_s, emptyPolicy()},
                               {u"presets"_s, QJsonValue::Null},
                               {u"cameraOverlay"_s, QJsonValue::Null}});
    QVERIFY(nulls);
    QCOMPARE(nulls.value(), PersistedAppState::defaultState());
}

void PersistedStateTest::alwaysOnTopFalseSurvives()
{
    PersistedAppState state = PersistedAppState::defaultState();
    state.isAlwaysOnTop = false;
    const auto again = decodePersistedAppState(encodePersistedAppState(state).value());
    QVERIFY(again);
    QVERIFY(!again->isAlwaysOnTop);
}

void PersistedStateTest::savedDocumentKeys()
{
    PersistedAppState state = PersistedAppState::defaultState();
    QJsonObject written = QJsonDocument::fromJson(encodePersistedAppState(state).value()).object();
    QCOMPARE(written.keys(), QStringList({u"cameraOverlay"_s, u"canvasBackground"_s,
                                          u"isAlwaysOnTop"_s, u"outputContentMode"_s,
                                          u"outputFrameMode"_s, u"policy"_s, u"presets"_s}));
    state.configuration.selectedDisplayID = 0;
    written = QJsonDocument::fromJson(encodePersistedAppState(state).value()).object();
    QCOMPARE(written.value(u"selectedDisplayID"_s).toInteger(-1), 0);
}

void PersistedStateTest::normalisation_data()
{
    QTest::addColumn<QJsonArray>("presets");
    QTest::addColumn<QStringList>("expected");
    QJsonObject meeting{{u"id"_s, u"meeting"_s},
                        {u"category"_s, u"builtIn"_s},
                        {u"builtInKind"_s, u"meeting"_s},
                        {u"selectedDisplayID"_s, 9}};
    QTest::newRow("customs first") << QJsonArray{customPreset(u"c1"_s, u"One"_s), meeting}
                                   << QStringList{u"presentation"_s, u"meeting"_s, u"c1"_s};
    QTest::newRow("three customs")
        << QJsonArray{customPreset(u"c1"_s, u"1"_s), customPreset(u"c2"_s, u"2"_s),
                      customPreset(u"c3"_s, u"3"_s)}
        << QStringList{u"presentation"_s, u"meeting"_s, u"c1"_s, u"c2"_s, u"c3"_s};
    QTest::newRow("duplicate ids")
        << QJsonArray{customPreset(u"c1"_s, u"first"_s), customPreset(u"c2"_s, u"2"_s),
                      customPreset(u"c1"_s, u"second"_s)}
        << QStringList{u"presentation"_s, u"meeting"_s, u"c1"_s, u"c2"_s};
    QJsonObject secondMeeting = meeting;
    secondMeeting.insert(u"id"_s, u"meeting-2"_s);
    QTest::newRow("two of a kind, first wins")
        << QJsonArray{meeting, secondMeeting} << QStringList{u"presentation"_s, u"meeting"_s};
    QJsonObject customWithKind = customPreset(u"odd"_s, u"Odd"_s);
    customWithKind.insert(u"builtInKind"_s, u"presentation"_s);
    QTest::newRow("custom carrying a kind fills the slot only")
        << QJsonArray{customWithKind} << QStringList{u"odd"_s, u"meeting"_s};
    QTest::newRow("custom reusing a built-in id")
        << QJsonArray{customPreset(u"meeting"_s, u"Fake"_s)}
        << QStringList{u"presentation"_s, u"meeting"_s};
}

void PersistedStateTest::normalisation()
{
    QFETCH(QJsonArray, presets);
    QFETCH(QStringList, expected);
    const auto decoded = decode({{u"policy"_s, emptyPolicy()}, {u"presets"_s, presets}});
    QVERIFY2(decoded, qPrintable(decoded ? QString() : decoded.error().description()));
    const PersistedAppState normal = decoded->normalized();
    QCOMPARE(ids(normal.presets), expected);
    QCOMPARE(normal.normalized(), normal);
    if (expected.contains(u"c1"_s) && QTest::currentDataTag() == "duplicate ids"_ba)
        QCOMPARE(normal.presets[2].title, u"first"_s);
    if (QTest::currentDataTag() == "customs first"_ba)
        QCOMPARE(normal.presets[1].configuration.selectedDisplayID, std::optional<quint32>(9));
    if (QTest::currentDataTag() == "custom reusing a built-in id"_ba)
        QCOMPARE(normal.presets[1].title, u"Meeting"_s);
}

void PersistedStateTest::legacyFileMigrates()
{
    const QJsonArray presets{
        QJsonObject{{u"kind"_s, u"presentation"_s}, {u"selectedDisplayID"_s, 2}},
        QJsonObject{{u"kind"_s, u"coding"_s}},
        QJsonObject{{u"kind"_s, u"meeting"_s}},
    };
    const auto decoded = decode({{u"policy"_s, emptyPolicy()}, {u"presets"_s, presets}});
    QVERIFY(decoded);
    const PersistedAppState state = decoded->normalized();
    QCOMPARE(ids(state.presets),
             QStringList({u"presentation"_s, u"meeting"_s, u"custom.legacy.coding"_s}));
    QCOMPARE(state.presets[0].configuration.selectedDisplayID, std::optional<quint32>(2));
    QCOMPARE(state.presets[1], makeBuiltInPreset(BuiltInPresetKind::meeting));
    QCOMPARE(state.presets[2].title, u"Coding"_s);

    // Written back in the current format, it reads the same.
    const QByteArray written = encodePersistedAppState(state).value();
    QVERIFY(!written.contains("\"kind\""));
    QCOMPARE(decodePersistedAppState(written).value(), state);
}

void PersistedStateTest::dates_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("utc"); // empty: rejected
    QTest::newRow("plain") << u"2025-03-14T09:26:53Z"_s << u"2025-03-14T09:26:53Z"_s;
    QTest::newRow("distant past") << u"0001-01-01T00:00:00Z"_s << u"0001-01-01T00:00:00Z"_s;
    QTest::newRow("last second") << u"9999-12-31T23:59:59Z"_s << u"9999-12-31T23:59:59Z"_s;
    QTest::newRow("fraction dropped") << u"2025-03-14T09:26:53.999Z"_s << u"2025-03-14T09:26:53Z"_s;
    QTest::newRow("offset") << u"2025-03-14T10:26:53+01:00"_s << u"2025-03-14T09:26:53Z"_s;
    QTest::newRow("negative offset") << u"2024-12-31T23:30:00-01:00"_s << u"2025-01-01T00:30:00Z"_s;
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

void PersistedStateTest::dates()
{
    QFETCH(QString, text);
    QFETCH(QString, utc);
    const std::optional<QDateTime> parsed = parseIsoDate(text);
    QCOMPARE(parsed.has_value(), !utc.isEmpty());
    if (parsed)
        QCOMPARE(formatIsoDate(*parsed), std::optional<QString>(utc));
}

void PersistedStateTest::unwritableValuesFailEncoding()
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

QTEST_GUILESS_MAIN(PersistedStateTest)
#include "tst_persisted_state.moc"
