// Filtered X11 capture against an unfiltered grab of the same display.
//
// Runs against an X server that is already up (run-bench.sh starts one):
// spawns the bench clients, then measures, for each scenario, frames per
// second, CPU milliseconds per frame of the capturing process and of the X
// server, the change-to-frame latency and the idle cost, and prints Markdown.
//
//   vistrel-bench-x11 --display :57 --client PATH [--server-pid PID] [--seconds 10] [--fps 60]
//   vistrel-bench-x11 --display :57 --snapshot out.png [--allow PID,...] [--exclude PID,...]

#include "bench_measure.h"
#include "platform/x11/X11CaptureStream.h"
#include "platform/x11/XcbPtr.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRect>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::bench;

namespace {

// Counts frames. Reading a pixel is the only per-frame work, unless the last
// frame is wanted (a copy, kept out of the timed runs).
class Sink : public CaptureStreamDelegate {
public:
    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType) override
    {
        frames.fetch_add(1);
        std::lock_guard lock(mutex);
        if (probe && !seenAt && (buffer.image.pixel(probePoint) & 0xffffff) == probeColour)
            seenAt = buffer.presentationTimeNs;
        // The animating clients alternate the lowest bit of their colour.
        if (forbiddenPoint &&
            (buffer.image.pixel(*forbiddenPoint) & 0xfffffe) == (forbiddenColour & 0xfffffe))
            leaks.fetch_add(1);
        if (keepLast)
            last = buffer.image.copy();
    }
    void streamDidStopWithError(const PlatformError& error) override
    {
        std::fprintf(stderr, "stream stopped: %s\n", qPrintable(error.localizedDescription));
        stopped = true;
    }

    std::atomic<int> frames{0};
    std::atomic<int> leaks{0};
    std::atomic<bool> stopped{false};
    std::mutex mutex;
    bool probe = false;
    QPoint probePoint;
    QRgb probeColour = 0;
    qint64 seenAt = 0;
    std::optional<QPoint> forbiddenPoint;
    QRgb forbiddenColour = 0;
    bool keepLast = false;
    QImage last;
};

struct Client {
    std::unique_ptr<QProcess> process;
    qint64 pid = 0;
    quint32 window = 0;
    QRgb colour = 0;
    QRect rect; // root coordinates, once mapped
    void send(const QByteArray& line) const
    {
        process->write(line + '\n');
        process->waitForBytesWritten(100);
    }
};

Client spawn(const QString& program, const QString& display, QRgb colour, const QRect& geometry,
             int animateFps)
{
    Client client;
    client.colour = colour;
    client.process = std::make_unique<QProcess>();
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    client.process->setProcessEnvironment(env);
    client.process->start(program, {u"--color"_s, QString::number(colour, 16), u"--geometry"_s,
                                    u"%1x%2+%3+%4"_s.arg(geometry.width())
                                        .arg(geometry.height())
                                        .arg(geometry.x())
                                        .arg(geometry.y()),
                                    u"--animate"_s, QString::number(animateFps)});
    if (!client.process->waitForStarted(5000))
        return client;
    while (!client.process->canReadLine() && client.process->waitForReadyRead(5000)) {
    }
    const QByteArray ready = client.process->readLine().trimmed();
    if (ready.startsWith("ready "))
        client.window = ready.mid(6).toUInt();
    client.pid = client.process->processId();
    return client;
}

// Where the window manager put a client window, once it is viewable.
std::optional<QRect> locate(xcb_connection_t* c, xcb_window_t root, xcb_window_t window)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto [attributes, error] =
            x11::xcbReply(xcb_get_window_attributes_reply, c, xcb_get_window_attributes(c, window));
        if (!attributes)
            return std::nullopt;
        if (attributes->map_state == XCB_MAP_STATE_VIEWABLE) {
            auto [geometry, gError] =
                x11::xcbReply(xcb_get_geometry_reply, c, xcb_get_geometry(c, window));
            auto [at, tError] = x11::xcbReply(xcb_translate_coordinates_reply, c,
                                              xcb_translate_coordinates(c, window, root, 0, 0));
            if (!geometry || !at)
                return std::nullopt;
            return QRect(at->dst_x, at->dst_y, geometry->width, geometry->height);
        }
        settle(20);
    }
    return std::nullopt;
}

StreamConfiguration configurationAt(int fps, bool cursor)
{
    StreamConfiguration configuration;
    configuration.minimumFrameInterval = MediaTime{1, fps};
    configuration.showsCursor = cursor;
    return configuration;
}

// forbidden: a client whose pixels must not appear in any frame of this run.
Run measureStream(const QString& name, const QString& display, const ContentFilter& filter, int fps,
                  int seconds, qint64 xPid, const Client* forbidden)
{
    auto sink = std::make_shared<Sink>();
    if (forbidden) {
        sink->forbiddenPoint = forbidden->rect.center();
        sink->forbiddenColour = forbidden->colour;
    }
    X11CaptureStream stream(display.toUtf8(), filter, configurationAt(fps, true), sink);
    stream.addStreamOutput(SampleOutputType::screen);
    std::optional<PlatformError> failure;
    stream.startCapture([&](std::optional<PlatformError> error) { failure = error; });
    settle(1000); // warm-up: buffer pool, window pixmaps, first full frame
    const int frames0 = sink->frames;
    const double self0 = selfCpuMs();
    const double server0 = processCpuMs(xPid);
    const qint64 t0 = nowNs();
    settle(seconds * 1000);
    Run run{name,
            sink->frames - frames0,
            (nowNs() - t0) / 1e9,
            selfCpuMs() - self0,
            processCpuMs(xPid) - server0,
            forbidden ? sink->leaks.load() : -1,
            failure.has_value() || sink->stopped};
    stream.stopCapture({});
    if (failure)
        std::fprintf(stderr, "%s: %s\n", qPrintable(name),
                     qPrintable(failure->localizedDescription));
    return run;
}

struct Latency {
    double medianMs = 0;
    double p95Ms = 0;
    double maxMs = 0;
    int samples = 0;
    int attempts = 0;
};

// Time from asking a client for a new colour to the first frame showing it.
Latency measureLatency(const QString& display, const ContentFilter& filter, const Client& client,
                       int fps, int attempts)
{
    auto sink = std::make_shared<Sink>();
    X11CaptureStream stream(display.toUtf8(), filter, configurationAt(fps, false), sink);
    stream.addStreamOutput(SampleOutputType::screen);
    stream.startCapture({});
    settle(1000);
    std::vector<double> samples;
    for (int i = 0; i < attempts; ++i) {
        const QRgb colour = (i % 2) ? 0x20c040 : 0x20c041;
        {
            std::lock_guard lock(sink->mutex);
            sink->probe = true;
            sink->probePoint = client.rect.center();
            sink->probeColour = colour;
            sink->seenAt = 0;
        }
        const qint64 sent = nowNs();
        client.send("color " + QByteArray::number(colour, 16));
        qint64 seen = 0;
        while (!seen && nowNs() - sent < 1'000'000'000) {
            QThread::usleep(200);
            std::lock_guard lock(sink->mutex);
            seen = sink->seenAt;
        }
        if (seen)
            samples.push_back((seen - sent) / 1e6);
        settle(50 + (i * 7) % 30); // off the frame clock
    }
    stream.stopCapture({});
    Latency result;
    result.attempts = attempts;
    result.samples = int(samples.size());
    if (!samples.empty()) {
        std::sort(samples.begin(), samples.end());
        result.medianMs = samples[samples.size() / 2];
        result.p95Ms = samples[std::min(samples.size() - 1, samples.size() * 95 / 100)];
        result.maxMs = samples.back();
    }
    return result;
}

QList<qint32> parsePids(const QString& text)
{
    QList<qint32> pids;
    for (const QString& part : text.split(u',', Qt::SkipEmptyParts))
        pids.append(part.toInt());
    return pids;
}

// One frame of the display through a filter, to a PNG: a look at what the
// benchmark is capturing.
int snapshot(const QCommandLineParser& args, const QString& display)
{
    ContentFilter filter;
    if (args.isSet(u"allow"_s)) {
        filter.form = ContentFilterForm::displayIncludingApplications;
        filter.processIDs = parsePids(args.value(u"allow"_s));
    } else if (args.isSet(u"exclude"_s)) {
        filter.form = ContentFilterForm::displayExcludingApplications;
        filter.processIDs = parsePids(args.value(u"exclude"_s));
        filter.includeMenuBar = true;
    }
    auto sink = std::make_shared<Sink>();
    sink->keepLast = true;
    X11CaptureStream stream(display.toUtf8(), filter, configurationAt(60, false), sink);
    stream.addStreamOutput(SampleOutputType::screen);
    std::optional<PlatformError> failure;
    stream.startCapture([&](std::optional<PlatformError> error) { failure = error; });
    settle(500);
    stream.stopCapture({});
    if (failure) {
        std::fprintf(stderr, "%s\n", qPrintable(failure->localizedDescription));
        return 1;
    }
    std::lock_guard lock(sink->mutex);
    std::printf("frames %d\n", sink->frames.load());
    return !sink->last.isNull() && sink->last.save(args.value(u"snapshot"_s)) ? 0 : 1;
}

QSize displaySize(const QString& display)
{
    auto sink = std::make_shared<Sink>();
    sink->keepLast = true;
    X11CaptureStream probe(display.toUtf8(), ContentFilter{}, StreamConfiguration{}, sink);
    probe.addStreamOutput(SampleOutputType::screen);
    probe.startCapture({});
    settle(500);
    probe.stopCapture({});
    std::lock_guard lock(sink->mutex);
    return sink->last.size();
}

// What the X server spends on the animating clients with nothing capturing:
// their repaints and the redirection to the screen, paid whatever captures.
Run measureDesktopAlone(int seconds, qint64 xPid)
{
    Run run{u"no capture: the clients alone"_s};
    settle(1000);
    const double server0 = processCpuMs(xPid);
    const qint64 t0 = nowNs();
    settle(seconds * 1000);
    run.seconds = (nowNs() - t0) / 1e9;
    run.serverMs = processCpuMs(xPid) - server0;
    return run;
}

void printRuns(const std::vector<Run>& runs)
{
    std::printf("| Run | frames | fps | capture process CPU ms/frame | X server CPU ms/frame | "
                "total CPU ms/frame | hidden window seen |\n|---|---|---|---|---|---|---|\n");
    for (const Run& r : runs) {
        const double n = std::max(r.frames, 1);
        std::printf("| %s%s | %d | %.1f | %.3f | %.3f | %.3f | %s |\n", qPrintable(r.name),
                    r.failed ? " (FAILED)" : "", r.frames, r.frames / r.seconds, r.selfMs / n,
                    r.serverMs / n, (r.selfMs + r.serverMs) / n,
                    r.leaks < 0 ? "-" : (r.leaks ? "YES" : "no"));
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser args;
    args.addOptions({{u"display"_s, u"X display"_s, u"name"_s},
                     {u"client"_s, u"bench client program"_s, u"path"_s},
                     {u"seconds"_s, u"seconds per run"_s, u"n"_s, u"10"_s},
                     {u"fps"_s, u"frame rate"_s, u"n"_s, u"60"_s},
                     {u"server-pid"_s, u"X server process id"_s, u"pid"_s},
                     {u"latency-samples"_s, u"colour changes timed"_s, u"n"_s, u"100"_s},
                     {u"snapshot"_s, u"write one frame and exit"_s, u"png"_s},
                     {u"allow"_s, u"allow-list process ids"_s, u"pids"_s},
                     {u"exclude"_s, u"excluded process ids"_s, u"pids"_s}});
    args.process(app);
    const QString display = args.value(u"display"_s);
    if (display.isEmpty()) {
        std::fprintf(stderr, "--display is required\n");
        return 2;
    }
    if (args.isSet(u"snapshot"_s))
        return snapshot(args, display);

    const int seconds = std::max(1, args.value(u"seconds"_s).toInt());
    const int fps = std::clamp(args.value(u"fps"_s).toInt(), 1, 240);
    const qint64 xPid =
        args.isSet(u"server-pid"_s) ? args.value(u"server-pid"_s).toLongLong() : serverPid(display);
    if (!xPid)
        std::fprintf(stderr, "X server pid unknown: its CPU is not measured\n");

    const QSize size = displaySize(display);
    if (size.isEmpty()) {
        std::fprintf(stderr, "no frame from %s\n", qPrintable(display));
        return 1;
    }
    x11::XcbConnection connection(xcb_connect(display.toUtf8().constData(), nullptr));
    if (xcb_connection_has_error(connection.get())) {
        std::fprintf(stderr, "cannot connect to %s\n", qPrintable(display));
        return 1;
    }
    xcb_connection_t* c = connection.get();
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;

    // Three allowed windows, one animating at the frame rate; two others, one
    // of them animating too, so both kinds of run have work every frame.
    const QString program = args.value(u"client"_s);
    std::vector<Client> clients;
    clients.push_back(spawn(program, display, 0xc03030, {100, 80, 640, 400}, fps));
    clients.push_back(spawn(program, display, 0x30c030, {800, 120, 500, 300}, 0));
    clients.push_back(spawn(program, display, 0x3030c0, {300, 520, 400, 500}, 0));
    clients.push_back(spawn(program, display, 0xc0c030, {1200, 600, 600, 300}, fps));
    clients.push_back(spawn(program, display, 0xc030c0, {1500, 200, 300, 300}, 0));
    for (Client& client : clients) {
        const auto rect = client.window ? locate(c, root, client.window) : std::nullopt;
        if (!rect) {
            std::fprintf(stderr, "bench client %s did not map a window\n", qPrintable(program));
            return 1;
        }
        client.rect = *rect;
    }
    settle(1000);

    ContentFilter allow;
    allow.form = ContentFilterForm::displayIncludingApplications;
    allow.processIDs = {qint32(clients[0].pid), qint32(clients[1].pid), qint32(clients[2].pid)};
    ContentFilter minusOne;
    minusOne.form = ContentFilterForm::displayExcludingWindows;
    minusOne.windowIDs = {clients[4].window};
    minusOne.includeMenuBar = true;

    const QByteArray loadBefore = loadAverage();
    std::vector<Run> busy;
    busy.push_back(measureStream(u"filtered: allow list of 3 windows"_s, display, allow, fps,
                                 seconds, xPid, &clients[3]));
    busy.push_back(measureStream(u"filtered: full desktop minus 1 window"_s, display, minusOne, fps,
                                 seconds, xPid, &clients[4]));
    busy.push_back(measureGrab(u"unfiltered: ffmpeg x11grab"_s, display, size, fps, seconds, xPid));
    const Run alone = measureDesktopAlone(seconds, xPid);

    // Idle: nothing on screen changes (the pointer stays where it is).
    for (const Client& client : clients)
        client.send("still");
    settle(500);
    std::vector<Run> idle;
    idle.push_back(measureStream(u"filtered: allow list of 3 windows"_s, display, allow, fps,
                                 seconds, xPid, nullptr));
    idle.push_back(measureStream(u"filtered: full desktop minus 1 window"_s, display, minusOne, fps,
                                 seconds, xPid, nullptr));
    idle.push_back(measureGrab(u"unfiltered: ffmpeg x11grab"_s, display, size, fps, seconds, xPid));

    const Latency latency = measureLatency(display, allow, clients[1], fps,
                                           std::max(1, args.value(u"latency-samples"_s).toInt()));
    const QByteArray loadAfter = loadAverage();

    std::printf("#### %dx%d, %d fps requested, %d s per run\n\n", size.width(), size.height(), fps,
                seconds);
    std::printf("Content changing (two clients repaint every frame, one of them allowed):\n\n");
    printRuns(busy);
    const Run& grab = busy.back();
    const double grabFrames = std::max(grab.frames, 1);
    for (size_t i = 0; i + 1 < busy.size(); ++i) {
        const Run& r = busy[i];
        const double n = std::max(r.frames, 1);
        std::printf("\n- %s / unfiltered, per frame: capture process %.2f, total with X server "
                    "%.2f",
                    qPrintable(r.name), (r.selfMs / n) / (grab.selfMs / grabFrames),
                    ((r.selfMs + r.serverMs) / n) / ((grab.selfMs + grab.serverMs) / grabFrames));
    }
    // The clients' own cost, scaled to each run's length, taken off the X
    // server's: what capturing adds to the desktop.
    const double aloneMsPerSecond = alone.serverMs / std::max(alone.seconds, 0.001);
    const auto net = [&](const Run& r) {
        const double n = std::max(r.frames, 1);
        return (r.selfMs + r.serverMs - aloneMsPerSecond * r.seconds) / n;
    };
    std::printf("\n\nWith nothing capturing, the X server spends %.1f ms a second on the "
                "animating clients. Taken off each run, what capturing adds, CPU ms per frame:\n",
                aloneMsPerSecond);
    for (const Run& r : busy)
        std::printf("\n- %s: %.3f", qPrintable(r.name), net(r));
    for (size_t i = 0; i + 1 < busy.size(); ++i)
        std::printf("\n- %s / unfiltered: %.2f", qPrintable(busy[i].name),
                    net(busy[i]) / std::max(net(grab), 0.001));
    std::printf("\n\nIdle (nothing changes for %d s):\n\n| Run | frames delivered | capture "
                "process CPU ms | X server CPU ms |\n|---|---|---|---|\n",
                seconds);
    for (const Run& r : idle)
        std::printf("| %s%s | %d | %.0f | %.0f |\n", qPrintable(r.name),
                    r.failed ? " (FAILED)" : "", r.frames, r.selfMs, r.serverMs);
    std::printf("\nChange-to-frame latency, allow list (%d of %d changes seen): median %.1f ms, "
                "p95 %.1f ms, max %.1f ms\n",
                latency.samples, latency.attempts, latency.medianMs, latency.p95Ms, latency.maxMs);
    std::printf("\nLoad average (1, 5, 15 min) before: %s, after: %s\n\n", loadBefore.constData(),
                loadAfter.constData());
    std::fflush(stdout);

    for (const Client& client : clients)
        client.send("quit");
    for (const Client& client : clients)
        if (!client.process->waitForFinished(2000))
            client.process->kill();
    return 0;
}
