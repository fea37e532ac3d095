#include "presentation/CameraPreviewView.h"

#include <QPainter>

namespace vistrel {

namespace {
constexpr qreal roundedCornerFactor = 0.18;
} // namespace

CameraPreviewView::CameraPreviewView(QWidget* parent) : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
    setAutoFillBackground(false);
}

void CameraPreviewView::setSession(CameraFrameSource* session)
{
    if (m_session == session) {
        return;
    }
    disconnect(m_frameConnection);
    disconnect(m_destroyedConnection);
    m_session = session;
    m_frame = QImage();
    if (session) {
        m_frameConnection = connect(session, &CameraFrameSource::frameChanged, this,
                                    &CameraPreviewView::takeLatestFrame);
        m_destroyedConnection = connect(session, &QObject::destroyed, this, [this] {
            m_frame = QImage();
            update();
        });
        takeLatestFrame();
    }
    update();
}

void CameraPreviewView::setShape(CameraShape shape)
{
    if (m_shape == shape) {
        return;
    }
    m_shape = shape;
    update();
}

void CameraPreviewView::setMirrored(bool mirrored)
{
    if (m_mirrored == mirrored) {
        return;
    }
    m_mirrored = mirrored;
    update();
}

QPainterPath CameraPreviewView::maskPath(CameraShape shape, const QSizeF& size)
{
    const qreal w = size.width();
    const qreal h = size.height();
    const qreal side = std::min(w, h);
    QPainterPath path;
    if (w <= 0 || h <= 0) {
        return path;
    }
    switch (shape) {
    case CameraShape::circle:
        path.addEllipse(QRectF((w - side) / 2, (h - side) / 2, side, side));
        break;
    case CameraShape::square:
        path.addRect(QRectF(0, 0, w, h));
        break;
    case CameraShape::roundedSquare: {
        const qreal radius = roundedCornerFactor * side;
        path.addRoundedRect(QRectF(0, 0, w, h), radius, radius);
        break;
    }
    }
    return path;
}

QRectF CameraPreviewView::aspectFillRect(const QSizeF& imageSize, const QRectF& bounds)
{
    if (imageSize.width() <= 0 || imageSize.height() <= 0 || bounds.isEmpty()) {
        return bounds;
    }
    const qreal scale =
        std::max(bounds.width() / imageSize.width(), bounds.height() / imageSize.height());
    const QSizeF scaled = imageSize * scale;
    return QRectF(bounds.center().x() - scaled.width() / 2,
                  bounds.center().y() - scaled.height() / 2, scaled.width(), scaled.height());
}

void CameraPreviewView::takeLatestFrame()
{
    if (m_session) {
        m_frame = m_session->latestFrame();
    }
    update();
}

void CameraPreviewView::paintEvent(QPaintEvent*)
{
    if (!m_session) {
        return;
    }
    const QPainterPath mask = maskPath(m_shape, size());
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setPen(Qt::NoPen);
    if (m_frame.isNull()) {
        // Started but no picture yet: a dark bubble rather than a hole.
        painter.fillPath(mask, Qt::black);
        return;
    }
    // The picture is the brush the mask is filled with, so the mask's edge is
    // antialiased (a clip path would not be).
    const QRectF target = aspectFillRect(m_frame.size(), rect());
    QTransform placement;
    placement.translate(target.x(), target.y());
    placement.scale(target.width() / m_frame.width(), target.height() / m_frame.height());
    if (m_mirrored) {
        placement *= QTransform(-1, 0, 0, 1, width(), 0);
    }
    QBrush picture(m_frame);
    picture.setTransform(placement);
    painter.fillPath(mask, picture);
}

} // namespace vistrel
