#pragma once

// A surface that shows captured frames, as the output renderer sees it. Views
// own their layer; the renderer only holds it weakly (QPointer), so a layer
// that goes away with its view simply drops out of the fan-out.
//
// Threading: main thread only.

#include "platform/SampleBuffer.h"

#include <QColor>
#include <QObject>

namespace vistrel {

// Rendering status. The values follow the platform's numbering, where 2 is
// the failed state.
enum class DisplayLayerStatus : int {
    unknown = 0,
    rendering = 1,
    failed = 2,
};

// How a frame is fitted into the layer's bounds.
enum class VideoGravity {
    resizeAspect,     // whole frame, letter-boxed; never cropped or stretched
    resizeAspectFill, // fills the bounds, cropping what sticks out
    resize,           // stretched to the bounds
};

class DisplayLayer : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~DisplayLayer() override = default;

    virtual DisplayLayerStatus status() const = 0;
    // Drops pending frames and clears the failed state; the picture stays.
    virtual void flush() = 0;
    // Shows the frame as the layer's picture. A frame the layer cannot draw
    // puts it into the failed state until the next flush.
    virtual void enqueueSampleBuffer(const SampleBuffer& buffer) = 0;
    // Flushes and removes the picture, so the view's background shows again.
    virtual void flushAndRemoveImage() = 0;
    virtual void setVideoGravity(VideoGravity gravity) = 0;
    // Fills the layer where no frame is drawn; the clear colour draws nothing.
    virtual void setBackgroundColor(const QColor& color) = 0;
    // A non-opaque layer lets whatever lies behind it show through its bars
    // and through transparent pixels of the frame.
    virtual void setOpaque(bool opaque) = 0;
};

} // namespace vistrel
