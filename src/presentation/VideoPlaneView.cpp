#include "presentation/VideoPlaneView.h"

#include <QCoreApplication>
#include <QPaintEvent>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace vistrel {

VideoPlaneView::VideoPlaneView(std::unique_ptr<VideoPlane> plane, QWidget* video)
    : QWidget(video->window()), m_plane(std::move(plane)), m_video(video)
{
    // By default Qt gives every sibling of a native widget a native window
    // too; the window's other children would then lie over the plane.
    QCoreApplication::setAttribute(Qt::AA_DontCreateNativeWidgetSiblings);
    setAttribute(Qt::WA_NativeWindow);
    setAttribute(Qt::WA_PaintOnScreen);
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    // The widget tree above the video may move it without a move of its own.
    for (QWidget* w = video; w && w != window(); w = w->parentWidget())
        w->installEventFilter(this);
    follow();
}

VideoPlaneView::~VideoPlaneView() = default;

void VideoPlaneView::present(const SampleBuffer& frame, const QRectF& target, const QRegion& area)
{
    const qreal ratio = devicePixelRatioF();
    m_plane->present(frame, QRectF(target.topLeft() * ratio, target.size() * ratio),
                     toDevice(area));
}

void VideoPlaneView::clear()
{
    m_plane->clear();
}

void VideoPlaneView::setBackdrop(const QImage& image)
{
    m_plane->setBackdrop(image, Qt::black);
    update();
}

QRegion VideoPlaneView::toDevice(const QRegion& region) const
{
    const qreal ratio = devicePixelRatioF();
    if (ratio == 1)
        return region;
    QRegion device;
    for (const QRect& r : region)
        device += QRectF(QPointF(r.topLeft()) * ratio, QSizeF(r.size()) * ratio).toAlignedRect();
    return device;
}

void VideoPlaneView::setOverdrawn(const QRegion& region)
{
    if (region == m_overdrawn)
        return;
    m_overdrawn = region;
    applyMask();
}

void VideoPlaneView::applyMask()
{
    if (m_overdrawn.isEmpty())
        clearMask();
    else
        setMask(QRegion(rect()) - m_overdrawn);
}

bool VideoPlaneView::event(QEvent* event)
{
    if (event->type() == QEvent::WinIdChange) {
        // Qt names a native child after the application; tools that look
        // for Vistrel's windows by name must not find this one.
        if (QWindow* native = windowHandle())
            native->setTitle(u"Vistrel Video"_s);
        attach();
    }
    return QWidget::event(event);
}

bool VideoPlaneView::eventFilter(QObject*, QEvent* event)
{
    switch (event->type()) {
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::Show:
    case QEvent::Hide:
        follow();
        break;
    default:
        break;
    }
    return false;
}

void VideoPlaneView::follow()
{
    if (!m_video)
        return;
    setGeometry(QRect(m_video->mapTo(window(), QPoint(0, 0)), m_video->size()));
    setVisible(m_usable && m_video->isVisibleTo(window()));
    applyMask();
}

void VideoPlaneView::attach()
{
    if (!m_usable || !testAttribute(Qt::WA_WState_Created) || size().isEmpty())
        return;
    const qreal ratio = devicePixelRatioF();
    if (m_plane->setWindow(winId(), QSize(qRound(width() * ratio), qRound(height() * ratio))))
        return;
    m_usable = false;
    hide();
    Q_EMIT unusable();
}

void VideoPlaneView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    attach();
}

void VideoPlaneView::paintEvent(QPaintEvent* event)
{
    attach();
    if (m_usable)
        m_plane->redraw(toDevice(event->region()));
}

} // namespace vistrel
