#pragma once

// Fans every accepted frame out to all display layers that currently show the
// output (the output window and the preview panel), and publishes whether a
// frame has been shown since the last reset.
//
// Threading: main thread only; the capture engine moves frames here first.

#include "capture/DisplayLayer.h"
#include "platform/SampleBuffer.h"
#include "platform/VideoPlane.h"

#include <QList>
#include <QObject>
#include <QPointer>

namespace vistrel {

class OutputRenderer : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hasDisplayedFrame READ hasDisplayedFrame NOTIFY hasDisplayedFrameChanged)

public:
    // `videoPlanes`: how views draw frames on the display server, when the
    // platform can (it must outlive the renderer); null: views paint them.
    explicit OutputRenderer(VideoPlaneFactory* videoPlanes = nullptr, QObject* parent = nullptr);
    ~OutputRenderer() override;

    VideoPlaneFactory* videoPlanes() const { return m_videoPlanes; }

    bool hasDisplayedFrame() const { return m_hasDisplayedFrame; }

    // Registers a layer (again: one entry per layer) and configures it for
    // letter-boxed frames on a clear, non-opaque background.
    void addDisplayLayer(DisplayLayer* layer);
    void removeDisplayLayer(DisplayLayer* layer);

    // Shows the frame on every live layer. Without a layer the frame is
    // dropped and hasDisplayedFrame stays as it is.
    void enqueue(const SampleBuffer& buffer);

    // Removes the picture from every layer; hasDisplayedFrame is published as
    // false even when it already was.
    void reset();

    // The registered entries as stored, dead ones included until the next
    // operation prunes them.
    QList<QPointer<DisplayLayer>> displayLayers() const;

Q_SIGNALS:
    void hasDisplayedFrameChanged(bool hasDisplayedFrame);

private:
    struct WeakDisplayLayer {
        QPointer<DisplayLayer> layer;
    };

    void prune();
    void removeEntries(const DisplayLayer* layer);

    VideoPlaneFactory* m_videoPlanes;
    bool m_hasDisplayedFrame = false;
    QList<WeakDisplayLayer> m_displayLayers;
};

} // namespace vistrel
