#pragma once

// The scripted platform's world as plain data: displays, running
// applications and windows that a test or a demo edits directly. Windows are
// solid-colour rectangles; the scripted stream composes them under the content
// filter's admission rules (SimComposer.h).
//
// Coordinates: global, points, y-down (origin top-left of the virtual desktop).

#include "platform/ScreenProvider.h"
#include "platform/ShareableContent.h"

#include <QColor>
#include <QList>
#include <QRectF>
#include <QString>
#include <optional>

namespace vistrel {

struct SimDisplay {
    quint32 displayID = 0;
    QString name; // what the screen list reports as the screen's name
    QRectF frame;
    QRectF visibleFrame;    // frame minus panels; an empty rectangle means the whole frame
    double pixelWidth = 0;  // 0 means one pixel per point
    double pixelHeight = 0; // 0 means one pixel per point
    // Painted behind the windows for the forms that show the desktop; an
    // invalid colour leaves that transparent too.
    QColor desktopColor = QColor(0x20, 0x40, 0x60);
    int maximumFramesPerSecond = 60;

    double effectivePixelWidth() const { return pixelWidth > 0 ? pixelWidth : frame.width(); }
    double effectivePixelHeight() const { return pixelHeight > 0 ? pixelHeight : frame.height(); }

    friend bool operator==(const SimDisplay&, const SimDisplay&) = default;
};

struct SimApplication {
    qint32 processID = 0;
    std::optional<QString> bundleIdentifier;
    QString applicationName;

    friend bool operator==(const SimApplication&, const SimApplication&) = default;
};

struct SimWindow {
    quint32 windowID = 0;
    std::optional<QString> title;
    QRectF frame;
    // Discovery layers: 0 for normal windows, 20 for docks and panels, 101
    // for menus, negative for the desktop's own windows (windowKindForLayer).
    int windowLayer = 0;
    bool isOnScreen = true;
    bool isActive = false;
    // Absent (or naming no application of the scene) means no owner is known.
    std::optional<qint32> ownerProcessID;
    QColor color = Qt::white;

    friend bool operator==(const SimWindow&, const SimWindow&) = default;
};

// Builders for the common case; other fields are set by assignment.
SimDisplay makeSimDisplay(quint32 displayID, const QRectF& frame, const QString& name = {});
SimWindow makeSimWindow(quint32 windowID, std::optional<qint32> ownerProcessID, const QRectF& frame,
                        const QColor& color, std::optional<QString> title = std::nullopt);

struct SimScene {
    QList<SimDisplay> displays;
    QList<SimApplication> applications;
    QList<SimWindow> windows; // front to back

    // The shareable-content snapshot the backend reports for this scene.
    ShareableContent toContent(bool excludingDesktopWindows = true,
                               bool onScreenWindowsOnly = false) const;
    // The screen list a window system would report for this scene.
    QList<ScreenInfo> toScreens() const;

    const SimDisplay* display(quint32 displayID) const;
    const SimApplication* application(qint32 processID) const;
    SimWindow* window(quint32 windowID);
    const SimWindow* window(quint32 windowID) const;
    // Moves the window to the front of the stacking order; false when unknown.
    bool raise(quint32 windowID);
    // Removes the window; false when unknown.
    bool removeWindow(quint32 windowID);

    friend bool operator==(const SimScene&, const SimScene&) = default;
};

} // namespace vistrel
