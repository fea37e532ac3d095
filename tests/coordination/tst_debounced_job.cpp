#include "coordination/DebouncedJob.h"
#include "support_manual_clock.h"

#include <QTest>
#include <memory>

using namespace std::chrono_literals;
using namespace vistrel;
using namespace vistrel::test;

class DebouncedJobTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void burstRunsOnceAfterTheLastRequest()
    {
        ManualClock clock;
        QList<qint64> ranAt;
        DebouncedJob job(
            120ms, [&] { ranAt.append(clock.elapsed()); }, clock);
        for (int i = 0; i < 5; ++i) {
            job.schedule();
            clock.advance(20ms);
        }
        // The last request came at 80 ms: nothing before 200.
        clock.advance(99ms);
        QVERIFY(job.isPending());
        QVERIFY(ranAt.isEmpty());
        clock.advance(1ms);
        QCOMPARE(ranAt, QList<qint64>{200});
        QVERIFY(!job.isPending());
        clock.advance(1000ms);
        QCOMPARE(ranAt.size(), 1);
    }

    void cancelAndDestructionPreventAnyEffect()
    {
        ManualClock clock;
        int runs = 0;
        DebouncedJob job(
            50ms, [&] { ++runs; }, clock);
        job.schedule();
        clock.advance(20ms);
        job.cancel();
        QVERIFY(!job.isPending());
        clock.advance(200ms);
        QCOMPARE(runs, 0);
        // A cancelled job can be scheduled again.
        job.schedule();
        clock.advance(50ms);
        QCOMPARE(runs, 1);

        auto parent = std::make_unique<QObject>();
        (new DebouncedJob(
             40ms, [&] { ++runs; }, clock, parent.get()))
            ->schedule();
        parent.reset();
        clock.advance(200ms);
        QCOMPARE(runs, 1);
    }

    void requestDuringARunWaitsItsOwnDelay()
    {
        // A request made while the action runs does not stop that run: the
        // action completes, and the new request waits its full delay.
        ManualClock clock;
        QStringList events;
        std::unique_ptr<DebouncedJob> job;
        job = std::make_unique<DebouncedJob>(
            40ms,
            [&] {
                events.append(u"begin %1"_qs.arg(clock.elapsed()));
                if (events.size() == 1)
                    job->schedule();
                events.append(u"end %1"_qs.arg(clock.elapsed()));
            },
            clock);
        job->schedule();
        clock.advance(500ms);
        QCOMPARE(events, (QStringList{u"begin 40"_qs, u"end 40"_qs, u"begin 80"_qs, u"end 80"_qs}));
    }

    void realClockWaitsTheDelay()
    {
        // The program's clock: a real timer that fires once.
        int runs = 0;
        DebouncedJob job(10ms, [&] { ++runs; });
        job.schedule();
        QVERIFY(job.isPending());
        QTRY_COMPARE_WITH_TIMEOUT(runs, 1, 5000);
        QVERIFY(!job.isPending());
    }
};

QTEST_GUILESS_MAIN(DebouncedJobTest)
#include "tst_debounced_job.moc"
