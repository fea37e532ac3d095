#pragma once

// The vistrel executable on a private X session of two monitors, as the
// X11 application tests use it: real client processes of three
// applications, a state file that chooses what may be seen, the windows'
// own pixels read back from the X server as a meeting application's window
// capture reads them, and a user's clicks and keys through xdotool.

#include "platform/x11/X11ShareableContentSource.h"
#include "platform/x11/x11_harness.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QObject>
#include <QProcess>
#include <QRect>
#include <QTemporaryDir>
#include <QTest>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace vistrel::x11test {

using namespace Qt::StringLiterals;
using vistrel::x11::X11ShareableContentSource;

struct ClientApp {
    QString wmClass;
    QRgb colour;
    QRect geometry;
};

// Two monitors, LEFT and RIGHT. The clients stand in a row at the top of
// LEFT, the display the output shows; Chat also covers the bottom-left corner
// of LEFT, where the docked output window keeps its last tenth on screen.
inline const QSize monitorSize{1920, 1080};
inline const QList<ClientApp> clientApps = {
    {u"Slides"_s, qRgb(0xff, 0x88, 0x00), {100, 60, 560, 380}},
    {u"Mail"_s, qRgb(0x20, 0x60, 0xff), {700, 60, 560, 380}},
    {u"Chat"_s, qRgb(0x20, 0xc0, 0x40), {0, 880, 560, 200}},
};
// The output window for a 1920 x 1080 canvas on a 1920 x 1080 display: the
// largest 16:9 size inside the 4 % inset, centred.
inline const QSize outputSize{1766, 993};
inline const QRect controlFrame{700, 770, 520, 170};

inline QString hexColour(QRgb rgb)
{
    return u"%1"_s.arg(uint(rgb & 0xffffff), 6, 16, QChar(u'0'));
}

// Pixels within a small distance of the colour: the output is scaled down,
// so only edges blend with their neighbours.
inline int countNear(const QImage& image, QRgb colour, int tolerance = 20)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = line[x];
            if (std::abs(qRed(p) - qRed(colour)) <= tolerance &&
                std::abs(qGreen(p) - qGreen(colour)) <= tolerance &&
                std::abs(qBlue(p) - qBlue(colour)) <= tolerance)
                ++count;
        }
    }
    return count;
}

inline QByteArray stateDocument(const QString& mode, const QString& application)
{
    const QString rule = u"{ \"applications\": [ { \"applicationName\": \"%1\" } ], "
                         "\"windows\": [] }"_s.arg(application);
    const QString empty = u"{ \"applications\": [], \"windows\": [] }"_s;
    return u"{ \"policy\": { \"mode\": \"%1\", \"allowList\": %2, \"blockList\": %3 }, "
           "\"outputContentMode\": \"sanitized\", \"outputFrameMode\": \"screen\", "
           "\"canvasBackground\": { \"mode\": \"black\" } }"_s
               .arg(mode, mode == u"allowList"_s ? rule : empty,
                    mode == u"blockList"_s ? rule : empty)
               .toUtf8();
}

class VistrelX11Rig : public QObject {
protected:
    // A flow that fails with a button held would take the next flow's
    // presses with it.
    void releaseButtonAfterFailure()
    {
        if (QTest::currentTestFailed())
            m_session.xdotool({u"mouseup"_s, u"1"_s});
    }

    // The session and the three clients; what went wrong, if anything.
    QString startSession()
    {
        if (qEnvironmentVariableIsEmpty("VISTREL_APP"))
            return u"VISTREL_APP is not set"_s;
        if (!m_session.start({.monitorSize = monitorSize, .monitors = 2}))
            return m_session.errorString();
        for (const ClientApp& app : clientApps) {
            auto client = m_session.spawnClient(app.wmClass);
            if (!client)
                return m_session.errorString();
            const quint32 id = client->window(app.colour & 0xffffff, app.geometry,
                                              u"title=%1 window"_s.arg(app.wmClass));
            if (!id)
                return client->lastError();
            m_clients.push_back(std::move(client));
            m_clientWindows.push_back(id);
        }
        return {};
    }

    // vistrel with a data folder holding the state document, on the
    // session's display or the one given ("": none); with freshData false,
    // on the data folder of the previous start.
    std::unique_ptr<QProcess> startVistrel(const QByteArray& state,
                                           const QString* display = nullptr, bool freshData = true)
    {
        if (freshData || !m_dataHome) {
            m_dataHome = std::make_unique<QTemporaryDir>();
            const QString folder = m_dataHome->filePath(u"Vistrel"_s);
            QDir().mkpath(folder);
            QFile file(folder + u"/VistrelState.json"_s);
            if (!file.open(QIODevice::WriteOnly) || file.write(state) != state.size())
                return nullptr;
        }

        auto process = std::make_unique<QProcess>();
        QProcessEnvironment environment = m_session.environment();
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        environment.insert(u"XDG_DATA_HOME"_s, m_dataHome->path());
        environment.remove(u"VISTREL_BACKEND"_s);
        if (display)
            environment.remove(u"DISPLAY"_s);
        if (display && !display->isEmpty())
            environment.insert(u"DISPLAY"_s, *display);
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->start(qEnvironmentVariable("VISTREL_APP"), {});
        if (!process->waitForStarted(5000))
            return nullptr;
        return process;
    }

    // The process's mapped client window of this title (0: none).
    xcb_window_t findWindow(qint64 pid, const QString& title)
    {
        const auto content =
            X11ShareableContentSource::snapshot(m_session.displayName(), false, false);
        if (const auto* c = std::get_if<vistrel::ShareableContent>(&content))
            for (const vistrel::LiveWindow& w : c->windows)
                if (w.title == title && w.owningApplication &&
                    w.owningApplication->processID == pid && m_session.isMapped(w.windowID))
                    return w.windowID;
        return 0;
    }

    // Waits for the output window and for `colour` in its own pixels (the
    // window starts docked, mostly off screen and below other windows).
    xcb_window_t waitForOutput(QProcess& app, QRgb colour)
    {
        // Frames come some time after start (discovery, then a debounced update).
        xcb_window_t output = 0;
        const bool shown = waitUntil(
            [&] {
                output = findWindow(app.processId(), u"Vistrel Output"_s);
                return output && countNear(m_session.grabWindow(output), colour) > 5000;
            },
            std::chrono::seconds(25));
        return shown ? output : 0;
    }

    bool waitForFrame(xcb_window_t window, const QRect& frame)
    {
        return waitUntil([&] { return m_session.rootGeometry(window) == frame; });
    }

    // Clicks like a user: move, press, release.
    bool click(QPoint at)
    {
        return m_session.xdotool(
            {u"mousemove"_s, QString::number(at.x()), QString::number(at.y()), u"click"_s, u"1"_s});
    }

    // Where the deck's controls are, from the control window's top-left
    // corner: the header's output button and "Always on Top", and tiles.
    static QPoint outputButton(const QRect& control) { return control.topLeft() + QPoint(315, 20); }
    static QPoint alwaysOnTopBox(const QRect& control)
    {
        return control.topLeft() + QPoint(362, 20);
    }
    static QPoint modeTile(const QRect& control) { return control.topLeft() + QPoint(360, 68); }
    static QPoint sourcesTile(const QRect& control) { return control.topLeft() + QPoint(60, 68); }
    static QPoint quitTile(const QRect& control) { return control.topLeft() + QPoint(460, 133); }
    static QPoint canvasTile(const QRect& control) { return control.topLeft() + QPoint(460, 68); }
    static QPoint presetsTile(const QRect& control) { return control.topLeft() + QPoint(60, 133); }
    static QPoint menuButton(const QRect& control) { return control.topLeft() + QPoint(496, 20); }

    // Clicks a tile and waits for its popover; the popover's frame (empty
    // when none opened).
    QRect openPopover(QProcess& app, QPoint tile)
    {
        QRect popover;
        click(tile);
        waitUntil([&] {
            const QList<QRect> open = m_session.popups(app.processId());
            popover = open.isEmpty() ? QRect() : open.last();
            return !open.isEmpty();
        });
        return popover;
    }

    // Quits as a user does ("Quit", or SIGTERM as at logout) and expects a
    // normal exit; what went wrong, if anything.
    QString quit(QProcess& app, bool bySignal)
    {
        if (bySignal) {
            app.terminate();
        } else {
            // The Quit tile, then "Quit" (the default button) in the alert.
            const xcb_window_t control = findWindow(app.processId(), u"Vistrel"_s);
            if (!control || !click(quitTile(*m_session.rootGeometry(control))))
                return u"no Quit tile to click"_s;
            xcb_window_t alert = 0;
            if (!waitUntil(
                    [&] { return (alert = findWindow(app.processId(), u"Quit Vistrel?"_s)); }))
                return u"no quit confirmation"_s;
            m_session.xdotool({u"windowactivate"_s, u"--sync"_s, QString::number(alert)});
            m_session.xdotool({u"key"_s, u"Return"_s});
        }
        if (!app.waitForFinished(15000))
            return u"vistrel did not quit"_s;
        if (app.exitStatus() != QProcess::NormalExit || app.exitCode() != 0)
            return failureReport(app);
        return {};
    }

    static QString failureReport(QProcess& process)
    {
        QString report =
            u"exit status %1, code %2\n"_s.arg(int(process.exitStatus())).arg(process.exitCode());
        return report + QString::fromUtf8(process.readAll()).right(6000);
    }

    X11TestSession m_session;
    std::vector<std::unique_ptr<TestClient>> m_clients;
    std::vector<xcb_window_t> m_clientWindows;
    std::unique_ptr<QTemporaryDir> m_dataHome;
};

} // namespace vistrel::x11test
