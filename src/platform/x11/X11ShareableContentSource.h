#pragma once

// The shareable-content snapshot of an X11 display: displays from RandR
// monitors, windows in stacking order (front to back), applications per
// owner process.
//
// Display ids as X11Monitors.h explains.
// Window frames are the window manager's frame (decoration included), since
// that is what the user sees of the window; window ids are client ids.
//
// Threading: snapshot() runs on any thread with a connection of its own;
// fetch() runs it on the thread pool and answers on the owner's thread.
// Coordinates: global, y-down; one point is one pixel.

#include "platform/CaptureBackend.h"
#include "platform/PlatformError.h"
#include "platform/ShareableContent.h"

#include <QByteArray>
#include <QObject>
#include <optional>
#include <variant>

namespace vistrel::x11 {

class X11ShareableContentSource : public QObject {
    Q_OBJECT
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11ShareableContentSource(QByteArray displayName = {}, QObject* parent = nullptr);

    // Main thread. The completion runs on this object's thread on a later
    // turn, with exactly one of content and error; never after destruction.
    void fetch(bool excludingDesktopWindows, bool onScreenWindowsOnly,
               CaptureBackend::ContentCompletion completion);

    // Blocking; any thread. Failures (no display, lost connection, missing
    // RandR 1.5) are returned as errors with a sentence for the user.
    static std::variant<ShareableContent, PlatformError>
    snapshot(const QByteArray& displayName, bool excludingDesktopWindows, bool onScreenWindowsOnly);

    static inline const QString errorDomain = QStringLiteral("X11ShareableContent");

private:
    QByteArray m_displayName;
};

} // namespace vistrel::x11
