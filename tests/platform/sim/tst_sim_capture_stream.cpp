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

    // The admission rules themselves are tabled in tst_window_admission; here
    // the stream applies them, paints the desktop only where the form shows
    // it and leaves the rest transparent.
    void framesShowExactlyTheAdmittedWindows_data()
    {
        QTest::addColumn<ContentFilter>("filter");
        QTest::addColumn<QList<quint32>>("shown");
        QTest::addColumn<QColor>("uncovered");

        const QColor desktop = desktopScene().displays[0].desktopColor;
        QTest::newRow("exclude windows, with the menu bar")
            << ContentFilter{.form = F::displayExcludingWindows,
                             .displayID = 1,
                             .windowIDs = {41},
                             .includeMenuBar = true}
            << QList<quint32>{1, 21, 31, 42, 90} << desktop;
        QTest::newRow("exclude an application and Vistrel")
            << ContentFilter{.form = F::displayExcludingApplications,
                             .displayID = 1,
                             .processIDs = {editorPid},
                             .ownProcessID = selfPid}
            << QList<quint32>{31, 41, 42} << desktop;
        QTest::newRow("include a process and a window")
            << ContentFilter{.form = F::displayIncludingApplications,
                             .displayID = 1,
                             .processIDs = {browserPid},
                             .windowIDs = {31},
                             .includeMenuBar = true,
                             .ownWindowIDs = {1}}
            << QList<quint32>{31, 41, 90} << QColor(Qt::transparent);
    }

    void framesShowExactlyTheAdmittedWindows()
    {
        QFETCH(ContentFilter, filter);
        QFETCH(QList<quint32>, shown);
        QFETCH(QColor, uncovered);

        auto stream = startedStream(filter, {.width = 1440, .height = 900});
        QVERIFY(stream);
        QVERIFY(backend->latestStream()->pushFrame());
        QTRY_COMPARE(delegate->frameCount(), 1);
        const QImage image = delegate->lastFrame().image;
        QCOMPARE(image.size(), QSize(1440, 900));
        for (const SimWindow& window : world.scene().windows) {
            if (window.frame.center().x() < 1440)
                QVERIFY2((at(image, window.frame.center()) == window.color) ==
                             shown.contains(window.windowID),
                         qPrintable(QString::number(window.windowID)));
        }
        QCOMPARE(at(image, uncoveredPoint), uncovered);
        // Frames reach the delegate away from the main thread.
        QVERIFY(delegate->threads.last() != QThread::currentThread());
    }

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

    void pushedFrameCarriesTheRequestedAttachments()
    {
        auto stream = startedStream();
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
        QCOMPARE(at(delegate->lastFrame().image, draft), QColor(Qt::darkRed));

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
        QCOMPARE(content->windows.size(), 8);
        QCOMPARE(backend->contentRequestCount(), 5);

        // Still unanswered when the backend goes: never answered.
        backend->setHoldsContentRequests(false);
        backend->getShareableContent(true, false, record);
        backend.reset();
        QTest::qWait(20);
        QCOMPARE(completions, 5);
    }
};

QTEST_GUILESS_MAIN(TestSimCaptureStream)
#include "tst_sim_capture_stream.moc"
