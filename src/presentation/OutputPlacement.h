#pragma once

// Where the output window belongs, decided without touching it: the display it
// is locked to, whether the user chose that display by moving the window, and
// what was last applied, so that a placement only moves the window when
// something it depends on changed.
//
// The caller reads the window and the screens into an Input, writes a returned
// frame to the window (marking the change as its own, so the move it causes is
// not taken for the user's) and writes a returned lock id to the window
// registry. Whenever the window's description changes: resolveLock, then
// place without force; once a manual move has ended: place with force.
// Coordinates: global, whole points, y-down, as in PlacementGeometry.h.

#include "platform/ScreenProvider.h"
#include "presentation/ManagedWindowKind.h"

#include <QList>
#include <QRect>
#include <QSizeF>
#include <optional>

namespace vistrel {

struct OutputPlacement {
    struct Input {
        QRect frame = {}; // the window's current geometry
        QList<ScreenInfo> screens = {};
        // Index in `screens` of the screen the window system puts the window
        // on (QWidget::screen()); it may differ from screenContaining(frame).
        std::optional<qsizetype> windowScreen = {};
        // The registry's outputScreenLockID and initialControlScreenID.
        std::optional<quint32> registryLockID = {};
        std::optional<quint32> initialControlScreenID = {};
        std::optional<QSizeF> aspectRatio = {}; // the canvas size
        quint64 recenterToken = 0;
        OutputWindowPresentation presentation = OutputWindowPresentation::centered;
        // Place even when nothing changed: the end of a manual move.
        bool force = false;
    };

    // When neither the registry nor this state has a lock yet: locks to the
    // control window's first display, else to the display holding the window.
    // Returns the id for the registry's lock, or nothing to write.
    std::optional<quint32> resolveLock(const Input& input);

    // The frame to give the window, or nothing when it stays as it is. Always
    // records the token and presentation as applied.
    std::optional<QRect> place(const Input& input);

    // The user moved the window (during a drag or at its end): from now on the
    // window follows the user, not display changes, and locks to the display
    // that holds it. Returns the id for the registry's lock; nothing when that
    // display cannot be identified, which keeps the earlier lock.
    std::optional<quint32> manualMove(const QRect& frame, const QList<ScreenInfo>& screens,
                                      std::optional<qsizetype> windowScreen);

    std::optional<quint32> lockedScreenID = {};
    bool hasManualScreenOverride = false;
    std::optional<quint64> lastAppliedRecenterToken = {};
    std::optional<OutputWindowPresentation> lastAppliedPresentation = {};

    friend bool operator==(const OutputPlacement&, const OutputPlacement&) = default;
};

} // namespace vistrel
