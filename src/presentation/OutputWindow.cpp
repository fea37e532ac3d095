#include "presentation/OutputWindow.h"

#include "capture/OutputRenderer.h"
#include "coordination/OutputViewModel.h"
#include "presentation/ManagedWindowKind.h"
#include "presentation/VideoLayerWidget.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QLinearGradient>
#include <QPainter>
#include <QResizeEvent>
#include <QTextOption>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {

constexpr qreal noticePadding = 32;
constexpr qreal noticeSpacing = 14;
constexpr qreal noticeMessageWidth = 520;

QFont noticeFont(const QFont& base, int pixelSize, QFont::Weight weight)
{
    QFont font = base;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

} // namespace

// Draws what lies over the video: the notice and the decorative frame. It
// takes no input, so clicks reach the window below.
class OutputWindow::Overlay final : public QWidget {
public:
    Overlay(OutputViewModel& viewModel, QWidget* parent) : QWidget(parent), m_viewModel(viewModel)
    {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_NoSystemBackground);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (m_viewModel.showsNotice())
            paintNotice(painter);
        paintFrame(painter);
    }

private:
    void paintNotice(QPainter& painter)
    {
        const bool light = m_viewModel.isLightCanvas();
        const QColor titleColor = light ? QColor(0, 0, 0) : QColor(255, 255, 255);
        const QColor messageColor =
            light ? QColor::fromRgbF(0, 0, 0, 0.68f) : QColor::fromRgbF(1, 1, 1, 0.72f);
        const QFont titleFont = noticeFont(font(), 20, QFont::DemiBold);
        const QFont messageFont = noticeFont(font(), 14, QFont::Normal);

        const QRectF area =
            QRectF(rect()).adjusted(noticePadding, noticePadding, -noticePadding, -noticePadding);
        if (area.width() <= 0 || area.height() <= 0)
            return;
        QTextOption centred(Qt::AlignHCenter);
        centred.setWrapMode(QTextOption::WordWrap);
        const qreal messageWidth = std::min(noticeMessageWidth, area.width());

        const QString title = m_viewModel.noticeTitle();
        const QString message = m_viewModel.noticeMessage();
        painter.setFont(titleFont);
        const QRectF titleBounds =
            painter.boundingRect(QRectF(0, 0, area.width(), area.height()), title, centred);
        painter.setFont(messageFont);
        const QRectF messageBounds =
            message.isEmpty()
                ? QRectF()
                : painter.boundingRect(QRectF(0, 0, messageWidth, area.height()), message, centred);
        const qreal height =
            titleBounds.height() + (message.isEmpty() ? 0 : noticeSpacing + messageBounds.height());
        qreal y = area.center().y() - height / 2;

        painter.setFont(titleFont);
        painter.setPen(titleColor);
        painter.drawText(QRectF(area.left(), y, area.width(), titleBounds.height()), title,
                         centred);
        if (message.isEmpty())
            return;
        y += titleBounds.height() + noticeSpacing;
        painter.setFont(messageFont);
        painter.setPen(messageColor);
        painter.drawText(
            QRectF(area.center().x() - messageWidth / 2, y, messageWidth, messageBounds.height()),
            message, centred);
    }

    // Three one-pixel borders inside the window's edge: a light gradient
    // rim, a dark line and a faint light line.
    void paintFrame(QPainter& painter)
    {
        painter.setRenderHint(QPainter::Antialiasing, false);
        const QRectF outer = rect();
        QLinearGradient rim(outer.topLeft(), outer.bottomLeft());
        rim.setColorAt(0, QColor::fromRgbF(1, 1, 1, 0.24f));
        rim.setColorAt(0.5, QColor::fromRgbF(1, 1, 1, 0.12f));
        rim.setColorAt(1, QColor::fromRgbF(1, 1, 1, 0.08f));
        strokeInside(painter, outer, QBrush(rim));
        strokeInside(painter, outer.adjusted(1, 1, -1, -1), QColor::fromRgbF(0, 0, 0, 0.34f));
        strokeInside(painter, outer.adjusted(2, 2, -2, -2), QColor::fromRgbF(1, 1, 1, 0.04f));
    }

    static void strokeInside(QPainter& painter, const QRectF& r, const QBrush& brush)
    {
        if (r.width() < 2 || r.height() < 2)
            return;
        // Four one-pixel bands, so no pixel is painted twice.
        painter.fillRect(QRectF(r.left(), r.top(), r.width(), 1), brush);
        painter.fillRect(QRectF(r.left(), r.bottom() - 1, r.width(), 1), brush);
        painter.fillRect(QRectF(r.left(), r.top() + 1, 1, r.height() - 2), brush);
        painter.fillRect(QRectF(r.right() - 1, r.top() + 1, 1, r.height() - 2), brush);
    }

    OutputViewModel& m_viewModel;
};

OutputWindow::OutputWindow(OutputViewModel& viewModel, WindowRegistry& windowRegistry,
                           QWidget* parent)
    : QWidget(parent, Qt::Window), m_viewModel(viewModel), m_video(new VideoLayerWidget(this)),
      m_overlay(new Overlay(viewModel, this))
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
