#include "coordination/DebouncedJob.h"

#include <QElapsedTimer>
#include <QTest>
#include <memory>

using namespace std::chrono_literals;
using namespace vistrel;

class DebouncedJobTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void burstRunsOnceAfterTheLastRequest()
    {
        int runs = 0;
        qint64 ranAt = -1;
        QElapsedTimer clock;
        DebouncedJob job(120ms, [&] {
            ++runs;
            ranAt = clock.elapsed();
        });

        clock.start();
        qint64 lastRequest = 0;
        for (int i = 0; i < 5; ++i) {
            job.schedule();
            lastRequest = clock.elapsed();
            QTest::qWait(20);
        }
        QVERIFY(job.isPending());
        QCOMPARE(runs, 0);

        QTRY_COMPARE_WITH_TIMEOUT(runs, 1, 2000);
        QVERIFY2(ranAt - lastRequest >= 115, qPrintable(QString::number(ranAt - lastRequest)));
        QVERIFY(!job.isPending());
        QTest::qWait(250);
        QCOMPARE(runs, 1);
    }

    void cancelledJobHasNoEffect()
    {
        int runs = 0;
        DebouncedJob job(50ms, [&] { ++runs; });
        job.schedule();
        QTest::qWait(20);
        job.cancel();
        QVERIFY(!job.isPending());
        QTest::qWait(150);
        QCOMPARE(runs, 0);

        // Cancelled jobs can be scheduled again.
        job.schedule();
        QTRY_COMPARE_WITH_TIMEOUT(runs, 1, 2000);
    }

    void destroyingTheJobCancelsIt()
    {
        int runs = 0;
        auto parent = std::make_unique<QObject>();
        auto* job = new DebouncedJob(
            40ms, [&] { ++runs; }, parent.get());
        job->schedule();
        parent.reset();
        QTest::qWait(120);
        QCOMPARE(runs, 0);
    }

    void jobPastItsWaitCompletesAndANewRequestFollows()
    {
        // A request made while the action runs does not stop that run: the
        // action completes, and the new request waits its own full delay.
        QStringList events;
        std::unique_ptr<DebouncedJob> job;
        int runs = 0;
        job = std::make_unique<DebouncedJob>(40ms, [&] {
            ++runs;
            events.append(QStringLiteral("begin %1").arg(runs));
            if (runs == 1)
                job->schedule();
            events.append(QStringLiteral("end %1").arg(runs));
        });
        job->schedule();
        QTRY_COMPARE_WITH_TIMEOUT(runs, 2, 2000);
        QCOMPARE(events, (QStringList{QStringLiteral("begin 1"), QStringLiteral("end 1"),
                                      QStringLiteral("begin 2"), QStringLiteral("end 2")}));
        QTest::qWait(120);
        QCOMPARE(runs, 2);
    }
};

QTEST_GUILESS_MAIN(DebouncedJobTest)
#include "tst_debounced_job.moc"
