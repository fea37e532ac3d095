#include "presentation/OutputWindow.h"

#include "capture/OutputRenderer.h"
#include "coordination/OutputViewModel.h"
#include "presentation/ManagedWindowKind.h"
#include "presentation/OutputOverlay.h"
#include "presentation/VideoLayerWidget.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QPainter>
#include <QResizeEvent>

using namespace Qt::StringLiterals;

namespace vistrel {

OutputWindow::OutputWindow(OutputViewModel& viewModel, WindowRegistry& windowRegistry,
                           QWidget* parent)
    : QWidget(parent, Qt::Window), m_viewModel(viewModel), m_video(new VideoLayerWidget(this)),
      m_overlay(new OutputOverlay(viewModel, this))
{
    setWindowTitle(u"Vistrel Output"_s);
    resize(defaultSize);
    setAttribute(Qt::WA_OpaquePaintEvent);

    // The layer stays registered while the window lives and is only hidden
    // without a live frame: streams send a frame only when the picture
    // changes, so a layer that appeared after the first frame could wait for
    // a long time to show anything. A reset clears its picture, so a stale
    // frame is never shown.
    m_viewModel.renderer().addDisplayLayer(m_video->displayLayer());
    m_video->setVisible(false);
    m_overlay->raise();

    connect(&m_viewModel, &OutputViewModel::presentationChanged, this,
            &OutputWindow::syncPresentation);
    windowRegistry.registerWindow(WidgetWindowHandle::forWidget(this), ManagedWindowKind::output);
    syncPresentation();
}

OutputWindow::~OutputWindow()
{
    m_viewModel.renderer().removeDisplayLayer(m_video->displayLayer());
}

QRectF OutputWindow::videoRect(const QSizeF& canvasSize, const QRectF& space)
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

QRectF OutputWindow::fillRect(const QSizeF& imageSize, const QRectF& space)
{
    if (imageSize.width() <= 0 || imageSize.height() <= 0)
        return space;
    const qreal scale =
        std::max(space.width() / imageSize.width(), space.height() / imageSize.height());
    QRectF result(QPointF(), imageSize * scale);
    result.moveCenter(space.center());
    return result;
}

void OutputWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
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

void OutputWindow::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    layoutChildren();
}

void OutputWindow::syncPresentation()
{
    m_video->setVisible(m_viewModel.hasLiveFrame());
    layoutChildren();
    update();
    m_overlay->update();
}

void OutputWindow::layoutChildren()
{
    m_video->setGeometry(videoRect(m_viewModel.canvasSize(), rect()).toAlignedRect());
    m_overlay->setGeometry(rect());
}

} // namespace vistrel
