#include "platform/x11/X11VideoPlane.h"

#include "platform/x11/X11RenderValues.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QTimer>
#include <QtMath>
#include <algorithm>
#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace vistrel::x11 {

Q_LOGGING_CATEGORY(lcX11VideoPlane, "quorbit.Vistrel.Output")

struct X11VideoPlaneFactory::Shared {
    XcbConnection connection;
    X11RenderFormats formats;
    xcb_window_t root = 0;
    int errors = 0;

    // Errors are the only events this connection gets.
    void drainErrors()
    {
        while (XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(connection.get())}) {
            if (event->response_type != 0)
                continue;
            const auto* error = reinterpret_cast<const xcb_generic_error_t*>(event.get());
            ++errors;
            qCDebug(lcX11VideoPlane, "X error %d (request %d.%d) while presenting",
                    int(error->error_code), int(error->major_code), int(error->minor_code));
        }
    }
};

namespace {

// Smooth scaling, and edge pixels repeated outward, so that the picture's
// own edge does not fade into what lies under it.
void setFilter(xcb_connection_t* c, xcb_render_picture_t picture)
{
    const quint32 pad = XCB_RENDER_REPEAT_PAD;
    xcb_render_change_picture(c, picture, XCB_RENDER_CP_REPEAT, &pad);
    static const char bilinear[] = "bilinear";
    xcb_render_set_picture_filter(c, picture, sizeof(bilinear) - 1, bilinear, 0, nullptr);
}

} // namespace

std::unique_ptr<X11VideoPlaneFactory> X11VideoPlaneFactory::connect(const QByteArray& displayName)
{
    auto shared = std::make_shared<Shared>();
    int screenNumber = 0;
    shared->connection.reset(
        xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), &screenNumber));
    if (xcb_connection_has_error(shared->connection.get()) ||
        !shared->formats.load(shared->connection.get()))
        return nullptr;
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(shared->connection.get()));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem)
        return nullptr;
    shared->root = screens.data->root;
    return std::unique_ptr<X11VideoPlaneFactory>(new X11VideoPlaneFactory(std::move(shared)));
}

X11VideoPlaneFactory::X11VideoPlaneFactory(std::shared_ptr<Shared> shared)
    : m_shared(std::move(shared))
{
}

X11VideoPlaneFactory::~X11VideoPlaneFactory() = default;

std::unique_ptr<VideoPlane> X11VideoPlaneFactory::createPlane()
{
    return std::make_unique<X11VideoPlane>(m_shared);
}

int X11VideoPlaneFactory::errorCount() const
{
    m_shared->drainErrors();
    return m_shared->errors;
}

X11VideoPlane::X11VideoPlane(std::shared_ptr<X11VideoPlaneFactory::Shared> shared)
    : m_shared(std::move(shared)), m_c(m_shared->connection.get()),
      m_retireTimer(std::make_unique<QTimer>())
{
    m_retireTimer->setSingleShot(true);
    m_retireTimer->setInterval(1);
    QObject::connect(m_retireTimer.get(), &QTimer::timeout, [this] { retire(false); });
}

X11VideoPlane::~X11VideoPlane()
{
    retire(true);
    release();
    m_sources.clear();
    m_upload.reset();
    m_uploadPixmap.reset();
    m_putGc.reset();
    m_backdrop.reset();
    m_backdropPixmap.reset();
    xcb_flush(m_c);
}

void X11VideoPlane::release()
{
    m_windowPicture.reset();
    m_back.reset();
    m_backPixmap.reset();
    m_window = 0;
    m_size = QSize();
}

bool X11VideoPlane::setWindow(quintptr window, QSize size)
{
    const auto id = xcb_window_t(window);
    if (id == m_window && size == m_size)
        return true;
    const bool sameWindow = id == m_window;
    release();
    if (!id || size.isEmpty())
        return id == 0;
    if (!sameWindow) {
        // The window was made on Qt's connection, which may not have sent
        // it yet; then its visual and depth are asked for here.
        if (auto* x11 =
                qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr)
            XcbReply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(
                x11->connection(), xcb_get_input_focus(x11->connection()), nullptr));
        auto [attributes, attributesError] =
            xcbReply(xcb_get_window_attributes_reply, m_c, xcb_get_window_attributes(m_c, id));
        auto [geometry, geometryError] =
            xcbReply(xcb_get_geometry_reply, m_c, xcb_get_geometry(m_c, id));
        if (!attributes || !geometry)
            return false;
        m_windowFormat = m_shared->formats.forVisual(attributes->visual);
        m_backDepth = geometry->depth;
    }
    if (!m_windowFormat)
        return false;
    m_backPixmap =
        createPixmapChecked(m_c, m_backDepth, id, quint16(size.width()), quint16(size.height()));
    if (!m_backPixmap)
        return false;
    m_window = id;
    m_size = size;
    m_windowPicture = createPicture(m_c, id, m_windowFormat);
    m_back = createPicture(m_c, m_backPixmap.get(), m_windowFormat);
    return true;
}

void X11VideoPlane::setBackdrop(const QImage& image, const QColor& color)
{
    m_backdropColor = color;
    m_backdrop.reset();
    m_backdropPixmap.reset();
    if (image.isNull())
        return;
    m_backdropPixmap = createPixmapChecked(m_c, 32, m_shared->root, quint16(image.width()),
                                           quint16(image.height()));
    if (!m_backdropPixmap)
        return;
    putImage(m_backdropPixmap.get(), image, QRect(QPoint(0, 0), image.size()));
    m_backdrop = createPicture(m_c, m_backdropPixmap.get(), m_shared->formats.argb32);
}

void X11VideoPlane::putImage(xcb_drawable_t drawable, const QImage& original, const QRegion& region)
{
    const QImage image = original.format() == QImage::Format_ARGB32_Premultiplied ||
                                 original.format() == QImage::Format_RGB32
                             ? original
                             : original.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (!m_putGc)
        m_putGc = createGc(m_c, drawable);
    // Requests are bounded; a tall part goes up in bands of rows.
    const quint64 maximumBytes = quint64(xcb_get_maximum_request_length(m_c)) * 4 - 64;
    std::vector<uchar> packed;
    for (const QRect& part : region& image.rect()) {
        const size_t rowBytes = size_t(part.width()) * 4;
        const int band = int(std::max<quint64>(1, maximumBytes / rowBytes));
        for (int y = part.top(); y <= part.bottom(); y += band) {
            const int rows = std::min(band, part.bottom() + 1 - y);
            const uchar* data = image.constScanLine(y) + size_t(part.x()) * 4;
            if (part.width() != image.width() || size_t(image.bytesPerLine()) != rowBytes) {
                packed.resize(rowBytes * size_t(rows));
                for (int row = 0; row < rows; ++row)
                    std::memcpy(packed.data() + rowBytes * size_t(row),
                                image.constScanLine(y + row) + size_t(part.x()) * 4, rowBytes);
                data = packed.data();
            }
            xcb_put_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, m_putGc.get(),
                          quint16(part.width()), quint16(rows), qint16(part.x()), qint16(y), 0, 32,
                          quint32(rowBytes * size_t(rows)), data);
        }
    }
}

xcb_render_picture_t X11VideoPlane::sourceFor(const SampleBuffer& frame)
{
    if (!frame.server.pixmap)
        return upload(frame);
    if (!m_sources.empty() && m_sources.front().frame.set != frame.server.set)
        m_sources.clear(); // that buffer set is gone or going
    for (const Source& source : m_sources) {
        if (source.frame == frame.server)
            return source.picture.get();
    }
    // Checked once per buffer: the stream may have freed the pixmap already.
    const xcb_render_picture_t id = xcb_generate_id(m_c);
    if (XcbError(xcb_request_check(
            m_c, xcb_render_create_picture_checked(m_c, id, frame.server.pixmap,
                                                   m_shared->formats.argb32, 0, nullptr))))
        return upload(frame);
    setFilter(m_c, id);
    m_sources.push_back({frame.server, XcbPicture(m_c, id)});
    return id;
}

xcb_render_picture_t X11VideoPlane::upload(const SampleBuffer& frame)
{
    const QImage& image = frame.image;
    if (image.size() != m_uploadSize) {
        m_upload.reset();
        m_uploadPixmap = createPixmapChecked(m_c, 32, m_shared->root, quint16(image.width()),
                                             quint16(image.height()));
        if (!m_uploadPixmap) {
            m_uploadSize = QSize();
            return 0;
        }
        m_upload = createPicture(m_c, m_uploadPixmap.get(), m_shared->formats.argb32);
        setFilter(m_c, m_upload.get());
        m_uploadSize = image.size();
        m_uploadedAt = 0;
    }
    // Only what changed since the frame already up there.
    const bool partial =
        frame.change && m_uploadedAt != 0 && frame.change->sincePresentationTimeNs == m_uploadedAt;
    putImage(m_uploadPixmap.get(), image, partial ? frame.change->region : QRegion(image.rect()));
    m_uploadedAt = frame.presentationTimeNs;
    return m_upload.get();
}

void X11VideoPlane::present(const SampleBuffer& frame, const QRectF& target, const QRegion& area)
{
    m_shared->drainErrors();
    if (frame.image.isNull()) {
        clear();
        return;
    }
    retire(true);
    m_retiring = std::exchange(m_frame, frame);
    m_target = target;
    m_source = sourceFor(frame);
    if (m_window)
        compose(area);
    // Answered once the server has drawn from the previous frame for the last time.
    m_retiringFence = xcb_get_input_focus(m_c);
    xcb_flush(m_c);
    m_retireTimer->start();
}

void X11VideoPlane::redraw(const QRegion& area)
{
    m_shared->drainErrors();
    if (!m_window)
        return;
    compose(area);
    xcb_flush(m_c);
}

void X11VideoPlane::clear()
{
    if (m_frame.image.isNull())
        return;
    retire(true);
    m_retiring = std::exchange(m_frame, SampleBuffer());
    m_source = 0;
    if (m_window) {
        compose(QRect(QPoint(0, 0), m_size));
        m_retiringFence = xcb_get_input_focus(m_c);
        xcb_flush(m_c);
        m_retireTimer->start();
    } else {
        m_retiring = SampleBuffer();
    }
}

void X11VideoPlane::compose(const QRegion& wanted)
{
    const QRegion area = wanted & QRect(QPoint(0, 0), m_size);
    if (area.isEmpty())
        return;
    const QSize frameSize = m_frame.image.size();
    const bool framed = m_source && !m_target.isEmpty() && !frameSize.isEmpty();
    // The pixels whose centres lie in the target, as a painter fills them.
    const QRect picture =
        framed
            ? QRect(QPoint(qCeil(m_target.left() - 0.5), qCeil(m_target.top() - 0.5)),
                    QPoint(qCeil(m_target.right() - 0.5) - 1, qCeil(m_target.bottom() - 0.5) - 1))
            : QRect();
    if (framed) {
        // Window point p samples frame point (p - target's corner) * scale.
        const double sx = frameSize.width() / m_target.width();
        const double sy = frameSize.height() / m_target.height();
        const xcb_render_transform_t transform{renderFixed(sx),
                                               0,
                                               renderFixed(-m_target.x() * sx),
                                               0,
                                               renderFixed(sy),
                                               renderFixed(-m_target.y() * sy),
                                               0,
                                               0,
                                               renderFixed(1)};
        xcb_render_set_picture_transform(m_c, m_source, transform);
    }
    // An opaque frame covers what lies under it: scaled straight onto the
    // window in one step, so no half-drawn state can be seen there.
    const bool direct = framed && m_frame.server.opaque;
    const QRegion straight = direct ? area & picture : QRegion();
    const QRegion layered = area - straight;
    if (!layered.isEmpty())
        composeLayered(layered, framed ? layered & picture : QRegion());
    if (!straight.isEmpty())
        draw(XCB_RENDER_PICT_OP_SRC, m_source, m_windowPicture.get(), straight);
}

void X11VideoPlane::draw(quint8 op, xcb_render_picture_t source, xcb_render_picture_t target,
                         const QRegion& region)
{
    const QList<xcb_rectangle_t> rects = xcbRectangles(region);
    const QRect box = region.boundingRect();
    xcb_render_set_picture_clip_rectangles(m_c, target, 0, 0, quint32(rects.size()),
                                           rects.constData());
    xcb_render_composite(m_c, op, source, XCB_NONE, target, qint16(box.x()), qint16(box.y()), 0, 0,
                         qint16(box.x()), qint16(box.y()), quint16(box.width()),
                         quint16(box.height()));
}

void X11VideoPlane::composeLayered(const QRegion& area, const QRegion& framed)
{
    // Backdrop, then the frame over it, in the buffer; then onto the window.
    if (m_backdrop) {
        draw(XCB_RENDER_PICT_OP_SRC, m_backdrop.get(), m_back.get(), area);
    } else {
        const QList<xcb_rectangle_t> rects = xcbRectangles(area);
        xcb_render_set_picture_clip_rectangles(m_c, m_back.get(), 0, 0, 0, nullptr);
        xcb_render_fill_rectangles(m_c, XCB_RENDER_PICT_OP_SRC, m_back.get(),
                                   renderColor(m_backdropColor), quint32(rects.size()),
                                   rects.constData());
    }
    if (!framed.isEmpty())
        draw(XCB_RENDER_PICT_OP_OVER, m_source, m_back.get(), framed);
    draw(XCB_RENDER_PICT_OP_SRC, m_back.get(), m_windowPicture.get(), area);
}

void X11VideoPlane::retire(bool wait)
{
    if (!m_retiringFence)
        return;
    if (wait) {
        XcbReply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(m_c, *m_retiringFence, nullptr));
    } else {
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (!xcb_poll_for_reply(m_c, m_retiringFence->sequence, &reply, &error)) {
            m_retireTimer->start();
            return;
        }
        std::free(reply);
        std::free(error);
    }
    m_retiringFence.reset();
    m_retiring = SampleBuffer();
}

} // namespace vistrel::x11
