#pragma once

// Settings of a capture stream. Field defaults are the backend's defaults for
// settings a caller leaves alone.

#include <QColor>
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

// Frames are always 32-bit premultiplied BGRA.
struct StreamConfiguration {
    int width = 0;  // output pixels
    int height = 0; // output pixels
    // Frames and cursor polls are at least this far apart.
    MediaTime minimumFrameInterval{1, 60};
    bool showsCursor = true;
    // Fills what no admitted window covers (the desktop background is drawn
    // instead for the full-desktop and block-list forms when opaque).
    QColor backgroundColor = QColor(0, 0, 0, 255);
    int queueDepth = 3; // frames in flight at most
    // Display-local, points, y-down; absent means the whole display.
    std::optional<QRectF> sourceRect{};

    friend bool operator==(const StreamConfiguration&, const StreamConfiguration&) = default;
};

} // namespace vistrel
