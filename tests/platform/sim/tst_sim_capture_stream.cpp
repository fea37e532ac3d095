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

    void callsAreCountedAndCompleteLater()
    {
        auto stream = backend->createStream({.displayID = 1}, {}, delegate);
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
        const ContentFilter other{.form = F::displayIncludingApplications, .displayID = 1};
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
        const ContentFilter filter{.displayID = 1};
        const StreamConfiguration configuration{.width = 10, .height = 10};
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
            stream->updateConfiguration({.width = 99}, record);
            break;
        case SimStreamOperation::updateContentFilter:
            stream->updateContentFilter({.form = F::displayIncludingApplications}, record);
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
        auto stream = backend->createStream({}, {}, delegate);
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

    void sceneChangesDeliverFramesOnlyWhileRunning()
    {
        auto stream = startedStream({.displayID = 1}, {.width = 1440, .height = 900});
        QVERIFY(stream);
        auto controller = backend->latestStream();
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 0); // no free-running frames

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

        bool stopped = false;
        stream->stopCapture([&](auto) { stopped = true; });
        QTRY_VERIFY(stopped);
        world.edit([](SimScene& scene) { scene.removeWindow(41); });
        controller->waitForWorker();
        QCOMPARE(delegate->frameCount(), 2);
    }

    void stopWithErrorReachesTheDelegateOnTheWorker()
    {
        auto stream = startedStream();
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
        auto stream = startedStream();
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
        auto stream = startedStream();
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
