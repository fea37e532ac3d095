#include "presentation/PlacementGeometry.h"

#include <QTest>

using namespace vistrel;

namespace {

// Display 1 has no panels; display 2, at its left, has a 40-point bottom panel.
const QList<ScreenInfo> screens{{1, {}, {0, 0, 1440, 900}, {0, 0, 1440, 900}},
                                {2, {}, {-1920, 0, 1920, 1080}, {-1920, 0, 1920, 1040}}};
const QSizeF canvas(1920, 1080);

} // namespace

class TestPlacementGeometry : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void controlFrame_data()
    {
        QTest::addColumn<std::optional<qreal>>("preferred");
        QTest::addColumn<QRectF>("current");
        QTest::addColumn<QRectF>("initial");
        QTest::addColumn<std::optional<QRectF>>("resized");

        const QRectF fits(560, 590, 520, 170);
        QTest::newRow("below minimum") << std::optional<qreal>(120) << QRectF(560, 590, 520, 120)
                                       << fits << std::optional(fits);
        QTest::newRow("taller, top kept")
            << std::optional<qreal>(230) << fits << QRectF(560, 530, 520, 230)
            << std::optional(QRectF(560, 590, 520, 230));
        QTest::newRow("within a point") << std::optional<qreal>(230) << QRectF(0, 9, 521, 229)
                                        << QRectF(560, 530, 520, 230) << std::optional<QRectF>();
        QTest::newRow("wrong width, centre kept")
            << std::optional<qreal>() << QRectF(500, 9, 640, 170) << fits
            << std::optional(QRectF(560, 9, 520, 170));
    }
    void controlFrame()
    {
        QFETCH(std::optional<qreal>, preferred);
        QFETCH(QRectF, current);
        QFETCH(QRectF, initial);
        QFETCH(std::optional<QRectF>, resized);
        const qreal height = controlWindowHeight(preferred);
        QCOMPARE(initialControlFrame(QRectF(100, 30, 1440, 870), height), initial);
        QCOMPARE(resizedControlFrame(current, height), resized);
    }

    void screenContaining_data()
    {
        QTest::addColumn<QRectF>("rect");
        QTest::addColumn<std::optional<qsizetype>>("screen");

        QTest::newRow("largest share") << QRectF(-300, 0, 400, 300) << std::optional<qsizetype>(1);
        QTest::newRow("tie: earlier") << QRectF(-200, 0, 400, 300) << std::optional<qsizetype>(0);
        QTest::newRow("touching edge") << QRectF(1440, 0, 99, 99) << std::optional<qsizetype>();
        QTest::newRow("on the panel") << QRectF(-900, 1040, 99, 40) << std::optional<qsizetype>();
    }
    void screenContaining()
    {
        QFETCH(QRectF, rect);
        QFETCH(std::optional<qsizetype>, screen);
        QCOMPARE(vistrel::screenContaining(rect, screens), screen);
    }

    void outputWindowSize_data()
    {
        QTest::addColumn<QRectF>("area");
        QTest::addColumn<QSizeF>("ratio");
        QTest::addColumn<std::optional<QSize>>("size");

        QTest::newRow("1324.8 x 745.2")
            << QRectF(0, 0, 1440, 900) << canvas << std::optional(QSize(1324, 745));
        QTest::newRow("827.999..")
            << QRectF(0, 0, 1600, 1000) << QSizeF(1280, 720) << std::optional(QSize(1472, 828));
        QTest::newRow("tall") << QRectF(0, 0, 1440, 900) << QSizeF(1080, 1920)
                              << std::optional(QSize(465, 828));
        QTest::newRow("no ratio") << QRectF(0, 0, 1440, 900) << QSizeF(0, 1080)
                                  << std::optional<QSize>();
    }
    void outputWindowSize()
    {
        QFETCH(QRectF, area);
        QFETCH(QSizeF, ratio);
        QFETCH(std::optional<QSize>, size);
        QCOMPARE(vistrel::outputWindowSize(area, ratio), size);
    }
};

QTEST_APPLESS_MAIN(TestPlacementGeometry)
#include "tst_placement_geometry.moc"
