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

Q_DECLARE_METATYPE(QList<vistrel::CameraFormatCandidate>)

class QtCameraPortTest : public QObject {
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
    // later turn of the main loop.
    void accessIsGranted()
    {
        QtCameraPort port;
        std::optional<bool> granted;
        port.requestAccess([&](bool g) { granted = g; });
        QVERIFY(!granted);
        QTRY_VERIFY(granted.has_value());
        QVERIFY(*granted);
    }

    void unknownDeviceIsNotFound()
    {
        QtCameraPort port;
        QVERIFY(!port.deviceWithUniqueID(u"/dev/video-that-does-not-exist"_s));
        QVERIFY(!port.deviceWithUniqueID(TestPatternCameraPort::deviceID(0)));
        const auto result =
            port.createInput({u"/dev/video-that-does-not-exist"_s, u"Gone Camera"_s});
        QVERIFY(!result.input);
        QVERIFY(result.error);
        QCOMPARE(result.error->localizedDescription,
                 u"The camera \u201cGone Camera\u201d is no longer connected."_s);
    }

    void listedDevicesCanBeLookedUp()
    {
        QtCameraPort port;
        const auto devices = port.devices();
        for (const auto& device : devices) {
            QVERIFY(!device.uniqueID.isEmpty());
            QCOMPARE(port.deviceWithUniqueID(device.uniqueID), device);
        }
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
};

QTEST_MAIN(QtCameraPortTest)
#include "tst_qt_camera_port.moc"
