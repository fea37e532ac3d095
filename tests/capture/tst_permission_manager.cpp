#include "capture/PermissionManager.h"
#include "capture/support_message_log.h"
#include "platform/sim/SimPermission.h"
#include "platform/sim/SimUrlOpener.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <QWindow>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vistrel;

using State = ScreenRecordingPermissionState;

namespace QTest {
template<> char* toString(const State& state)
{
    return qstrdup(qPrintable(caseName(state)));
}
} // namespace QTest

namespace {

const QString permissionCategory = u"quorbit.Vistrel.Permission"_s;

struct Fixture {
    explicit Fixture(bool granted)
        : permission(std::make_shared<SimPermission>(granted)),
          opener(std::make_shared<SimUrlOpener>()),
          manager(std::make_unique<PermissionManager>(permission, opener))
    {
    }
    std::shared_ptr<SimPermission> permission;
    std::shared_ptr<SimUrlOpener> opener;
    std::unique_ptr<PermissionManager> manager;
};

// The offscreen platform never deactivates the application once a window
// had the focus, so later transitions are announced the way it would.
void becomeActiveAgain()
{
    Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationInactive);
    Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
}

} // namespace

class TestPermissionManager : public QObject {
    Q_OBJECT

private Q_SLOTS:

    // Read on construction, never prompting; a refresh reads again and
    // publishes every time, changed or not.
    void stateIsReadAndRefreshed()
    {
        for (const bool granted : {true, false}) {
            Fixture f(granted);
            const State state = granted ? State::granted : State::missing;
            QCOMPARE(f.manager->state(), state);
            QCOMPARE(f.manager->property("state").value<State>(), state);
            QSignalSpy published(f.manager.get(), &PermissionManager::stateChanged);
            f.manager->refreshState();
            f.manager->refreshState();
            QCOMPARE(published.count(), 2);
            QCOMPARE(f.manager->state(), state);

            f.permission->setGranted(!granted);
            f.manager->refreshState();
            QCOMPARE(published.count(), 3);
            QCOMPARE(f.manager->state(), granted ? State::missing : State::granted);
            QCOMPARE(f.permission->requestCount(), 0);
        }
    }

    void becomingActiveRechecks()
    {
        Fixture f(false);
        QSignalSpy published(f.manager.get(), &PermissionManager::stateChanged);

        // Granted elsewhere while the application was in the background.
        f.permission->setGranted(true);
        QCOMPARE(QGuiApplication::applicationState(), Qt::ApplicationInactive);
        QWindow window;
        window.resize(100, 100);
        window.show();
        window.requestActivate();
        QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationActive);
        QTRY_COMPARE(f.manager->state(), State::granted);
        QCOMPARE(published.last().at(0).value<State>(), State::granted);
        QCOMPARE(f.permission->requestCount(), 0);

        // And taken away again.
        f.permission->setGranted(false);
        becomeActiveAgain();
        QTRY_COMPARE(f.manager->state(), State::missing);
    }

    void requestAccess_data()
    {
        QTest::addColumn<bool>("granted");
        QTest::addColumn<std::optional<bool>>("outcome");
        QTest::addColumn<State>("state");
        QTest::addColumn<QString>("logged");

        const QString yes = u"Screen Recording access request completed: true"_s;
        const QString no = u"Screen Recording access request completed: false"_s;
        QTest::newRow("already granted") << true << std::optional<bool>() << State::granted << yes;
        QTest::newRow("missing, re-check fails")
            << false << std::optional<bool>() << State::missing << no;
        QTest::newRow("missing, user allows")
            << false << std::optional(true) << State::granted << yes;
        QTest::newRow("granted, user refuses")
            << true << std::optional(false) << State::missing << no;
    }

    void requestAccess()
    {
        QFETCH(bool, granted);
        QFETCH(std::optional<bool>, outcome);
        QFETCH(State, state);
        QFETCH(QString, logged);

        Fixture f(granted);
        f.permission->setRequestOutcome(outcome);
        test::MessageLog log;
        QSignalSpy published(f.manager.get(), &PermissionManager::stateChanged);

        f.manager->requestAccess();
        QCOMPARE(published.count(), 0); // the answer is never published inline
        QTRY_COMPARE(published.count(), 1);

        QCOMPARE(f.manager->state(), state);
        QCOMPARE(published.at(0).at(0).value<State>(), state);
        QCOMPARE(f.permission->requestCount(), 1);
        QVERIFY(f.permission->lastRequestThread() != nullptr);
        QVERIFY(f.permission->lastRequestThread() != QThread::currentThread());
        QCOMPARE(log.texts(permissionCategory, QtInfoMsg), QStringList{logged});
    }

    // A manager gone while its request runs hears nothing more.
    void goneManagerHearsNothing()
    {
        Fixture f(false);
        f.permission->setRequestOutcome(true);
        f.permission->holdRequests();
        test::MessageLog log;

        f.manager->requestAccess();
        f.manager.reset();
        f.permission->releaseRequests();
        QVERIFY(QThreadPool::globalInstance()->waitForDone(5000));
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();

        QCOMPARE(f.permission->requestCount(), 1);
        QCOMPARE(log.texts(permissionCategory, QtInfoMsg), QStringList());

        // Nor does becoming active re-check.
        const int checks = f.permission->preflightCount();
        becomeActiveAgain();
        QCoreApplication::processEvents();
        QCOMPARE(f.permission->preflightCount(), checks);
    }

    void openSystemSettings_data()
    {
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<bool>("opens");
        QTest::addColumn<bool>("succeeds");
        QTest::addColumn<int>("warnings");

        const QUrl help = QUrl::fromLocalFile(u"/usr/share/doc/vistrel/capture-access.html"_s);
        QTest::newRow("help page") << help << true << true << 0;
        QTest::newRow("no handler") << help << true << false << 1;
        QTest::newRow("no address") << QUrl() << false << true << 0;
        QTest::newRow("malformed") << QUrl(u"http://[::1"_s) << false << true << 0;
    }

    void openSystemSettings()
    {
        QFETCH(QUrl, url);
        QFETCH(bool, opens);
        QFETCH(bool, succeeds);
        QFETCH(int, warnings);

        Fixture f(false);
        f.permission->setSettingsUrl(url);
        f.opener->setSucceeds(succeeds);
        QSignalSpy published(f.manager.get(), &PermissionManager::stateChanged);
        test::MessageLog log;

        f.manager->openSystemSettings();
        QCOMPARE(f.opener->openedUrls(), opens ? QList<QUrl>{url} : QList<QUrl>{});
        QCOMPARE(log.texts(permissionCategory, QtWarningMsg).size(), warnings);
        // Nothing changes until the user comes back to the application.
        QCoreApplication::processEvents();
        QCOMPARE(published.count(), 0);
        QCOMPARE(f.permission->requestCount(), 0);
    }
};

QTEST_MAIN(TestPermissionManager)
#include "tst_permission_manager.moc"
