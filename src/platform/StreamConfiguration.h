#pragma once

// Settings of a capture stream. Field defaults are the backend's defaults for
// settings a caller leaves alone.

#include <QColor>
#include <QRectF>
#include <QString>
#include <optional>

namespace vistrel {

// A rational time: value / timescale seconds.
struct MediaTime {
    qint64 value = 0;
    qint32 timescale = 1;

    double seconds() const { return timescale ? double(value) / timescale : 0.0; }
    friend bool operator==(const MediaTime&, const MediaTime&) = default;
};

// Four-character code of 32-bit BGRA, the only pixel format streams produce.
inline constexpr quint32 pixelFormatBGRA = 0x42475241; // 'BGRA'

struct StreamConfiguration {
    int width = 0;  // output pixels
    int height = 0; // output pixels
    MediaTime minimumFrameInterval{1, 60};
    quint32 pixelFormat = pixelFormatBGRA;
    QString streamName;
    bool showsCursor = true;
    // Fills what no admitted window covers (the desktop background is drawn
    // instead for the full-desktop and block-list forms when opaque).
    QColor backgroundColor = QColor(0, 0, 0, 255);
    int queueDepth = 3; // frames in flight at most
    bool capturesAudio = false;
    bool excludesCurrentProcessAudio = false;
    int captureResolution = 0;
    bool shouldBeOpaque = false;
    bool scalesToFit = false;
    bool preservesAspectRatio = true;
    bool ignoreShadowsDisplay = false;
    bool includeChildWindows = false;
    // Display-local, points, y-down; absent means the whole display.
    std::optional<QRectF> sourceRect;

    friend bool operator==(const StreamConfiguration&, const StreamConfiguration&) = default;
};

} // namespace vistrel
