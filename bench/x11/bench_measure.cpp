#include "bench_measure.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vistrel::bench {

qint64 nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

double selfCpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

double processCpuMs(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    const double ticks = fields[11].toDouble() + fields[12].toDouble();
    return ticks * 1000.0 / double(sysconf(_SC_CLK_TCK));
}

qint64 serverPid(const QString& display)
{
    QString number = display.mid(display.indexOf(u':') + 1);
    number.truncate(number.indexOf(u'.') < 0 ? number.size() : number.indexOf(u'.'));
    QFile lock(u"/tmp/.X%1-lock"_s.arg(number));
    if (!lock.open(QIODevice::ReadOnly))
        return 0;
    return lock.readAll().trimmed().toLongLong();
}

QByteArray loadAverage()
{
    QFile file(u"/proc/loadavg"_s);
    if (!file.open(QIODevice::ReadOnly))
        return "?";
    return file.readAll().split(' ').mid(0, 3).join(' ');
}

void settle(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(std::clamp<qint64>(ms - timer.elapsed(), 0, 50));
    }
}

namespace {

// The last complete "frame=N" line of ffmpeg's -progress output.
class ProgressReader {
public:
    int frames(QProcess& ffmpeg)
    {
        m_pending += ffmpeg.readAllStandardOutput();
        qsizetype end;
        while ((end = m_pending.indexOf('\n')) >= 0) {
            const QByteArray line = m_pending.left(end).trimmed();
            m_pending.remove(0, end + 1);
            if (line.startsWith("frame="))
                m_frames = line.mid(6).toInt();
        }
        return m_frames;
    }

private:
    QByteArray m_pending;
    int m_frames = 0;
};

} // namespace

Run measureGrab(const QString& name, const QString& display, QSize size, int fps, int seconds,
                qint64 xPid)
{
    QProcess ffmpeg;
    ffmpeg.setProcessChannelMode(QProcess::SeparateChannels);
    // No codec named: the null muxer takes the grabbed frames by reference,
    // so the grab itself is what costs (a copying encoder would add its own).
    ffmpeg.start(u"ffmpeg"_s, {u"-hide_banner"_s, u"-loglevel"_s, u"error"_s, u"-nostats"_s,
                               u"-progress"_s, u"pipe:1"_s, u"-stats_period"_s, u"0.1"_s, u"-f"_s,
                               u"x11grab"_s, u"-framerate"_s, QString::number(fps),
                               u"-video_size"_s, u"%1x%2"_s.arg(size.width()).arg(size.height()),
                               u"-i"_s, display + u"+0,0"_s, u"-f"_s, u"null"_s, u"-"_s});
    Run run;
    run.name = name;
    if (!ffmpeg.waitForStarted(5000)) {
        std::fprintf(stderr, "ffmpeg did not start: %s\n", qPrintable(ffmpeg.errorString()));
        run.failed = true;
        return run;
    }
    ProgressReader progress;
    settle(1000);
    const int frames0 = progress.frames(ffmpeg);
    const double cpu0 = processCpuMs(ffmpeg.processId());
    const double server0 = processCpuMs(xPid);
    const qint64 t0 = nowNs();
    settle(seconds * 1000);
    run.frames = progress.frames(ffmpeg) - frames0;
    run.seconds = (nowNs() - t0) / 1e9;
    run.selfMs = processCpuMs(ffmpeg.processId()) - cpu0;
    run.serverMs = processCpuMs(xPid) - server0;
    run.failed = ffmpeg.state() != QProcess::Running;
    if (run.failed)
        std::fprintf(stderr, "ffmpeg: %s\n", ffmpeg.readAllStandardError().constData());
    ffmpeg.terminate();
    if (!ffmpeg.waitForFinished(3000))
        ffmpeg.kill();
    return run;
}

} // namespace vistrel::bench
