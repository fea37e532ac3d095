#include "model/ModelJson.h"
#include "model/OutputSettings.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <limits>

using namespace vistrel;
using namespace Qt::StringLiterals;

class OutputSettingsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void canvasModeReadsLeniently_data();
    void canvasModeReadsLeniently();
    void canvasTitle_data();
    void canvasTitle();
    void canvasOmitsAbsentImageFields();
    void cameraSummary();
    void cameraDefaultRoundTripsWithoutDeviceKey();
    void cameraRequiresEveryOtherKey_data();
    void cameraRequiresEveryOtherKey();
    void cameraRejectsNonFiniteOnWrite();
    void enumerationOrder();
};

void OutputSettingsTest::canvasModeReadsLeniently_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("mode");
    QTest::newRow("older desktop") << QByteArray(R"({"mode": "desktop"})") << true << u"black"_s;
    QTest::newRow("unknown") << QByteArray(R"({"mode": "Gray"})") << true << u"black"_s;
    QTest::newRow("gray") << QByteArray(R"({"mode": "gray"})") << true << u"gray"_s;
    QTest::newRow("number") << QByteArray(R"({"mode": 2})") << false << QString();
    QTest::newRow("missing") << QByteArray(R"({"imageDisplayName": "a.png"})") << false
                             << QString();
    QTest::newRow("path not string")
        << QByteArray(R"({"mode": "customImage", "imageRelativePath": []})") << false << QString();
}

void OutputSettingsTest::canvasModeReadsLeniently()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, accepted);
    QFETCH(QString, mode);
    const auto decoded =
        decodeJson<CanvasBackgroundSelection>(QJsonDocument::fromJson(json).object());
    QCOMPARE(decoded.ok(), accepted);
    if (accepted)
        QCOMPARE(caseName(decoded->mode), mode);
}

void OutputSettingsTest::canvasTitle_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("title");
    QTest::newRow("custom without fields")
        << QByteArray(R"({"mode": "customImage"})") << u"Image \u2022 Not Selected"_s;
    QTest::newRow("empty name") << QByteArray(R"({"mode": "customImage", "imageDisplayName": ""})")
                                << u"Image \u2022 Not Selected"_s;
    QTest::newRow("named") << QByteArray(
                                  R"({"mode": "customImage", "imageDisplayName": "Backdrop.jpg"})")
                           << u"Image \u2022 Backdrop.jpg"_s;
    QTest::newRow("colour keeps image")
        << QByteArray(R"({"mode": "white", "imageDisplayName": "Backdrop.jpg"})") << u"White"_s;
    QTest::newRow("desktop") << QByteArray(R"({"mode": "desktop"})") << u"Black"_s;
}

void OutputSettingsTest::canvasTitle()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, title);
    const auto decoded =
        decodeJson<CanvasBackgroundSelection>(QJsonDocument::fromJson(json).object());
    QVERIFY(decoded);
    QCOMPARE(decoded->title(), title);
}

void OutputSettingsTest::canvasOmitsAbsentImageFields()
{
    const auto encoded = encodeJson(CanvasBackgroundSelection{});
    QVERIFY(encoded);
    QCOMPARE(encoded.value().toObject(), QJsonObject({{u"mode"_s, u"black"_s}}));
    CanvasBackgroundSelection withImage{CanvasBackgroundMode::gray, u"CanvasBackgrounds/x.png"_s,
                                        u"x.png"_s};
    const auto again = decodeJson<CanvasBackgroundSelection>(encodeJson(withImage).value());
    QCOMPARE(again.value(), withImage);
}

void OutputSettingsTest::cameraSummary()
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

void OutputSettingsTest::cameraDefaultRoundTripsWithoutDeviceKey()
{
    const CameraOverlayConfiguration& defaults = CameraOverlayConfiguration::defaultValue();
    QCOMPARE(defaults.sizeScale, 1.5);
    QCOMPARE(defaults.marginLeft, 50.0);
    QCOMPARE(caseName(defaults.position), u"bottomRight"_s);
    QCOMPARE(caseName(defaults.shape), u"circle"_s);
    const auto encoded = encodeJson(defaults);
    QVERIFY(encoded);
    const QJsonObject object = encoded.value().toObject();
    QVERIFY(!object.contains(u"cameraDeviceID"_s));
    QCOMPARE(object.size(), 9);
    QCOMPARE(decodeJson<CameraOverlayConfiguration>(object).value(), defaults);

    CameraOverlayConfiguration chosen = defaults;
    chosen.cameraDeviceID = u"/dev/video0"_s;
    chosen.shape = CameraShape::roundedSquare;
    chosen.marginTop = 12.25;
    QCOMPARE(decodeJson<CameraOverlayConfiguration>(encodeJson(chosen).value()).value(), chosen);
}

void OutputSettingsTest::cameraRequiresEveryOtherKey_data()
{
    QTest::addColumn<QString>("key");
    for (const char* key : {"isEnabled", "position", "shape", "isMirrored", "sizeScale",
                            "marginTop", "marginBottom", "marginLeft", "marginRight"})
        QTest::newRow(key) << QString::fromLatin1(key);
}

void OutputSettingsTest::cameraRequiresEveryOtherKey()
{
    QFETCH(QString, key);
    QJsonObject object = encodeJson(CameraOverlayConfiguration::defaultValue()).value().toObject();
    object.remove(key);
    const auto missing = decodeJson<CameraOverlayConfiguration>(object);
    QVERIFY(!missing);
    QCOMPARE(missing.error().path, key);
    // A value of the wrong type fails as well.
    object.insert(key, u"x"_s);
    QVERIFY(!decodeJson<CameraOverlayConfiguration>(object));
}

void OutputSettingsTest::cameraRejectsNonFiniteOnWrite()
{
    CameraOverlayConfiguration overlay;
    overlay.marginRight = std::numeric_limits<double>::infinity();
    const auto encoded = encodeJson(overlay);
    QVERIFY(!encoded);
    QCOMPARE(encoded.error().path, u"marginRight"_s);
}

void OutputSettingsTest::enumerationOrder()
{
    QStringList positions;
    for (CameraPosition position : allCameraPositions)
        positions.append(title(position));
    QCOMPARE(positions,
             QStringList({u"Top Left"_s, u"Top"_s, u"Top Right"_s, u"Left"_s, u"Center"_s,
                          u"Right"_s, u"Bottom Left"_s, u"Bottom"_s, u"Bottom Right"_s}));
    QStringList canvases;
    for (CanvasBackgroundMode mode : allCanvasBackgroundModes)
        canvases.append(caseName(mode));
    QCOMPARE(canvases, QStringList({u"black"_s, u"white"_s, u"gray"_s, u"customImage"_s}));
}

QTEST_GUILESS_MAIN(OutputSettingsTest)
#include "tst_output_settings.moc"
