#pragma once

// The scripted desktop the capture tests share, and the identities that name
// its applications.
//
// Display 1: 1440 x 900 points at 2x, a 25-point panel on top. Display 2:
// 1920 x 1080 to its right. Front to back (global points, y-down):
//   1  Vistrel "Vistrel"  (20, 20, 300, 200)    covers a corner of Draft
//   21 Editor  "Draft"    (100, 100, 600, 400)
//   22 Editor  "Notes"    (1500, 50, 400, 300)  on display 2
//   31 Mail    "Inbox"    (50, 500, 300, 200)
//   41 Browser "Docs"     (800, 200, 500, 500)  process 9
//   42 Browser "News"     (800, 700, 300, 300)  process 10, past the bottom edge
//   90 Panel   dock       (0, 0, 1440, 25)
//   23 Editor  "Hidden"   (1000, 50, 100, 100)  off screen
//   99 no known owner     (1200, 750, 100, 100)
// Terminal runs without windows. Every window has a colour of its own, and no
// window but Vistrel's covers another's centre.

#include "model/SourceIdentity.h"
#include "platform/sim/SimScene.h"

namespace vistrel::test {

inline constexpr qint32 selfPid = 100;
inline constexpr qint32 editorPid = 7;
inline constexpr qint32 mailPid = 8;
inline constexpr qint32 browserPid = 9;
inline constexpr qint32 secondBrowserPid = 10;
inline constexpr qint32 terminalPid = 11;
inline constexpr qint32 panelPid = 30;
// A window Vistrel's registry knows and no snapshot holds yet.
inline constexpr quint32 registryWindow = 77;

inline const AppIdentity selfId{QStringLiteral("org.vistrel"), QStringLiteral("Vistrel")};
inline const AppIdentity editorId{QStringLiteral("org.editor"), QStringLiteral("Editor")};
inline const AppIdentity mailId{std::nullopt, QStringLiteral("Mail")};
inline const AppIdentity browserId{QStringLiteral("org.browser"), QStringLiteral("Browser")};
inline const AppIdentity terminalId{std::nullopt, QStringLiteral("terminal")};
inline const AppIdentity ghostId{QStringLiteral("org.ghost"), QStringLiteral("Ghost")};

inline SimScene desktopScene()
{
    SimScene s;
    SimDisplay main = makeSimDisplay(1, QRectF(0, 0, 1440, 900), QStringLiteral("Built-in"));
    main.visibleFrame = QRectF(0, 25, 1440, 875);
    main.pixelWidth = 2880;
    main.pixelHeight = 1800;
    s.displays = {main, makeSimDisplay(2, QRectF(1440, 0, 1920, 1080), QStringLiteral("Side"))};
    const auto app = [](qint32 pid, const AppIdentity& id) {
        return SimApplication{pid, id.bundleIdentifier, id.applicationName};
    };
    s.applications = {app(selfPid, selfId),
                      app(editorPid, editorId),
                      app(mailPid, mailId),
                      app(browserPid, browserId),
                      app(secondBrowserPid, browserId),
                      app(terminalPid, {std::nullopt, QStringLiteral("Terminal")}),
                      app(panelPid, {std::nullopt, QStringLiteral("Panel")})};
    const auto window = [](quint32 id, qint32 pid, QRectF frame, QColor color, const char* title) {
        return makeSimWindow(id, pid, frame, color, QString::fromLatin1(title));
    };
    SimWindow panel = window(90, panelPid, QRectF(0, 0, 1440, 25), Qt::yellow, "Panel");
    panel.windowLayer = 20;
    SimWindow hidden = window(23, editorPid, QRectF(1000, 50, 100, 100), Qt::magenta, "Hidden");
    hidden.isOnScreen = false;
    s.windows = {window(1, selfPid, QRectF(20, 20, 300, 200), Qt::gray, "Vistrel"),
                 window(21, editorPid, QRectF(100, 100, 600, 400), Qt::red, "Draft"),
                 window(22, editorPid, QRectF(1500, 50, 400, 300), Qt::darkRed, "Notes"),
                 window(31, mailPid, QRectF(50, 500, 300, 200), Qt::green, "Inbox"),
                 window(41, browserPid, QRectF(800, 200, 500, 500), Qt::blue, "Docs"),
                 window(42, secondBrowserPid, QRectF(800, 700, 300, 300), Qt::darkBlue, "News"),
                 panel,
                 hidden,
                 window(99, 999, QRectF(1200, 750, 100, 100), Qt::cyan, "Orphan")};
    return s;
}

} // namespace vistrel::test
