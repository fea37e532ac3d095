#include "presentation/OutputStage.h"

#include "capture/OutputRenderer.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/OutputViewModel.h"
#include "model/OutputSettings.h"
#include "presentation/CameraPreviewView.h"
#include "presentation/VideoLayerWidget.h"

#include <QGraphicsDropShadowEffect>
#include <QPainter>
#include <QResizeEvent>

namespace vistrel {

namespace {

// The bubble's side before sizeScale: this share of the picture's shorter
// side, but never less than the minimum.
constexpr qreal bubbleBaseShare = 0.12;
constexpr qreal bubbleMinimumBase = 80;

// The bubble layout reads a position's row and column from its value.
static_assert([] {
    for (size_t i = 0; i < allCameraPositions.size(); ++i) {
        if (static_cast<size_t>(allCameraPositions[i]) != i)
            return false;
    }
    return true;
}());

} // namespace

OutputStage::OutputStage(OutputViewModel& viewModel, QWidget* parent)
    : QWidget(parent), m_viewModel(viewModel), m_video(new VideoLayerWidget(this)),
      m_cameraBubble(new CameraPreviewView(this))
{
    // Children stack in creation order: video, then the camera bubble.
    setAttribute(Qt::WA_OpaquePaintEvent);
    // Clicks belong to the window the stage fills.
    setAttribute(Qt::WA_TransparentForMouseEvents);

    // The layer stays registered while the stage lives and is only hidden
    // without a live frame: streams send a frame only when the picture
    // changes, so a layer that appeared after the first frame could wait for
    // a long time to show anything. A reset clears its picture, so a stale
    // frame is never shown.
    m_viewModel.renderer().addDisplayLayer(m_video->displayLayer());
    m_video->setVisible(false);
    m_video->useVideoPlane(m_viewModel.renderer().videoPlanes());

    // The shadow follows the bubble's shape, since the preview is transparent
    // outside it.
    auto* shadow = new QGraphicsDropShadowEffect(m_cameraBubble);
    shadow->setColor(QColor::fromRgbF(0, 0, 0, 0.5f));
    shadow->setBlurRadius(8);
    shadow->setOffset(0, 4);
    m_cameraBubble->setGraphicsEffect(shadow);
    m_cameraBubble->setVisible(false);

    connect(&m_viewModel, &OutputViewModel::presentationChanged, this,
            &OutputStage::syncPresentation);
    connect(&m_viewModel.cameraSessionManager(), &CameraSessionManager::captureSessionChanged, this,
            &OutputStage::syncPresentation, Qt::QueuedConnection);
    syncPresentation();
}

OutputStage::~OutputStage()
{
    m_viewModel.renderer().removeDisplayLayer(m_video->displayLayer());
}

QRectF OutputStage::videoRect(const QSizeF& canvasSize, const QRectF& space)
{
    if (canvasSize.width() <= 0 || canvasSize.height() <= 0 || space.width() <= 0 ||
        space.height() <= 0)
        return space;
    const qreal ratio = canvasSize.width() / canvasSize.height();
    QSizeF size;
    if (space.width() / space.height() < ratio)
        size = QSizeF(space.width(), space.width() / ratio);
    else
        size = QSizeF(space.height() * ratio, space.height());
    QRectF result(QPointF(), size);
    result.moveCenter(space.center());
    return result;
}

QRectF OutputStage::cameraBubbleRect(const QSizeF& canvasSize, const QRectF& space,
                                     const CameraOverlayConfiguration& configuration)
{
    const QRectF video = videoRect(canvasSize, space);
    const qreal base =
        std::max(bubbleBaseShare * std::min(video.width(), video.height()), bubbleMinimumBase);
    const qreal side = configuration.sizeScale * base;
    const qreal half = side / 2;
    const qreal left = video.left() + half + configuration.marginLeft;
    const qreal right = video.right() - half - configuration.marginRight;
    const qreal top = video.top() + half + configuration.marginTop;
    const qreal bottom = video.bottom() - half - configuration.marginBottom;
    // The positions run row by row through a 3 x 3 grid; the middle column
    // and row sit on the picture's centre line, whatever the margins.
    const int index = static_cast<int>(configuration.position);
    const int column = index % 3;
    const int row = index / 3;
    const qreal x = column == 0 ? left : column == 2 ? right : video.center().x();
    const qreal y = row == 0 ? top : row == 2 ? bottom : video.center().y();
    return QRectF(x - half, y - half, side, side);
}

QRectF OutputStage::fillRect(const QSizeF& imageSize, const QRectF& space)
{
    if (imageSize.width() <= 0 || imageSize.height() <= 0)
        return space;
    const qreal scale =
        std::max(space.width() / imageSize.width(), space.height() / imageSize.height());
    QRectF result(QPointF(), imageSize * scale);
    result.moveCenter(space.center());
    return result;
}

void OutputStage::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    paintCanvas(painter);
}

void OutputStage::paintCanvas(QPainter& painter)
{
    painter.fillRect(rect(), m_viewModel.canvasBackgroundColor());
    const QImage image = m_viewModel.canvasBackgroundImage();
    if (image.isNull()) {
        m_scaledCanvasImage = QPixmap();
        return;
    }
    // Every video frame repaints the window behind the video, so the image
    // is scaled once per size rather than on every paint.
    const QRect target = fillRect(image.size(), rect()).toAlignedRect();
    if (m_scaledCanvasImage.isNull() || m_scaledCanvasImageKey != image.cacheKey() ||
        m_scaledCanvasImage.size() != target.size()) {
        m_scaledCanvasImage = QPixmap::fromImage(
            image.scaled(target.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
        m_scaledCanvasImageKey = image.cacheKey();
    }
    painter.drawPixmap(target.topLeft(), m_scaledCanvasImage);
}

void OutputStage::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    layoutChildren();
}

void OutputStage::syncPresentation()
{
    m_video->setVisible(m_viewModel.hasLiveFrame());
    const CameraOverlayConfiguration& camera = m_viewModel.cameraOverlay();
    CameraSession* session = m_viewModel.cameraSessionManager().captureSession();
    const bool showsBubble = m_viewModel.showsCameraOverlay() && session;
    m_cameraBubble->setSession(showsBubble ? session : nullptr);
    m_cameraBubble->setShape(camera.shape);
    m_cameraBubble->setMirrored(camera.isMirrored);
    m_cameraBubble->setVisible(showsBubble);
    layoutChildren();
    update();
    Q_EMIT presentationSynced();
}

void OutputStage::layoutChildren()
{
    m_video->setGeometry(videoRect(m_viewModel.canvasSize(), rect()).toAlignedRect());
    // Rounded as a whole so the bubble stays square.
    const QRectF bubble =
        cameraBubbleRect(m_viewModel.canvasSize(), rect(), m_viewModel.cameraOverlay());
    m_cameraBubble->setGeometry(qRound(bubble.x()), qRound(bubble.y()), qRound(bubble.width()),
                                qRound(bubble.width()));
    syncPlane();
}

void OutputStage::setOverdrawn(const QRegion& region)
{
    m_hostOverdrawn = region;
    syncPlane();
}

void OutputStage::syncPlane()
{
    if (!m_video->drawsOnPlane())
        return;
    QRegion over = m_hostOverdrawn;
    if (m_cameraBubble->isVisibleTo(this)) {
        // The bubble's shadow reaches past it.
        constexpr int shadowReach = 12;
        over += m_cameraBubble->geometry().adjusted(-shadowReach, -shadowReach, shadowReach,
                                                    shadowReach);
    }
    const QRect video = m_video->geometry();
    m_video->setOverdrawn(over.translated(-video.topLeft()) & QRect(QPoint(0, 0), video.size()));

    const QRgb color = m_viewModel.canvasBackgroundColor().rgba();
    const qint64 imageKey = m_viewModel.canvasBackgroundImage().cacheKey();
    if (video.isEmpty() || (video == m_backdropRect && size() == m_backdropStageSize &&
                            color == m_backdropColor && imageKey == m_backdropImageKey))
        return;
    m_backdropRect = video;
    m_backdropStageSize = size();
    m_backdropColor = color;
    m_backdropImageKey = imageKey;
    // In the plane's device pixels.
    const qreal ratio = m_video->devicePixelRatioF();
    QImage backdrop(video.size() * ratio, QImage::Format_ARGB32_Premultiplied);
    backdrop.setDevicePixelRatio(ratio);
    QPainter painter(&backdrop);
    painter.translate(-video.topLeft());
    paintCanvas(painter);
    painter.end();
    m_video->setBackdrop(backdrop);
}

} // namespace vistrel
