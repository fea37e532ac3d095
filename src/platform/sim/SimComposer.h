#pragma once

// Frame composition of the scripted stream: the admission rules every capture
// backend must honour, applied to the scene's solid-colour windows.
//
// Admission, by filter form (windows are admitted by process and window id at
// frame time, so windows added after the filter was made follow their
// process's rule):
// - displayExcludingWindows: every window except the listed ones.
// - displayExcludingApplications: every window except those of the listed
//   processes and the listed windows themselves. (The filter builder puts the
//   block list's windows here, and they must stay hidden even when their
//   process is excluded too.) With a non-empty process list, a window without
//   a known owner is left out.
// - displayIncludingApplications: windows of the listed processes plus the
//   listed windows; desktop windows only when listed.
// Docks and panels (positive layer) need includeMenuBar. Off-screen windows
// are never drawn. The desktop colour is painted for the two excluding forms.

#include "platform/ContentFilter.h"
#include "platform/StreamConfiguration.h"
#include "platform/sim/SimScene.h"

#include <QImage>
#include <QSize>

namespace vistrel {

bool simAdmits(const ContentFilter& filter, const SimScene& scene, const SimWindow& window);
bool simDrawsDesktop(const ContentFilter& filter);

// Output pixels: the configured width and height, or the source rectangle at
// the display's pixel scale when either is 0. Never smaller than 1 x 1.
QSize simOutputSize(const SimScene& scene, const ContentFilter& filter,
                    const StreamConfiguration& configuration);

// One frame: the configured background colour, the desktop colour where the
// form shows the desktop, then the admitted windows back to front, clipped to
// the filter's display, cropped to sourceRect (display-local) and stretched
// to the output size. Format_ARGB32_Premultiplied.
QImage simComposeFrame(const SimScene& scene, const ContentFilter& filter,
                       const StreamConfiguration& configuration);

} // namespace vistrel
