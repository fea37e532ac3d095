#pragma once

// The "Vistrel Output" window: the surface the user shares in a meeting.
// Back to front it shows the canvas colour, the canvas image (scaled to fill,
// cropped by the window), the captured video laid out on the canvas's aspect
// ratio, the camera bubble on that picture, and, when the output view model
// says so, a notice; a thin decorative frame lies over everything.
//
// The window registers itself with the window registry as the output window,
// so its X11 window is excluded from every capture, and its video layer with
// the output renderer for as long as it lives.
//
// Coordinates: widget pixels, y down. Threading: main thread only. The view
// model, registry and renderer must outlive the window.

#include <QPixmap>
#include <QRectF>
#include <QSizeF>
#include <QWidget>

namespace vistrel {

class CameraPreviewView;
struct CameraOverlayConfiguration;
class OutputOverlay;
class OutputViewModel;
class VideoLayerWidget;
class WindowRegistry;

class OutputWindow : public QWidget {
    Q_OBJECT

public:
    static constexpr QSize defaultSize{1280, 780};

    OutputWindow(OutputViewModel& viewModel, WindowRegistry& windowRegistry,
                 QWidget* parent = nullptr);
    ~OutputWindow() override;

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

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void syncPresentation();
    void layoutChildren();

    OutputViewModel& m_viewModel;
    VideoLayerWidget* m_video;
    CameraPreviewView* m_cameraBubble;
    OutputOverlay* m_overlay;
    QPixmap m_scaledCanvasImage;
    qint64 m_scaledCanvasImageKey = 0;
};

} // namespace vistrel
