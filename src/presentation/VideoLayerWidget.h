#pragma once

// A widget that shows captured frames through a display layer the output
// renderer can feed. The latest frame is painted aspect-fit (letter-boxed,
// never cropped or stretched) over nothing, so whatever the parent draws
// behind this widget (the canvas colour or image) shows in the bars and
// through transparent pixels of the frame.
//
// The layer is a child object of the widget: it goes away with the widget,
// and the renderer's weak reference to it goes null at the same moment.

#include "capture/DisplayLayer.h"
#include "platform/VideoPlane.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QRegion>
#include <QWidget>

class QTimer;

namespace vistrel {

class VideoPlaneView;

class VideoLayerWidget : public QWidget {
    Q_OBJECT

public:
    explicit VideoLayerWidget(QWidget* parent = nullptr);
    ~VideoLayerWidget() override;

    // The layer to register with the output renderer.
    DisplayLayer* displayLayer() const;

    // Where the current frame is drawn, in widget coordinates; empty without
    // a frame.
    QRectF pictureRect() const;

    // At most this many repaints a second (0: one per frame). Frames that
    // come faster wait for the next turn, and the newest of them is shown.
    void setMaximumFrameRate(int framesPerSecond);

    // Draws the frames on the display server, in a native window over this
    // widget, instead of painting them here. Call once the widget has its
    // top-level window; without planes it does nothing.
    void useVideoPlane(VideoPlaneFactory* planes);
    bool drawsOnPlane() const;
    // What lies under this widget (the parent's painting at its place), for
    // the plane to draw under the frames: an image of the widget's size in
    // device pixels.
    void setBackdrop(const QImage& image);
    // Where other widgets draw over this one: there the frames are painted
    // here even with a plane, so that what lies over them blends with them.
    void setOverdrawn(const QRegion& region);

    // The view pixels to redraw when `imageRegion` of a frame of `imageSize`
    // drawn smoothly scaled into `target` changed.
    static QRegion changedArea(const QRegion& imageRegion, QSize imageSize, const QRectF& target);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    // Repaints `area` now or, under a frame-rate cap, at the next turn.
    void requestRepaint(const QRegion& area);
    void showArea(const QRegion& area);
    void applyBackdrop();
    void presentWhole();

    class Layer;
    Layer* m_layer;
    int m_minimumPaintInterval = 0; // ms
    QElapsedTimer m_sinceLastPaint;
    QTimer* m_pendingRepaint = nullptr;
    QRegion m_pendingArea;
    QPointer<VideoPlaneView> m_plane;
    QRegion m_overdrawn;
    QImage m_backdrop;
};

} // namespace vistrel
