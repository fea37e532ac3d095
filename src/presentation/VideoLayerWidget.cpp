#include "presentation/VideoLayerWidget.h"

#include "presentation/VideoPlaneView.h"

#include <QPaintEvent>
#include <QPainter>
#include <QTimer>
#include <QtMath>

namespace vistrel {

// The display layer of one VideoLayerWidget: keeps the latest frame (sharing
// its pixels with the stream's buffer) and asks the widget to repaint only
// what changed.
class VideoLayerWidget::Layer final : public DisplayLayer {
public:
    explicit Layer(VideoLayerWidget* view) : DisplayLayer(view), m_view(view) {}

    DisplayLayerStatus status() const override { return m_status; }

    void flush() override { m_status = DisplayLayerStatus::unknown; }

    void enqueueSampleBuffer(const SampleBuffer& buffer) override
    {
        if (buffer.image.isNull()) {
            m_status = DisplayLayerStatus::failed;
            return;
        }
        const QRect before = m_view->pictureRect().toAlignedRect();
        const QSize previousSize = m_image.size();
        const qint64 previousFrame = m_presentedAt;
        m_frame = buffer;
        m_image = buffer.image;
        m_presentedAt = buffer.presentationTimeNs;
        // Streams deliver premultiplied BGRA; anything else is converted once
        // here rather than on every paint.
        if (m_image.format() != QImage::Format_ARGB32_Premultiplied &&
            m_image.format() != QImage::Format_RGB32)
            m_image = m_image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        m_status = DisplayLayerStatus::rendering;
        const QRect after = m_view->pictureRect().toAlignedRect();
        // Only a frame that builds on the one on screen, drawn in the same
        // place, may be redrawn in part.
        const bool buildsOnShown = buffer.change && previousFrame != 0 &&
                                   buffer.change->sincePresentationTimeNs == previousFrame &&
                                   previousSize == m_image.size() && before == after;
        if (buildsOnShown)
            m_view->requestRepaint(
                changedArea(buffer.change->region, m_image.size(), m_view->pictureRect()));
        else
            m_view->requestRepaint(before.united(after));
    }

    void flushAndRemoveImage() override
    {
        m_status = DisplayLayerStatus::unknown;
        m_presentedAt = 0;
        if (m_image.isNull())
            return;
        const QRect before = m_view->pictureRect().toAlignedRect();
        m_frame = SampleBuffer();
        m_image = QImage();
        if (m_view->drawsOnPlane())
            m_view->m_plane->clear();
        m_view->update(before);
    }

    void setVideoGravity(VideoGravity gravity) override
    {
        if (m_gravity == gravity)
            return;
        m_gravity = gravity;
        m_view->update();
        m_view->presentWhole();
    }

    void setBackgroundColor(const QColor& color) override
    {
        if (m_backgroundColor == color)
            return;
        m_backgroundColor = color;
        m_view->update();
        m_view->applyBackdrop();
    }

    void setOpaque(bool opaque) override
    {
        if (m_opaque == opaque)
            return;
        m_opaque = opaque;
        // An opaque widget paints every pixel itself, so Qt need not paint
        // the parent behind it first.
        m_view->setAttribute(Qt::WA_OpaquePaintEvent, opaque);
        m_view->update();
        m_view->applyBackdrop();
    }

    VideoLayerWidget* m_view;
    SampleBuffer m_frame;     // the frame shown, as the stream sent it
    QImage m_image;           // its picture, in a format the painter draws fast
    qint64 m_presentedAt = 0; // the shown frame's presentation time; 0: none
    DisplayLayerStatus m_status = DisplayLayerStatus::unknown;
    VideoGravity m_gravity = VideoGravity::resizeAspect;
    QColor m_backgroundColor = Qt::transparent;
    bool m_opaque = false;
};

VideoLayerWidget::VideoLayerWidget(QWidget* parent) : QWidget(parent), m_layer(new Layer(this))
{
    // Frames are not input: clicks go to whatever lies behind the picture.
    setAttribute(Qt::WA_TransparentForMouseEvents);
    // Never fill with the palette, not even when drawn on its own (grabbed,
    // or as a window): the bars stay clear and the canvas behind shows.
    setAttribute(Qt::WA_NoSystemBackground);
}

VideoLayerWidget::~VideoLayerWidget() = default;

DisplayLayer* VideoLayerWidget::displayLayer() const
{
    return m_layer;
}

QRectF VideoLayerWidget::pictureRect() const
{
    const QImage& image = m_layer->m_image;
    if (image.isNull() || width() <= 0 || height() <= 0)
        return {};
    const QSizeF bounds = size();
    switch (m_layer->m_gravity) {
    case VideoGravity::resize:
        return QRectF(QPointF(0, 0), bounds);
    case VideoGravity::resizeAspect:
    case VideoGravity::resizeAspectFill: {
        const QSizeF fitted = QSizeF(image.size())
                                  .scaled(bounds, m_layer->m_gravity == VideoGravity::resizeAspect
                                                      ? Qt::KeepAspectRatio
                                                      : Qt::KeepAspectRatioByExpanding);
        return QRectF(
            QPointF((bounds.width() - fitted.width()) / 2, (bounds.height() - fitted.height()) / 2),
            fitted);
    }
    }
    return {};
}

QRegion VideoLayerWidget::changedArea(const QRegion& imageRegion, QSize imageSize,
                                      const QRectF& target)
{
    if (imageSize.isEmpty() || target.isEmpty())
        return {};
    const QRect bounds = target.toAlignedRect();
    // Too many pieces cost more to clip and flush than the pixels they spare.
    constexpr int maximumPieces = 32;
    if (imageRegion.rectCount() > maximumPieces)
        return changedArea(QRegion(imageRegion.boundingRect()), imageSize, target);
    const qreal sx = target.width() / imageSize.width();
    const qreal sy = target.height() / imageSize.height();
    // Scaled down far, the painter filters the frame by another method
    // whose pieces do not join up; there only whole lines are redrawn.
    const bool wholeLines = sx < 0.5 || sy < 0.5;
    QRegion area;
    for (const QRect& piece : imageRegion) {
        // Smooth scaling blends each view pixel from its neighbours in the
        // image, so a changed image pixel reaches one pixel further on each
        // side, and rounding out takes one more. A redraw that starts a line
        // in the middle rounds a level or two differently from a whole
        // redraw, which no one can see; redrawing only the changed pixels
        // instead of whole lines saves most of the work.
        const qreal top = target.y() + (piece.y() - 1) * sy;
        const qreal bottom = target.y() + (piece.y() + piece.height() + 1) * sy;
        const qreal left = target.x() + (piece.x() - 1) * sx;
        const qreal right = target.x() + (piece.x() + piece.width() + 1) * sx;
        QRect rect(qFloor(left) - 1, qFloor(top) - 1, qCeil(right) - qFloor(left) + 2,
                   qCeil(bottom) - qFloor(top) + 2);
        if (wholeLines) {
            rect.setLeft(bounds.left());
            rect.setRight(bounds.right());
        }
        area += rect & bounds;
    }
    return area;
}

void VideoLayerWidget::useVideoPlane(VideoPlaneFactory* planes)
{
    if (!planes || m_plane)
        return;
    std::unique_ptr<VideoPlane> plane = planes->createPlane();
    if (!plane)
        return;
    m_plane = new VideoPlaneView(std::move(plane), this);
    m_plane->setOverdrawn(m_overdrawn);
    // Back to painting here, everywhere.
    connect(m_plane, &VideoPlaneView::unusable, this, qOverload<>(&QWidget::update));
}

bool VideoLayerWidget::drawsOnPlane() const
{
    return m_plane && m_plane->isUsable();
}

void VideoLayerWidget::setBackdrop(const QImage& image)
{
    m_backdrop = image;
    applyBackdrop();
}

void VideoLayerWidget::applyBackdrop()
{
    if (!m_plane)
        return;
    QColor background = m_layer->m_backgroundColor;
    if (m_layer->m_opaque)
        background.setAlpha(255);
    QImage backdrop = m_backdrop;
    // The layer's own fill lies over the parent's painting, as in paintEvent.
    if (background.alpha() > 0) {
        if (backdrop.isNull()) {
            backdrop = QImage(size() * devicePixelRatioF(), QImage::Format_ARGB32_Premultiplied);
            backdrop.setDevicePixelRatio(devicePixelRatioF());
            backdrop.fill(Qt::black);
        }
        QPainter painter(&backdrop);
        painter.fillRect(backdrop.rect(), background);
    }
    m_plane->setBackdrop(backdrop);
}

void VideoLayerWidget::setOverdrawn(const QRegion& region)
{
    if (region == m_overdrawn)
        return;
    update(region.xored(m_overdrawn));
    m_overdrawn = region;
    if (m_plane)
        m_plane->setOverdrawn(region);
}

void VideoLayerWidget::setMaximumFrameRate(int framesPerSecond)
{
    m_minimumPaintInterval = framesPerSecond > 0 ? 1000 / framesPerSecond : 0;
    if (m_minimumPaintInterval > 0 && !m_pendingRepaint) {
        m_pendingRepaint = new QTimer(this);
        m_pendingRepaint->setSingleShot(true);
        connect(m_pendingRepaint, &QTimer::timeout, this,
                [this] { showArea(std::exchange(m_pendingArea, QRegion())); });
    }
}

void VideoLayerWidget::requestRepaint(const QRegion& area)
{
    if (m_minimumPaintInterval <= 0 || !m_sinceLastPaint.isValid()) {
        showArea(area);
        return;
    }
    m_pendingArea += area;
    if (m_pendingRepaint->isActive())
        return;
    const qint64 wait = m_minimumPaintInterval - m_sinceLastPaint.elapsed();
    m_pendingRepaint->start(int(std::max<qint64>(wait, 0)));
}

void VideoLayerWidget::showArea(const QRegion& area)
{
    m_sinceLastPaint.start();
    if (!drawsOnPlane()) {
        update(area);
        return;
    }
    if (!m_layer->m_image.isNull())
        m_plane->present(m_layer->m_frame, pictureRect(), area);
    update(area & m_overdrawn);
}

void VideoLayerWidget::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    presentWhole();
}

void VideoLayerWidget::presentWhole()
{
    // The picture moved within the plane's window; without a new frame
    // (nothing changes on screen) the plane would keep it where it was.
    if (drawsOnPlane() && !m_layer->m_image.isNull())
        m_plane->present(m_layer->m_frame, pictureRect(), rect());
}

void VideoLayerWidget::paintEvent(QPaintEvent* event)
{
    QRegion region = event->region();
    if (drawsOnPlane())
        region &= m_overdrawn;
    if (region.isEmpty())
        return;
    QPainter painter(this);
    painter.setClipRegion(region);
    QColor background = m_layer->m_backgroundColor;
    if (m_layer->m_opaque)
        background.setAlpha(255);
    // Painted over what the parent drew; the clear colour leaves it showing.
    if (background.alpha() > 0)
        painter.fillRect(region.boundingRect(), background);

    const QImage& image = m_layer->m_image;
    if (image.isNull())
        return;
    const QRectF target = pictureRect();
    if (target.isEmpty())
        return;
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, image);
}

} // namespace vistrel
