#pragma once

#include <QImage>
#include <QRegion>
#include <optional>

namespace vistrel {

// Frame status values a stream may attach to a sample buffer.
enum class FrameStatus : int {
    complete = 0,
    idle = 1,
    blank = 2,
    suspended = 3,
    started = 4,
    stopped = 5,
};

enum class SampleOutputType : int { screen = 0, audio = 1 };

// What changed since an earlier frame of the same stream: outside `region`
// (image pixels) this frame equals the one presented at
// `sincePresentationTimeNs`. A view that shows exactly that frame may redraw
// only the region; any other view redraws everything.
struct FrameChange {
    qint64 sincePresentationTimeNs = 0;
    QRegion region;

    friend bool operator==(const FrameChange&, const FrameChange&) = default;
};

// The frame's pixels kept on the display server as a pixmap, so a view on
// the same server can draw them without their passing through this process.
// `set` tells the pixmaps of different buffer sets apart, since the server
// may hand a freed pixmap's id out again.
struct ServerFrame {
    quint32 pixmap = 0; // 0: the frame is only in client memory
    quint64 set = 0;
    bool opaque = false; // no pixel of the frame is transparent

    friend bool operator==(const ServerFrame&, const ServerFrame&) = default;
};

// One captured frame. The image is BGRA (QImage::Format_ARGB32_Premultiplied
// on little-endian hosts) and may share its pixels with a stream's buffer
// pool: copies are cheap, and the pool gets the buffer back when the last
// copy goes away.
struct SampleBuffer {
    QImage image;
    bool dataReady = false;
    // The raw status attachment; absent when the stream attached none.
    std::optional<qint64> frameStatus;
    qint64 presentationTimeNs = 0; // monotonic clock
    // Absent: treat the whole frame as new.
    std::optional<FrameChange> change;
    // Holds the same pixels as `image` for as long as a copy of `image` lives.
    ServerFrame server;

    friend bool operator==(const SampleBuffer& a, const SampleBuffer& b)
    {
        return a.image == b.image && a.dataReady == b.dataReady && a.frameStatus == b.frameStatus &&
               a.presentationTimeNs == b.presentationTimeNs && a.change == b.change &&
               a.server == b.server;
    }
};

} // namespace vistrel
