#include "platform/camera/CameraWorkerThread.h"
#include "platform/camera/TestPatternCamera.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

template<typename Edit> TestPatternOptions withOptions(Edit edit)
{
    TestPatternOptions options;
    edit(options);
    return options;
}

// Starts a session on a test-pattern device and waits for its answer.
struct RunningSession {
    std::unique_ptr<CameraSession> session;
    std::optional<PlatformError> error;
    bool answered = false;
};

RunningSession start(TestPatternCameraPort& port, int index)
{
    RunningSession result;
    result.session = port.createSession(CameraSessionPreset::medium);
    const auto device = port.deviceWithUniqueID(TestPatternCameraPort::deviceID(index));
    if (!device) {
        return result;
    }
    auto input = port.createInput(*device);
    if (!input.input) {
        result.error = input.error;
        return result;
    }
    result.session->addInput(input.input);
    result.session->startRunning([&result](std::optional<PlatformError> error) {
        result.answered = true;
        result.error = std::move(error);
    });
    return result;
}

bool colourNear(QRgb pixel, const QColor& expected)
{
    return std::abs(qRed(pixel) - expected.red()) <= 2 &&
           std::abs(qGreen(pixel) - expected.green()) <= 2 &&
           std::abs(qBlue(pixel) - expected.blue()) <= 2;
}

} // namespace

class TestPatternCameraTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void lookup_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("found");
        QTest::newRow("first") << u"test-pattern:1"_s << true;
        QTest::newRow("second") << u"test-pattern:2"_s << true;
        QTest::newRow("beyond the count") << u"test-pattern:3"_s << false;
        QTest::newRow("zero") << u"test-pattern:0"_s << false;
        QTest::newRow("prefix only") << u"test-pattern:"_s << false;
        QTest::newRow("garbage number") << u"test-pattern:x"_s << false;
        QTest::newRow("other backend") << u"/dev/video0"_s << false;
        QTest::newRow("empty") << QString() << false;
    }

    void lookup()
    {
        QFETCH(QString, id);
        QFETCH(bool, found);
        TestPatternCameraPort port(withOptions([](TestPatternOptions& o) { o.deviceCount = 2; }));
        const auto device = port.deviceWithUniqueID(id);
        QCOMPARE(device.has_value(), found);
        if (found) {
            QCOMPARE(device->uniqueID, id);
            QVERIFY(port.devices().contains(*device));
        }
        // Every device has an id and a name of its own.
        QSet<QString> ids, names;
        for (const auto& listed : port.devices()) {
            ids.insert(listed.uniqueID);
            names.insert(listed.localizedName);
        }
        QCOMPARE(ids.size(), 2);
        QCOMPARE(names.size(), 2);
    }

    void frameHasKnownColoursAndAMovingBar()
    {
        const QImage first = TestPatternCameraPort::renderFrame(1, 0);
        const QImage later = TestPatternCameraPort::renderFrame(1, 20);
        QCOMPARE(first.size(), TestPatternCameraPort::frameSize);
        QCOMPARE(QColor(first.pixel(100, 200)), TestPatternCameraPort::leftColor(1));
        QCOMPARE(QColor(first.pixel(540, 200)), TestPatternCameraPort::rightColor(1));
        QVERIFY(TestPatternCameraPort::leftColor(0) != TestPatternCameraPort::leftColor(1));
        // The bar lives in the bottom strip only and moves along it.
        QVERIFY(first != later);
        QCOMPARE(first.copy(0, 0, 640, 432), later.copy(0, 0, 640, 432));
    }

    void runningSessionDeliversFramesToEveryReader()
    {
        TestPatternCameraPort port;
        RunningSession running = start(port, 0);
        QSignalSpy frames(running.session.get(), &CameraFrameSource::frameChanged);
        QVERIFY(!running.answered); // answers on a later turn, never inline
        QTRY_VERIFY(running.answered);
        QVERIFY(!running.error);
        QVERIFY(running.session->isRunning());
        QTRY_VERIFY(frames.size() >= 3);

        const QImage a = running.session->latestFrame();
        QVERIFY(!a.isNull());
        QVERIFY(colourNear(a.pixel(10, 10), TestPatternCameraPort::leftColor(0)));
        QVERIFY(colourNear(a.pixel(630, 10), TestPatternCameraPort::rightColor(0)));
        // Frames keep coming while running.
        QTRY_VERIFY(running.session->latestFrame() != a);
        QCOMPARE(port.statistics().opens.load(), 1);
    }

    void stopDropsTheFrameAndClosesTheDevice()
    {
        TestPatternCameraPort port;
        RunningSession running = start(port, 0);
        QTRY_VERIFY(running.session->isRunning());
        QTRY_VERIFY(!running.session->latestFrame().isNull());

        running.session->stopRunning();
        QVERIFY(!running.session->isRunning());
        QVERIFY(running.session->latestFrame().isNull());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        QSignalSpy frames(running.session.get(), &CameraFrameSource::frameChanged);
        QTest::qWait(120);
        QCOMPARE(frames.size(), 0);
        QVERIFY(running.session->latestFrame().isNull());
    }

    // Stopping, or dropping the session, while the device is still opening:
    // no answer ever arrives and the device ends up closed.
    void stopWhileOpening_data()
    {
        QTest::addColumn<bool>("destroy");
        QTest::newRow("stop") << false;
        QTest::newRow("destroy") << true;
    }

    void stopWhileOpening()
    {
        QFETCH(bool, destroy);
        TestPatternCameraPort port(withOptions(
            [](TestPatternOptions& o) { o.openDelay = std::chrono::milliseconds(150); }));
        RunningSession running = start(port, 0);
        if (destroy) {
            running.session.reset();
        } else {
            running.session->stopRunning();
        }
        QTRY_COMPARE(port.statistics().opens.load(), 1);
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        QTest::qWait(50);
        QVERIFY(!running.answered);
        if (!destroy) {
            QVERIFY(!running.session->isRunning());
            QVERIFY(running.session->latestFrame().isNull());
        }
    }

    void sessionTakesOneInputOfItsOwnKind()
    {
        TestPatternCameraPort port(withOptions([](TestPatternOptions& o) { o.deviceCount = 2; }));
        auto session = port.createSession(CameraSessionPreset::medium);
        auto first = port.createInput(*port.deviceWithUniqueID(u"test-pattern:1"_s)).input;
        auto second = port.createInput(*port.deviceWithUniqueID(u"test-pattern:2"_s)).input;
        struct ForeignInput : CameraInput {
            CameraDevice device() const override { return {u"foreign"_s, u"Foreign"_s}; }
        } foreign;
        QVERIFY(!session->canAddInput(foreign));
        QVERIFY(session->canAddInput(*first));
        session->addInput(first);
        QCOMPARE(session->input(), first);
        QVERIFY(!session->canAddInput(*second));
        session->removeInput(*second); // not its input: nothing happens
        QCOMPARE(session->input(), first);
        session->removeInput(*first);
        QVERIFY(!session->input());
        QVERIFY(session->canAddInput(*second));
    }

    // A device that fails to open, a session without input, a busy device
    // and refused access: each is an error, and answers come on a later turn.
    void refusalsAreReported()
    {
        const QString first = TestPatternCameraPort::deviceID(0);
        TestPatternCameraPort port(withOptions([&](TestPatternOptions& o) {
            o.deviceCount = 2;
            o.failingDevices = {first};
            o.busyDevices = {TestPatternCameraPort::deviceID(1)};
            o.accessGranted = false;
        }));
        RunningSession failing = start(port, 0);
        QVERIFY(!failing.answered);
        QTRY_VERIFY(failing.answered);
        QVERIFY(failing.error && !failing.error->localizedDescription.isEmpty());
        QVERIFY(!failing.session->isRunning());

        auto empty = port.createSession(CameraSessionPreset::medium);
        std::optional<PlatformError> error;
        bool answered = false;
        empty->startRunning([&](std::optional<PlatformError> e) {
            answered = true;
            error = std::move(e);
        });
        QVERIFY(!answered);
        QTRY_VERIFY(answered);
        QVERIFY(error);
        QVERIFY(!empty->isRunning());

        const auto busy = port.createInput(*port.deviceWithUniqueID(u"test-pattern:2"_s));
        QVERIFY(!busy.input);
        QVERIFY(busy.error &&
                busy.error->localizedDescription.contains(u"Test Pattern Camera 2"_s));

        std::optional<bool> granted;
        port.requestAccess([&](bool g) { granted = g; });
        QVERIFY(!granted);
        QTRY_VERIFY(granted.has_value());
        QCOMPARE(*granted, false);
    }
};

QTEST_GUILESS_MAIN(TestPatternCameraTest)
#include "tst_test_pattern_camera.moc"
