#pragma once

// What is shared and how: the policy, the display, the frame and content
// modes and the canvas. The live state, every preset and the state file each
// hold one; the camera overlay and the always-on-top flag are not part of it.

#include "model/OutputSettings.h"
#include "model/VisibilityPolicy.h"

#include <optional>

namespace vistrel {

struct ShareConfiguration {
    VisibilityPolicy policy;
    std::optional<quint32> selectedDisplayID;
    OutputFrameMode outputFrameMode = OutputFrameMode::screen;
    OutputContentMode outputContentMode = OutputContentMode::sanitized;
    CanvasBackgroundSelection canvasBackground;

    // The empty configuration: default policy, no display, screen frame,
    // sanitized content, black canvas without image.
    bool isEmpty() const { return *this == ShareConfiguration{}; }

    // Whether this stored configuration describes `live`: everything equal,
    // except that no stored display matches any selection, none included.
    bool matches(const ShareConfiguration& live) const;

    friend bool operator==(const ShareConfiguration&, const ShareConfiguration&) = default;
};
size_t qHash(const ShareConfiguration& configuration, size_t seed = 0) noexcept;

} // namespace vistrel
