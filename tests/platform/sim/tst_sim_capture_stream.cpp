#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimCaptureStream.h"
#include "platform/sim/SimComposer.h"
#include "platform/sim/SimWorld.h"

#include <QMutex>
#include <QMutexLocker>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr qint32 redPid = 10;
constexpr qint32 greenPid = 20;
constexpr qint32 dockPid = 30;
constexpr quint32 displayId = 7;
const QColor desktop(0x20, 0x40, 0x60);

// Front to back: red (pid 10), green (pid 20), blue (pid 20, listed in
// several filters), a dock, an off-screen window of pid 10, and a window
// whose owner is unknown.
SimScene testScene()
{
    SimScene scene;
    SimDisplay main = makeSimDisplay(displayId, QRectF(100, 0, 100, 100), u"Sim"_s);
    main.desktopColor = desktop;
    scene.displays = {main, makeSimDisplay(8, QRectF(0, 0, 100, 100), u"Other"_s)};
    scene.applications = {{redPid, u"org.red"_s, u"Red"_s},
                          {greenPid, std::nullopt, u"Green"_s},
                          {dockPid, std::nullopt, u"Panel"_s}};
    SimWindow dock = makeSimWindow(4, dockPid, QRectF(100, 90, 100, 10), Qt::yellow);
    dock.windowLayer = 20;
    SimWindow hidden = makeSimWindow(5, redPid, QRectF(150, 50, 20, 20), Qt::magenta, u"hidden"_s);
    hidden.isOnScreen = false;
    scene.windows = {
        makeSimWindow(1, redPid, QRectF(110, 10, 20, 20), Qt::red, u"r"_s),
        makeSimWindow(2, greenPid, QRectF(150, 10, 20, 20), Qt::green, u"g"_s),
        makeSimWindow(3, greenPid, QRectF(110, 50, 20, 20), Qt::blue, u"b"_s),
        dock,
        hidden,
        makeSimWindow(6, 999, QRectF(170, 60, 10, 10), Qt::cyan, u"orphan"_s),
    };
    return scene;
}

ContentFilter filterOf(ContentFilterForm form, QList<qint32> pids = {}, QList<quint32> windows = {},
                       bool menuBar = false)
{
    ContentFilter filter;
    filter.form = form;
    filter.displayID = displayId;
    filter.processIDs = std::move(pids);
    filter.windowIDs = std::move(windows);
    filter.includeMenuBar = menuBar;
    return filter;
}

// Display-local probe points, one inside each window.
const QPoint redProbe(15, 15), greenProbe(55, 15), blueProbe(15, 55), dockProbe(50, 95),
    hiddenProbe(55, 55), orphanProbe(75, 65), emptyProbe(90, 40);

class RecordingDelegate : public CaptureStreamDelegate {
public:
    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) override
    {
        QMutexLocker lock(&mutex);
        frames.append(buffer);
        types.append(type);
        threads.append(QThread::currentThread());
    }
    void streamDidStopWithError(const PlatformError& error) override
    {
        QMutexLocker lock(&mutex);
        stops.append(error);
        threads.append(QThread::currentThread());
    }
    qsizetype frameCount()
    {
        QMutexLocker lock(&mutex);
        return frames.size();
    }
    SampleBuffer lastFrame()
    {
        QMutexLocker lock(&mutex);
        return frames.last();
    }

    QMutex mutex;
    QList<SampleBuffer> frames;
    QList<SampleOutputType> types;
    QList<PlatformError> stops;
    QList<QThread*> threads;
};

QColor probe(const QImage& image, QPoint point)
{
    return QColor::fromRgba(image.pixel(point));
}

} // namespace

class TestSimCaptureStream : public QObject {
    Q_OBJECT

private:
    SimWorld world{testScene()};
    std::unique_ptr<SimCaptureBackend> backend;
    std::shared_ptr<RecordingDelegate> delegate;

    std::unique_ptr<CaptureStream> startedStream(const ContentFilter& filter,
                                                 const StreamConfiguration& configuration)
    {
        auto stream = backend->createStream(filter, configuration, delegate);
        if (stream->addStreamOutput(SampleOutputType::screen))
            return nullptr;
        bool done = false;
        stream->startCapture([&](std::optional<PlatformError> error) { done = !error; });
        if (!QTest::qWaitFor([&] { return done; }))
            return nullptr;
        return stream;
    }

private Q_SLOTS:
    void init()
    {
        world.setScene(testScene());
        backend = std::make_unique<SimCaptureBackend>(world);
        delegate = std::make_shared<RecordingDelegate>();
    }
    void cleanup() { backend.reset(); }

    void framesShowExactlyTheAdmittedWindows_data()
    {
        QTest::addColumn<ContentFilter>("filter");
        QTest::addColumn<QList<QPoint>>("shown");
        QTest::addColumn<QList<QPoint>>("hidden");
        QTest::addColumn<QColor>("uncovered");

        const auto make = filterOf;
        using F = ContentFilterForm;
        QTest::newRow("exclude windows") << make(F::displayExcludingWindows, {}, {3}, true)
                                         << QList{redProbe, greenProbe, dockProbe}
                                         << QList{blueProbe, hiddenProbe, orphanProbe} << desktop;
        QTest::newRow("exclude windows, no menu bar")
            << make(F::displayExcludingWindows, {}, {}, false)
            << QList{redProbe, greenProbe, blueProbe} << QList{dockProbe} << desktop;
        QTest::newRow("exclude apps")
            << make(F::displayExcludingApplications, {redPid}, {}, true)
            << QList{greenProbe, blueProbe, dockProbe} << QList{redProbe, orphanProbe} << desktop;
        QTest::newRow("exclude apps, listed window of an excluded app stays hidden")
            << make(F::displayExcludingApplications, {greenPid}, {3}, true)
            << QList{redProbe, dockProbe} << QList{greenProbe, blueProbe} << desktop;
        QTest::newRow("exclude apps, listed window of another app is hidden")
            << make(F::displayExcludingApplications, {redPid}, {3}, true) << QList{greenProbe}
            << QList{redProbe, blueProbe} << desktop;
        QTest::newRow("exclude apps, empty lists: unknown owners still hidden")
            << make(F::displayExcludingApplications, {}, {}, true)
            << QList{redProbe, greenProbe, blueProbe} << QList{orphanProbe} << desktop;
        QTest::newRow("include apps")
            << make(F::displayIncludingApplications, {redPid}, {3}, false)
            << QList{redProbe, blueProbe} << QList{greenProbe, dockProbe, orphanProbe}
            << QColor(0, 0, 0, 0);
        QTest::newRow("include apps with menu bar")
            << make(F::displayIncludingApplications, {greenPid}, {}, true)
            << QList{greenProbe, blueProbe, dockProbe} << QList{redProbe} << QColor(0, 0, 0, 0);
    }

    void framesShowExactlyTheAdmittedWindows()
    {
        QFETCH(ContentFilter, filter);
        QFETCH(QList<QPoint>, shown);
        QFETCH(QList<QPoint>, hidden);
        QFETCH(QColor, uncovered);

        auto stream = startedStream(filter, {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        QVERIFY(controller->pushFrame());
        QTRY_COMPARE(delegate->frameCount(), 1);
        const QImage image = delegate->lastFrame().image;
        QCOMPARE(image.size(), QSize(100, 100));

        const SimScene scene = testScene();
        const auto colourAt = [&](QPoint p) {
            for (const SimWindow& window : scene.windows) {
                if (window.frame.contains(p + QPointF(100, 0)) && window.isOnScreen)
                    return window.color;
            }
            return QColor();
        };
        for (QPoint p : shown)
            QCOMPARE(probe(image, p), colourAt(p));
        for (QPoint p : hidden)
            QCOMPARE(probe(image, p), uncovered);
        QCOMPARE(probe(image, emptyProbe), uncovered);
        // Frames reach the delegate away from the main thread.
        QVERIFY(delegate->threads.last() != QThread::currentThread());
    }

    void frameIsCroppedAndScaled()
    {
        SimScene scene = testScene();
        scene.displays[0].pixelWidth = 200;
        scene.displays[0].pixelHeight = 200;
        ContentFilter filter = filterOf(ContentFilterForm::displayExcludingWindows, {}, {}, true);

        StreamConfiguration whole;
        QCOMPARE(simOutputSize(scene, filter, whole), QSize(200, 200));
        QCOMPARE(probe(simComposeFrame(scene, filter, whole), redProbe * 2), QColor(Qt::red));

        // Half of the red window and half of the green one, stretched to 80 x 20.
        StreamConfiguration cropped;
        cropped.sourceRect = QRectF(20, 10, 40, 10);
        cropped.width = 80;
        cropped.height = 20;
        const QImage image = simComposeFrame(scene, filter, cropped);
        QCOMPARE(image.size(), QSize(80, 20));
        QCOMPARE(probe(image, QPoint(5, 10)), QColor(Qt::red));
        QCOMPARE(probe(image, QPoint(30, 10)), desktop);
        QCOMPARE(probe(image, QPoint(75, 10)), QColor(Qt::green));
    }

    void whatNothingCoversIsTransparent()
    {
        SimScene scene = testScene();
        ContentFilter allow = filterOf(ContentFilterForm::displayIncludingApplications, {redPid});
        QCOMPARE(probe(simComposeFrame(scene, allow, {}), emptyProbe).alpha(), 0);
        // A display without a desktop picture too.
        scene.displays[0].desktopColor = QColor();
        ContentFilter block = filterOf(ContentFilterForm::displayExcludingWindows);
        QCOMPARE(probe(simComposeFrame(scene, block, {}), emptyProbe).alpha(), 0);
        // A vanished display gives an empty frame of the configured size.
        ContentFilter gone = filterOf(ContentFilterForm::displayExcludingWindows);
        gone.displayID = 4242;
        StreamConfiguration configuration;
        configuration.width = 10;
        configuration.height = 6;
        const QImage image = simComposeFrame(scene, gone, configuration);
        QCOMPARE(image.size(), QSize(10, 6));
        QCOMPARE(probe(image, QPoint(5, 3)).alpha(), 0);
    }

    void callsAreCountedAndCompleteLater()
    {
        ContentFilter filter = filterOf(ContentFilterForm::displayExcludingWindows);
        auto stream = backend->createStream(filter, {}, delegate);
        QVERIFY(!stream->addStreamOutput(SampleOutputType::screen));
        QVERIFY(stream->addStreamOutput(SampleOutputType::audio).has_value());

        int completions = 0;
        const auto count = [&](std::optional<PlatformError> error) {
            QVERIFY(!error);
            ++completions;
        };
        stream->startCapture(count);
        QCOMPARE(completions, 0); // never inside the call
        QVERIFY(!backend->latestStream()->isRunning());
        QTRY_COMPARE(completions, 1);
        QVERIFY(backend->latestStream()->isRunning());

        StreamConfiguration configuration;
        configuration.width = 33;
        ContentFilter other = filterOf(ContentFilterForm::displayIncludingApplications, {redPid});
        stream->updateConfiguration(configuration, count);
        stream->updateContentFilter(other, count);
        QTRY_COMPARE(completions, 3);
        QCOMPARE(backend->latestStream()->configuration().width, 33);
        QCOMPARE(backend->latestStream()->filter(), other);
        stream->stopCapture(count);
        QTRY_COMPARE(completions, 4);
        QVERIFY(!backend->latestStream()->pushFrame());

        stream.reset();
        QVERIFY(!backend->latestStream());
        const SimStreamCalls expected{.create = 1,
                                      .addStreamOutput = 2,
                                      .start = 1,
                                      .stop = 1,
                                      .updateConfiguration = 1,
                                      .updateContentFilter = 1};
        QCOMPARE(backend->streamCalls(), expected);
    }

    void injectedFailuresLeaveTheStreamAsItWas_data()
    {
        QTest::addColumn<SimStreamOperation>("operation");
        QTest::newRow("start") << SimStreamOperation::start;
        QTest::newRow("stop") << SimStreamOperation::stop;
        QTest::newRow("configuration") << SimStreamOperation::updateConfiguration;
        QTest::newRow("filter") << SimStreamOperation::updateContentFilter;
        QTest::newRow("output") << SimStreamOperation::addStreamOutput;
    }

    void injectedFailuresLeaveTheStreamAsItWas()
    {
        QFETCH(SimStreamOperation, operation);
        const PlatformError error{u"sim"_s, 7, u"Scripted failure"_s};
        ContentFilter filter = filterOf(ContentFilterForm::displayExcludingWindows);
        StreamConfiguration configuration;
        configuration.width = 10;
        configuration.height = 10;
        auto stream = operation == SimStreamOperation::addStreamOutput ||
                              operation == SimStreamOperation::start
                          ? backend->createStream(filter, configuration, delegate)
                          : startedStream(filter, configuration);
        QVERIFY(stream);
        backend->failStreamOperation(operation, error);

        std::optional<std::optional<PlatformError>> result;
        const auto record = [&](std::optional<PlatformError> e) {
            result = e;
        };
        StreamConfiguration changed;
        changed.width = 99;
        ContentFilter otherFilter = filterOf(ContentFilterForm::displayIncludingApplications);
        switch (operation) {
        case SimStreamOperation::addStreamOutput:
            result = stream->addStreamOutput(SampleOutputType::screen);
            break;
        case SimStreamOperation::start:
            stream->startCapture(record);
            break;
        case SimStreamOperation::stop:
            stream->stopCapture(record);
            break;
        case SimStreamOperation::updateConfiguration:
            stream->updateConfiguration(changed, record);
            break;
        case SimStreamOperation::updateContentFilter:
            stream->updateContentFilter(otherFilter, record);
            break;
        case SimStreamOperation::create:
            break;
        }
        QTRY_VERIFY(result.has_value());
        QCOMPARE(*result, std::optional(error));
        const auto controller = backend->latestStream();
        QCOMPARE(controller->filter(), filter);
        QCOMPARE(controller->configuration().width, 10);
        QCOMPARE(controller->isRunning(),
                 operation == SimStreamOperation::stop ||
                     operation == SimStreamOperation::updateConfiguration ||
                     operation == SimStreamOperation::updateContentFilter);
        if (operation == SimStreamOperation::addStreamOutput)
            QVERIFY(controller->outputs().isEmpty());

        // Cleared, the same call succeeds.
        backend->clearStreamFailure(operation);
        if (operation == SimStreamOperation::addStreamOutput)
            QVERIFY(!stream->addStreamOutput(SampleOutputType::screen));
    }

    void heldCompletionsRunOnRelease()
    {
        ContentFilter filter = filterOf(ContentFilterForm::displayExcludingWindows);
        auto stream = backend->createStream(filter, {}, delegate);
        backend->ledger().setHoldsCompletions(true);
        QStringList order;
        stream->startCapture([&](auto) { order << u"start"_s; });
        stream->stopCapture([&](auto) { order << u"stop"_s; });
        QTest::qWait(20);
        QVERIFY(order.isEmpty());
        QCOMPARE(backend->ledger().heldCompletions(), 2);
        backend->ledger().releaseCompletions();
        QTRY_COMPARE(order, (QStringList{u"start"_s, u"stop"_s}));
        QVERIFY(!backend->latestStream()->isRunning());
    }

    void pushedFrameCarriesTheRequestedAttachments()
    {
        auto stream = startedStream(filterOf(ContentFilterForm::displayExcludingWindows), {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        QVERIFY(controller->pushFrame({.frameStatus = std::nullopt}));
        QVERIFY(controller->pushFrame({.frameStatus = qint64(FrameStatus::blank)}));
        QVERIFY(controller->pushFrame({.frameStatus = 77, .dataReady = false}));
        // Audio was never added: nothing is delivered.
        QVERIFY(!controller->pushFrame({.outputType = SampleOutputType::audio}));
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 3);
        QCOMPARE(delegate->frames[0].frameStatus, std::nullopt);
        QCOMPARE(delegate->frames[1].frameStatus, std::optional<qint64>(2));
        QCOMPARE(delegate->frames[2].frameStatus, std::optional<qint64>(77));
        QVERIFY(delegate->frames[1].dataReady);
        QVERIFY(!delegate->frames[2].dataReady);
        QVERIFY(delegate->frames[0].presentationTimeNs <= delegate->frames[2].presentationTimeNs);
    }

    void sceneChangesDeliverFramesOnlyWhileRunning()
    {
        auto stream = startedStream(filterOf(ContentFilterForm::displayExcludingWindows), {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 0); // no free-running frames

        world.edit([](SimScene& scene) { scene.window(1)->color = Qt::darkRed; });
        QTRY_COMPARE(delegate->frameCount(), 1);
        QCOMPARE(probe(delegate->lastFrame().image, redProbe), QColor(Qt::darkRed));

        // Raising the blue window over the red one changes what shows there.
        world.edit([](SimScene& scene) {
            scene.window(3)->frame = QRectF(110, 10, 20, 20);
            scene.raise(3);
        });
        QTRY_COMPARE(delegate->frameCount(), 2);
        QCOMPARE(probe(delegate->lastFrame().image, redProbe), QColor(Qt::blue));

        bool stopped = false;
        stream->stopCapture([&](auto) { stopped = true; });
        QTRY_VERIFY(stopped);
        world.edit([](SimScene& scene) { scene.removeWindow(3); });
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 2);
    }

    void stopWithErrorReachesTheDelegateOnTheWorker()
    {
        auto stream = startedStream(filterOf(ContentFilterForm::displayExcludingWindows), {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        const PlatformError error{u"sim"_s, 3, u"The display went away."_s};
        controller->stopWithError(error);
        QVERIFY(!controller->isRunning());
        QVERIFY(!controller->pushFrame());
        controller->waitForWorker();
        QCOMPARE(delegate->stops, QList{error});
        QVERIFY(delegate->threads.last() != QThread::currentThread());
    }

    void deadDelegateGetsNothing()
    {
        auto stream = startedStream(filterOf(ContentFilterForm::displayExcludingWindows), {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        std::weak_ptr<RecordingDelegate> weak = delegate;
        delegate.reset();
        QVERIFY(controller->pushFrame());
        controller->waitForWorker();
        QVERIFY(weak.expired());
        QCOMPARE(controller->deliveredFrames(), 0);
    }

    void frameClockIsOptIn()
    {
        auto stream = startedStream(filterOf(ContentFilterForm::displayExcludingWindows), {});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        controller->setFrameInterval(5);
        QTRY_VERIFY(delegate->frameCount() >= 3);
        controller->setFrameInterval(0);
        controller->waitForWorker();
        const qsizetype settled = delegate->frameCount();
        QTest::qWait(30);
        QCOMPARE(delegate->frameCount(), settled);
    }

    void contentRequestsFollowTheScript()
    {
        std::optional<ShareableContent> content;
        std::optional<PlatformError> error;
        int completions = 0;
        const auto record = [&](std::optional<ShareableContent> c, std::optional<PlatformError> e) {
            content = std::move(c);
            error = std::move(e);
            ++completions;
        };

        backend->getShareableContent(true, false, record);
        QCOMPARE(completions, 0);
        QTRY_COMPARE(completions, 1);
        QVERIFY(content && !error);
        QCOMPARE(content->displays.size(), 2);
        QCOMPARE(content->windows.size(), 6);
        // An owner that is not a running application is reported as none.
        QCOMPARE(content->windows[5].owningApplication, std::nullopt);
        QCOMPARE(content->windows[0].owningApplication->bundleIdentifier, u"org.red"_s);

        backend->getShareableContent(true, true, record);
        QTRY_COMPARE(completions, 2);
        QCOMPARE(content->windows.size(), 5); // the off-screen window is left out

        backend->setContentMissing(true);
        backend->getShareableContent(true, false, record);
        QTRY_COMPARE(completions, 3);
        QVERIFY(!content && !error);

        const PlatformError failure{u"sim"_s, 1, u"No content today"_s};
        backend->setContentError(failure);
        backend->getShareableContent(true, false, record);
        QTRY_COMPARE(completions, 4);
        QCOMPARE(error, failure);

        backend->setContentError(std::nullopt);
        backend->setContentMissing(false);
        backend->setHoldsContentRequests(true);
        backend->getShareableContent(true, false, record);
        QTest::qWait(20);
        QCOMPARE(completions, 4);
        QCOMPARE(backend->pendingContentRequests(), 1);
        // A held request reports the scene as it is when released.
        world.edit([](SimScene& scene) { scene.removeWindow(1); });
        backend->releaseContentRequests();
        QTRY_COMPARE(completions, 5);
        QCOMPARE(content->windows.size(), 5);
        QCOMPARE(backend->contentRequestCount(), 5);
    }

    void heldContentAfterBackendIsGoneDoesNothing()
    {
        bool called = false;
        backend->getShareableContent(true, false, [&](auto, auto) { called = true; });
        backend.reset();
        QTest::qWait(20);
        QVERIFY(!called);
    }
};

QTEST_GUILESS_MAIN(TestSimCaptureStream)
#include "tst_sim_capture_stream.moc"
