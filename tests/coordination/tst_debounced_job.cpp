#include "coordination/DebouncedJob.h"
#include "support_manual_clock.h"

#include <QTest>
#include <memory>

using namespace std::chrono_literals;
using namespace vistrel;
using namespace vistrel::test;

// A burst of requests running once after the last one is checked where it
// matters, on the main view model's capture update and save; the system
// clock's timers by the application environment's flows.
class DebouncedJobTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
};

QTEST_GUILESS_MAIN(DebouncedJobTest)
#include "tst_debounced_job.moc"
