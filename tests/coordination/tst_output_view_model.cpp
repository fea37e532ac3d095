#include "support_coordination_rig.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

const QString nothingTitle = u"Nothing Is Currently Selected to Share"_s;
const QString nothingMessage = u"Nothing is currently selected to share."_s;
const QString permissionTitle = u"Screen Recording Permission Required"_s;
const QString permissionMessage = u"Vistrel needs Screen Recording permission to discover windows "
                                  "and build the sanitized output stream."_s;

QImage canvasImage()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    return image;
}

ShareableDisplay displayOfSize(quint32 id, const QSizeF& size)
{
    ShareableDisplay display;
    display.id = id;
    display.name = u"D%1"_s.arg(id);
    display.frame = QRectF(QPointF(0, 0), size);
    display.logicalSize = size;
    display.pixelSize = size;
    return display;
}

SampleBuffer frame()
{
    SampleBuffer buffer;
    buffer.image = QImage(16, 9, QImage::Format_ARGB32_Premultiplied);
    buffer.image.fill(Qt::red);
    buffer.dataReady = true;
    buffer.frameStatus = qint64(FrameStatus::complete);
    return buffer;
}

} // namespace

class OutputViewModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The publishers' values as the services announce them; the model only
    // sees what its subscriptions deliver. Inputs besides the status: P the
    // permission is missing, D full desktop (else sanitized), I an image
    // canvas, F a frame has been drawn.
    void noticeTable_data()
    {
        QTest::addColumn<StreamStatus>("status");
        QTest::addColumn<QByteArray>("inputs");
        QTest::addColumn<bool>("shows");
        QTest::addColumn<OutputBlankReason>("reason");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("message");
        using R = OutputBlankReason;
        // Without a reason, title and message: nothing selected, and its notice.
        const auto row = [](const char* name, StreamStatus status, const char* inputs, bool shows,
                            R reason = R::nothingSelected, const QString& title = nothingTitle,
                            const QString& message = nothingMessage) {
            QTest::newRow(name) << status << QByteArray(inputs) << shows << reason << title
                                << message;
        };
        const auto blank = [](R reason) {
            return StreamStatus::blank(reason);
        };
        const StreamStatus idle = StreamStatus::idle();
        const QString preparing = u"Preparing Vistrel Output"_s;
        const QString applying =
            u"Applying the latest content filter and waiting for the first sanitized frame."_s;
        const QString failed = u"Vistrel Output Could Not Start"_s;
        const QString panicTitle = u"Vistrel Output Is Blank"_s;
        const QString panicMessage =
            u"Panic Hide is active. Resume output when you are ready to share again."_s;

        row("idle on the plain canvas", idle, "", false);
        row("idle, full desktop", idle, "D", true);
        row("idle, full desktop, no permission", idle, "PD", true, R::permissionMissing,
            permissionTitle);
        row("idle, image canvas", idle, "DI", false);
        row("nothing selected on the plain canvas", blank(R::nothingSelected), "", false);
        row("nothing selected, full desktop", blank(R::nothingSelected), "D", true);
        row("starting, no frame yet", StreamStatus::starting(), "", true, R::nothingSelected,
            preparing, applying);
        row("starting, first frame drawn", StreamStatus::starting(), "F", false, R::nothingSelected,
            preparing, applying);
        row("running before the first frame", StreamStatus::running(), "D", false,
            R::nothingSelected, nothingTitle, QString());
        row("running, permission since revoked", StreamStatus::running(), "P", false,
            R::permissionMissing, permissionTitle, QString());
        row("failed", StreamStatus::failed(u"The stream stopped."_s), "", true, R::nothingSelected,
            failed, u"The stream stopped."_s);
        row("failed over a drawn frame", StreamStatus::failed(u"x"_s), "F", false,
            R::nothingSelected, failed, u"x"_s);
        row("permission missing, even on the plain canvas", blank(R::permissionMissing), "P", true,
            R::permissionMissing, permissionTitle, permissionMessage);
        row("no display", blank(R::noDisplaySelected), "I", true, R::noDisplaySelected,
            u"Choose a Display"_s,
            u"Select a display to use as the sanitized output canvas before starting the "
            "stream."_s);
        row("panic", blank(R::panicHidden), "", true, R::panicHidden, panicTitle, panicMessage);
        row("content unavailable", blank(R::contentUnavailable), "D", true, R::contentUnavailable,
            u"Selected Sources Are Unavailable"_s,
            u"The selected display or windows are no longer available. Refresh discovery or "
            "choose another source."_s);
        // The blank's own reason wins over the permission.
        row("panic without permission", blank(R::panicHidden), "P", true, R::panicHidden,
            panicTitle, panicMessage);
    }

    void noticeTable()
    {
        QFETCH(StreamStatus, status);
        QFETCH(QByteArray, inputs);
        QFETCH(bool, shows);
        QFETCH(OutputBlankReason, reason);
        QFETCH(QString, title);
        QFETCH(QString, message);

        CoordinationRig rig;
        OutputViewModel& model = rig.makeOutputViewModel();
        settle();
        if (inputs.contains('P')) {
            rig.permission->setGranted(false);
            rig.permissionManager.refreshState();
        }
        Q_EMIT rig.engine.streamStatusChanged(status);
        Q_EMIT rig.engine.outputContentModeChanged(
            inputs.contains('D') ? OutputContentMode::fullDesktop : OutputContentMode::sanitized);
        if (inputs.contains('I'))
            Q_EMIT rig.engine.canvasBackgroundImageChanged(canvasImage());
        if (inputs.contains('F'))
            Q_EMIT rig.renderer.hasDisplayedFrameChanged(true);
        settle();

        QCOMPARE(model.streamStatus(), status);
        QCOMPARE(model.showsNotice(), shows);
        QCOMPARE(vistrel::toString(model.effectiveBlankReason()), vistrel::toString(reason));
        QCOMPARE(model.noticeTitle(), title);
        QCOMPARE(model.noticeMessage(), message);
    }

    void noticeFollowsTheRealPipeline()
    {
        CoordinationRig rig;
        SinkDisplayLayer layer;
        rig.renderer.addDisplayLayer(&layer);
        MainViewModel& main = rig.makeMainViewModel();
        OutputViewModel& model = rig.makeOutputViewModel();
        settle();
        // Nothing asked yet: the black sanitized canvas is the picture.
        QVERIFY(!model.showsNotice());
        QVERIFY(!model.isLightCanvas());

        main.setOutputContentMode(OutputContentMode::fullDesktop);
        settle();
        QVERIFY(model.showsNotice());
        QCOMPARE(model.noticeTitle(), nothingTitle);

        // Hold the stream's start: the output stays "starting".
        rig.backend.ledger().setHoldsCompletions(true);
        QVERIFY(rig.startAndDiscover());
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(model.streamStatus(), StreamStatus::starting(), 5000);
        QVERIFY(model.showsNotice());
        QCOMPARE(model.noticeTitle(), u"Preparing Vistrel Output"_s);
        QVERIFY(!model.hasLiveFrame());

        // A frame drawn ends the notice, though the status still says starting.
        rig.renderer.enqueue(frame());
        settle();
        QVERIFY(model.hasDisplayedFrame());
        QCOMPARE(model.streamStatus(), StreamStatus::starting());
        QVERIFY(!model.showsNotice());

        // Panic blanks the output, resets the picture and shows the notice.
        rig.backend.ledger().setHoldsCompletions(false);
        rig.backend.ledger().releaseCompletions();
        main.setPanicHidden(true);
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(model.streamStatus(),
                                  StreamStatus::blank(OutputBlankReason::panicHidden), 5000);
        QVERIFY(model.isPanicHidden());
        QVERIFY(!model.hasDisplayedFrame());
        QVERIFY(model.showsNotice());
        QCOMPARE(model.noticeTitle(), u"Vistrel Output Is Blank"_s);
    }

    void canvasSizeFallbacks_data()
    {
        QTest::addColumn<std::optional<QSizeF>>("activeCanvas");
        QTest::addColumn<std::optional<QSizeF>>("activeDisplay");
        QTest::addColumn<bool>("selectRight"); // the right display is 1280 x 1024
        QTest::addColumn<QSizeF>("expected");

        using S = std::optional<QSizeF>;
        QTest::newRow("nothing known") << S() << S() << false << QSizeF(1920, 1080);
        QTest::newRow("active canvas")
            << S(QSizeF(800, 450)) << S(QSizeF(1600, 900)) << true << QSizeF(800, 450);
        QTest::newRow("empty canvas: active display")
            << S(QSizeF(0, 450)) << S(QSizeF(1600, 900)) << true << QSizeF(1600, 900);
        QTest::newRow("selected display") << S() << S() << true << QSizeF(1280, 1024);
        QTest::newRow("negative canvas: selected display")
            << S(QSizeF(-5, -5)) << S() << true << QSizeF(1280, 1024);
    }

    void canvasSizeFallbacks()
    {
        QFETCH(std::optional<QSizeF>, activeCanvas);
        QFETCH(std::optional<QSizeF>, activeDisplay);
        QFETCH(bool, selectRight);
        QFETCH(QSizeF, expected);

        SimScene sceneData = standardScene();
        sceneData.displays[1].frame = QRectF(1920, 0, 1280, 1024);
        CoordinationRig rig(sceneData);
        MainViewModel& main = rig.makeMainViewModel();
        OutputViewModel& model = rig.makeOutputViewModel();
        if (selectRight) {
            rig.discovery.refreshOnce();
            QTRY_COMPARE_WITH_TIMEOUT(main.displays().size(), 2, 3000);
            main.selectDisplay(scene::rightDisplay);
        }
        settle();
        if (activeCanvas)
            Q_EMIT rig.engine.activeCanvasSizeChanged(activeCanvas);
        if (activeDisplay)
            Q_EMIT rig.engine.activeDisplayChanged(displayOfSize(9, *activeDisplay));
        settle();
        QCOMPARE(model.canvasSize(), expected);
    }

    void preferredDisplayAndRecenterToken()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.configuration.selectedDisplayID = scene::rightDisplay;
        rig.writeState(state);
        MainViewModel& main = rig.makeMainViewModel();
        OutputViewModel& model = rig.makeOutputViewModel();
        QSignalSpy tokenSpy(&model, &OutputViewModel::outputRecenterTokenChanged);
        settle();
        // The selection current at creation is no change.
        QCOMPARE(model.outputRecenterToken(), 0u);
        QCOMPARE(model.preferredDisplay(), std::nullopt); // not discovered yet

        rig.discovery.refreshOnce();
        QTRY_COMPARE_WITH_TIMEOUT(model.preferredDisplay().value_or(ShareableDisplay{}).name,
                                  u"Right"_s, 3000);
        QCOMPARE(model.outputRecenterToken(), 0u);

        // Each published selection counts, also two within one turn.
        main.selectDisplay(scene::leftDisplay);
        main.selectDisplay(std::nullopt);
        QCOMPARE(model.outputRecenterToken(), 0u);
        settle();
        QCOMPARE(model.outputRecenterToken(), 2u);
        QCOMPARE(model.preferredDisplay(), std::nullopt);
        main.selectDisplay(std::nullopt);
        main.selectDisplay(99);
        settle();
        QCOMPARE(model.outputRecenterToken(), 3u);
        QCOMPARE(model.preferredDisplay(), std::nullopt);
        // Display validation moves the selection too.
        rig.discovery.refreshOnce();
        QTRY_COMPARE_WITH_TIMEOUT(model.outputRecenterToken(), 4u, 3000);
        QCOMPARE(model.preferredDisplay().value_or(ShareableDisplay{}).name, u"Left"_s);
        QCOMPARE(tokenSpy.count(), 4);
    }

    void mirroredValuesArriveOneTurnLater()
    {
        CoordinationRig rig;
        rig.makeMainViewModel(); // configures the engine's canvas from the state file
        rig.engine.updateCanvas(OutputContentMode::sanitized, CanvasBackgroundMode::white);
        OutputViewModel& model = rig.makeOutputViewModel();
        // Copied at creation.
        QCOMPARE(model.canvasBackgroundColor(), QColor(Qt::white));
        QVERIFY(model.isLightCanvas());

        rig.engine.updateCanvas(OutputContentMode::sanitized, CanvasBackgroundMode::gray);
        rig.engine.blank(OutputBlankReason::contentUnavailable);
        QCOMPARE(model.canvasBackgroundColor(), QColor(Qt::white));
        QCOMPARE(model.streamStatus(), StreamStatus::idle());
        settle();
        QCOMPARE(model.canvasBackgroundColor(), CaptureEngine::grayCanvasBackgroundColor);
        QVERIFY(!model.isLightCanvas());
        QCOMPARE(model.streamStatus(), StreamStatus::blank(OutputBlankReason::contentUnavailable));

        // Gone: later publications go nowhere.
        rig.engine.blank(OutputBlankReason::noDisplaySelected);
        rig.mainViewModel->selectDisplay(scene::leftDisplay);
        rig.outputViewModel.reset();
        settle();
    }

    void lightCanvas_data()
    {
        QTest::addColumn<OutputContentMode>("mode");
        QTest::addColumn<QColor>("color");
        QTest::addColumn<bool>("image");
        QTest::addColumn<bool>("light");

        QTest::newRow("white") << OutputContentMode::sanitized << QColor(Qt::white) << false
                               << true;
        QTest::newRow("white under an image")
            << OutputContentMode::sanitized << QColor(Qt::white) << true << false;
        QTest::newRow("full desktop")
            << OutputContentMode::fullDesktop << QColor(Qt::white) << false << false;
        QTest::newRow("off-white")
            << OutputContentMode::sanitized << QColor(254, 255, 255) << false << false;
        QTest::newRow("gray") << OutputContentMode::sanitized
                              << CaptureEngine::grayCanvasBackgroundColor << false << false;
    }

    void lightCanvas()
    {
        QFETCH(OutputContentMode, mode);
        QFETCH(QColor, color);
        QFETCH(bool, image);
        QFETCH(bool, light);

        CoordinationRig rig;
        OutputViewModel& model = rig.makeOutputViewModel();
        settle();
        Q_EMIT rig.engine.outputContentModeChanged(mode);
        Q_EMIT rig.engine.canvasBackgroundColorChanged(color);
        if (image)
            Q_EMIT rig.engine.canvasBackgroundImageChanged(canvasImage());
        settle();
        QCOMPARE(model.isLightCanvas(), light);
        QCOMPARE(model.presentsCanvasAsContent(), image || mode == OutputContentMode::sanitized);
    }

    void cameraFollowsTheOverlaySettings()
    {
        CoordinationRig rig;
        TestPatternOptions options;
        options.openDelay = std::chrono::milliseconds(300);
        rig.cameraPort.setOptions(options);
        PersistedAppState state;
        state.cameraOverlay.isEnabled = true;
        state.cameraOverlay.cameraDeviceID = TestPatternCameraPort::deviceID(0);
        rig.writeState(state);
        MainViewModel& main = rig.makeMainViewModel();
        OutputViewModel& model = rig.makeOutputViewModel();
        QCOMPARE(model.cameraOverlay(), state.cameraOverlay);

        // Handed to the camera on the first turn; opening takes a while.
        QVERIFY(!rig.cameraSessionManager.captureSession());
        settle();
        QVERIFY(!rig.cameraSessionManager.isRunning());
        QVERIFY(!model.showsCameraOverlay());

        QSignalSpy presentation(&model, &OutputViewModel::presentationChanged);
        QTRY_VERIFY_WITH_TIMEOUT(rig.cameraSessionManager.isRunning(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(model.showsCameraOverlay(), 2000);
        QVERIFY(presentation.count() >= 1);
        QCOMPARE(rig.cameraSessionManager.currentDeviceID(),
                 std::optional(TestPatternCameraPort::deviceID(0)));

        // Panic hides the bubble; the camera keeps running.
        main.setPanicHidden(true);
        settle();
        QVERIFY(!model.showsCameraOverlay());
        QVERIFY(rig.cameraSessionManager.isRunning());
        main.setPanicHidden(false);
        settle();
        QVERIFY(model.showsCameraOverlay());

        // Turned off: the camera stops.
        CameraOverlayConfiguration off = main.cameraOverlay();
        off.isEnabled = false;
        main.setCameraOverlay(off);
        settle();
        QCOMPARE(model.cameraOverlay(), off);
        QVERIFY(!rig.cameraSessionManager.isRunning());
        QVERIFY(!model.showsCameraOverlay());
    }
};

QTEST_GUILESS_MAIN(OutputViewModelTest)
#include "tst_output_view_model.moc"
