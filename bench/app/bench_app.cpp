// The whole application against an unfiltered grab: the real vistrel, as a
// user runs it (capture, the output window out of the dock at the size
// Vistrel gives it, the preview panel),
// on a display where two 600 x 400 windows repaint every frame, in each
// filter form; then ffmpeg x11grab of the same display. Prints one Markdown
// table per run: CPU per second and per output frame of the vistrel process
// and of the X server (the clients' own cost to the X server taken off), and
// how long a colour change takes to reach the output window's pixels.
//
//   vistrel-bench-app --display :N --server-pid PID --vistrel PATH
//                     --client PATH [--seconds 10] [--fps 60] [--changes 60]

#include "bench_measure.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QRandomGenerator>
#include <QRect>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <poll.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;
using namespace vistrel::bench;

namespace {

struct Options {
    QString display;
    qint64 serverPid = 0;
    QString vistrel;
    QString client;
    int seconds = 10;
    int fps = 60;
    int changes = 60;
};

struct Form {
    QString name;
    QString mode;    // allowList | blockList
    QString content; // sanitized | fullDesktop
};

const QRect probeFrame(1400, 120, 300, 200); // still, allowed in every form

QString xdotool(const QStringList& arguments, const QString& display)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, display);
    process.setProcessEnvironment(environment);
    process.start(u"xdotool"_s, arguments);
    process.waitForFinished(15000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

std::unique_ptr<QProcess> startClient(const Options& o, const QString& className, QRect frame,
                                      int animateFps, const QString& colour,
                                      xcb_window_t* window = nullptr)
{
    auto client = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, o.display);
    client->setProcessEnvironment(environment);
    client->start(
        o.client,
        {u"--class"_s, className, u"--color"_s, colour, u"--geometry"_s,
         u"%1x%2+%3+%4"_s.arg(frame.width()).arg(frame.height()).arg(frame.x()).arg(frame.y()),
         u"--animate"_s, QString::number(animateFps)});
    client->waitForReadyRead(5000);
    const QByteArray ready = client->readAll(); // "ready <window>"
    if (window)
        *window = ready.trimmed().split(' ').value(1).toUInt();
    return client;
}

QByteArray stateDocument(const Form& form)
{
    const QString rule = form.mode == u"allowList"_s ? u"BenchAnim"_s : u"BenchStill"_s;
    const QString rules =
        u"{ \"applications\": [ { \"applicationName\": \"%1\" } ], \"windows\": [] }"_s.arg(rule);
    const QString empty = u"{ \"applications\": [], \"windows\": [] }"_s;
    return u"{ \"policy\": { \"mode\": \"%1\", \"allowList\": %2, \"blockList\": %3 }, "
           "\"outputContentMode\": \"%4\", \"outputFrameMode\": \"screen\", "
           "\"canvasBackground\": { \"mode\": \"black\" } }"_s
               .arg(form.mode, form.mode == u"allowList"_s ? rules : empty,
                    form.mode == u"blockList"_s ? rules : empty, form.content)
               .toUtf8();
}

// Counts the output window's repaints as the X server sees them.
class DamageCounter {
public:
    DamageCounter(xcb_connection_t* c, xcb_window_t window) : m_c(c), m_window(window)
    {
        const auto* extension = xcb_get_extension_data(c, &xcb_damage_id);
        m_first = extension->first_event;
        free(xcb_damage_query_version_reply(c, xcb_damage_query_version(c, 1, 1), nullptr));
        m_damage = xcb_generate_id(c);
        xcb_damage_create(c, m_damage, window, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        xcb_flush(c);
    }
    ~DamageCounter()
    {
        xcb_damage_destroy(m_c, m_damage);
        xcb_flush(m_c);
    }

    // Waits up to `ms` for repaints; returns how many arrived.
    int wait(int ms)
    {
        pollfd fd{xcb_get_file_descriptor(m_c), POLLIN, 0};
        poll(&fd, 1, ms);
        int count = 0;
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_c)) {
            if ((event->response_type & 0x7f) == m_first + XCB_DAMAGE_NOTIFY) {
                ++count;
                xcb_damage_subtract(m_c, m_damage, XCB_NONE, XCB_NONE);
            }
            free(event);
        }
        xcb_flush(m_c);
        return count;
    }

    quint32 pixel(QPoint at)
    {
        xcb_get_image_reply_t* reply =
            xcb_get_image_reply(m_c,
                                xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_window,
                                              qint16(at.x()), qint16(at.y()), 1, 1, ~0u),
                                nullptr);
        quint32 value = 0;
        if (reply && xcb_get_image_data_length(reply) >= 4)
            std::memcpy(&value, xcb_get_image_data(reply), 4);
        free(reply);
        return value & 0xffffff;
    }

private:
    xcb_connection_t* m_c;
    xcb_window_t m_window;
    xcb_damage_damage_t m_damage = 0;
    quint8 m_first = 0;
};

bool near(quint32 a, quint32 b)
{
    for (int shift : {0, 8, 16}) {
        if (std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)) >= 12)
            return false;
    }
    return true;
}

struct Latency {
    double p50 = -1, p95 = -1;
};

// Colour changes of the probe, from the write to its stdin to the first
// repaint of `damage`'s window after which `at` shows the new colour.
Latency changeLatency(DamageCounter& damage, QPoint at, QProcess& probe, int changes,
                      const QString& name)
{
    QList<double> latencies;
    for (int i = 0; i < changes; ++i) {
        const quint32 colour = i % 2 ? 0x2060c0 : 0xc06020;
        probe.write(u"color %1\n"_s.arg(uint(colour), 6, 16, QChar(u'0')).toUtf8());
        probe.waitForBytesWritten(1000);
        const qint64 sent = nowNs();
        while (nowNs() - sent < 500'000'000) {
            if (damage.wait(2) > 0 && near(damage.pixel(at), colour)) {
                latencies << (nowNs() - sent) / 1e6;
                break;
            }
        }
        // A fixed pause would lock the changes to one phase of the output's
        // frame rate (right after a frame starts, the worst one).
        settle(30 + int(QRandomGenerator::global()->bounded(17)));
    }
    std::sort(latencies.begin(), latencies.end());
    if (latencies.size() != changes) {
        std::fprintf(stderr, "%s: %lld of %d changes reached the window (%06x at %d,%d)\n",
                     qPrintable(name), qint64(latencies.size()), changes, damage.pixel(at), at.x(),
                     at.y());
        return {};
    }
    return {latencies.at(latencies.size() / 2), latencies.at(int(latencies.size() * 0.95))};
}

struct AppRun {
    Run run;
    double vistrelMs = 0;
    double p50 = -1, p95 = -1;
    QSize outputSize;
};

AppRun measureApp(const Options& o, const Form& form, QSize screen, QProcess& probe)
{
    AppRun result;
    result.run.name = form.name;
    QTemporaryDir data;
    QDir().mkpath(data.filePath(u"Vistrel"_s));
    QFile state(data.filePath(u"Vistrel/VistrelState.json"_s));
    if (!state.open(QIODevice::WriteOnly) || state.write(stateDocument(form)) <= 0) {
        result.run.failed = true;
        return result;
    }
    state.close();
    QProcess app;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, o.display);
    environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    environment.insert(u"XDG_DATA_HOME"_s, data.path());
    environment.insert(u"XDG_CONFIG_HOME"_s, data.path());
    app.setProcessEnvironment(environment);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.start(o.vistrel, {});
    const auto fail = [&](const char* why) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(form.name), why);
        app.terminate();
        app.waitForFinished(5000);
        result.run.failed = true;
        return result;
    };
    if (!app.waitForStarted(5000))
        return fail("vistrel did not start");
    const QString output =
        xdotool({u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--name"_s, u"^Vistrel Output$"_s},
                o.display);
    const QString control = xdotool(
        {u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--name"_s, u"^Vistrel$"_s}, o.display);
    if (output.isEmpty() || control.isEmpty())
        return fail("no output or control window");
    // Out of the dock: the output window as a user shows it, at the size
    // Vistrel gives it.
    const auto geometry = [&](const QString& window) {
        const QStringList lines =
            xdotool({u"getwindowgeometry"_s, u"--shell"_s, window}, o.display).split(u'\n');
        return QRect(
            lines.value(1).section(u'=', 1).toInt(), lines.value(2).section(u'=', 1).toInt(),
            lines.value(3).section(u'=', 1).toInt(), lines.value(4).section(u'=', 1).toInt());
    };
    const QRect docked = geometry(output);
    QRect shown = docked;
    for (int attempt = 0; attempt < 5 && shown == docked; ++attempt) {
        const QPoint button = geometry(control).topLeft() + QPoint(315, 20);
        xdotool({u"mousemove"_s, QString::number(button.x()), QString::number(button.y()),
                 u"click"_s, u"1"_s, u"mousemove"_s, u"5"_s, u"5"_s},
                o.display);
        settle(1000);
        shown = geometry(output);
    }
    if (shown == docked)
        return fail("the output window stayed docked");
    result.outputSize = shown.size();

    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(o.display.toUtf8().constData(), nullptr), &xcb_disconnect);
    DamageCounter damage(connection.get(), xcb_window_t(output.toULong()));
    settle(2000);
    damage.wait(0);
    const double app0 = processCpuMs(app.processId());
    const double server0 = processCpuMs(o.serverPid);
    const qint64 t0 = nowNs();
    while (nowNs() - t0 < qint64(o.seconds) * 1'000'000'000)
        result.run.frames += damage.wait(5);
    result.run.seconds = (nowNs() - t0) / 1e9;
    result.vistrelMs = processCpuMs(app.processId()) - app0;
    result.run.serverMs = processCpuMs(o.serverPid) - server0;

    // Change to pixels: the probe's colour at its place in the output.
    const QSize outputSize = shown.size();
    const double scale = std::min(double(outputSize.width()) / screen.width(),
                                  double(outputSize.height()) / screen.height());
    const QPoint offset((outputSize.width() - screen.width() * scale) / 2,
                        (outputSize.height() - screen.height() * scale) / 2);
    const QPoint at = offset + (QPointF(probeFrame.center()) * scale).toPoint();
    const Latency latency = changeLatency(damage, at, probe, o.changes, form.name);
    result.p50 = latency.p50;
    result.p95 = latency.p95;
    app.terminate();
    if (!app.waitForFinished(10000))
        app.kill();
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    Options o;
    for (int i = 1; i + 1 < argc; i += 2) {
        const QByteArray key = argv[i];
        const QString value = QString::fromLocal8Bit(argv[i + 1]);
        if (key == "--display")
            o.display = value;
        else if (key == "--server-pid")
            o.serverPid = value.toLongLong();
        else if (key == "--vistrel")
            o.vistrel = value;
        else if (key == "--client")
            o.client = value;
        else if (key == "--seconds")
            o.seconds = value.toInt();
        else if (key == "--fps")
            o.fps = value.toInt();
        else if (key == "--changes")
            o.changes = value.toInt();
    }
    if (o.display.isEmpty() || !o.serverPid || o.vistrel.isEmpty() || o.client.isEmpty()) {
        std::fprintf(stderr, "usage: see the top of bench_app.cpp\n");
        return 2;
    }
    xcb_connection_t* c = xcb_connect(o.display.toUtf8().constData(), nullptr);
    const xcb_screen_t* root = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const QSize screen(root->width_in_pixels, root->height_in_pixels);
    xcb_disconnect(c);

    auto first = startClient(o, u"BenchAnim"_s, {100, 100, 600, 400}, o.fps, u"ff0000"_s);
    auto second = startClient(o, u"BenchAnim"_s, {800, 450, 600, 400}, o.fps, u"00ff00"_s);
    auto still = startClient(o, u"BenchStill"_s, {1500, 500, 300, 300}, 0, u"808080"_s);
    xcb_window_t probeWindow = 0;
    auto probe = startClient(o, u"BenchAnim"_s, probeFrame, 0, u"c06020"_s, &probeWindow);
    settle(1000);
    // The floor of every change-to-pixels figure: the probe's own window,
    // while the clients animate and nothing captures.
    Latency own;
    {
        const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
            xcb_connect(o.display.toUtf8().constData(), nullptr), &xcb_disconnect);
        DamageCounter damage(connection.get(), probeWindow);
        damage.wait(0);
        own = changeLatency(damage, QRect(QPoint(), probeFrame.size()).center(), *probe, o.changes,
                            u"probe window"_s);
    }

    // What the animating clients cost the X server with nothing capturing.
    const double idle0 = processCpuMs(o.serverPid);
    const qint64 t0 = nowNs();
    settle(o.seconds * 1000);
    const double clientsPerSecond = (processCpuMs(o.serverPid) - idle0) / ((nowNs() - t0) / 1e9);

    const QList<Form> forms{
        {u"allow list (2 animating windows + 1 still)"_s, u"allowList"_s, u"sanitized"_s},
        {u"block list: sanitized desktop minus 1 window"_s, u"blockList"_s, u"sanitized"_s},
        {u"full desktop (only Vistrel's own windows out)"_s, u"blockList"_s, u"fullDesktop"_s},
    };
    QList<AppRun> runs;
    for (const Form& form : forms)
        runs << measureApp(o, form, screen, *probe);
    const Run grab =
        measureGrab(u"ffmpeg x11grab"_s, o.display, screen, o.fps, o.seconds, o.serverPid);

    const double grabPerSecond = (grab.selfMs + grab.serverMs) / grab.seconds - clientsPerSecond;
    const double grabPerFrame = grabPerSecond * grab.seconds / std::max(grab.frames, 1);
    std::printf("#### %dx%d, %d fps (X server cost of the clients alone: %.1f ms/s)\n\n",
                screen.width(), screen.height(), o.fps, clientsPerSecond);
    std::printf("The probe's own window shows a change in %.1f / %.1f ms (p50 / p95).\n\n", own.p50,
                own.p95);
    std::printf("Output window %dx%d.\n\n", runs.value(0).outputSize.width(),
                runs.value(0).outputSize.height());
    std::printf("| Run | output fps | app ms/s | X server ms/s | total ms/s | total ms/frame | "
                "per frame / grab | change to pixels p50 / p95 ms |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    for (const AppRun& r : runs) {
        if (r.run.failed) {
            std::printf("| %s | failed | | | | | | |\n", qPrintable(r.run.name));
            continue;
        }
        const double app = r.vistrelMs / r.run.seconds;
        const double server = r.run.serverMs / r.run.seconds - clientsPerSecond;
        const double fps = r.run.frames / r.run.seconds;
        const double perFrame = (app + server) / std::max(fps, 1.0);
        std::printf("| %s | %.1f | %.0f | %.0f | %.0f | %.2f | **%.2f** | %.1f / %.1f |\n",
                    qPrintable(r.run.name), fps, app, server, app + server, perFrame,
                    perFrame / grabPerFrame, r.p50, r.p95);
    }
    std::printf("| ffmpeg x11grab | %.1f | %.0f | %.0f | %.0f | %.2f | 1 | |\n\n",
                grab.frames / grab.seconds, grab.selfMs / grab.seconds,
                grab.serverMs / grab.seconds - clientsPerSecond, grabPerSecond, grabPerFrame);
    for (auto* client : {first.get(), second.get(), still.get(), probe.get()}) {
        client->write("quit\n");
        client->waitForFinished(2000);
    }
    return 0;
}
