#pragma once

// Takes over one of the application's top-level windows (the control window
// or the output window) and keeps it configured and placed:
//
// - by kind: title, no title bar, moved by dragging its background, the
//   frame remembered under the registry's autosave name, registered with the
//   window registry, the window manager's state hints;
// - control window: a fixed 520-point width and the height the deck asks for
//   (at least 170, kept by its top edge), first shown centred 140 points above
//   the bottom of its display's visible area, kept above other windows while
//   "always on top" is on;
// - output window: the canvas's aspect ratio at the largest size inside the
//   4 % inset of its locked display, centred, or docked at the bottom-right
//   out of the user's way (still mapped, its contents readable by a meeting
//   application, below other windows and out of the taskbar); a move by the
//   user locks it to the display where it was dropped and re-centres it there
//   once the pointer buttons are released;
// - a close request hides the window through the registry, unless the
//   application is terminating.
//
// The controller is a child of its window and watches it through an event
// filter. Main thread only. Coordinates: global, y-down.

#include "coordination/Clock.h"
#include "platform/ScreenProvider.h"
#include "platform/WindowSystem.h"
#include "presentation/ManagedWindowKind.h"
#include "presentation/OutputPlacement.h"

#include <QObject>
#include <QPointer>
#include <QSizeF>
#include <functional>
#include <optional>

class QWidget;

namespace vistrel {

class DebouncedJob;
class WindowFrameStore;
class WindowRegistry;

// What the window's content asks of its placement; update() takes a new one
// whenever any of it changes.
struct WindowDescription {
    // The canvas size, for the output window.
    std::optional<QSizeF> contentAspectRatio = {};
    quint64 outputRecenterToken = 0;
    OutputWindowPresentation outputPresentation = OutputWindowPresentation::centered;
    bool isAlwaysOnTop = false;
    // The height the control deck asks for.
    std::optional<qreal> preferredSimpleWindowHeight = {};

    friend bool operator==(const WindowDescription&, const WindowDescription&) = default;
};

// The services every controller uses; they outlive the windows.
struct PlacementServices {
    WindowRegistry& registry;
    const ScreenProvider& screens;
    WindowSystem& windowSystem;
    WindowFrameStore& frames;
    // Whether the application is quitting: then close requests go ahead.
    std::function<bool()> isTerminating;
    Clock& clock = Clock::system();
};

class WindowPlacementController : public QObject {
    Q_OBJECT

public:
    // Configures `window` at once (flags, title) and takes it over when it is
    // first shown. `window` must be a top-level widget.
    WindowPlacementController(QWidget* window, ManagedWindowKind kind, PlacementServices services);
    ~WindowPlacementController() override;

    ManagedWindowKind kind() const { return m_kind; }
    // Takes the new description and, once the window was shown, applies it.
    void update(const WindowDescription& description);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void attach();
    void applyStateHints();
    void applyControlSize();
    void presentControlInitially();
    void resolveOutputLock();
    void applyOutputPlacement(bool force);
    void followManualMove();
    void recenterAfterManualMove();
    void setFrame(const QRect& frame);
    OutputPlacement::Input placementInput(bool force) const;
    QList<ScreenInfo> screens() const;
    std::optional<qsizetype> windowScreen(const QList<ScreenInfo>& screens) const;

    QPointer<QWidget> m_window;
    ManagedWindowKind m_kind;
    PlacementServices m_services;
    WindowDescription m_description;

    bool m_isAttached = false;
    bool m_hasPerformedInitialPresentation = false;
    OutputPlacement m_output;
    bool m_isTrackingManualMove = false;
    // Set while the window moves because this controller moved it; the
    // window system reports such moves later, so it stays set for a while.
    bool m_isApplyingProgrammaticChange = false;
    DebouncedJob* m_endProgrammaticChange;
    DebouncedJob* m_manualRecenter;
    DebouncedJob* m_saveFrame;
};

} // namespace vistrel
