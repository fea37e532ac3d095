#pragma once

// What every X11 test needs of a real desktop: a private session (Xvfb and
// openbox on a display of its own, started by scripts/x11-session.sh, which
// hands it out only once openbox manages windows), client processes
// (tests/tools/vistrel-testclient) that own painted windows, waits with
// timeouts, the root window's pixels, and a delegate that keeps a capture
// stream's frames.
//
// A session does not change this process's environment unless asked
// (exportEnvironment()), so a test can run several side by side.
//
// Threading: the test's main thread, except FrameSink (see there).

#include "platform/x11/X11CaptureStream.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QHash>
#include <QImage>
#include <QList>
#include <QProcess>
#include <QRect>
#include <QString>
#include <QTemporaryDir>
#include <QTest>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace vistrel::x11test {

// Polls the condition (processing events in between) until it holds or the
// timeout passes; returns its last value.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(15));

// A vistrel-testclient process. Windows are named by this object; calls
// return or take their X ids. Each call waits for the client's answer
// (15 s at most) and fails with the reason in lastError().
class TestClient {
public:
    ~TestClient();
    qint32 pid() const { return m_pid; }

    // A window of the given colour (RRGGBB), mapped (and framed by the
    // window manager) before this returns; 0 on failure. options as the
    // client takes them: "or", "now", "shape=ellipse", "type=dock",
    // "pid=none", "appid=ID", "title=TEXT" (last). Without waiting, the
    // window is only asked for and 0 returned.
    quint32 window(quint32 rgb, const QRect& geometry, const QString& options = {},
                   bool wait = true);
    // An override-redirect menu at root coordinates.
    quint32 popup(quint32 rgb, const QRect& geometry, const QString& options = {});
    // "color RRGGBB", "move X Y", "raise", "map", "close", ... on a window.
    bool on(const QString& verb, quint32 window, const QString& arguments = {});
    bool colour(quint32 window, quint32 rgb);
    QString lastError() const { return m_lastError; }

private:
    friend class X11TestSession;
    TestClient() = default;
    quint32 open(const QString& verb, quint32 rgb, const QRect& geometry, const QString& options,
                 bool wait);
    // Sends a command and waits for the answer line starting with `answer`.
    std::optional<QString> command(const QString& line, const QString& answer);

    QProcess m_process;
    qint32 m_pid = 0;
    QStringList m_unread;
    QString m_lastError;
    QHash<quint32, QString> m_names;
    int m_opened = 0;
};

struct X11SessionOptions {
    QSize monitorSize{1920, 1080};
    int monitors = 1; // 2: LEFT and RIGHT side by side
    bool windowManager = true;
    quint32 desktop = 0x204060; // the root's colour
};

class X11TestSession {
public:
    using Options = X11SessionOptions;

    X11TestSession() = default;
    ~X11TestSession();
    X11TestSession(const X11TestSession&) = delete;
    X11TestSession& operator=(const X11TestSession&) = delete;

    // False with errorString() on failure.
    bool start(const Options& options = {});
    // Stops openbox and Xvfb; clients lose their connection.
    void stop();

    QByteArray displayName() const { return m_displayName; } // ":N"
    QString errorString() const { return m_error; }
    // The environment of processes started on the session.
    QProcessEnvironment environment() const { return m_environment; }
    // Makes this process's later connections ($DISPLAY, Qt's) reach the session.
    void exportEnvironment() const;

    // A connection of the test's own to the session.
    xcb_connection_t* connection() const { return m_connection.get(); }
    xcb_window_t root() const { return m_root; }
    xcb_atom_t atom(const char* name) const;

    // A client process whose windows carry this WM_CLASS; null on failure.
    std::unique_ptr<TestClient> spawnClient(const QString& wmClass = QStringLiteral("Painter"));

    // Asks the window manager to close a client window, as its close button does.
    void requestClose(xcb_window_t window);
    void setDesktopColour(quint32 rgb);
    void warpPointer(int x, int y);
    // A window's own pixels, as a window capture reads them (what covers the
    // window shows unless its contents are kept off screen).
    QImage grabWindow(xcb_window_t window) const;
    bool isMapped(xcb_window_t window) const;
    // Geometries of the mapped override-redirect windows (menus, popups)
    // that a process owns (_NET_WM_PID), top-most last.
    QList<QRect> popups(qint64 pid) const;
    // Whether _NET_WM_STATE lists the state, e.g. "_NET_WM_STATE_BELOW".
    bool hasState(xcb_window_t window, const char* state) const;
    // Runs xdotool on the session (pointer and keyboard as a user drives
    // them); false when it fails.
    bool xdotool(const QStringList& arguments) const;
    // Root-coordinate geometry of a window, borders excluded.
    std::optional<QRect> rootGeometry(xcb_window_t window) const;

private:
    QString m_error;
    QByteArray m_displayName;
    QProcessEnvironment m_environment;
    std::unique_ptr<QTemporaryDir> m_dir;
    x11::XcbConnection m_connection;
    xcb_window_t m_root = 0;
};

// Keeps the frames a stream delivers (worker thread) for the test thread.
class FrameSink : public CaptureStreamDelegate {
public:
    using Check = std::function<void(const QImage&)>;

    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) override;
    void streamDidStopWithError(const PlatformError& error) override;

    // Runs on the worker thread for every frame, before it is stored.
    void setCheck(Check check)
    {
        std::lock_guard lock(m_mutex);
        m_check = std::move(check);
    }
    int frames() const { return locked(m_frames); }
    // Frames that were not complete, premultiplied screen frames in order.
    int malformed() const { return locked(m_malformed); }
    QImage last() const { return locked(m_last); }
    QString stopError() const { return locked(m_stopError); }
    // Waits for a frame for which `test` holds.
    bool waitForFrame(const std::function<bool(const QImage&)>& test) const;

private:
    template<class T> T locked(const T& value) const
    {
        std::lock_guard lock(m_mutex);
        return value;
    }

    mutable std::mutex m_mutex;
    int m_frames = 0;
    int m_malformed = 0;
    qint64 m_lastTime = 0;
    Check m_check;
    QImage m_last;
    QString m_stopError;
};

// Adds the screen output, starts the stream and waits for its start
// completion; the error, if any.
std::optional<PlatformError> startStream(CaptureStream& stream);

inline quint32 rgbAt(const QImage& image, int x, int y)
{
    return image.pixel(x, y) & 0xffffff;
}
inline int alphaAt(const QImage& image, int x, int y)
{
    return qAlpha(image.pixel(x, y));
}
// Opaque pixels of exactly this colour.
int countColour(const QImage& image, quint32 rgb);

// main() of a suite that runs Qt on the session's display: the session comes
// first (Qt connects when the application is made), then App, then the suite
// built on the session.
template<class App, class Suite>
int runSuiteInSession(int argc, char** argv, const X11SessionOptions& options = {})
{
    X11TestSession session;
    if (!session.start(options)) {
        std::fprintf(stderr, "%s\n", qPrintable(session.errorString()));
        return 1;
    }
    session.exportEnvironment();
    qputenv("QT_QPA_PLATFORM", "xcb");
    App app(argc, argv);
    Suite suite(session);
    return QTest::qExec(&suite, argc, argv);
}

} // namespace vistrel::x11test
