#include "capture/support_message_log.h"
#include "coordination/CameraSessionManager.h"
#include "platform/camera/TestPatternCamera.h"

#include <QSignalSpy>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

using OptionsEdit = std::function<void(TestPatternOptions&)>;
using ConfigurationEdit = std::function<void(CameraOverlayConfiguration&)>;
using Stop = std::function<void(std::unique_ptr<CameraSessionManager>&)>;

const QString cameraCategory = u"quorbit.Vistrel.Camera"_s;
const QString cameraA = u"test-pattern:1"_s;
const QString cameraB = u"test-pattern:2"_s;

// A port whose inputs come from somewhere its sessions do not accept.
class ForeignInputPort final : public CameraPort {
public:
    void requestAccess(std::function<void(bool)> completion) override
    {
        m_inner.requestAccess(std::move(completion));
    }
    QList<CameraDevice> devices() override { return m_inner.devices(); }
    std::optional<CameraDevice> deviceWithUniqueID(const QString& id) override
    {
        return m_inner.deviceWithUniqueID(id);
    }
    std::unique_ptr<CameraSession> createSession(CameraSessionPreset preset) override
    {
        return m_inner.createSession(preset);
    }
    InputResult createInput(const CameraDevice& device) override
    {
        struct Foreign : CameraInput {
            CameraDevice d;
            CameraDevice device() const override { return d; }
        };
        auto input = std::make_shared<Foreign>();
        input->d = device;
        return {input, std::nullopt};
    }

private:
    TestPatternCameraPort m_inner;
};

CameraOverlayConfiguration enabledFor(const QString& deviceID)
{
    CameraOverlayConfiguration configuration;
    configuration.isEnabled = true;
    configuration.cameraDeviceID = deviceID;
    return configuration;
}

// Two test cameras.
TestPatternOptions options(const OptionsEdit& edit = {})
{
    TestPatternOptions result;
    result.deviceCount = 2;
    if (edit)
        edit(result);
    return result;
}

QColor frameColour(const CameraSessionManager& manager)
{
    return QColor(manager.captureSession()->latestFrame().pixel(10, 10));
}

} // namespace

class CameraSessionManagerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Switching cameras stops the first (clearing both properties) before
    // the second runs; starting the running camera again does nothing.
    void runsAndSwitchesCameras()
    {
        TestPatternCameraPort port(options());
        CameraSessionManager manager(port);
        QSignalSpy sessions(&manager, &CameraSessionManager::captureSessionChanged);
        QStringList changes;
        connect(&manager, &CameraSessionManager::isRunningChanged, this,
                [&](bool running) { changes << u"running=%1"_s.arg(running); });
        connect(&manager, &CameraSessionManager::currentDeviceIDChanged, this,
                [&](const std::optional<QString>& id) {
                    changes << u"device=%1"_s.arg(id.value_or(u"none"_s));
                });

        manager.apply(enabledFor(cameraA));
        QVERIFY(!manager.isRunning()); // the start happens on later turns
        QTRY_VERIFY(manager.isRunning());
        QCOMPARE(manager.property("currentDeviceID").value<std::optional<QString>>(), cameraA);
        QVERIFY(manager.property("isRunning").toBool());
        QCOMPARE(sessions.size(), 1);
        QCOMPARE(manager.captureSession()->preset(), CameraSessionPreset::medium);
        QTRY_VERIFY(!manager.captureSession()->latestFrame().isNull());
        QCOMPARE(frameColour(manager), TestPatternCameraPort::leftColor(0));

        manager.apply(enabledFor(cameraB));
        QCOMPARE(changes, QStringList({u"running=1"_s, u"device=test-pattern:1"_s, u"running=0"_s,
                                       u"device=none"_s}));
        QTRY_VERIFY(manager.isRunning());
        QCOMPARE(changes.mid(4), QStringList({u"running=1"_s, u"device=test-pattern:2"_s}));
        QTRY_VERIFY(!manager.captureSession()->latestFrame().isNull());
        QCOMPARE(frameColour(manager), TestPatternCameraPort::leftColor(1));
        QTRY_COMPARE(port.statistics().closes.load(), 1);

        manager.start(cameraB);
        QVERIFY(manager.isRunning());
        QCOMPARE(port.statistics().opens.load(), 2);
        QCOMPARE(changes.size(), 6);
    }

    // Every failure is logged once on the camera category and leaves the
    // manager stopped without a session; the next apply tries again.
    void failuresLeaveItStopped_data()
    {
        QTest::addColumn<OptionsEdit>("edit");
        QTest::addColumn<QString>("deviceID");
        QTest::addColumn<bool>("foreignInputs");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("ranFirst");
        QTest::addColumn<bool>("accessDenied");

        QTest::newRow("access denied")
            << OptionsEdit([](TestPatternOptions& o) { o.accessGranted = false; }) << cameraA
            << false << u"Camera access denied by user."_s << false << true;
        QTest::newRow("device may not be opened")
            << OptionsEdit([](TestPatternOptions& o) { o.deniedDevices = {cameraA}; }) << cameraA
            << false << u"Failed to start camera: You may not open the test camera."_s << false
            << true;
        QTest::newRow("missing device")
            << OptionsEdit() << u"test-pattern:9"_s << false
            << u"Camera device not found: test-pattern:9"_s << false << false;
        QTest::newRow("device of no backend")
            << OptionsEdit() << u"usb-0000:00:14.0-1"_s << false
            << u"Camera device not found: usb-0000:00:14.0-1"_s << false << false;
        QTest::newRow("input cannot be created")
            << OptionsEdit([](TestPatternOptions& o) { o.busyDevices = {cameraA}; }) << cameraA
            << false
            << u"Failed to create camera input: The camera \u201cTest Pattern Camera 1\u201d is "
               u"in use by another application."_s
            << false << false;
        QTest::newRow("input cannot be added")
            << OptionsEdit() << cameraA << true << u"Cannot add camera input to session."_s << false
            << false;
        QTest::newRow("device fails to start")
            << OptionsEdit([](TestPatternOptions& o) { o.failingDevices = {cameraA}; }) << cameraA
            << false << u"Failed to start camera: The test camera stopped responding."_s << false
            << false;
        // A failure before the start has answered ends the start too.
        QTest::newRow("disconnected while opening")
            << OptionsEdit([](TestPatternOptions& o) { o.disconnectAfterFrames = 0; }) << cameraA
            << false << u"Camera stopped with an error: The test camera was disconnected."_s
            << false << false;
        QTest::newRow("disconnected while running")
            << OptionsEdit([](TestPatternOptions& o) { o.disconnectAfterFrames = 3; }) << cameraA
            << false << u"Camera stopped with an error: The test camera was disconnected."_s << true
            << false;
    }

    void failuresLeaveItStopped()
    {
        QFETCH(OptionsEdit, edit);
        QFETCH(QString, deviceID);
        QFETCH(bool, foreignInputs);
        QFETCH(QString, message);
        QFETCH(bool, ranFirst);
        QFETCH(bool, accessDenied);

        TestPatternCameraPort testPort(options(edit));
        ForeignInputPort foreignPort;
        CameraPort& port = foreignInputs ? static_cast<CameraPort&>(foreignPort) : testPort;
        CameraSessionManager manager(port);
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);

        MessageLog log;
        CameraOverlayConfiguration configuration = enabledFor(deviceID);
        manager.apply(configuration);
        QTRY_COMPARE(log.messages.size(), 1);
        configuration.position = CameraPosition::topLeft;
        manager.apply(configuration);
        QTRY_COMPARE(log.messages.size(), 2);
        QCOMPARE(log.texts(cameraCategory), QStringList({message, message}));
        QVERIFY(!manager.isRunning());
        QCOMPARE(manager.currentDeviceID(), std::nullopt);
        QVERIFY(!manager.captureSession());
        QCOMPARE(running.size(), ranFirst ? 4 : 0);
        QCOMPARE(manager.isAccessDenied(), accessDenied);
        QTRY_COMPARE(testPort.statistics().closes.load(), testPort.statistics().opens.load());
    }

    // Only the device matters: the camera keeps running through every other
    // change, also while it is still opening.
    void layoutChangesNeverRestart_data()
    {
        QTest::addColumn<ConfigurationEdit>("edit");
        QTest::addColumn<bool>("whileOpening");
        const QList<std::pair<const char*, ConfigurationEdit>> edits{
            {"shape",
             [](CameraOverlayConfiguration& c) {
                 c.shape = CameraShape::roundedSquare;
             }},
            {"mirror",
             [](CameraOverlayConfiguration& c) {
                 c.isMirrored = true;
             }},
            {"size",
             [](CameraOverlayConfiguration& c) {
                 c.sizeScale = 0.5;
             }},
            {"position",
             [](CameraOverlayConfiguration& c) {
                 c.position = CameraPosition::top;
             }},
            {"margins",
             [](CameraOverlayConfiguration& c) {
                 c.marginLeft = 120;
             }},
        };
        for (const auto& [name, edit] : edits) {
            QTest::addRow("%s while running", name) << edit << false;
            QTest::addRow("%s while opening", name) << edit << true;
        }
    }

    void layoutChangesNeverRestart()
    {
        QFETCH(ConfigurationEdit, edit);
        QFETCH(bool, whileOpening);
        TestPatternCameraPort port(
            options([](TestPatternOptions& o) { o.openDelay = std::chrono::milliseconds(60); }));
        CameraSessionManager manager(port);
        CameraOverlayConfiguration configuration = enabledFor(cameraA);
        manager.apply(configuration);
        if (!whileOpening)
            QTRY_VERIFY(manager.isRunning());
        CameraSession* session = manager.captureSession();
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);
        QSignalSpy sessions(&manager, &CameraSessionManager::captureSessionChanged);

        edit(configuration);
        manager.apply(configuration);
        manager.apply(configuration);
        QTRY_VERIFY(manager.isRunning());
        QTest::qWait(100);
        QCOMPARE(port.statistics().opens.load(), 1);
        QCOMPARE(port.statistics().closes.load(), 0);
        QCOMPARE(running.size(), whileOpening ? 1 : 0);
        if (!whileOpening) {
            QCOMPARE(manager.captureSession(), session);
            QCOMPARE(sessions.size(), 0);
        }
    }

    // Stopping returns at once, running or opening; the device closes later
    // on the worker thread, and one that was still opening never runs.
    void stopping_data()
    {
        QTest::addColumn<Stop>("stop");
        QTest::addColumn<bool>("whileOpening");
        const auto applying = [](const ConfigurationEdit& edit) {
            return Stop([edit](std::unique_ptr<CameraSessionManager>& manager) {
                CameraOverlayConfiguration configuration = enabledFor(cameraA);
                edit(configuration);
                manager->apply(configuration);
            });
        };
        const Stop stop = [](std::unique_ptr<CameraSessionManager>& m) {
            m->stop();
        };
        const Stop destroy = [](std::unique_ptr<CameraSessionManager>& m) {
            m.reset();
        };
        QTest::newRow("disabled") << applying([](CameraOverlayConfiguration& c) {
            c.isEnabled = false;
        }) << false;
        QTest::newRow("empty id") << applying([](CameraOverlayConfiguration& c) {
            c.cameraDeviceID = u""_s;
        }) << false;
        QTest::newRow("no id") << applying([](CameraOverlayConfiguration& c) {
            c.cameraDeviceID.reset();
        }) << false;
        QTest::newRow("start without id")
            << Stop([](std::unique_ptr<CameraSessionManager>& m) { m->start(std::nullopt); })
            << false;
        QTest::newRow("stop") << stop << false;
        QTest::newRow("destroyed") << destroy << false;
        QTest::newRow("stop while opening") << stop << true;
        QTest::newRow("destroyed while opening") << destroy << true;
    }

    void stopping()
    {
        QFETCH(Stop, stop);
        QFETCH(bool, whileOpening);
        TestPatternCameraPort port(options([&](TestPatternOptions& o) {
            o.openDelay = std::chrono::milliseconds(whileOpening ? 500 : 0);
        }));
        auto manager = std::make_unique<CameraSessionManager>(port);
        QSignalSpy running(manager.get(), &CameraSessionManager::isRunningChanged);
        manager->apply(enabledFor(cameraA));
        if (whileOpening)
            QTRY_VERIFY(manager->captureSession()); // configured, device opening
        else
            QTRY_VERIFY(manager->isRunning());

        stop(manager);
        if (manager) {
            QVERIFY(!manager->isRunning());
            QCOMPARE(manager->currentDeviceID(), std::nullopt);
            QVERIFY(!manager->captureSession());
        }
        QCOMPARE(port.statistics().opens.load(), whileOpening ? 0 : 1);
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        QCOMPARE(port.statistics().opens.load(), 1);
        // Destruction announces nothing.
        QCOMPARE(running.size(), whileOpening ? 0 : manager ? 2 : 1);
    }
};

QTEST_GUILESS_MAIN(CameraSessionManagerTest)
#include "tst_camera_session_manager.moc"
