#include "model/OutputSettings.h"
#include "support_json.h"

#include <QTest>
#include <limits>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

class OutputSettingsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
    void json_data()
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

    void json()
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

QTEST_GUILESS_MAIN(OutputSettingsTest)
#include "tst_output_settings.moc"
