#pragma once

// Settings of a capture stream. Field defaults are the backend's defaults for
// settings a caller leaves alone.

#include <QRectF>
#include <optional>

namespace vistrel {

// A rational time: value / timescale seconds.
struct MediaTime {
    qint64 value = 0;
    qint32 timescale = 1;

    double seconds() const { return timescale ? double(value) / timescale : 0.0; }
    friend bool operator==(const MediaTime&, const MediaTime&) = default;
};

// Frames are always 32-bit premultiplied BGRA. What no admitted window covers
// is transparent, or the desktop background in the forms that draw it
// (WindowAdmission::drawsDesktop); the canvas behind is the renderer's.
struct StreamConfiguration {
    int width = 0;  // output pixels
    int height = 0; // output pixels
    // Frames and cursor polls are at least this far apart.
    MediaTime minimumFrameInterval{1, 60};
    bool showsCursor = true;
    int queueDepth = 3; // frames in flight at most
    // Display-local, points, y-down; absent means the whole display.
    std::optional<QRectF> sourceRect{};

    friend bool operator==(const StreamConfiguration&, const StreamConfiguration&) = default;
};

} // namespace vistrel
