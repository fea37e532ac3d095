#include "coordination/CameraSessionManager.h"
#include "platform/camera/TestPatternCamera.h"

#include <QSignalSpy>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

using OptionsEdit = std::function<void(TestPatternOptions&)>;
using ConfigurationEdit = std::function<void(CameraOverlayConfiguration&)>;

// Messages logged while an instance lives, with their category.
class LogRecorder {
public:
    struct Entry {
        QtMsgType type;
        QString category;
        QString message;
    };

    LogRecorder()
    {
        s_entries.clear();
        m_previous = qInstallMessageHandler(&LogRecorder::record);
    }
    ~LogRecorder() { qInstallMessageHandler(m_previous); }

    const QList<Entry>& entries() const { return s_entries; }

private:
    static void record(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        s_entries.append({type, QString::fromUtf8(context.category), message});
    }

    static inline QList<Entry> s_entries;
    QtMessageHandler m_previous = nullptr;
};

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

TestPatternOptions options(const OptionsEdit& edit)
{
    TestPatternOptions result;
    result.deviceCount = 2;
    if (edit) {
        edit(result);
    }
    return result;
}

const QString cameraA = u"test-pattern:1"_s;
const QString cameraB = u"test-pattern:2"_s;

} // namespace

class CameraSessionManagerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void enabledSettingsRunTheCamera()
    {
        TestPatternCameraPort port(options({}));
        CameraSessionManager manager(port);
        QSignalSpy sessions(&manager, &CameraSessionManager::captureSessionChanged);

        manager.apply(enabledFor(cameraA));
        QVERIFY(!manager.isRunning()); // the start happens on later turns
        QTRY_VERIFY(manager.isRunning());
        QCOMPARE(manager.currentDeviceID(), cameraA);
        QCOMPARE(manager.property("currentDeviceID").value<std::optional<QString>>(), cameraA);
        QVERIFY(manager.property("isRunning").toBool());
        QVERIFY(manager.captureSession());
        QCOMPARE(sessions.size(), 1);
        QTRY_VERIFY(!manager.captureSession()->latestFrame().isNull());
        QCOMPARE(QColor(manager.captureSession()->latestFrame().pixel(10, 10)),
                 TestPatternCameraPort::leftColor(0));
        QCOMPARE(manager.captureSession()->preset(), CameraSessionPreset::medium);
    }

    // Every failure is logged once on the camera category and leaves the
    // manager stopped without a session.
    void failuresLeaveItStopped_data()
    {
        QTest::addColumn<OptionsEdit>("edit");
        QTest::addColumn<QString>("deviceID");
        QTest::addColumn<bool>("foreignInputs");
        QTest::addColumn<QString>("message");

        QTest::newRow("access denied")
            << OptionsEdit([](TestPatternOptions& o) { o.accessGranted = false; }) << cameraA
            << false << u"Camera access denied by user."_s;
        QTest::newRow("missing device") << OptionsEdit() << u"test-pattern:9"_s << false
                                        << u"Camera device not found: test-pattern:9"_s;
        QTest::newRow("device of no backend") << OptionsEdit() << u"usb-0000:00:14.0-1"_s << false
                                              << u"Camera device not found: usb-0000:00:14.0-1"_s;
        QTest::newRow("input cannot be created")
            << OptionsEdit([](TestPatternOptions& o) { o.busyDevices = {cameraA}; }) << cameraA
            << false
            << u"Failed to create camera input: The camera \u201cTest Pattern Camera 1\u201d is "
               u"in use by another application."_s;
        QTest::newRow("input cannot be added")
            << OptionsEdit() << cameraA << true << u"Cannot add camera input to session."_s;
        QTest::newRow("device fails to start")
            << OptionsEdit([](TestPatternOptions& o) { o.failingDevices = {cameraA}; }) << cameraA
            << false << u"Failed to start camera: The test camera stopped responding."_s;
    }

    void failuresLeaveItStopped()
    {
        QFETCH(OptionsEdit, edit);
        QFETCH(QString, deviceID);
        QFETCH(bool, foreignInputs);
        QFETCH(QString, message);

        TestPatternCameraPort testPort(options(edit));
        ForeignInputPort foreignPort;
        CameraPort& port = foreignInputs ? static_cast<CameraPort&>(foreignPort) : testPort;
        CameraSessionManager manager(port);
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);

        LogRecorder log;
        manager.apply(enabledFor(deviceID));
        QTRY_VERIFY(!log.entries().isEmpty());
        QTest::qWait(50); // nothing else follows
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().type, QtCriticalMsg);
        QCOMPARE(log.entries().first().category, u"quorbit.Vistrel.Camera"_s);
        QCOMPARE(log.entries().first().message, message);
        QVERIFY(!manager.isRunning());
        QCOMPARE(manager.currentDeviceID(), std::nullopt);
        QVERIFY(!manager.captureSession());
        QCOMPARE(running.size(), 0);
        QCOMPARE(testPort.statistics().opens.load(), testPort.statistics().closes.load());
    }

    // With access refused, every apply of enabled settings tries again and
    // logs again.
    void deniedAccessIsLoggedOnEveryApply()
    {
        TestPatternCameraPort port(options([](TestPatternOptions& o) { o.accessGranted = false; }));
        CameraSessionManager manager(port);
        LogRecorder log;
        manager.apply(enabledFor(cameraA));
        QTRY_COMPARE(log.entries().size(), 1);
        CameraOverlayConfiguration moved = enabledFor(cameraA);
        moved.position = CameraPosition::topLeft;
        manager.apply(moved);
        QTRY_COMPARE(log.entries().size(), 2);
        QCOMPARE(log.entries().at(1).message, u"Camera access denied by user."_s);
        QVERIFY(!manager.isRunning());
    }

    // Switching cameras stops the first (clearing both properties) before
    // the second runs.
    void switchingStopsTheFirstCameraFirst()
    {
        TestPatternCameraPort port(options({}));
        CameraSessionManager manager(port);
        QStringList changes;
        connect(&manager, &CameraSessionManager::isRunningChanged, this, [&](bool running) {
            changes << (running ? u"running=true"_s : u"running=false"_s);
        });
        connect(&manager, &CameraSessionManager::currentDeviceIDChanged, this,
                [&](const std::optional<QString>& id) {
                    changes << u"device=%1"_s.arg(id.value_or(u"none"_s));
                });

        manager.apply(enabledFor(cameraA));
        QTRY_VERIFY(manager.isRunning());

        manager.apply(enabledFor(cameraB));
        QCOMPARE(changes, QStringList({u"running=true"_s, u"device=test-pattern:1"_s,
                                       u"running=false"_s, u"device=none"_s}));
        QTRY_VERIFY(manager.isRunning());
        QCOMPARE(changes,
                 QStringList({u"running=true"_s, u"device=test-pattern:1"_s, u"running=false"_s,
                              u"device=none"_s, u"running=true"_s, u"device=test-pattern:2"_s}));
        QTRY_VERIFY(!manager.captureSession()->latestFrame().isNull());
        QCOMPARE(QColor(manager.captureSession()->latestFrame().pixel(10, 10)),
                 TestPatternCameraPort::leftColor(1));
        QCOMPARE(port.statistics().opens.load(), 2);
        QTRY_COMPARE(port.statistics().closes.load(), 1);
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
                 c.marginTop = 0;
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
        if (!whileOpening) {
            QTRY_VERIFY(manager.isRunning());
        }
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

    void settingsWithoutACameraStop_data()
    {
        QTest::addColumn<ConfigurationEdit>("edit");
        QTest::newRow("disabled") << ConfigurationEdit(
            [](CameraOverlayConfiguration& c) { c.isEnabled = false; });
        QTest::newRow("empty id") << ConfigurationEdit(
            [](CameraOverlayConfiguration& c) { c.cameraDeviceID = u""_s; });
        QTest::newRow("no id") << ConfigurationEdit(
            [](CameraOverlayConfiguration& c) { c.cameraDeviceID.reset(); });
        QTest::newRow("defaults") << ConfigurationEdit(
            [](CameraOverlayConfiguration& c) { c = CameraOverlayConfiguration::defaultValue(); });
    }

    void settingsWithoutACameraStop()
    {
        QFETCH(ConfigurationEdit, edit);
        TestPatternCameraPort port(options({}));
        CameraSessionManager manager(port);
        CameraOverlayConfiguration configuration = enabledFor(cameraA);
        manager.apply(configuration);
        QTRY_VERIFY(manager.isRunning());

        edit(configuration);
        manager.apply(configuration);
        // Stopping is immediate on the main thread.
        QVERIFY(!manager.isRunning());
        QCOMPARE(manager.currentDeviceID(), std::nullopt);
        QVERIFY(!manager.captureSession());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
    }

    // Turning the camera off while it opens: it never reports running and the
    // device is closed once the open finishes.
    void stopWhileOpening()
    {
        TestPatternCameraPort port(
            options([](TestPatternOptions& o) { o.openDelay = std::chrono::milliseconds(300); }));
        CameraSessionManager manager(port);
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);
        manager.apply(enabledFor(cameraA));
        QTRY_VERIFY(manager.captureSession()); // configured, device opening
        manager.stop();
        QVERIFY(!manager.captureSession());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        QTest::qWait(50);
        QCOMPARE(running.size(), 0);
        QVERIFY(!manager.isRunning());
    }

    // Going away while the device is still opening: the destructor returns
    // before the worker has finished opening (it does not wait), and the
    // device is closed afterwards.
    void destructionDoesNotWaitForTheDevice()
    {
        TestPatternCameraPort port(
            options([](TestPatternOptions& o) { o.openDelay = std::chrono::milliseconds(500); }));
        auto manager = std::make_unique<CameraSessionManager>(port);
        manager->apply(enabledFor(cameraA));
        QTRY_VERIFY(manager->captureSession());
        manager.reset();
        QCOMPARE(port.statistics().opens.load(), 0);
        QTRY_COMPARE(port.statistics().opens.load(), 1);
        QTRY_COMPARE(port.statistics().closes.load(), 1);
    }

    void destructionStopsARunningCamera()
    {
        TestPatternCameraPort port(options({}));
        auto manager = std::make_unique<CameraSessionManager>(port);
        manager->apply(enabledFor(cameraA));
        QTRY_VERIFY(manager->isRunning());
        manager.reset();
        QTRY_COMPARE(port.statistics().closes.load(), 1);
    }

    // A camera that fails while running (unplugged) is logged and stopped.
    void runtimeFailureStops()
    {
        TestPatternCameraPort port(
            options([](TestPatternOptions& o) { o.disconnectAfterFrames = 3; }));
        CameraSessionManager manager(port);
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);
        LogRecorder log;
        manager.apply(enabledFor(cameraA));
        QTRY_COMPARE(running.size(), 2);
        QCOMPARE(running.at(0).at(0).toBool(), true);
        QCOMPARE(running.at(1).at(0).toBool(), false);
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().category, u"quorbit.Vistrel.Camera"_s);
        QCOMPARE(log.entries().first().message,
                 u"Camera stopped with an error: The test camera was disconnected."_s);
        QCOMPARE(manager.currentDeviceID(), std::nullopt);
        QVERIFY(!manager.captureSession());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
    }

    // A failure reported before the start has answered ends the start too:
    // the manager is stopped, not stuck waiting, and a later apply for the
    // same camera starts it.
    void failureWhileOpeningIsNotStuck()
    {
        TestPatternCameraPort port(
            options([](TestPatternOptions& o) { o.disconnectAfterFrames = 0; }));
        CameraSessionManager manager(port);
        QSignalSpy running(&manager, &CameraSessionManager::isRunningChanged);
        LogRecorder log;
        manager.apply(enabledFor(cameraA));
        QTRY_COMPARE(log.entries().size(), 1);
        QCOMPARE(log.entries().first().message,
                 u"Camera stopped with an error: The test camera was disconnected."_s);
        QVERIFY(!manager.captureSession());
        QTest::qWait(50);
        QCOMPARE(running.size(), 0);

        port.setOptions(options({}));
        manager.apply(enabledFor(cameraA));
        QTRY_VERIFY(manager.isRunning());
        QCOMPARE(log.entries().size(), 1);
    }

    void startWithoutIdStops()
    {
        TestPatternCameraPort port(options({}));
        CameraSessionManager manager(port);
        manager.start(cameraA);
        QTRY_VERIFY(manager.isRunning());
        manager.start(cameraA); // already running: nothing happens
        QVERIFY(manager.isRunning());
        manager.start(std::nullopt);
        QVERIFY(!manager.isRunning());
        QTRY_COMPARE(port.statistics().closes.load(), 1);
        QCOMPARE(port.statistics().opens.load(), 1);
    }
};

QTEST_GUILESS_MAIN(CameraSessionManagerTest)
#include "tst_camera_session_manager.moc"
