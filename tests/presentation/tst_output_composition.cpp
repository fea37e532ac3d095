// The output window's composition rules that need no pipeline: symbols, the
// notice's symbol per status, where the picture and the canvas image go, and
// the camera bubble's place on the picture.

#include "model/OutputSettings.h"
#include "presentation/OutputOverlay.h"
#include "presentation/OutputStage.h"
#include "presentation/OutputWindow.h"
#include "presentation/SymbolIcon.h"

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

class OutputCompositionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        // As on a machine without any icon theme.
        QIcon::setThemeSearchPaths({});
        QIcon::setFallbackSearchPaths({});
        QIcon::setThemeName(u"none"_s);
    }

    // Every symbol shows in its tint and only in its tint, from the bundled
    // pictures when no theme has it.
    void everySymbolShowsWithoutATheme()
    {
        const QColor tint(20, 160, 90);
        QVERIFY(symbolImage(u"no.such.symbol", 38, tint).isNull());
        for (const QString& name : knownSymbols()) {
            QCOMPARE(symbolSource(name), u":/vistrel/symbols/%1.svg"_s.arg(name));
            const QImage image =
                symbolImage(name, 38, tint, 2.0).convertToFormat(QImage::Format_ARGB32);
            QCOMPARE(image.size(), QSize(76, 76));
            int solid = 0, clear = 0, foreign = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x) {
                    const QRgb pixel = image.pixel(x, y);
                    clear += qAlpha(pixel) == 0;
                    solid += qAlpha(pixel) == 255;
                    foreign += qAlpha(pixel) == 255 && QColor(pixel).rgb() != tint.rgb();
                }
            const int tenth = image.width() * image.height() / 10;
            QVERIFY2(solid > tenth && clear > tenth && foreign == 0, qPrintable(name));
        }
    }

    // A theme's symbolic name wins over its other name; what it lacks
    // still comes from the bundled pictures.
    void themeIconsComeFirst()
    {
        QTemporaryDir root;
        QVERIFY(QDir(root.path()).mkpath(u"probe/s"_s));
        QFile index(root.filePath(u"probe/index.theme"_s));
        QVERIFY(index.open(QIODevice::WriteOnly) &&
                index.write("[Icon Theme]\nDirectories=s\n[s]\nSize=16\nType=Scalable\n") > 0);
        index.close();
        for (const QString& name : {u"view-conceal-symbolic"_s, u"view-hidden"_s})
            QVERIFY(QFile::copy(u":/vistrel/symbols/eye.slash.svg"_s,
                                root.filePath(u"probe/s/%1.svg"_s.arg(name))));
        QIcon::setThemeSearchPaths({root.path()});
        QIcon::setThemeName(u"probe"_s);

        QCOMPARE(symbolSource(u"eye.slash"), u"view-conceal-symbolic"_s);
        QCOMPARE(symbolSource(u"display"), u":/vistrel/symbols/display.svg"_s);
        const QImage themed = symbolImage(u"eye.slash", 38, Qt::red);
        QCOMPARE(QColor(themed.pixel(19, 19)), QColor(Qt::red)); // the pupil
    }

    void noticeSymbol_data()
    {
        QTest::addColumn<StreamStatus>("status");
        QTest::addColumn<bool>("isLightCanvas");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QColor>("tint");

        QTest::newRow("panic hidden, dark canvas")
            << StreamStatus::blank(OutputBlankReason::panicHidden) << false << u"eye.slash"_s
            << QColor::fromRgbF(1, 1, 1, 0.7f);
        QTest::newRow("panic hidden, white canvas")
            << StreamStatus::blank(OutputBlankReason::panicHidden) << true << u"eye.slash"_s
            << QColor::fromRgbF(0, 0, 0, 0.7f);
        QTest::newRow("nothing selected stays orange on white")
            << StreamStatus::blank(OutputBlankReason::nothingSelected) << true << u"eye.slash"_s
            << QColor(0xff, 0x78, 0x00);
    }

    void noticeSymbol()
    {
        QFETCH(StreamStatus, status);
        QFETCH(bool, isLightCanvas);
        QFETCH(QString, name);
        QFETCH(QColor, tint);
        QCOMPARE(OutputOverlay::noticeSymbol(status, isLightCanvas), (NoticeSymbol{name, tint}));
    }

    // The picture keeps the canvas's aspect inside the window (bars where it
    // does not fill it); the canvas image covers the window, cropped and
    // centred.
    void stageRects_data()
    {
        QTest::addColumn<bool>("video"); // else the canvas image's rect
        QTest::addColumn<QSizeF>("content");
        QTest::addColumn<QRectF>("space");
        QTest::addColumn<QRectF>("expected");

        QTest::newRow("16:9 in a square: bars above and below")
            << true << QSizeF(1920, 1080) << QRectF(0, 0, 900, 900)
            << QRectF(0, 196.875, 900, 506.25);
        QTest::newRow("portrait in a landscape space: bars left and right")
            << true << QSizeF(1080, 1920) << QRectF(10, 20, 1280, 720)
            << QRectF(447.5, 20, 405, 720);
        QTest::newRow("same aspect fills the space")
            << true << QSizeF(2560, 1440) << QRectF(0, 0, 1280, 720) << QRectF(0, 0, 1280, 720);
        QTest::newRow("empty canvas takes the whole space")
            << true << QSizeF(0, 1080) << QRectF(0, 0, 640, 480) << QRectF(0, 0, 640, 480);
        QTest::newRow("square image, wide window: cropped above and below")
            << false << QSizeF(100, 100) << QRectF(0, 0, 400, 200) << QRectF(0, -100, 400, 400);
        QTest::newRow("wide image, square window: cropped left and right")
            << false << QSizeF(300, 100) << QRectF(0, 0, 400, 400) << QRectF(-400, 0, 1200, 400);
    }

    void stageRects()
    {
        QFETCH(bool, video);
        QFETCH(QSizeF, content);
        QFETCH(QRectF, space);
        QTEST(video ? OutputStage::videoRect(content, space)
                    : OutputStage::fillRect(content, space),
              "expected");
    }

    void cameraBubbleRect_data()
    {
        QTest::addColumn<QSizeF>("space");
        QTest::addColumn<CameraPosition>("position");
        QTest::addColumn<double>("sizeScale");
        QTest::addColumn<QRectF>("expected");

        // A 16:9 canvas; margins left 10, top 20, right 30, bottom 40.
        // Picture 2000 x 1125 at y 437.5; side 1.5 x 12 % of 1125.
        QTest::newRow("square window: bottomRight against the picture")
            << QSizeF(2000, 2000) << CameraPosition::bottomRight << 1.5
            << QRectF(1767.5, 1320, 202.5, 202.5);
        // Picture 160 x 90 at x 80; 12 % would be 10.8.
        QTest::newRow("tiny window keeps sizeScale x 80")
            << QSizeF(320, 90) << CameraPosition::topLeft << 2.0 << QRectF(90, 20, 160, 160);
        QTest::newRow("center ignores all margins") << QSizeF(1280, 720) << CameraPosition::center
                                                    << 1.0 << QRectF(596.8, 316.8, 86.4, 86.4);
        QTest::newRow("top ignores left and right")
            << QSizeF(1280, 720) << CameraPosition::top << 1.0 << QRectF(596.8, 20, 86.4, 86.4);
        QTest::newRow("left ignores top and bottom")
            << QSizeF(1280, 720) << CameraPosition::left << 1.0 << QRectF(10, 316.8, 86.4, 86.4);
    }

    void cameraBubbleRect()
    {
        QFETCH(QSizeF, space);
        QFETCH(CameraPosition, position);
        QFETCH(double, sizeScale);
        QFETCH(QRectF, expected);
        CameraOverlayConfiguration camera;
        camera.position = position;
        camera.sizeScale = sizeScale;
        camera.marginLeft = 10;
        camera.marginTop = 20;
        camera.marginRight = 30;
        camera.marginBottom = 40;
        QCOMPARE(OutputStage::cameraBubbleRect({1920, 1080}, QRectF({}, space), camera), expected);
    }
};

QTEST_MAIN(OutputCompositionTest)
#include "tst_output_composition.moc"
