#pragma once

// What the capture tests need of a real desktop: a private Xvfb with openbox,
// client processes that own coloured windows, and a delegate that keeps the
// stream's frames.
//
// Clients are this same test executable started again with
// VISTREL_CAPTURE_CLIENT=1: each is a separate process (its own pid, its own
// X connection), driven by one-line commands on stdin, answering "ok <id>".

#include "platform/x11/X11CaptureStream.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <signal.h>
#include <string>
#include <unistd.h>
#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace vistrel::x11test {

using namespace Qt::StringLiterals;

// ---------------------------------------------------------------- client side

struct ClientWindow {
    xcb_window_t id = 0;
    xcb_gcontext_t gc = 0;
    quint32 colour = 0;
    int width = 0, height = 0;
};

inline xcb_atom_t clientAtom(xcb_connection_t* c, const char* name)
{
    auto* reply =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, quint16(strlen(name)), name), nullptr);
    const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return atom;
}

// Commands: window COLOR X Y W H [or] [ellipse] [now] | popup COLOR X Y W H [now] |
// map ID | unmap ID | raise ID | lower ID | move ID X Y | resize ID W H |
// title ID TEXT | color ID COLOR | close ID | sync | quit. Colours are RRGGBB.
inline int runClient()
{
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c))
        return 2;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_atom_t netWmPid = clientAtom(c, "_NET_WM_PID");
    const xcb_atom_t netWmName = clientAtom(c, "_NET_WM_NAME");
    const xcb_atom_t utf8 = clientAtom(c, "UTF8_STRING");
    std::map<xcb_window_t, ClientWindow> windows;
    const quint32 pid = quint32(getpid());
    // "instance\0Class\0": the class names the application (CaptureTest unless asked).
    const QByteArray className = qEnvironmentVariableIsSet("VISTREL_CAPTURE_CLASS")
                                     ? qgetenv("VISTREL_CAPTURE_CLASS")
                                     : QByteArray("CaptureTest");
    const QByteArray wmClass = "capturetest" + QByteArray(1, '\0') + className + '\0';

    auto paint = [&](ClientWindow& w) {
        xcb_change_gc(c, w.gc, XCB_GC_FOREGROUND, &w.colour);
        const xcb_rectangle_t all{0, 0, quint16(w.width), quint16(w.height)};
        xcb_poly_fill_rectangle(c, w.id, w.gc, 1, &all);
    };
    auto create = [&](quint32 colour, int x, int y, int wd, int ht, bool overrideRedirect,
                      bool ellipse) {
        ClientWindow w;
        w.id = xcb_generate_id(c);
        w.colour = colour;
        w.width = wd;
        w.height = ht;
        // No background: every visible pixel is one this process painted.
        const quint32 values[] = {quint32(overrideRedirect),
                                  XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w.id, screen->root, qint16(x), qint16(y),
                          quint16(wd), quint16(ht), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual, XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK,
                          values);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w.id, netWmPid, XCB_ATOM_CARDINAL, 32, 1,
                            &pid);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w.id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            quint32(wmClass.size()), wmClass.constData());
        // Openbox places by position only when the client asks for it.
        const quint32 hints[18] = {1u | 2u | 4u | 8u, quint32(x), quint32(y), quint32(wd),
                                   quint32(ht)};
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w.id, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
        if (ellipse) {
            std::vector<xcb_rectangle_t> rows;
            const double a = wd / 2.0, b = ht / 2.0;
            for (int row = 0; row < ht; ++row) {
                const double dy = (row + 0.5 - b) / b;
                const int half = int(a * std::sqrt(std::max(0.0, 1 - dy * dy)));
                if (half > 0)
                    rows.push_back({qint16(a - half), qint16(row), quint16(2 * half), 1});
            }
            xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                                 XCB_CLIP_ORDERING_UNSORTED, w.id, 0, 0, quint32(rows.size()),
                                 rows.data());
        }
        w.gc = xcb_generate_id(c);
        xcb_create_gc(c, w.gc, w.id, XCB_GC_FOREGROUND, &w.colour);
        windows[w.id] = w;
        return w.id;
    };

    auto handle = [&](xcb_generic_event_t* e) {
        if ((e->response_type & 0x7f) == XCB_EXPOSE) {
            auto* expose = reinterpret_cast<xcb_expose_event_t*>(e);
            if (auto it = windows.find(expose->window); it != windows.end())
                paint(it->second);
        }
        free(e);
    };

    std::string pending;
    bool running = true;
    while (running) {
        // The round trip after each command reads whatever events came
        // before its reply into xcb's queue, where poll() cannot see them:
        // an Expose left there would never be answered.
        while (xcb_generic_event_t* e = xcb_poll_for_queued_event(c))
            handle(e);
        xcb_flush(c);
        pollfd fds[2] = {{0, POLLIN, 0}, {xcb_get_file_descriptor(c), POLLIN, 0}};
        poll(fds, 2, -1);
        while (xcb_generic_event_t* e = xcb_poll_for_event(c))
            handle(e);
        xcb_flush(c);
        if (fds[0].revents & (POLLIN | POLLHUP)) {
            char buffer[512];
            const ssize_t n = read(0, buffer, sizeof buffer);
            if (n <= 0)
                break;
            pending.append(buffer, size_t(n));
        }
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            char verb[32] = {};
            unsigned a = 0;
            int x = 0, y = 0, w = 0, h = 0;
            char extra[64] = {}, extra2[64] = {};
            std::sscanf(line.c_str(), "%31s", verb);
            const std::string command = verb;
            xcb_window_t answer = 0;
            if (command == "window" || command == "popup") {
                std::sscanf(line.c_str(), "%*s %x %d %d %d %d %63s %63s", &a, &x, &y, &w, &h, extra,
                            extra2);
                const bool overrideRedirect =
                    command == "popup" || !strcmp(extra, "or") || !strcmp(extra2, "or");
                const bool ellipse = !strcmp(extra, "ellipse") || !strcmp(extra2, "ellipse");
                answer = create(a, x, y, w, h, overrideRedirect, ellipse);
                xcb_map_window(c, answer);
                // Like a menu that draws right away instead of waiting for
                // its first Expose.
                if (!strcmp(extra, "now") || !strcmp(extra2, "now"))
                    paint(windows[answer]);
            } else if (command == "sync" || command == "quit") {
                running = command == "sync";
            } else {
                std::sscanf(line.c_str(), "%*s %x %d %d", &a, &x, &y);
                auto it = windows.find(a);
                if (it == windows.end()) {
                    std::printf("error unknown window\n");
                    std::fflush(stdout);
                    continue;
                }
                ClientWindow& cw = it->second;
                answer = cw.id;
                if (command == "map") {
                    xcb_map_window(c, cw.id);
                } else if (command == "unmap") {
                    xcb_unmap_window(c, cw.id);
                } else if (command == "raise" || command == "lower") {
                    const quint32 mode =
                        command == "raise" ? XCB_STACK_MODE_ABOVE : XCB_STACK_MODE_BELOW;
                    xcb_configure_window(c, cw.id, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
                } else if (command == "move") {
                    const quint32 values[] = {quint32(x), quint32(y)};
                    xcb_configure_window(c, cw.id, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                                         values);
                } else if (command == "resize") {
                    cw.width = x;
                    cw.height = y;
                    const quint32 values[] = {quint32(x), quint32(y)};
                    xcb_configure_window(
                        c, cw.id, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
                    paint(cw);
                } else if (command == "title") {
                    const char* text = line.c_str() + line.find_first_of(' ', 6) + 1;
                    xcb_change_property(c, XCB_PROP_MODE_REPLACE, cw.id, netWmName, utf8, 8,
                                        quint32(strlen(text)), text);
                } else if (command == "color") {
                    cw.colour = quint32(x); // parsed below as hex
                    std::sscanf(line.c_str(), "%*s %*x %x", &cw.colour);
                    paint(cw);
                } else if (command == "close") {
                    xcb_destroy_window(c, cw.id);
                    windows.erase(it);
                }
            }
            // A round trip: everything above reached the server.
            free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
            std::printf("ok %u\n", answer);
            std::fflush(stdout);
        }
        if (xcb_connection_has_error(c))
            return 3;
    }
    xcb_disconnect(c);
    return 0;
}

// A main() that doubles as the client when asked to.
#define VISTREL_CAPTURE_TEST_MAIN(TestClass)                                                       \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        if (qEnvironmentVariableIsSet("VISTREL_CAPTURE_CLIENT"))                                   \
            return vistrel::x11test::runClient();                                                  \
        QCoreApplication app(argc, argv);                                                          \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }

// ---------------------------------------------------------------- test side

// Waits, running the event loop, until done() or the timeout.
inline bool waitFor(const std::function<bool()>& done, int timeoutMs = 15000)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(2);
    }
    return true;
}

class XSession {
public:
    // A private X server with openbox; width x height pixels, desktop colour.
    bool start(int width = 1920, int height = 1080, quint32 desktop = 0x204060)
    {
        int fds[2];
        if (pipe(fds) != 0)
            return false;
        m_server.setProgram(u"Xvfb"_s);
        m_server.setArguments({u"-displayfd"_s, QString::number(fds[1]), u"-screen"_s, u"0"_s,
                               u"%1x%2x24"_s.arg(width).arg(height), u"-nolisten"_s, u"tcp"_s,
                               u"-noreset"_s});
        m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_server.setChildProcessModifier([fd = fds[1]] { fcntl(fd, F_SETFD, 0); });
        m_server.start();
        ::close(fds[1]);
        if (!m_server.waitForStarted(5000)) {
            ::close(fds[0]);
            return false;
        }
        char number[16] = {};
        pollfd pfd{fds[0], POLLIN, 0};
        ssize_t n = 0;
        if (poll(&pfd, 1, 10000) > 0)
            n = read(fds[0], number, sizeof number - 1);
        ::close(fds[0]);
        if (n <= 0)
            return false;
        m_display = ":" + QByteArray(number).trimmed();
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert(u"DISPLAY"_s, QString::fromLatin1(m_display));
        m_runtime = std::make_unique<QTemporaryDir>();
        m_env.insert(u"XDG_RUNTIME_DIR"_s, m_runtime->path());

        m_c = xcb_connect(m_display.constData(), nullptr);
        if (xcb_connection_has_error(m_c))
            return false;
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        setDesktopColour(desktop);

        m_wm.setProcessEnvironment(m_env);
        m_wm.setProgram(u"openbox"_s);
        m_wm.setArguments({u"--sm-disable"_s});
        m_wm.setStandardErrorFile(QProcess::nullDevice());
        m_wm.start();
        const xcb_atom_t check = clientAtom(m_c, "_NET_SUPPORTING_WM_CHECK");
        const bool announced =
            waitFor([&] { return rootWindowProperty(check, XCB_ATOM_WINDOW) == 1; }, 10000);
        return announced && windowManagerManages();
    }

    // Openbox can leave a map request that came while it finished starting
    // in its queue until another event wakes it: a probe window must be
    // managed (each look changes a root property, which wakes it) and be gone
    // again before the session is handed out.
    bool windowManagerManages()
    {
        const xcb_atom_t clients = clientAtom(m_c, "_NET_CLIENT_LIST");
        const xcb_atom_t nudge = clientAtom(m_c, "_VISTREL_NUDGE");
        const xcb_window_t probe = xcb_generate_id(m_c);
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, probe, m_screen->root, 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, m_screen->root_visual, 0, nullptr);
        xcb_map_window(m_c, probe);
        quint32 count = 0;
        const auto clientsAre = [&](bool some) {
            ++count;
            xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, m_screen->root, nudge,
                                XCB_ATOM_CARDINAL, 32, 1, &count);
            return (rootWindowProperty(clients, XCB_ATOM_WINDOW) > 0) == some;
        };
        const bool managed = waitFor([&] { return clientsAre(true); }, 10000);
        xcb_destroy_window(m_c, probe);
        const bool released = waitFor([&] { return clientsAre(false); }, 10000);
        xcb_delete_property(m_c, m_screen->root, nudge);
        xcb_flush(m_c);
        return managed && released;
    }

    // How many values a root property holds (0 when it is absent).
    int rootWindowProperty(xcb_atom_t property, xcb_atom_t type)
    {
        auto* reply = xcb_get_property_reply(
            m_c, xcb_get_property(m_c, 0, m_screen->root, property, type, 0, 1024), nullptr);
        const int count = reply ? xcb_get_property_value_length(reply) / 4 : 0;
        free(reply);
        return count;
    }

    ~XSession()
    {
        if (m_c)
            xcb_disconnect(m_c);
        for (QProcess* p : {&m_wm, &m_server}) {
            if (p->state() != QProcess::NotRunning) {
                p->terminate();
                if (!p->waitForFinished(3000))
                    p->kill();
                p->waitForFinished(1000);
            }
        }
    }

    void setDesktopColour(quint32 rgb)
    {
        xcb_change_window_attributes(m_c, m_screen->root, XCB_CW_BACK_PIXEL, &rgb);
        xcb_clear_area(m_c, 0, m_screen->root, 0, 0, 0, 0);
        xcb_flush(m_c);
    }

    void warpPointer(int x, int y)
    {
        xcb_warp_pointer(m_c, XCB_NONE, m_screen->root, 0, 0, 0, 0, qint16(x), qint16(y));
        xcb_flush(m_c);
    }

    // Ends the X server at once, as a crash would.
    void killServer()
    {
        if (m_server.state() != QProcess::NotRunning)
            ::kill(pid_t(m_server.processId()), SIGKILL);
        m_server.waitForFinished(3000);
    }

    const QByteArray& display() const { return m_display; }
    const QProcessEnvironment& environment() const { return m_env; }
    xcb_connection_t* connection() const { return m_c; }

private:
    QProcess m_server;
    QProcess m_wm;
    QByteArray m_display;
    QProcessEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_runtime;
    xcb_connection_t* m_c = nullptr;
    xcb_screen_t* m_screen = nullptr;
};

class Client {
public:
    bool start(const XSession& session, const QString& className = u"CaptureTest"_s)
    {
        auto env = session.environment();
        env.insert(u"VISTREL_CAPTURE_CLIENT"_s, u"1"_s);
        env.insert(u"VISTREL_CAPTURE_CLASS"_s, className);
        m_process.setProcessEnvironment(env);
        m_process.setProgram(QCoreApplication::applicationFilePath());
        m_process.setArguments({u"-silent"_s});
        m_process.start();
        return m_process.waitForStarted(5000);
    }
    ~Client()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.closeWriteChannel();
            if (!m_process.waitForFinished(2000))
                m_process.kill();
            m_process.waitForFinished(1000);
        }
    }

    qint32 pid() const { return qint32(m_process.processId()); }

    // Sends a command without waiting: its answer is skipped by the next command.
    void post(const QByteArray& line)
    {
        m_process.write(line + '\n');
        ++m_unanswered;
    }

    // Sends one command and returns the window id of its answer (0 on failure).
    quint32 command(const QByteArray& line)
    {
        m_process.write(line + '\n');
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 15000) { // mapping waits for the window manager
            if (m_process.canReadLine() || m_process.waitForReadyRead(50)) {
                while (m_process.canReadLine()) {
                    const QByteArray answer = m_process.readLine().trimmed();
                    if ((answer.startsWith("ok ") || answer.startsWith("error")) &&
                        m_unanswered > 0) {
                        --m_unanswered;
                        continue;
                    }
                    if (answer.startsWith("ok "))
                        return answer.mid(3).toUInt();
                    if (answer.startsWith("error"))
                        return 0;
                }
            }
        }
        return 0;
    }

    quint32 window(quint32 rgb, QRect geometry, const QByteArray& flags = {})
    {
        return command("window " + QByteArray::number(rgb, 16) + ' ' +
                       QByteArray::number(geometry.x()) + ' ' + QByteArray::number(geometry.y()) +
                       ' ' + QByteArray::number(geometry.width()) + ' ' +
                       QByteArray::number(geometry.height()) + ' ' + flags);
    }
    // flags "now": the client paints right after mapping, before any Expose.
    quint32 popup(quint32 rgb, QRect geometry, const QByteArray& flags = {})
    {
        return command("popup " + QByteArray::number(rgb, 16) + ' ' +
                       QByteArray::number(geometry.x()) + ' ' + QByteArray::number(geometry.y()) +
                       ' ' + QByteArray::number(geometry.width()) + ' ' +
                       QByteArray::number(geometry.height()) + ' ' + flags);
    }
    void on(const char* verb, quint32 window, const QByteArray& args = {})
    {
        command(QByteArray(verb) + ' ' + QByteArray::number(window, 16) + ' ' + args);
    }

private:
    QProcess m_process;
    int m_unanswered = 0;
};

// Keeps the frames a stream delivers (worker thread) for the test thread.
class FrameSink : public CaptureStreamDelegate {
public:
    using Check = std::function<void(const QImage&)>;

    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) override
    {
        std::lock_guard lock(m_mutex);
        ++m_frames;
        if (type != SampleOutputType::screen || !buffer.dataReady ||
            buffer.frameStatus != qint64(FrameStatus::complete) ||
            buffer.image.format() != QImage::Format_ARGB32_Premultiplied ||
            buffer.presentationTimeNs <= m_lastTime)
            ++m_malformed;
        m_lastTime = buffer.presentationTimeNs;
        if (m_check)
            m_check(buffer.image);
        m_last = buffer.image.copy(); // the pool buffer goes back at once
    }
    void streamDidStopWithError(const PlatformError& error) override
    {
        std::lock_guard lock(m_mutex);
        m_stopError = error.localizedDescription;
    }

    // Runs on the worker thread for every frame, before it is stored.
    void setCheck(Check check)
    {
        std::lock_guard lock(m_mutex);
        m_check = std::move(check);
    }
    int frames() const
    {
        std::lock_guard lock(m_mutex);
        return m_frames;
    }
    int malformed() const
    {
        std::lock_guard lock(m_mutex);
        return m_malformed;
    }
    QImage last() const
    {
        std::lock_guard lock(m_mutex);
        return m_last;
    }
    QString stopError() const
    {
        std::lock_guard lock(m_mutex);
        return m_stopError;
    }
    // Waits for a frame for which `test` holds.
    bool waitForFrame(const std::function<bool(const QImage&)>& test, int timeoutMs = 15000) const
    {
        return waitFor(
            [&] {
                const QImage image = last();
                return !image.isNull() && test(image);
            },
            timeoutMs);
    }

private:
    mutable std::mutex m_mutex;
    int m_frames = 0;
    int m_malformed = 0;
    qint64 m_lastTime = 0;
    Check m_check;
    QImage m_last;
    QString m_stopError;
};

inline quint32 rgbAt(const QImage& image, int x, int y)
{
    return image.pixel(x, y) & 0xffffff;
}
inline int alphaAt(const QImage& image, int x, int y)
{
    return qAlpha(image.pixel(x, y));
}

// Starts a stream and waits for its start completion.
inline std::optional<PlatformError> startStream(X11CaptureStream& stream)
{
    bool done = false;
    std::optional<PlatformError> result;
    stream.addStreamOutput(SampleOutputType::screen);
    stream.startCapture([&](std::optional<PlatformError> error) {
        result = error;
        done = true;
    });
    if (!waitFor([&] { return done; }, 15000))
        return PlatformError{u"test"_s, -1, u"start did not complete"_s};
    return result;
}

} // namespace vistrel::x11test
