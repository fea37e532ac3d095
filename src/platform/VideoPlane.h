#pragma once

// Shows captured frames in a native window by drawing on the display
// server: the frame is scaled there, so when the stream keeps its frames on
// the server (SampleBuffer::server) no pixel of it passes through this
// process. Qt does not paint such a window; the plane composes, into a
// buffer of its own and then onto the window, what lies under the frame
// (the backdrop) and the frame over it, so the window never shows a
// half-drawn picture.
//
// Coordinates: window pixels, y down. Threading: main thread only.

#include "platform/SampleBuffer.h"

#include <QColor>
#include <QImage>
#include <QRectF>
#include <QRegion>
#include <QSize>
#include <memory>

namespace vistrel {

class VideoPlane {
public:
    virtual ~VideoPlane() = default;

    // The window to draw into and its size; 0 lets go of the window. False
    // when the server refused what drawing into it needs.
    virtual bool setWindow(quintptr window, QSize size) = 0;
    // What shows under the frame and where there is none: an image of the
    // window's size (drawn as it is), or, when null, `color`.
    virtual void setBackdrop(const QImage& image, const QColor& color) = 0;
    // Shows `frame` scaled into `target`, redrawing `area` of the window.
    virtual void present(const SampleBuffer& frame, const QRectF& target, const QRegion& area) = 0;
    // Redraws `area` from what the plane holds (the window was exposed).
    virtual void redraw(const QRegion& area) = 0;
    // Lets go of the frame; the backdrop shows alone.
    virtual void clear() = 0;
};

// Makes planes that draw on one display server connection.
class VideoPlaneFactory {
public:
    virtual ~VideoPlaneFactory() = default;
    virtual std::unique_ptr<VideoPlane> createPlane() = 0;
};

} // namespace vistrel
