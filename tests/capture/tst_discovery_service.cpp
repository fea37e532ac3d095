#include "capture/OwnWindowSource.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWorld.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr qint32 selfPid = 4242;

class FakeOwnWindows : public OwnWindowSource {
public:
    QSet<quint32> ownWindowNumbers() const override { return numbers; }
    QSet<quint32> numbers;
};

SimScene scene()
{
    SimScene s;
    s.displays = {makeSimDisplay(1, QRectF(0, 0, 1920, 1080), u"Left"_s)};
    s.applications = {{selfPid, u"org.vistrel"_s, u"Vistrel"_s},
                      {10, u"org.editor"_s, u"Editor"_s},
                      {11, std::nullopt, u"Terminal"_s}};
    s.windows = {makeSimWindow(1, selfPid, QRectF(0, 0, 300, 200), Qt::gray, u"Vistrel"_s),
                 makeSimWindow(2, 10, QRectF(100, 100, 800, 600), Qt::red, u"Draft"_s),
                 makeSimWindow(3, 11, QRectF(200, 100, 800, 600), Qt::green, u"Shell"_s),
                 // Not our process, but the registry says it is our output window.
                 makeSimWindow(4, 11, QRectF(300, 300, 400, 300), Qt::blue, u"Output"_s)};
    return s;
}

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
    SimWorld world{scene()};
    SimScreenProvider screens = SimScreenProvider::fromScene(scene());
    FakeOwnWindows own;
    std::unique_ptr<SimCaptureBackend> backend;
    std::unique_ptr<ScreenShareDiscoveryService> service;

private Q_SLOTS:
    void init()
    {
        world.setScene(scene());
        own.numbers = {4};
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
        QCOMPARE(liveIds(catalog), (QList<quint32>{2, 3}));
        QCOMPARE(catalog.selfWindows.size(), 2);
        QCOMPARE(catalog.selfApplications.size(), 1);
        QCOMPARE(catalog.applications.size(), 2);
        QCOMPARE(catalog.displays.first().name, u"Left"_s);
        QCOMPARE(service->lastErrorMessage(), std::nullopt);
        // Desktop windows left out, off-screen windows kept.
        QCOMPARE(backend->lastContentRequestFlags(), std::pair(true, false));
    }

    void withoutAnOwnWindowSourceOnlyTheProcessIsOurs()
    {
        ScreenShareDiscoveryService bare(nullptr, *backend, screens, selfPid);
        bare.refreshOnce();
        QTRY_VERIFY(!bare.isRefreshing());
        QCOMPARE(liveIds(bare.catalog()), (QList<quint32>{2, 3, 4}));
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

        backend->setHoldsContentRequests(false);
        QElapsedTimer sinceEnd;
        backend->releaseContentRequests();
        QTRY_VERIFY(!service->isRefreshing());
        sinceEnd.start();
        // The next pass starts about two seconds after this one ended.
        QTRY_VERIFY_WITH_TIMEOUT(backend->contentRequestCount() == 2, 4000);
        QVERIFY2(sinceEnd.elapsed() >= 1800, qPrintable(QString::number(sinceEnd.elapsed())));
        QTRY_VERIFY(!service->isRefreshing());
        QCOMPARE(backend->contentRequestCount(), 2);
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
        QCOMPARE(liveIds(service->catalog()), (QList<quint32>{2, 3}));
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
            s.removeWindow(3);
            s.window(2)->isActive = true;
        });
        own.numbers.clear();
        service->refreshOnce();
        QTRY_VERIFY(!service->isRefreshing());
        QCOMPARE(liveIds(service->catalog()), (QList<quint32>{2, 4}));
        QVERIFY(service->catalog().applications.first().windows.first().isActive);
    }
};

QTEST_GUILESS_MAIN(TestDiscoveryService)
#include "tst_discovery_service.moc"
