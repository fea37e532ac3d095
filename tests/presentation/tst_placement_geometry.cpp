#include "presentation/OutputPlacement.h"
#include "presentation/PlacementGeometry.h"

#include <QTest>

using namespace vistrel;
using Input = OutputPlacement::Input;
using Presentation = OutputWindowPresentation;
using OptRect = std::optional<QRect>;
using OptID = std::optional<quint32>;

namespace QTest {
template<> char* toString(const OptRect& rect)
{
    return rect ? toString(*rect) : qstrdup("none");
}
template<> char* toString(const OptID& id)
{
    return id ? toString(*id) : qstrdup("none");
}
} // namespace QTest

namespace {

// Display 1 has no panels; display 2, at its left, has a 40-point bottom panel.
const QList<ScreenInfo> screens{{1, {}, {0, 0, 1440, 900}, {0, 0, 1440, 900}},
                                {2, {}, {-1920, 0, 1920, 1080}, {-1920, 0, 1920, 1040}}};
const QSizeF canvas(1920, 1080);
const QRect centredOn1(58, 77, 1324, 745), centredOn2(-1810, 42, 1700, 956);
const QRect dockedOn1(1439, 899, 1324, 745);
const QRect on1(0, 155, 1324, 745), on2(-1500, 100, 1324, 745); // placed by the user
const auto centred = Presentation::centered, docked = Presentation::docked;

// By default the control first appeared on display 1, and so did the window as
// the window system reports it (a docked window is on no visible area, yet on
// a screen).
Input inputAt(QRect frame, OptID registryLock, Presentation presentation = centred,
              OptID control = 1, std::optional<qsizetype> windowScreen = 0)
{
    return {frame, screens, windowScreen, registryLock, control, canvas, 0, presentation};
}

OutputPlacement placed(OptID lock, Presentation presentation = centred)
{
    return {.lockedScreenID = lock,
            .lastAppliedRecenterToken = 0,
            .lastAppliedPresentation = presentation};
}

template<typename Edit> Input with(Input in, Edit edit)
{
    edit(in);
    return in;
}

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

    void dockedCorner_data()
    {
        QTest::addColumn<QList<ScreenInfo>>("layout");
        QTest::addColumn<int>("locked");
        QTest::addColumn<QPoint>("origin");

        const ScreenInfo a{1, {}, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}};
        const ScreenInfo b{2, {}, {1920, 0, 1920, 1080}, {1920, 0, 1920, 1040}};
        const ScreenInfo under{3, {}, {-1766, 1080, 7000, 2000}, {-1766, 1080, 7000, 2000}};
        QTest::newRow("one display: bottom-right") << QList{a} << 0 << QPoint(1919, 1079);
        QTest::newRow("monitor to the right: bottom-left")
            << QList{a, b} << 0 << QPoint(-1765, 1079);
        QTest::newRow("rightmost monitor: bottom-right") << QList{a, b} << 1 << QPoint(3839, 1039);
        QTest::newRow("monitors right and below: top-right")
            << QList{a, b, under} << 1 << QPoint(3839, -992);
        QTest::newRow("no free corner: bottom-right")
            << QList{a, {4, {}, {-9000, -9000, 20000, 20000}, {}}} << 0 << QPoint(1919, 1079);
    }
    void dockedCorner()
    {
        QFETCH(QList<ScreenInfo>, layout);
        QFETCH(int, locked);
        QFETCH(QPoint, origin);
        QCOMPARE(dockedOutputOrigin(layout[locked].visibleFrame, QSize(1766, 993), layout), origin);
    }

    void outputPlacement_data()
    {
        QTest::addColumn<OutputPlacement>("before");
        QTest::addColumn<Input>("input");
        QTest::addColumn<OptRect>("frame");
        QTest::addColumn<OptID>("lock");
        QTest::addColumn<OptID>("registryLock"); // written by the lock resolution

        const auto row = [](const char* name, OutputPlacement before, Input in, OptRect frame,
                            OptID lock, OptID registryLock = {}) {
            QTest::newRow(name) << before << in << frame << lock << registryLock;
        };
        // First placement: the control's display, else the largest overlap.
        row("first: control's display", {}, inputAt(on2, {}), centredOn1, 1, 1);
        row("first: overlap before window system", {}, inputAt(on1, {}, centred, {}, 1), centredOn1,
            1, 1);
        // Then: the registry lock, and once the locked display is gone (9) the
        // control's display, the window system's screen, the largest overlap,
        // the first display.
        row("registry lock wins", placed(1), inputAt(centredOn1, 2), centredOn2, 2);
        row("lost: control's display", placed(9), inputAt(on1, 9, centred, 2), centredOn2, 2);
        row("lost: window system before overlap", placed(9), inputAt(on1, 9, centred, {}, 1),
            centredOn2, 2);
        row("lost: overlap", placed(9), inputAt(on2, 9, centred, {}, {}), centredOn2, 2);
        row("lost: nowhere, first display", placed(9), inputAt({5000, 0, 9, 9}, 9, centred, {}, {}),
            centredOn1, 9);

        // Centred: the origin alone is never a reason to move.
        row("unchanged, partly outside", placed(1), inputAt({-200, 300, 1325, 744}, 1), {}, 1);
        row("size off by 2", placed(1), inputAt({0, 155, 1326, 745}, 1), centredOn1, 1);
        row("new token", placed(1), with(inputAt(on1, 1), [](Input& in) { in.recenterToken = 1; }),
            centredOn1, 1);
        row("forced", placed(1), with(inputAt(on1, 1), [](Input& in) { in.force = true; }),
            centredOn1, 1);
        row("display change moves it back", placed(1), inputAt(on2, 1), centredOn1, 1);
        row("no canvas: size kept, clamped", placed(1, docked),
            with(inputAt({1440, 900, 1600, 1000}, 1, centred),
                 [](Input& in) { in.aspectRatio.reset(); }),
            QRect(0, 0, 1600, 1000), 1);

        // Docked: top-left on the visible area's bottom-right corner.
        row("docking", placed(1), inputAt(centredOn1, 1, docked), dockedOn1, 1);
        row("docked, unchanged", placed(1, docked), inputAt(dockedOn1, 1, docked), {}, 1);
        row("docked, pulled back in", placed(1, docked), inputAt({1400, 860, 1324, 745}, 1, docked),
            dockedOn1, 1);
        row("docked, token ignored", placed(1, docked),
            with(inputAt(dockedOn1, 1, docked), [](Input& in) { in.recenterToken = 5; }), {}, 1);
        row("back to centred", placed(1, docked), inputAt(dockedOn1, 1), centredOn1, 1);
    }
    void outputPlacement()
    {
        QFETCH(OutputPlacement, before);
        QFETCH(Input, input);
        QFETCH(OptRect, frame);
        QFETCH(OptID, lock);
        QFETCH(OptID, registryLock);
        QCOMPARE(before.resolveLock(input), registryLock);
        QCOMPARE(before.place(input), frame);
        QCOMPARE(before.lockedScreenID, lock);
        // Recorded whether or not the window moved.
        QCOMPARE(before.lastAppliedRecenterToken, std::optional(input.recenterToken));
        QCOMPARE(before.lastAppliedPresentation, std::optional(input.presentation));
    }

    void manualMoveFollowsTheUser()
    {
        OutputPlacement state = placed(1);
        // Dropped on display 2: where it lies decides, not the window system's
        // screen (not yet updated), and without an overlap the window system.
        QCOMPARE(state.manualMove(on2, screens, 0), OptID(2));
        QCOMPARE(state.manualMove({5000, 0, 9, 9}, screens, 1), OptID(2));
        QCOMPARE(state.place(with(inputAt(on1, 2), [](Input& in) { in.force = true; })),
                 OptRect(centredOn2));
        // Held mostly by display 1 now, yet display changes no longer move it.
        QCOMPARE(state.place(inputAt({-300, 42, 1700, 956}, 2)), OptRect());
        // An unidentified display keeps the lock it had.
        QList<ScreenInfo> unknown = screens;
        unknown[0].displayID.reset();
        QCOMPARE(state.manualMove(on1, unknown, std::nullopt), OptID());
        QCOMPARE(state.lockedScreenID, OptID(2));
        QVERIFY(state.hasManualScreenOverride);
    }
};

QTEST_APPLESS_MAIN(TestPlacementGeometry)
#include "tst_placement_geometry.moc"
