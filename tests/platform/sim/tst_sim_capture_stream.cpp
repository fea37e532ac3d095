#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimCaptureStream.h"
#include "platform/sim/SimComposer.h"
#include "platform/sim/SimWorld.h"
#include "platform/sim/support_desktop.h"

#include <QMutex>
#include <QMutexLocker>
#include <QTest>
#include <QThread>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

namespace {

using F = ContentFilterForm;
const QPointF uncoveredPoint(1380, 400); // no window there, on display 1

class RecordingDelegate : public CaptureStreamDelegate {
public:
    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType) override
    {
        QMutexLocker lock(&mutex);
        frames.append(buffer);
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
    QList<PlatformError> stops;
    QList<QThread*> threads;
};

QColor at(const QImage& image, QPointF point)
{
    return QColor::fromRgba(image.pixel(point.toPoint()));
}

} // namespace

class TestSimCaptureStream : public QObject {
    Q_OBJECT

private:
    SimWorld world{desktopScene()};
    std::unique_ptr<SimCaptureBackend> backend;
    std::shared_ptr<RecordingDelegate> delegate;

    std::unique_ptr<CaptureStream> startedStream(const ContentFilter& filter = {.displayID = 1},
                                                 const StreamConfiguration& configuration = {})
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
        world.setScene(desktopScene());
        backend = std::make_unique<SimCaptureBackend>(world);
        delegate = std::make_shared<RecordingDelegate>();
    }
    void cleanup() { backend.reset(); }

    void composerCropsScalesAndLeavesTheRestTransparent()
    {
        SimScene scene = desktopScene();
        const ContentFilter all{.displayID = 1, .includeMenuBar = true};
        // Without a size, the display's pixels.
        QCOMPARE(simOutputSize(scene, all, {}), QSize(2880, 1800));
        QCOMPARE(at(simComposeFrame(scene, all, {}), QPointF(400, 300) * 2), QColor(Qt::red));

        // The right end of Draft, desktop, the left end of Docs, stretched.
        const QImage cropped = simComposeFrame(
            scene, all, {.width = 80, .height = 20, .sourceRect = QRectF(650, 250, 200, 50)});
        QCOMPARE(cropped.size(), QSize(80, 20));
        QCOMPARE(at(cropped, QPointF(5, 10)), QColor(Qt::red));
        QCOMPARE(at(cropped, QPointF(40, 10)), scene.displays[0].desktopColor);
        QCOMPARE(at(cropped, QPointF(75, 10)), QColor(Qt::blue));

        // A display without a desktop picture, and one that vanished.
        scene.displays[0].desktopColor = QColor();
        QCOMPARE(at(simComposeFrame(scene, all, {}), uncoveredPoint * 2).alpha(), 0);
        const QImage gone =
            simComposeFrame(scene, ContentFilter{.displayID = 4242}, {.width = 10, .height = 6});
        QCOMPARE(gone.size(), QSize(10, 6));
        QCOMPARE(at(gone, QPointF(5, 3)).alpha(), 0);
    }

    // Every call is counted and answered on a later turn, held answers in
    // order on release; it takes effect unless a scripted failure answers it,
    // which leaves the stream as it was until the failure is cleared.
    void callsAreCountedAndAnsweredLater_data()
    {
        QTest::addColumn<std::optional<SimStreamOperation>>("failing");
        QTest::newRow("none fails") << std::optional<SimStreamOperation>();
        QTest::newRow("output") << std::optional(SimStreamOperation::addStreamOutput);
        QTest::newRow("start") << std::optional(SimStreamOperation::start);
        QTest::newRow("configuration") << std::optional(SimStreamOperation::updateConfiguration);
        QTest::newRow("filter") << std::optional(SimStreamOperation::updateContentFilter);
        QTest::newRow("stop") << std::optional(SimStreamOperation::stop);
    }

    void callsAreCountedAndAnsweredLater()
    {
        QFETCH(std::optional<SimStreamOperation>, failing);
        using enum SimStreamOperation;
        const PlatformError error{u"sim"_s, 7, u"Scripted failure"_s};
        const auto answer = [&](SimStreamOperation operation) {
            return failing == operation ? std::optional(error) : std::nullopt;
        };
        if (failing)
            backend->failStreamOperation(*failing, error);
        const ContentFilter filter{.displayID = 1};
        auto stream = backend->createStream(filter, {.width = 10}, delegate);
        auto controller = backend->latestStream();
        QList<std::pair<QString, std::optional<PlatformError>>> answers;
        const auto record = [&answers](const QString& call) {
            return [&answers, call](std::optional<PlatformError> e) {
                answers.append({call, e});
            };
        };

        QCOMPARE(stream->addStreamOutput(SampleOutputType::screen), answer(addStreamOutput));
        QCOMPARE(controller->outputs().isEmpty(), failing == addStreamOutput);
        QVERIFY(stream->addStreamOutput(SampleOutputType::audio).has_value());
        stream->startCapture(record(u"start"_s));
        QVERIFY(answers.isEmpty()); // never inside the call
        QVERIFY(!controller->isRunning());
        QTRY_COMPARE(answers.size(), 1);
        QCOMPARE(controller->isRunning(), failing != start);
        // Audio was never added: no such frame is delivered.
        QVERIFY(!controller->pushFrame({.outputType = SampleOutputType::audio}));

        const ContentFilter other{.form = F::displayIncludingApplications, .displayID = 1};
        stream->updateConfiguration({.width = 33}, record(u"configuration"_s));
        stream->updateContentFilter(other, record(u"filter"_s));
        QTRY_COMPARE(answers.size(), 3);
        QCOMPARE(controller->configuration().width, failing == updateConfiguration ? 10 : 33);
        QCOMPARE(controller->filter(), failing == updateContentFilter ? filter : other);

        backend->ledger().setHoldsCompletions(true);
        stream->stopCapture(record(u"stop"_s));
        stream->updateContentFilter(filter, record(u"filter"_s));
        QCoreApplication::processEvents();
        QCOMPARE(backend->ledger().heldCompletions(), 2);
        QCOMPARE(answers.size(), 3);
        backend->ledger().setHoldsCompletions(false);
        backend->ledger().releaseCompletions();
        QTRY_COMPARE(answers.size(), 5);
        QCOMPARE(answers, (QList<std::pair<QString, std::optional<PlatformError>>>{
                              {u"start"_s, answer(start)},
                              {u"configuration"_s, answer(updateConfiguration)},
                              {u"filter"_s, answer(updateContentFilter)},
                              {u"stop"_s, answer(stop)},
                              {u"filter"_s, answer(updateContentFilter)}}));
        QCOMPARE(controller->isRunning(), failing == stop);
        QCOMPARE(controller->pushFrame(), failing == stop);

        if (failing) {
            backend->clearStreamFailure(*failing);
            if (failing == addStreamOutput)
                QVERIFY(!stream->addStreamOutput(SampleOutputType::screen));
        }
        controller.reset();
        stream.reset();
        QVERIFY(!backend->latestStream());
        QCOMPARE(backend->streamCalls(),
                 (SimStreamCalls{.create = 1,
                                 .addStreamOutput = failing == addStreamOutput ? 3 : 2,
                                 .start = 1,
                                 .stop = 1,
                                 .updateConfiguration = 1,
                                 .updateContentFilter = 2}));
    }

    // No free-running frames: a frame comes for a scene change or from the
    // frame clock once asked for, and none once stopped.
    void framesComeForSceneChangesAndTheClockWhileRunning()
    {
        auto stream = startedStream({.displayID = 1}, {.width = 1440, .height = 900});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 0);

        const QPointF draft = world.scene().window(21)->frame.center();
        world.edit([](SimScene& scene) { scene.window(21)->color = Qt::darkRed; });
        QTRY_COMPARE(delegate->frameCount(), 1);
        QCOMPARE(delegate->lastFrame().image.size(), QSize(1440, 900));
        QCOMPARE(at(delegate->lastFrame().image, draft), QColor(Qt::darkRed));
        // Frames reach the delegate away from the main thread.
        QVERIFY(delegate->threads.last() != QThread::currentThread());

        // Raising Docs over Draft changes what shows there.
        world.edit([](SimScene& scene) {
            scene.window(41)->frame.moveTo(300, 200);
            scene.raise(41);
        });
        QTRY_COMPARE(delegate->frameCount(), 2);
        QCOMPARE(at(delegate->lastFrame().image, draft), QColor(Qt::blue));

        controller->setFrameInterval(5);
        QTRY_VERIFY(delegate->frameCount() >= 5);
        controller->setFrameInterval(0);
        controller->waitForWorker();
        qsizetype settled = delegate->frameCount();
        QTest::qWait(30);
        QCOMPARE(delegate->frameCount(), settled);

        bool stopped = false;
        stream->stopCapture([&](auto) { stopped = true; });
        QTRY_VERIFY(stopped);
        settled = delegate->frameCount();
        world.edit([](SimScene& scene) { scene.removeWindow(41); });
        controller->setFrameInterval(5);
        QTest::qWait(30);
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), settled);
    }

    // An error stop reaches the delegate on the worker; a delegate that is
    // gone gets nothing.
    void delegateHearsOnTheWorkerWhileItLives()
    {
        auto stream = startedStream();
        QVERIFY(stream);
        auto controller = backend->latestStream();
        std::weak_ptr<RecordingDelegate> weak = delegate;
        const PlatformError error{u"sim"_s, 3, u"The display went away."_s};
        controller->stopWithError(error);
        QVERIFY(!controller->isRunning());
        QVERIFY(!controller->pushFrame());
        controller->waitForWorker();
        QCOMPARE(delegate->stops, QList{error});
        QVERIFY(delegate->threads.last() != QThread::currentThread());

        auto again = startedStream();
        delegate.reset();
        QVERIFY(backend->latestStream()->pushFrame());
        backend->latestStream()->waitForWorker();
        QVERIFY(weak.expired());
        QCOMPARE(backend->latestStream()->deliveredFrames(), 0);
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
        QCOMPARE(content->windows.size(), 9);
        // An owner that is not a running application is reported as none.
        QCOMPARE(content->windows[8].owningApplication, std::nullopt);
        QCOMPARE(content->windows[0].owningApplication->bundleIdentifier, u"org.vistrel"_s);

        backend->getShareableContent(true, true, record);
        QTRY_COMPARE(completions, 2);
        QCOMPARE(content->windows.size(), 8); // the off-screen window is left out

        // Scripted errors and missing content are what tst_discovery_service
        // reads; a held request reports the scene as it is when released.
        backend->setHoldsContentRequests(true);
        backend->getShareableContent(true, false, record);
        QTest::qWait(20);
        QCOMPARE(completions, 2);
        QCOMPARE(backend->pendingContentRequests(), 1);
        world.edit([](SimScene& scene) { scene.removeWindow(1); });
        backend->releaseContentRequests();
        QTRY_COMPARE(completions, 3);
        QCOMPARE(content->windows.size(), 8);

        // Still unanswered when the backend goes: never answered.
        backend->setHoldsContentRequests(false);
        backend->getShareableContent(true, false, record);
        backend.reset();
        QTest::qWait(20);
        QCOMPARE(completions, 3);
    }
};

QTEST_GUILESS_MAIN(TestSimCaptureStream)
#include "tst_sim_capture_stream.moc"
