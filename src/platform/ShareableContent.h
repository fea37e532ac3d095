#pragma once

// A snapshot of what the display server offers for capture, as the capture
// backend reports it. Plain values: the catalog keeps them as its "live"
// objects and the filter builder reads their ids.
//
// Coordinates: global, points, y-down (origin top-left of the virtual desktop).

#include <QList>
#include <QRectF>
#include <QString>
#include <optional>

namespace vistrel {

struct LiveDisplay {
    quint32 displayID = 0; // RandR output id on X11
    QRectF frame;
    double width = 0;  // points
    double height = 0; // points
    double pixelWidth = 0;
    double pixelHeight = 0;

    friend bool operator==(const LiveDisplay&, const LiveDisplay&) = default;
};

struct LiveApplication {
    qint32 processID = 0;
    std::optional<QString> bundleIdentifier;
    QString applicationName;

    friend bool operator==(const LiveApplication&, const LiveApplication&) = default;
};

struct LiveWindow {
    quint32 windowID = 0; // the client window id, not the window manager's frame
    std::optional<QString> title;
    QRectF frame;
    int windowLayer = 0; // 0 for normal and dialog windows
    bool isOnScreen = false;
    bool isActive = false;
    std::optional<LiveApplication> owningApplication;

    friend bool operator==(const LiveWindow&, const LiveWindow&) = default;
};

struct ShareableContent {
    QList<LiveDisplay> displays;
    QList<LiveApplication> applications;
    QList<LiveWindow> windows; // front to back, as the display server stacks them

    friend bool operator==(const ShareableContent&, const ShareableContent&) = default;
};

} // namespace vistrel
