#include "capture/CaptureEngine.h"
#include "capture/OutputRenderer.h"
#include "capture/support_message_log.h"
#include "capture/support_recording_display_layer.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWorld.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vistrel;
using vistrel::test::MessageLog;
using vistrel::test::RecordingDisplayLayer;

namespace {

constexpr quint32 displayId = 7;
const QString captureCategory = u"quorbit.Vistrel.Capture"_s;

ShareableDisplay retinaDisplay()
{
    return ShareableDisplay{displayId, u"Sim"_s, QRectF(0, 0, 1000, 500), QSizeF(1000, 500),
                            QSizeF(2000, 1000)};
}

// An allow-list plan on the 2x display; the signature names what differs.
CapturePlan plan(const QString& signature, const QRectF& crop = QRectF(0, 0, 1000, 500),
                 QList<qint32> pids = {10})
{
    CapturePlan result;
    result.filter.form = ContentFilterForm::displayIncludingApplications;
    result.filter.displayID = displayId;
    result.filter.processIDs = std::move(pids);
    result.display = retinaDisplay();
    result.signature = signature;
    result.sourceRect = crop;
    result.canvasLogicalSize = crop.size();
    result.usesTransparentCanvas = true;
    return result;
}

PlatformError error(const QString& text)
{
    return PlatformError{u"sim"_s, 3, text};
}

// One engine on the scripted backend, with a recording layer on its renderer
// and every published status collected.
struct Rig {
    SimWorld world;
    SimCaptureBackend backend{world};
    SimScreenProvider screens;
    OutputRenderer renderer;
    RecordingDisplayLayer layer;
    std::unique_ptr<CaptureEngine> engine;
    QList<StreamStatus> statuses;

    Rig()
    {
        SimScene scene;
        scene.displays = {makeSimDisplay(displayId, QRectF(0, 0, 1000, 500), u"Sim"_s)};
        world.setScene(scene);
        screens.setScreens({ScreenInfo{displayId, u"Sim"_s, QRectF(0, 0, 1000, 500),
                                       QRectF(0, 0, 1000, 500), 60}});
        engine = std::make_unique<CaptureEngine>(renderer, backend, screens);
        renderer.addDisplayLayer(&layer);
        QObject::connect(engine.get(), &CaptureEngine::streamStatusChanged,
                         [this](const StreamStatus& status) { statuses.append(status); });
    }

    SimStreamCalls calls() const { return backend.streamCalls(); }
    StreamStatus status() const { return engine->streamStatus(); }

    // Runs the posted completions, including those they post in turn.
    static void settle()
    {
        for (int turn = 0; turn < 8; ++turn)
            QCoreApplication::processEvents();
    }

    // Pushes a frame and waits until the engine has handled it.
    void deliver(const SimFrameRequest& request = {})
    {
        const auto stream = backend.latestStream();
        QVERIFY(stream);
        QVERIFY(stream->pushFrame(request));
        stream->waitForWorker();
        settle();
    }

    // A running stream for the plan, with one frame shown. On the way: one
    // stream made, given the screen output and started, and starting until
    // that first frame.
    void startRunning(const CapturePlan& started)
    {
        engine->apply(started);
        QCOMPARE(status(), StreamStatus::starting());
        settle();
        QCOMPARE(calls(), (SimStreamCalls{.create = 1, .addStreamOutput = 1, .start = 1}));
        QVERIFY(backend.latestStream()->isRunning());
        QCOMPARE(engine->activeDisplay(), std::optional(started.display));
        QCOMPARE(engine->activeCanvasSize(), std::optional(started.canvasLogicalSize));
        QCOMPARE(statuses, QList<StreamStatus>{StreamStatus::starting()});
        deliver();
        QCOMPARE(status(), StreamStatus::running());
        statuses.clear();
        layer.calls.clear();
        layer.frames.clear();
    }
};

using PlanChange = std::function<CapturePlan(Rig&)>;

} // namespace

namespace vistrel {
// Lets QCOMPARE print both sides of a status comparison.
char* toString(const StreamStatus& status)
{
    return qstrdup(qUtf8Printable(describe(status)));
}
} // namespace vistrel

Q_DECLARE_METATYPE(PlanChange)
Q_DECLARE_METATYPE(SimStreamOperation)
Q_DECLARE_METATYPE(std::optional<qint64>)

class TestCaptureEngine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // After the running plan: nothing new for the same plan, a filter
    // update when only the admitted windows changed, and a configuration
    // update first when size, rate or crop changed; never a new stream.
    void changedPlanDoesTheLeastWork_data()
    {
        QTest::addColumn<PlanChange>("change");
        QTest::addColumn<int>("configurationUpdates");
        QTest::addColumn<int>("filterUpdates");

        QTest::newRow("same plan") << PlanChange([](Rig&) { return plan(u"a"_s); }) << 0 << 0;
        QTest::newRow("window list only") << PlanChange([](Rig&) {
            return plan(u"b"_s, QRectF(0, 0, 1000, 500), {10, 20});
        }) << 0 << 1;
        QTest::newRow("display pixel size only") << PlanChange([](Rig&) {
            CapturePlan changed = plan(u"b"_s);
            changed.display.pixelSize = QSizeF(1000, 500);
            return changed;
        }) << 0 << 1;
        QTest::newRow("crop") << PlanChange([](Rig&) {
            return plan(u"b"_s, QRectF(10, 20, 400, 300));
        }) << 1 << 1;
        QTest::newRow("crop by a fraction of a point")
            << PlanChange([](Rig&) { return plan(u"b"_s, QRectF(0.01, 0, 1000, 500)); }) << 1 << 1;
        QTest::newRow("refresh rate") << PlanChange([](Rig& rig) {
            QList<ScreenInfo> screens = rig.screens.screens();
            screens[0].maximumFramesPerSecond = 30;
            rig.screens.setScreens(screens);
            return plan(u"b"_s);
        }) << 1 << 1;
    }

    void changedPlanDoesTheLeastWork()
    {
        QFETCH(PlanChange, change);
        QFETCH(int, configurationUpdates);
        QFETCH(int, filterUpdates);

        Rig rig;
        rig.startRunning(plan(u"a"_s));
        const SimStreamCalls before = rig.calls();
        const StreamConfiguration startConfiguration = rig.backend.latestStream()->configuration();
        const CapturePlan changed = change(rig);

        rig.backend.ledger().setHoldsCompletions(true);
        rig.engine->apply(changed);
        // The filter waits for the configuration update to succeed.
        QCOMPARE(rig.calls().updateConfiguration - before.updateConfiguration,
                 configurationUpdates);
        QCOMPARE(rig.calls().updateContentFilter - before.updateContentFilter,
                 configurationUpdates ? 0 : filterUpdates);
        QCOMPARE(rig.status(), StreamStatus::running()); // unchanged while waiting
        // The same plan is running again at once, a change once it is done.
        QCOMPARE(rig.statuses,
                 filterUpdates ? QList<StreamStatus>() : QList{StreamStatus::running()});

        rig.backend.ledger().setHoldsCompletions(false);
        rig.backend.ledger().releaseCompletions();
        rig.settle();

        const SimStreamCalls after = rig.calls();
        QCOMPARE(after.updateConfiguration - before.updateConfiguration, configurationUpdates);
        QCOMPARE(after.updateContentFilter - before.updateContentFilter, filterUpdates);
        QCOMPARE(after.create, 1);
        QCOMPARE(after.start, 1);
        QCOMPARE(after.stop, 0);
        QCOMPARE(rig.statuses, (QList<StreamStatus>{StreamStatus::running()}));
        const auto stream = rig.backend.latestStream();
        QCOMPARE(stream->filter(), changed.filter);
        // Equal keys keep the running configuration, even when the display's
        // pixel size alone changed.
        QCOMPARE(stream->configuration(), configurationUpdates
                                              ? rig.engine->makeConfiguration(changed)
                                              : startConfiguration);
        QCOMPARE(rig.engine->activeCanvasSize(), std::optional(changed.canvasLogicalSize));

        // The new plan is now the running one.
        rig.engine->apply(changed);
        rig.settle();
        QCOMPARE(rig.calls(), after);
    }

    // Adding the output, starting, updating or the running stream itself:
    // the error is published and logged, the picture goes, and no stream is
    // left or restarted until the next plan starts a new one.
    void failuresPublishTheErrorAndLeaveNoStream_data()
    {
        QTest::addColumn<int>("step"); // index into the operations below; 3: the stream itself
        QTest::addColumn<QString>("logged");
        QTest::addColumn<int>("stops"); // -1: not counted
        // A frame shown on a layer by other means before the next plan: the
        // new stream has a picture up and need not wait for its own.
        QTest::addColumn<bool>("pictureUp");
        const QString startOrUpdate = u"Capture start or update failed: Lost."_s;
        const QString stopped = u"Capture stream stopped with error: Lost."_s;
        QTest::newRow("adding the output") << 0 << startOrUpdate << 0 << false;
        QTest::newRow("starting") << 1 << startOrUpdate << 1 << false;
        QTest::newRow("updating the configuration") << 2 << startOrUpdate << 1 << false;
        QTest::newRow("the running stream") << 3 << stopped << -1 << false;
        QTest::newRow("the running stream, a picture up") << 3 << stopped << -1 << true;
    }

    void failuresPublishTheErrorAndLeaveNoStream()
    {
        QFETCH(int, step);
        QFETCH(QString, logged);
        QFETCH(int, stops);
        QFETCH(bool, pictureUp);
        const std::array operations{SimStreamOperation::addStreamOutput, SimStreamOperation::start,
                                    SimStreamOperation::updateConfiguration};
        const CapturePlan next = plan(u"b"_s, QRectF(0, 0, 500, 500));

        Rig rig;
        if (step >= 2)
            rig.startRunning(plan(u"a"_s));
        if (step < 3)
            rig.backend.failStreamOperation(operations[step], error(u"Lost."_s));
        MessageLog log;
        if (step == 3) {
            rig.backend.latestStream()->stopWithError(error(u"Lost."_s));
            rig.backend.latestStream()->waitForWorker();
        } else {
            rig.engine->apply(next);
        }
        rig.settle();

        QCOMPARE(rig.status(), StreamStatus::failed(u"Lost."_s));
        if (step < 2)
            QCOMPARE(rig.statuses, (QList<StreamStatus>{StreamStatus::starting(),
                                                        StreamStatus::failed(u"Lost."_s)}));
        QCOMPARE(log.texts(captureCategory), QStringList{logged});
        QCOMPARE(rig.calls().start, step == 0 ? 0 : 1);
        if (stops >= 0)
            QCOMPARE(rig.calls().stop, stops);
        QCOMPARE(rig.calls().updateContentFilter, 0);
        QCOMPARE(rig.renderer.hasDisplayedFrame(), false);
        if (step >= 2) // the picture that was up goes
            QVERIFY(rig.layer.calls.contains(u"flushAndRemoveImage"_s));
        QVERIFY(!rig.engine->activeDisplay().has_value());
        QVERIFY(!rig.engine->activeCanvasSize().has_value());

        QCOMPARE(rig.calls().create, 1);
        if (step < 3)
            rig.backend.clearStreamFailure(operations[step]);
        RecordingDisplayLayer other;
        if (pictureUp) {
            rig.renderer.addDisplayLayer(&other);
            rig.renderer.enqueue(SampleBuffer{QImage(2, 2, QImage::Format_ARGB32_Premultiplied),
                                              true,
                                              std::nullopt,
                                              0,
                                              std::nullopt,
                                              {}});
        }
        rig.engine->apply(next);
        QCOMPARE(rig.status(), StreamStatus::starting());
        rig.settle();
        QCOMPARE(rig.calls().create, 2);
        QCOMPARE(rig.status(), pictureUp ? StreamStatus::running() : StreamStatus::starting());
    }

    void frameStatusDecidesWhetherAFrameIsShown_data()
    {
        QTest::addColumn<std::optional<qint64>>("frameStatus");
        QTest::addColumn<bool>("dataReady");
        QTest::addColumn<bool>("shown");

        QTest::newRow("no status attachment") << std::optional<qint64>() << true << true;
        QTest::newRow("complete") << std::optional<qint64>(0) << true << true;
        QTest::newRow("idle") << std::optional<qint64>(1) << true << true;
        QTest::newRow("started") << std::optional<qint64>(4) << true << true;
        QTest::newRow("blank") << std::optional<qint64>(2) << true << false;
        QTest::newRow("suspended") << std::optional<qint64>(3) << true << false;
        QTest::newRow("stopped") << std::optional<qint64>(5) << true << false;
        QTest::newRow("unknown value") << std::optional<qint64>(6) << true << false;
        QTest::newRow("negative value") << std::optional<qint64>(-1) << true << false;
        QTest::newRow("data not ready") << std::optional<qint64>(0) << false << false;
    }

    void frameStatusDecidesWhetherAFrameIsShown()
    {
        QFETCH(std::optional<qint64>, frameStatus);
        QFETCH(bool, dataReady);
        QFETCH(bool, shown);

        Rig rig;
        rig.engine->apply(plan(u"a"_s));
        rig.settle();
        rig.layer.calls.clear();
        rig.deliver({.frameStatus = frameStatus, .dataReady = dataReady});

        QCOMPARE(rig.layer.frames.size(), shown ? 1 : 0);
        QCOMPARE(rig.renderer.hasDisplayedFrame(), shown);
        QCOMPARE(rig.status(), shown ? StreamStatus::running() : StreamStatus::starting());
    }

    void onlyScreenFramesReachTheRendererInStreamOrder()
    {
        Rig rig;
        rig.engine->apply(plan(u"a"_s));
        rig.settle();
        // What is not screen output is no frame.
        rig.engine->handleSample(SampleBuffer{QImage(2, 2, QImage::Format_ARGB32_Premultiplied),
                                              true,
                                              std::nullopt,
                                              0,
                                              std::nullopt,
                                              {}},
                                 SampleOutputType::audio);
        QCOMPARE(rig.layer.frames.size(), 0);
        QCOMPARE(rig.status(), StreamStatus::starting());

        const auto stream = rig.backend.latestStream();
        for (int i = 0; i < 20; ++i)
            QVERIFY(stream->pushFrame());
        stream->waitForWorker();
        rig.settle();

        QCOMPARE(rig.layer.frames.size(), 20);
        for (qsizetype i = 1; i < rig.layer.frames.size(); ++i)
            QVERIFY(rig.layer.frames[i - 1].presentationTimeNs <
                    rig.layer.frames[i].presentationTimeNs);
        QCOMPARE(rig.layer.frames.last().image.size(), QSize(2000, 1000));
    }

    void blankTwiceWithoutStreamOnlyResetsTheRenderer()
    {
        Rig rig;
        rig.engine->blank(OutputBlankReason::nothingSelected);
        QCOMPARE(rig.statuses,
                 (QList<StreamStatus>{StreamStatus::blank(OutputBlankReason::nothingSelected)}));
        QCOMPARE(rig.layer.calls, QStringList{u"flushAndRemoveImage"_s});
        QSignalSpy frameFlag(&rig.renderer, &OutputRenderer::hasDisplayedFrameChanged);

        rig.engine->blank(OutputBlankReason::nothingSelected);
        rig.settle();
        QCOMPARE(rig.statuses.size(), 1);
        QCOMPARE(frameFlag.size(), 1);
        QCOMPARE(rig.layer.calls.count(u"flushAndRemoveImage"_s), 2);
        QCOMPARE(rig.calls().total(), 0);

        // Another reason is news.
        rig.engine->blank(OutputBlankReason::panicHidden);
        QCOMPARE(rig.statuses.last(), StreamStatus::blank(OutputBlankReason::panicHidden));
    }

    // Blanking a running stream publishes at once and stops it. What
    // completes later, the stop or an update the blank overtook, changes
    // neither the status nor the picture; a failure there is only logged.
    void blankWithStreamPublishesBeforeTheStopCompletes_data()
    {
        QTest::addColumn<std::optional<SimStreamOperation>>("failing");
        QTest::addColumn<QStringList>("logged");
        QTest::newRow("stop succeeds") << std::optional<SimStreamOperation>() << QStringList();
        QTest::newRow("stop fails")
            << std::optional(SimStreamOperation::stop)
            << QStringList{u"Stopping capture failed while blanking output: Busy."_s};
        QTest::newRow("overtaken update fails")
            << std::optional(SimStreamOperation::updateConfiguration)
            << QStringList{u"Capture start or update failed: Busy."_s};
    }

    void blankWithStreamPublishesBeforeTheStopCompletes()
    {
        QFETCH(std::optional<SimStreamOperation>, failing);
        QFETCH(QStringList, logged);
        const bool updating = failing == SimStreamOperation::updateConfiguration;

        Rig rig;
        rig.startRunning(plan(u"a"_s));
        if (failing)
            rig.backend.failStreamOperation(*failing, error(u"Busy."_s));
        rig.backend.ledger().setHoldsCompletions(true);
        MessageLog log;
        if (updating)
            rig.engine->apply(plan(u"b"_s, QRectF(0, 0, 10, 10)));

        rig.engine->blank(OutputBlankReason::panicHidden);
        QCOMPARE(rig.status(), StreamStatus::blank(OutputBlankReason::panicHidden));
        QVERIFY(!rig.engine->activeDisplay().has_value());
        QCOMPARE(rig.renderer.hasDisplayedFrame(), false);
        QCOMPARE(rig.calls().stop, 1);
        QCOMPARE(rig.backend.ledger().heldCompletions(), updating ? 2 : 1);

        // A frame still in flight must not bring the picture back.
        rig.deliver();
        QCOMPARE(rig.layer.frames.size(), 0);
        QCOMPARE(rig.renderer.hasDisplayedFrame(), false);

        rig.backend.ledger().setHoldsCompletions(false);
        rig.backend.ledger().releaseCompletions();
        rig.settle();
        QCOMPARE(rig.status(), StreamStatus::blank(OutputBlankReason::panicHidden));
        QCOMPARE(rig.calls().updateContentFilter, 0);
        QCOMPARE(log.texts(captureCategory), logged);

        // The stream is gone either way: the same plan starts a new one.
        rig.engine->apply(plan(u"a"_s));
        rig.settle();
        QCOMPARE(rig.calls().create, 2);
    }

    void lateFrameAfterTheEngineIsGoneDoesNothing()
    {
        Rig rig;
        rig.engine->apply(plan(u"a"_s));
        rig.settle();
        const std::shared_ptr<SimStreamController> stream = rig.backend.latestStream();
        QVERIFY(stream->pushFrame());
        QVERIFY(stream->pushFrame({.frameStatus = std::nullopt}));
        stream->waitForWorker(); // both frames are now queued for the main thread
        QCOMPARE(stream->deliveredFrames(), 2);

        rig.engine.reset();
        rig.settle();
        QCOMPARE(rig.layer.frames.size(), 0);
        QCOMPARE(rig.renderer.hasDisplayedFrame(), false);
        // The stream went with the engine; a completion still queued by a
        // platform call is harmless too.
        QVERIFY(!stream->isRunning());
    }

    // What the backends read: output pixels, crop, queue depth and rate.
    void configurationFollowsThePlan_data()
    {
        QTest::addColumn<CapturePlan>("plan");
        QTest::addColumn<QSize>("outputSize");
        QTest::addColumn<std::optional<int>>("screenRate"); // absent: no such screen
        QTest::addColumn<int>("rate");

        const auto crop = [](QRectF rect) {
            return plan(u"a"_s, rect);
        };
        QTest::newRow("canvas at the display's pixel scale")
            << crop(QRectF(10, 20, 400, 300)) << QSize(800, 600) << std::optional(60) << 60;
        QTest::newRow("halves round away from zero")
            << crop(QRectF(0, 0, 100.25, 50.75)) << QSize(201, 102) << std::optional(120) << 60;
        QTest::newRow("never below 2 x 2")
            << crop(QRectF(0, 0, 0.2, 0)) << QSize(2, 2) << std::optional(48) << 48;
        CapturePlan tinyDisplay = crop(QRectF(0, 0, 3, 3));
        tinyDisplay.display.logicalSize = QSizeF(0.5, 1);
        tinyDisplay.display.pixelSize = QSizeF(4, 2);
        // A display of less than a point counts as one point for the scale.
        QTest::newRow("sub-point display")
            << tinyDisplay << QSize(12, 6) << std::optional(24) << 30;
        CapturePlan desktop = crop(QRectF(10, 20, 400, 300));
        desktop.isFullDesktopCapture = true;
        desktop.usesTransparentCanvas = false;
        QTest::newRow("full desktop uses the display's pixels")
            << desktop << QSize(2000, 1000) << std::optional<int>() << 60;
    }

    void configurationFollowsThePlan()
    {
        QFETCH(CapturePlan, plan);
        QFETCH(QSize, outputSize);
        QFETCH(std::optional<int>, screenRate);
        QFETCH(int, rate);

        Rig rig;
        QList<ScreenInfo> screens{ScreenInfo{displayId + 1, u"Other"_s, {}, {}, 75}};
        if (screenRate)
            screens.append(ScreenInfo{displayId, u"Sim"_s, {}, {}, *screenRate});
        screens.append(ScreenInfo{std::nullopt, u"Unjoined"_s, {}, {}, 144});
        rig.screens.setScreens(screens);

        const StreamConfiguration configuration = rig.engine->makeConfiguration(plan);
        QCOMPARE(QSize(configuration.width, configuration.height), outputSize);
        QCOMPARE(configuration.minimumFrameInterval, (MediaTime{1, rate}));
        QVERIFY(configuration.showsCursor);
        QCOMPARE(configuration.queueDepth, plan.isFullDesktopCapture ? 5 : 6);
        QCOMPARE(configuration.sourceRect, plan.isFullDesktopCapture
                                               ? std::optional<QRectF>()
                                               : std::optional(plan.sourceRect));
    }

    void configurationKeyNamesSizeRateAndCrop()
    {
        Rig rig;
        CapturePlan keyed = plan(u"a"_s, QRectF(10, 20.125, 800.5, 599.499));
        QCOMPARE(rig.engine->configurationKey(keyed), u"7:801x599:60:10.00:20.13:800.50:599.50"_s);
        keyed.canvasLogicalSize = QSizeF(2.5, 3.5);
        keyed.display.id = 42;
        QCOMPARE(rig.engine->configurationKey(keyed).section(u':', 0, 2), u"42:3x4:60"_s);
    }

    void canvasFollowsContentAndBackgroundMode_data()
    {
        QTest::addColumn<OutputContentMode>("contentMode");
        QTest::addColumn<CanvasBackgroundMode>("backgroundMode");
        QTest::addColumn<QString>("image"); // "good", "corrupt", "missing", "plain path" or none
        QTest::addColumn<QColor>("color");
        QTest::addColumn<bool>("hasImage");
        const auto row = [](const char* name, OutputContentMode content,
                            CanvasBackgroundMode background, const QString& image,
                            const QColor& color, bool hasImage) {
            QTest::newRow(name) << content << background << image << color << hasImage;
        };
        const auto sanitized = OutputContentMode::sanitized;
        const auto desktop = OutputContentMode::fullDesktop;
        using enum CanvasBackgroundMode;
        row("black", sanitized, black, {}, Qt::black, false);
        row("white", sanitized, white, {}, Qt::white, false);
        row("gray", sanitized, gray, {}, QColor::fromRgbF(0.22f, 0.22f, 0.22f), false);
        row("custom image", sanitized, customImage, u"good"_s, Qt::black, true);
        row("custom image, plain path", sanitized, customImage, u"plain path"_s, Qt::black, true);
        row("custom image, corrupt file", sanitized, customImage, u"corrupt"_s, Qt::black, false);
        row("custom image, missing file", sanitized, customImage, u"missing"_s, Qt::black, false);
        row("custom image, no location", sanitized, customImage, {}, Qt::black, false);
        row("full desktop ignores the custom image", desktop, customImage, u"good"_s, Qt::black,
            false);
        row("full desktop ignores white", desktop, white, {}, Qt::black, false);
    }

    void canvasFollowsContentAndBackgroundMode()
    {
        QFETCH(OutputContentMode, contentMode);
        QFETCH(CanvasBackgroundMode, backgroundMode);
        QFETCH(QString, image);
        QFETCH(QColor, color);
        QFETCH(bool, hasImage);

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QImage picture(8, 4, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QVERIFY(picture.save(dir.filePath(u"good.png"_s)));
        QFile corrupt(dir.filePath(u"corrupt.png"_s));
        QVERIFY(corrupt.open(QIODevice::WriteOnly));
        corrupt.write("\x89PNG\r\n\x1a\n but then nothing an image reader understands");
        corrupt.close();

        std::optional<QUrl> location;
        if (image == u"plain path"_s)
            location = QUrl(dir.filePath(u"good.png"_s));
        else if (!image.isEmpty())
            location = QUrl::fromLocalFile(dir.filePath(image + u".png"_s));

        Rig rig;
        // Start from a state every row changes: a white sanitized canvas.
        rig.engine->updateCanvas(OutputContentMode::sanitized, CanvasBackgroundMode::white);
        QSignalSpy imageChanged(rig.engine.get(), &CaptureEngine::canvasBackgroundImageChanged);
        rig.engine->updateCanvas(contentMode, backgroundMode, location);

        QVERIFY(rig.engine->outputContentMode() == contentMode);
        QCOMPARE(rig.engine->canvasBackgroundColor(), color);
        QCOMPARE(!rig.engine->canvasBackgroundImage().isNull(), hasImage);
        QCOMPARE(imageChanged.size(), hasImage ? 1 : 0);
        if (hasImage) {
            QCOMPARE(rig.engine->canvasBackgroundImage().size(), QSize(8, 4));
            QCOMPARE(rig.engine->canvasBackgroundImage().pixelColor(1, 1), QColor(Qt::darkCyan));
        }
        // The same choice again is no change.
        rig.engine->updateCanvas(contentMode, backgroundMode, location);
        QCOMPARE(imageChanged.size(), hasImage ? 1 : 0);
    }
};

QTEST_MAIN(TestCaptureEngine)
#include "tst_capture_engine.moc"
