// Cameras: the format chosen from what a device offers, the Qt Multimedia
// port, the port factory and its switch, and the built-in test-pattern
// camera that the tests and demos use in place of a device.

#include "platform/camera/CameraFormatChoice.h"
#include "platform/camera/CameraPortFactory.h"
#include "platform/camera/CameraWorkerThread.h"
#include "platform/camera/QtCameraPort.h"
#include "platform/camera/TestPatternCamera.h"

#include <QGuiApplication>
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

Q_DECLARE_METATYPE(QList<vistrel::CameraFormatCandidate>)

class TestCamera : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mediumFormat_data()
    {
        using F = CameraFormatCandidate;
        QTest::addColumn<QList<F>>("formats");
        QTest::addColumn<int>("expected");
        QTest::newRow("empty") << QList<F>{} << -1;
        QTest::newRow("only unusable") << QList<F>{{QSize(0, 0), 30, false}} << -1;
        QTest::newRow("exact 640x480 among others") << QList<F>{{QSize(1920, 1080), 30, false},
                                                                {QSize(640, 480), 30, false},
                                                                {QSize(320, 240), 30, false}}
                                                    << 1;
        QTest::newRow("nearest by pixel count")
            << QList<F>{{QSize(1280, 720), 30, false}, {QSize(800, 600), 30, false}} << 1;
        QTest::newRow("smaller is nearer")
            << QList<F>{{QSize(1920, 1080), 30, false}, {QSize(352, 288), 30, false}} << 1;
        QTest::newRow("same size: reaching 30 fps wins")
            << QList<F>{{QSize(640, 480), 15, false}, {QSize(640, 480), 30, true}} << 1;
        QTest::newRow("same size and rate: uncompressed wins")
            << QList<F>{{QSize(640, 480), 30, true}, {QSize(640, 480), 30, false}} << 1;
        QTest::newRow("above 30 fps buys nothing")
            << QList<F>{{QSize(640, 480), 30, false}, {QSize(640, 480), 60, true}} << 0;
        QTest::newRow("size beats rate")
            << QList<F>{{QSize(1920, 1080), 60, false}, {QSize(640, 360), 5, true}} << 1;
    }

    void mediumFormat()
    {
        QFETCH(QList<CameraFormatCandidate>, formats);
        QFETCH(int, expected);
        QCOMPARE(chooseMediumFormat(formats), expected);
    }

    // No camera permission exists on Linux: access is granted, answered on a
    // later turn of the main loop. Devices are found by their id only.
    void qtPortGrantsAccessAndLooksUpDevices()
    {
        QtCameraPort port;
        std::optional<bool> granted;
        port.requestAccess([&](bool g) { granted = g; });
        QVERIFY(!granted);
        QTRY_VERIFY(granted.has_value());
        QVERIFY(*granted);

        for (const auto& device : port.devices()) {
            QVERIFY(!device.uniqueID.isEmpty());
            QCOMPARE(port.deviceWithUniqueID(device.uniqueID), device);
        }
        QVERIFY(!port.deviceWithUniqueID(u"/dev/video-that-does-not-exist"_s));
        QVERIFY(!port.deviceWithUniqueID(TestPatternCameraPort::deviceID(0)));
        const auto result =
            port.createInput({u"/dev/video-that-does-not-exist"_s, u"Gone Camera"_s});
        QVERIFY(!result.input);
        QVERIFY(result.error);
        QCOMPARE(result.error->localizedDescription,
                 u"The camera \u201cGone Camera\u201d is no longer connected."_s);
    }

    // Runs Qt Multimedia's own objects on the worker thread. A null device
    // opens the backend's default source: on a machine without a camera the
    // backend either answers with an error or runs a built-in test source.
    // Either way the answer arrives, nothing blocks and teardown is clean.
    void qtInputRunsOnTheWorkerThread()
    {
        auto worker = std::make_shared<CameraWorkerThread>();
        QtCameraPort port(worker);
        auto session = port.createSession(CameraSessionPreset::medium);
        auto input = std::make_shared<QtCameraInput>(QCameraDevice(),
                                                     CameraDevice{u"default"_s, u"Default"_s});
        QVERIFY(session->canAddInput(*input));
        session->addInput(input);
        bool answered = false;
        std::optional<PlatformError> error;
        session->startRunning([&](std::optional<PlatformError> e) {
            answered = true;
            error = std::move(e);
        });
        QTRY_VERIFY_WITH_TIMEOUT(answered, 10000);
        if (error) {
            qInfo("default source refused: %s", qUtf8Printable(error->localizedDescription));
            QVERIFY(!session->isRunning());
            QVERIFY(!error->localizedDescription.isEmpty());
        } else {
            QVERIFY(session->isRunning());
            QTRY_VERIFY_WITH_TIMEOUT(!session->latestFrame().isNull(), 10000);
            qInfo("default source delivered %dx%d", session->latestFrame().width(),
                  session->latestFrame().height());
        }
        session->stopRunning();
        session.reset();
        input.reset();
    }

    void factoryAddsTheTestPatternOnlyWhenAsked()
    {
        auto plain = createCameraPort({});
        for (const auto& device : plain->devices()) {
            QVERIFY(!TestPatternCameraPort::isTestPatternID(device.uniqueID));
        }
        QVERIFY(!plain->deviceWithUniqueID(TestPatternCameraPort::deviceID(0)));

        auto combined = createCameraPort({.includeTestPattern = true});
        const auto devices = combined->devices();
        QVERIFY(!devices.isEmpty());
        QCOMPARE(devices.last().uniqueID, TestPatternCameraPort::deviceID(0));
        const auto device = combined->deviceWithUniqueID(TestPatternCameraPort::deviceID(0));
        QVERIFY(device);

        // A test-pattern input runs in the combined port's session.
        auto session = combined->createSession(CameraSessionPreset::medium);
        auto input = combined->createInput(*device).input;
        QVERIFY(input);
        QVERIFY(session->canAddInput(*input));
        session->addInput(input);
        bool answered = false;
        session->startRunning([&](std::optional<PlatformError> e) {
            answered = true;
            QVERIFY(!e);
        });
        QTRY_VERIFY(answered);
        QTRY_VERIFY(!session->latestFrame().isNull());
    }

    void environmentSwitch_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("unset") << QByteArray() << false;
        QTest::newRow("1") << QByteArray("1") << true;
        QTest::newRow("0") << QByteArray("0") << false;
        QTest::newRow("word") << QByteArray("yes") << false;
    }

    void environmentSwitch()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, enabled);
        if (value.isNull()) {
            qunsetenv("VISTREL_TEST_CAMERA");
        } else {
            qputenv("VISTREL_TEST_CAMERA", value);
        }
        QCOMPARE(CameraPortOptions::fromEnvironment().includeTestPattern, enabled);
        qunsetenv("VISTREL_TEST_CAMERA");
    }

    // ---- test pattern
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

    // Frames keep coming while running; a stop drops the frame at once and
    // closes the device, and no frame follows.
    void sessionRunsUntilStopped()
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
        QTRY_VERIFY(running.session->latestFrame() != a);
        QCOMPARE(port.statistics().opens.load(), 1);

        running.session->stopRunning();
        QVERIFY(!running.session->isRunning());
        QVERIFY(running.session->latestFrame().isNull());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        frames.clear();
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

QTEST_MAIN(TestCamera)
#include "tst_camera.moc"
