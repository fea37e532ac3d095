#pragma once

// The shared picture as the output window and the preview panel draw it,
// back to front: the canvas colour, the canvas image (scaled to fill,
// cropped by the widget), the captured video laid out on the canvas's aspect
// ratio, and the camera bubble on that picture. Each stage registers its own
// video layer with the output renderer for as long as it lives.
//
// Coordinates: widget pixels, y down. Threading: main thread only. The view
// model must outlive the stage.

#include <QPixmap>
#include <QRectF>
#include <QRegion>
#include <QSizeF>
#include <QWidget>

class QPainter;

namespace vistrel {

class CameraPreviewView;
struct CameraOverlayConfiguration;
class OutputViewModel;
class VideoLayerWidget;

class OutputStage : public QWidget {
    Q_OBJECT

public:
    OutputStage(OutputViewModel& viewModel, QWidget* parent);
    ~OutputStage() override;

    // The captured picture, on the canvas's aspect-fit rectangle; visible only
    // while the view model has a live frame.
    VideoLayerWidget* videoWidget() const { return m_video; }
    // The camera picture; visible only while the view model shows the camera
    // overlay and the camera has a session.
    CameraPreviewView* cameraBubble() const { return m_cameraBubble; }

    // The largest rectangle of the canvas's aspect ratio centred in `space`;
    // the whole space when either size is empty.
    static QRectF videoRect(const QSizeF& canvasSize, const QRectF& space);
    // `imageSize` scaled to cover `space` while keeping its aspect ratio,
    // centred (the overflow lies outside `space`).
    static QRectF fillRect(const QSizeF& imageSize, const QRectF& space);
    // The camera bubble's square in `space`: sizeScale times 12 % of the
    // picture's (videoRect's) shorter side, but at least sizeScale x 80,
    // placed by position and margins on the picture rather than the space.
    static QRectF cameraBubbleRect(const QSizeF& canvasSize, const QRectF& space,
                                   const CameraOverlayConfiguration& configuration);

    // Where the host window draws over the stage (stage pixels): the video
    // there is painted by Qt, so that it blends with what lies over it.
    void setOverdrawn(const QRegion& region);

Q_SIGNALS:
    // After the stage followed the view model (and repainted).
    void presentationSynced();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void syncPresentation();
    void layoutChildren();
    void paintCanvas(QPainter& painter);
    // Tells a video plane what lies under and over the video.
    void syncPlane();

    OutputViewModel& m_viewModel;
    VideoLayerWidget* m_video;
    CameraPreviewView* m_cameraBubble;
    QPixmap m_scaledCanvasImage;
    qint64 m_scaledCanvasImageKey = 0;
    QRegion m_hostOverdrawn;
    // What the plane was last given to draw under the video.
    QRect m_backdropRect;
    QSize m_backdropStageSize;
    QRgb m_backdropColor = 0;
    qint64 m_backdropImageKey = 0;
};

} // namespace vistrel
