#pragma once

// Measuring helpers of the X11 capture benchmark: clocks, CPU time of this
// and other processes, a quiet main-thread wait, and the unfiltered grab run
// through ffmpeg.

#include <QByteArray>
#include <QSize>
#include <QString>

namespace vistrel::bench {

qint64 nowNs();
// CPU time (user + system) of this process, milliseconds.
double selfCpuMs();
// CPU time of another process from /proc, milliseconds (clock-tick resolution).
double processCpuMs(qint64 pid);
// The X server's pid from its lock file; 0 when unknown.
qint64 serverPid(const QString& display);
QByteArray loadAverage();
// Keeps the main thread's event loop going while waking rarely: its own CPU
// is part of what the capture process is charged.
void settle(int ms);

struct Run {
    QString name;
    int frames = 0;
    double seconds = 0;
    double selfMs = 0;
    double serverMs = 0;
    int leaks = -1; // frames showing a window the filter hides; -1: not checked
    bool failed = false;
};

// `ffmpeg -f x11grab` of the whole screen at fps for seconds, after a 1 s warm-up.
Run measureGrab(const QString& name, const QString& display, QSize size, int fps, int seconds,
                qint64 xPid);

} // namespace vistrel::bench
