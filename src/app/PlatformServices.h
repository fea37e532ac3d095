#pragma once

// The one place that picks the platform backend for the whole process:
//
//   x11          the real one; the default when Qt runs on xcb or an X display
//                is reachable
//   sim          a scripted demo desktop of a few coloured windows; forced
//                with VISTREL_BACKEND=sim
//   unavailable  nothing can be captured (no X display, e.g. a Wayland
//                session without XWayland): capture access reads as missing,
//                with the reason logged and offered through the help page
//
// VISTREL_BACKEND=x11 forces the real backend. Everything above this file
// only sees the ports.
//
// Threading: build on the main thread after QApplication exists.

#include "platform/CameraPort.h"
#include "platform/CaptureBackend.h"
#include "platform/GlobalShortcut.h"
#include "platform/ScreenCapturePermission.h"
#include "platform/ScreenProvider.h"
#include "platform/VideoPlane.h"
#include "platform/WindowSystem.h"

#include <QObject>
#include <QString>
#include <memory>
#include <optional>

namespace vistrel {

enum class PlatformBackendKind { x11, sim, unavailable };

QString caseName(PlatformBackendKind kind);

// What the environment asks for and what the session offers; kept apart from
// the process environment so that the choice itself is a plain function.
struct PlatformChoiceInputs {
    QString forcedBackend;  // VISTREL_BACKEND, empty when unset
    QString qtPlatformName; // QGuiApplication::platformName()
    // Why the X display ($DISPLAY) cannot be captured; absent when it can.
    std::optional<QString> x11MissingReason;

    static PlatformChoiceInputs fromEnvironment();
};

struct PlatformChoice {
    PlatformBackendKind kind = PlatformBackendKind::unavailable;
    // Why nothing can be captured (unavailable only), or a note about the choice.
    QString reason;

    friend bool operator==(const PlatformChoice&, const PlatformChoice&) = default;
};

PlatformChoice choosePlatformBackend(const PlatformChoiceInputs& inputs);

// The ports of the chosen backend. Members are destroyed in reverse order of
// declaration, so the streams' world (sim) outlives the backend.
struct PlatformServices {
    PlatformChoice choice;
    std::unique_ptr<QObject> world; // the sim backend's scripted desktop, else null
    std::unique_ptr<ScreenProvider> screens;
    std::unique_ptr<CaptureBackend> captureBackend;
    std::shared_ptr<ScreenCapturePermission> permission;
    std::shared_ptr<UrlOpener> urlOpener;
    std::unique_ptr<CameraPort> camera;
    // The real window system when Qt runs on X11, else a scripted one.
    std::unique_ptr<WindowSystem> windowSystem;
    // The panic key for the whole display when Qt runs on X11; a scripted
    // one (that works only inside Vistrel) otherwise.
    std::unique_ptr<GlobalShortcut> panicShortcut;
    // Frames drawn on the display server when Qt runs on X11; else null.
    std::unique_ptr<VideoPlaneFactory> videoPlanes;

    PlatformServices();
    ~PlatformServices();
    PlatformServices(PlatformServices&&) noexcept;
    PlatformServices& operator=(PlatformServices&&) noexcept;
};

// Builds the services of the given backend.
PlatformServices createPlatformServices(const PlatformChoice& choice);
// Chooses from the environment and builds.
PlatformServices createPlatformServices();

} // namespace vistrel
