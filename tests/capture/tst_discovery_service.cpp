#include "capture/OwnWindowSource.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWorld.h"
#include "platform/sim/support_desktop.h"

#include <QSignalSpy>
#include <QTest>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

namespace {

class FakeOwnWindows : public OwnWindowSource {
public:
    QSet<quint32> ownWindowNumbers() const override { return numbers; }
    QSet<quint32> numbers;
};

QList<quint32> liveIds(const ShareableCatalog& catalog)
{
    QList<quint32> ids;
    for (const LiveWindow& w : catalog.liveWindows)
        ids.append(w.windowID);
    return ids;
}

} // namespace

class TestDiscoveryService : public QObject {
    Q_OBJECT

private:
    SimWorld world{desktopScene()};
    SimScreenProvider screens = SimScreenProvider::fromScene(desktopScene());
    FakeOwnWindows own;
    std::unique_ptr<SimCaptureBackend> backend;
    std::unique_ptr<ScreenShareDiscoveryService> service;

private Q_SLOTS:
    void init()
    {
        world.setScene(desktopScene());
        own.numbers = {42}; // not our process, but the registry says it is our window
        backend = std::make_unique<SimCaptureBackend>(world);
        service = std::make_unique<ScreenShareDiscoveryService>(&own, *backend, screens, selfPid,
                                                                u"org.vistrel"_s);
    }
    void cleanup()
    {
        service.reset();
        backend.reset();
    }

    void passPublishesTheCatalogWithoutOwnWindows()
    {
        QSignalSpy catalogSpy(service.get(), &ScreenShareDiscoveryService::catalogChanged);
        QSignalSpy refreshingSpy(service.get(), &ScreenShareDiscoveryService::isRefreshingChanged);
        service->startAutoRefresh();
        QVERIFY(service->isRefreshing());
        QCOMPARE(catalogSpy.size(), 0); // never inside the call
        QTRY_COMPARE(catalogSpy.size(), 1);
        QVERIFY(!service->isRefreshing());
        QCOMPARE(refreshingSpy.size(), 2);

        const ShareableCatalog& catalog = service->catalog();
        QCOMPARE(liveIds(catalog), (QList<quint32>{21, 22, 31, 41, 23}));
        QCOMPARE(catalog.selfWindows.size(), 2);
        QCOMPARE(catalog.selfApplications.size(), 1);
        QCOMPARE(catalog.applications.size(), 3);
        QCOMPARE(catalog.displays.first().name, u"Built-in"_s);
        QCOMPARE(service->lastErrorMessage(), std::nullopt);
        // Desktop windows left out, off-screen windows kept.
        QCOMPARE(backend->lastContentRequestFlags(), std::pair(true, false));
    }

    void withoutAnOwnWindowSourceOnlyTheProcessIsOurs()
    {
        ScreenShareDiscoveryService bare(nullptr, *backend, screens, selfPid);
        bare.refreshOnce();
        QTRY_VERIFY(!bare.isRefreshing());
        QCOMPARE(liveIds(bare.catalog()), (QList<quint32>{21, 22, 31, 41, 42, 23}));
        QVERIFY(!bare.isAutoRefreshing()); // a single pass starts no loop
    }

    void passesNeverOverlap()
    {
        backend->setHoldsContentRequests(true);
        service->startAutoRefresh();
        service->refreshOnce();
        service->startAutoRefresh();
        QTest::qWait(50);
        QCOMPARE(backend->contentRequestCount(), 1);
        QVERIFY(service->isRefreshing());

        // Holding the pass past the interval must not start another one.
        QTest::qWait(int(ScreenShareDiscoveryService::refreshInterval.count()) + 200);
        QCOMPARE(backend->contentRequestCount(), 1);

        // The next pass waits for its own interval after this one ended,
        // however long this one took.
        backend->setHoldsContentRequests(false);
        backend->releaseContentRequests();
        QTRY_VERIFY(!service->isRefreshing());
        for (int turn = 0; turn < 5; ++turn)
            QCoreApplication::processEvents();
        QCOMPARE(backend->contentRequestCount(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(backend->contentRequestCount() == 2, 10000);
        QTRY_VERIFY(!service->isRefreshing());
    }

    void failedPassPublishesEmptyCatalogAndMessage_data()
    {
        QTest::addColumn<std::optional<PlatformError>>("error");
        QTest::addColumn<QString>("message");
        QTest::newRow("error") << std::optional(PlatformError{u"x11"_s, 3, u"No X display"_s})
                               << u"No X display"_s;
        QTest::newRow("neither content nor error")
            << std::optional<PlatformError>()
            << u"The display server did not return any shareable content."_s;
    }

    void failedPassPublishesEmptyCatalogAndMessage()
    {
        QFETCH(std::optional<PlatformError>, error);
        QFETCH(QString, message);
        service->refreshOnce();
        QTRY_VERIFY(!service->catalog().liveWindows.isEmpty());

        if (error)
            backend->setContentError(error);
        else
            backend->setContentMissing(true);
        QSignalSpy messageSpy(service.get(), &ScreenShareDiscoveryService::lastErrorMessageChanged);
        QTest::ignoreMessage(QtCriticalMsg, qPrintable(u"Discovery refresh failed: "_s + message));
        service->refreshOnce();
        QTRY_COMPARE(messageSpy.size(), 1);
        QCOMPARE(service->lastErrorMessage(), message);
        QCOMPARE(service->catalog(), ShareableCatalog::empty());
        QVERIFY(!service->isRefreshing());

        // The next good pass clears the message.
        backend->setContentError(std::nullopt);
        backend->setContentMissing(false);
        service->refreshOnce();
        QTRY_COMPARE(messageSpy.size(), 2);
        QCOMPARE(service->lastErrorMessage(), std::nullopt);
        QCOMPARE(liveIds(service->catalog()), (QList<quint32>{21, 22, 31, 41, 23}));
    }

    void stopPublishesEmptyAndIgnoresTheLateCompletion()
    {
        service->startAutoRefresh();
        QTRY_VERIFY(!service->catalog().liveWindows.isEmpty());
        backend->setContentError(PlatformError{u"x"_s, 1, u"late"_s});
        QTest::ignoreMessage(QtCriticalMsg, "Discovery refresh failed: late");
        service->refreshOnce();
        QTRY_VERIFY(service->lastErrorMessage().has_value());
        backend->setContentError(std::nullopt);

        backend->setHoldsContentRequests(true);
        service->refreshOnce();
        QVERIFY(service->isRefreshing());

        QSignalSpy catalogSpy(service.get(), &ScreenShareDiscoveryService::catalogChanged);
        service->stopAutoRefresh();
        QCOMPARE(catalogSpy.size(), 1);
        QCOMPARE(service->catalog(), ShareableCatalog::empty());
        QCOMPARE(service->lastErrorMessage(), std::nullopt);
        QVERIFY(!service->isRefreshing());
        QVERIFY(!service->isAutoRefreshing());

        backend->releaseContentRequests();
        QTest::qWait(50);
        QCOMPARE(catalogSpy.size(), 1);
        QCOMPARE(service->catalog(), ShareableCatalog::empty());
    }

    void restartDuringAHeldPassUsesOnlyTheNewPass()
    {
        backend->setHoldsContentRequests(true);
        service->startAutoRefresh();
        service->stopAutoRefresh();
        service->startAutoRefresh();
        QCOMPARE(backend->pendingContentRequests(), 2);

        QSignalSpy catalogSpy(service.get(), &ScreenShareDiscoveryService::catalogChanged);
        QSignalSpy finishedSpy(service.get(), &ScreenShareDiscoveryService::refreshFinished);
        backend->releaseContentRequests();
        QTRY_COMPARE(finishedSpy.size(), 1);
        QTest::qWait(20);
        QCOMPARE(catalogSpy.size(), 1);
        QCOMPARE(finishedSpy.size(), 1);
        QVERIFY(service->isAutoRefreshing());
    }

    void completionAfterDestructionDoesNothing()
    {
        backend->setHoldsContentRequests(true);
        service->startAutoRefresh();
        service.reset();
        backend->releaseContentRequests();
        QTest::qWait(20);
        QCOMPARE(backend->contentRequestCount(), 1);
    }

    void sceneChangesReachTheNextPass()
    {
        service->refreshOnce();
        QTRY_VERIFY(!service->isRefreshing());
        world.edit([](SimScene& s) {
            s.removeWindow(31);
            s.window(41)->isActive = true;
        });
        own.numbers.clear();
        service->refreshOnce();
        QTRY_VERIFY(!service->isRefreshing());
        QCOMPARE(liveIds(service->catalog()), (QList<quint32>{21, 22, 41, 42, 23}));
        QVERIFY(service->catalog().applications.first().windows.first().isActive);
    }
};

QTEST_GUILESS_MAIN(TestDiscoveryService)
#include "tst_discovery_service.moc"
