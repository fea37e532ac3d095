#pragma once

// Frame composition of the scripted stream: the admission rules every capture
// backend must honour, applied to the scene's solid-colour windows.
//
// Windows are admitted by the same rules as on a real display
// (WindowAdmission): per frame, so windows added after the filter was made
// follow their process's rule; a window whose owner names no application of
// the scene has no known owner and is never drawn. Off-screen windows are
// never drawn. The desktop colour is painted for the two excluding forms.

#include "platform/ContentFilter.h"
#include "platform/StreamConfiguration.h"
#include "platform/WindowAdmission.h"
#include "platform/sim/SimScene.h"

#include <QImage>
#include <QSize>

namespace vistrel {

// What admission knows of a scene window, and the admission for a frame of
// the scene (every window noted).
WindowFacts simWindowFacts(const SimScene& scene, const SimWindow& window);
WindowAdmission simAdmission(const SimScene& scene, const ContentFilter& filter);

// Output pixels: the configured width and height, or the source rectangle at
// the display's pixel scale when either is 0. Never smaller than 1 x 1.
QSize simOutputSize(const SimScene& scene, const ContentFilter& filter,
                    const StreamConfiguration& configuration);

// One frame: transparent, with the desktop colour where the
// form shows the desktop, then the admitted windows back to front, clipped to
// the filter's display, cropped to sourceRect (display-local) and stretched
// to the output size. Format_ARGB32_Premultiplied.
QImage simComposeFrame(const SimScene& scene, const ContentFilter& filter,
                       const StreamConfiguration& configuration);

} // namespace vistrel
