#pragma once

// What every X11 test executable needs of a real desktop: a private session
// (Xvfb + openbox on a display of its own, so suites can run in parallel),
// client processes that own windows, waits with timeouts, and the root
// window's pixels.
//
// The session is started by scripts/x11-session.sh (path in
// $VISTREL_X11_SESSION); clients are tests/tools/vistrel-testclient (path in
// $VISTREL_TEST_CLIENT). Starting a session sets DISPLAY in this process, so
// code that connects to "$DISPLAY" and every spawned client reach it.
//
// Threading: the test's main thread only.

#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QImage>
#include <QProcess>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace vistrel::testsupport {

// Polls the condition (processing events in between) until it holds or the
// timeout passes; returns its last value.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(15));

// A vistrel-testclient process. Commands and answers as documented in the
// client's source; each call waits for the answer line.
class TestClient {
public:
    ~TestClient();
    qint64 pid() const { return m_pid; }

    // Opens a window and waits until it is mapped; returns its X id (0 on
    // failure, with the reason in lastError()). extra: "type=dock shape=eyes
    // title=..." and the like.
    quint32 openWindow(const QString& name, const QString& colour, const QRect& geometry,
                       const QString& extra = {});
    quint32 openPopup(const QString& name, const QString& parent, const QString& colour,
                      const QRect& offsetAndSize);
    // Sends a command and waits for the first answer line starting with one
    // of the prefixes ("ok", "mapped NAME", ...). Absent on timeout or error.
    std::optional<QString> command(const QString& line,
                                   const QStringList& answerPrefixes = {QStringLiteral("ok")});
    QString lastError() const { return m_lastError; }

private:
    friend class X11TestSession;
    TestClient() = default;
    std::optional<QString> waitForLine(const QStringList& prefixes,
                                       std::chrono::milliseconds timeout);

    std::unique_ptr<QProcess> m_process;
    qint64 m_pid = 0;
    QStringList m_unread;
    QString m_lastError;
};

class X11TestSession {
public:
    struct Options {
        QSize monitorSize{1920, 1080};
        int monitors = 2; // 2: LEFT and RIGHT side by side; 1: one monitor
        bool windowManager = true;
    };

    X11TestSession() = default;
    ~X11TestSession();
    X11TestSession(const X11TestSession&) = delete;
    X11TestSession& operator=(const X11TestSession&) = delete;

    // Starts the session; false with errorString() on failure.
    bool start(const Options& options);
    bool start() { return start(Options{}); }
    // Stops Xvfb and openbox; clients lose their connection.
    void stop();
    bool isRunning() const { return !m_displayName.isEmpty(); }

    QByteArray displayName() const { return m_displayName; } // ":N"
    QString errorString() const { return m_error; }

    // A connection of the test's own to the session (opened on first use).
    xcb_connection_t* connection();
    xcb_window_t root();

    // Starts a client process with the given WM_CLASS; null on failure.
    std::unique_ptr<TestClient> spawnClient(const QString& wmClass,
                                            const QStringList& extraArguments = {});

    // The root window's pixels in root coordinates (null image on failure).
    QImage grabRoot(const QRect& area);
    // Root-coordinate geometry of a window (borders excluded).
    std::optional<QRect> rootGeometry(xcb_window_t window);

private:
    QString m_error;
    QByteArray m_displayName;
    QString m_script;
    std::unique_ptr<QTemporaryDir> m_dir;
    x11::XcbConnection m_connection;
};

} // namespace vistrel::testsupport
