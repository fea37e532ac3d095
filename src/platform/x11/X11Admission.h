#pragma once

// Which windows a content filter lets into a frame. Pure rules, decided per
// frame from what the compositor knows of each top-level window, so that a
// window appearing between two discovery passes already follows its
// process's rule.

#include "platform/ContentFilter.h"

#include <optional>

namespace vistrel::x11 {

enum class WindowKind {
    normal,  // normal windows, dialogs, menus, tooltips, override-redirect
    dock,    // docks, panels and other desktop bars
    desktop, // the desktop itself (icons, wallpaper window)
};

struct AdmissionFacts {
    quint32 clientWindow = 0;       // client id, not the window manager's frame
    std::optional<qint32> ownerPid; // absent when no owner could be determined
    WindowKind kind = WindowKind::normal;
};

// Rules, by filter form:
// - displayExcludingWindows: every window except the listed ones.
// - displayExcludingApplications: every window except those of the listed
//   processes and the listed windows.
// - displayIncludingApplications: windows of the listed processes plus the
//   listed windows; the desktop is never drawn.
// A window whose owner is unknown is left out whenever the rule depends on
// the owner (allow list; exclusion by process with a non-empty list).
// Docks and panels are admitted when includeMenuBar is set, unless excluded
// by id or process.
bool admits(const ContentFilter& filter, const AdmissionFacts& facts);

// True when the form draws the desktop background behind the windows.
bool drawsDesktopBackground(const ContentFilter& filter);

} // namespace vistrel::x11
