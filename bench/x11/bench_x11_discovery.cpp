// What discovery costs on an idle desktop: the real X11 shareable-content
// source, asked every 2 s as the application asks it, while N client windows
// (spread over several bench client processes) change nothing.
//
// Runs against an X server that is already up (run-bench.sh starts one) and
// prints one Markdown table row per window count: CPU milliseconds per
// second of this process (getrusage: the passes run on its thread pool) and
// of the X server (/proc/<pid>/stat), and the passes' wall time.
//
//   vistrel-bench-x11-discovery --display :57 --client PATH [--server-pid PID]
//                               [--windows "5 200 500"] [--seconds 10]

#include "bench_measure.h"
#include "platform/x11/X11ShareableContentSource.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::bench;

namespace {

constexpr int passIntervalMs = 2000; // as the discovery service asks

struct Clients {
    std::vector<std::unique_ptr<QProcess>> processes;
    QList<qint32> pids;

    ~Clients()
    {
        for (auto& p : processes)
            p->write("quit\n");
        for (auto& p : processes)
            if (!p->waitForFinished(2000))
                p->kill();
    }
};

// `windows` windows over 1 process each for a handful, else 20 a process
// (10 to 20 processes), each process's windows in a block of their own.
bool spawn(Clients& clients, const QString& program, const QString& display, int windows)
{
    const int processes = windows <= 5 ? windows : std::clamp((windows + 19) / 20, 10, 20);
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    for (int i = 0; i < processes; ++i) {
        const int count = windows / processes + (i < windows % processes ? 1 : 0);
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(env);
        process->start(program,
                       {u"--color"_s, QString::number(0x306090 + i * 0x0a0a0a, 16), u"--geometry"_s,
                        u"120x80+%1+%2"_s.arg(40 + (i % 4) * 460).arg(40 + (i / 4) * 200),
                        u"--windows"_s, QString::number(count)});
        if (!process->waitForStarted(5000))
            return false;
        while (!process->canReadLine() && process->waitForReadyRead(10000)) {
        }
        if (!process->readLine().startsWith("ready "))
            return false;
        clients.pids << qint32(process->processId());
        clients.processes.push_back(std::move(process));
    }
    return true;
}

struct Pass {
    qint64 wallNs = 0;
    int listed = 0; // windows of the bench clients in the snapshot
    bool failed = false;
};

// One fetch, as the application makes it, waited for on the event loop.
Pass fetchOnce(x11::X11ShareableContentSource& source, const QList<qint32>& pids)
{
    Pass pass;
    QEventLoop loop;
    const qint64 t0 = nowNs();
    source.fetch(false, false, [&](std::optional<ShareableContent> content, auto error) {
        pass.wallNs = nowNs() - t0;
        loop.quit();
        if (!content || error) {
            pass.failed = true;
            return;
        }
        for (const LiveWindow& w : content->windows)
            if (w.owningApplication && pids.contains(w.owningApplication->processID))
                ++pass.listed;
    });
    loop.exec();
    return pass;
}

struct Result {
    int windows = 0;
    int processes = 0;
    int passes = 0;
    int listed = 0;
    double seconds = 0;
    double selfMs = 0;
    double serverMs = 0;
    double medianPassMs = 0;
    bool failed = false;
};

Result measure(const QString& program, const QString& display, qint64 xPid, int windows,
               int seconds)
{
    Result result;
    result.windows = windows;
    Clients clients;
    if (!spawn(clients, program, display, windows)) {
        result.failed = true;
        return result;
    }
    result.processes = int(clients.pids.size());
    x11::X11ShareableContentSource source(display.toUtf8());
    // Until every window is managed and listed, then one more interval: the
    // first passes see the desktop fill up, the measured ones an idle one.
    for (int attempt = 0; attempt < 60; ++attempt) {
        if (fetchOnce(source, clients.pids).listed >= windows)
            break;
        settle(500);
    }
    settle(passIntervalMs);

    const double self0 = selfCpuMs();
    const double server0 = processCpuMs(xPid);
    const qint64 t0 = nowNs();
    std::vector<double> wall;
    for (int elapsed = 0; elapsed < seconds * 1000; elapsed += passIntervalMs) {
        const qint64 start = nowNs();
        const Pass pass = fetchOnce(source, clients.pids);
        wall.push_back(pass.wallNs / 1e6);
        result.failed |= pass.failed;
        result.listed = pass.listed;
        ++result.passes;
        settle(std::max<int>(0, passIntervalMs - int((nowNs() - start) / 1'000'000)));
    }
    result.seconds = (nowNs() - t0) / 1e9;
    result.selfMs = selfCpuMs() - self0;
    result.serverMs = processCpuMs(xPid) - server0;
    std::sort(wall.begin(), wall.end());
    result.medianPassMs = wall.empty() ? 0 : wall[wall.size() / 2];
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser args;
    args.addOptions({{u"display"_s, u"X display"_s, u"name"_s},
                     {u"client"_s, u"bench client program"_s, u"path"_s},
                     {u"server-pid"_s, u"X server process id"_s, u"pid"_s},
                     {u"windows"_s, u"client window counts"_s, u"list"_s, u"5 200 500"_s},
                     {u"seconds"_s, u"seconds measured per count"_s, u"n"_s, u"10"_s}});
    args.process(app);
    const QString display = args.value(u"display"_s);
    if (display.isEmpty() || !args.isSet(u"client"_s)) {
        std::fprintf(stderr, "--display and --client are required\n");
        return 2;
    }
    const qint64 xPid =
        args.isSet(u"server-pid"_s) ? args.value(u"server-pid"_s).toLongLong() : serverPid(display);
    if (!xPid)
        std::fprintf(stderr, "X server pid unknown: its CPU is not measured\n");
    const int seconds = std::max(2, args.value(u"seconds"_s).toInt());

    std::printf("#### Discovery on an idle desktop, a pass every %d s, %d s measured\n\n",
                passIntervalMs / 1000, seconds);
    std::printf("| client windows | processes | passes | windows listed | Vistrel process CPU "
                "ms/s | X server CPU ms/s | total ms/s | pass wall time, median |\n"
                "|---|---|---|---|---|---|---|---|\n");
    const QByteArray loadBefore = loadAverage();
    int status = 0;
    for (const QString& count : args.value(u"windows"_s).split(u' ', Qt::SkipEmptyParts)) {
        const Result r = measure(args.value(u"client"_s), display, xPid, count.toInt(), seconds);
        const double s = std::max(r.seconds, 0.001);
        std::printf("| %d%s | %d | %d | %d | %.1f | %.1f | %.1f | %.1f ms |\n", r.windows,
                    r.failed ? " (FAILED)" : "", r.processes, r.passes, r.listed, r.selfMs / s,
                    r.serverMs / s, (r.selfMs + r.serverMs) / s, r.medianPassMs);
        std::fflush(stdout);
        status |= r.failed || r.listed != r.windows;
    }
    std::printf("\nLoad average (1, 5, 15 min) before: %s, after: %s\n\n", loadBefore.constData(),
                loadAverage().constData());
    return status;
}
