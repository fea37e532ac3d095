#include "platform/sim/SimScene.h"

namespace vistrel {

SimDisplay makeSimDisplay(quint32 displayID, const QRectF& frame, const QString& name)
{
    SimDisplay display;
    display.displayID = displayID;
    display.frame = frame;
    display.name = name;
    return display;
}

SimWindow makeSimWindow(quint32 windowID, std::optional<qint32> ownerProcessID, const QRectF& frame,
                        const QColor& color, std::optional<QString> title)
{
    SimWindow window;
    window.windowID = windowID;
    window.ownerProcessID = ownerProcessID;
    window.frame = frame;
    window.color = color;
    window.title = std::move(title);
    return window;
}

ShareableContent SimScene::toContent(bool excludingDesktopWindows, bool onScreenWindowsOnly) const
{
    ShareableContent content;
    content.displays.reserve(displays.size());
    for (const SimDisplay& display : displays) {
        content.displays.append(LiveDisplay{
            .displayID = display.displayID,
            .frame = display.frame,
            .width = display.frame.width(),
            .height = display.frame.height(),
            .pixelWidth = display.effectivePixelWidth(),
            .pixelHeight = display.effectivePixelHeight(),
        });
    }
    content.applications.reserve(applications.size());
    for (const SimApplication& app : applications) {
        content.applications.append(LiveApplication{
            .processID = app.processID,
            .bundleIdentifier = app.bundleIdentifier,
            .applicationName = app.applicationName,
        });
    }
    content.windows.reserve(windows.size());
    for (const SimWindow& window : windows) {
        if (excludingDesktopWindows && window.windowLayer < 0)
            continue;
        if (onScreenWindowsOnly && !window.isOnScreen)
            continue;
        std::optional<LiveApplication> owner;
        if (window.ownerProcessID) {
            if (const SimApplication* app = application(*window.ownerProcessID))
                owner =
                    LiveApplication{app->processID, app->bundleIdentifier, app->applicationName};
        }
        content.windows.append(LiveWindow{
            .windowID = window.windowID,
            .title = window.title,
            .frame = window.frame,
            .windowLayer = window.windowLayer,
            .isOnScreen = window.isOnScreen,
            .isActive = window.isActive,
            .owningApplication = owner,
        });
    }
    return content;
}

QList<ScreenInfo> SimScene::toScreens() const
{
    QList<ScreenInfo> screens;
    screens.reserve(displays.size());
    for (const SimDisplay& display : displays) {
        screens.append(ScreenInfo{
            .displayID = display.displayID,
            .localizedName = display.name,
            .frame = display.frame,
            .visibleFrame = display.visibleFrame.isEmpty() ? display.frame : display.visibleFrame,
            .maximumFramesPerSecond = display.maximumFramesPerSecond,
        });
    }
    return screens;
}

const SimDisplay* SimScene::display(quint32 displayID) const
{
    for (const SimDisplay& display : displays) {
        if (display.displayID == displayID)
            return &display;
    }
    return nullptr;
}

const SimApplication* SimScene::application(qint32 processID) const
{
    for (const SimApplication& app : applications) {
        if (app.processID == processID)
            return &app;
    }
    return nullptr;
}

SimWindow* SimScene::window(quint32 windowID)
{
    for (SimWindow& window : windows) {
        if (window.windowID == windowID)
            return &window;
    }
    return nullptr;
}

const SimWindow* SimScene::window(quint32 windowID) const
{
    return const_cast<SimScene*>(this)->window(windowID);
}

bool SimScene::raise(quint32 windowID)
{
    for (qsizetype i = 0; i < windows.size(); ++i) {
        if (windows[i].windowID == windowID) {
            windows.move(i, 0);
            return true;
        }
    }
    return false;
}

bool SimScene::removeWindow(quint32 windowID)
{
    return windows.removeIf([windowID](const SimWindow& w) { return w.windowID == windowID; }) > 0;
}

} // namespace vistrel
