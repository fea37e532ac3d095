#pragma once

// The shareable-content snapshot of an X11 display: displays from RandR
// monitors, windows in stacking order (front to back), applications per
// owner process.
//
// Display ids as X11Monitors.h explains.
// Window frames are the window manager's frame (decoration included), since
// that is what the user sees of the window; window ids are client ids.
//
// Threading: fetch() runs a pass on the thread pool and answers on the
// owner's thread. Passes share one connection and one cache of the desktop
// (X11DiscoveryCache), so they are serialised: a pass waits for the one
// before it. The cache outlives this object until a running pass ends.
// snapshot() is a single pass on a connection of its own, on any thread.
// Coordinates: global, y-down; one point is one pixel.

#include "platform/CaptureBackend.h"
#include "platform/PlatformError.h"
#include "platform/ShareableContent.h"

#include <QByteArray>
#include <QObject>
#include <memory>
#include <optional>
#include <variant>

namespace vistrel::x11 {

struct X11Desktop;

class X11ShareableContentSource : public QObject {
    Q_OBJECT
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11ShareableContentSource(QByteArray displayName = {}, QObject* parent = nullptr);

    // Main thread. The completion runs on this object's thread on a later
    // turn, with exactly one of content and error; never after destruction.
    void fetch(bool excludingDesktopWindows, bool onScreenWindowsOnly,
               CaptureBackend::ContentCompletion completion);

    // How many windows the latest finished pass read from the server; 0
    // when nothing had changed since the pass before. Any thread.
    int windowsReadByLastPass() const;

    // Blocking; any thread. Failures (no display, lost connection, missing
    // RandR 1.5) are returned as errors with a sentence for the user.
    static std::variant<ShareableContent, PlatformError>
    snapshot(const QByteArray& displayName, bool excludingDesktopWindows, bool onScreenWindowsOnly);

    static inline const QString errorDomain = QStringLiteral("X11ShareableContent");

    // The snapshot as published, from what a pass read: one application per
    // process, named by its front-most ordinary window.
    static ShareableContent contentOf(const X11Desktop& desktop, bool excludingDesktopWindows,
                                      bool onScreenWindowsOnly);

private:
    struct Passes;
    std::shared_ptr<Passes> m_passes;
};

} // namespace vistrel::x11
