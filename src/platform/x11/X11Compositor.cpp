#include "platform/x11/X11Compositor.h"

#include "platform/x11/XcbPtr.h"

#include <QLoggingCategory>
#include <cstring>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

Q_LOGGING_CATEGORY(lcX11Compositor, "quorbit.Vistrel.Capture")

std::atomic<int> X11Compositor::s_verified{0};
std::atomic<int> X11Compositor::s_verifyFailures{0};

namespace {

xcb_render_fixed_t fixed(double value)
{
    return xcb_render_fixed_t(value * 65536.0);
}

xcb_render_color_t renderColor(const QColor& colour)
{
    // Render colours are premultiplied, 16 bits per channel.
    const double a = colour.alphaF();
    return {quint16(colour.redF() * a * 0xffff), quint16(colour.greenF() * a * 0xffff),
            quint16(colour.blueF() * a * 0xffff), quint16(a * 0xffff)};
}

} // namespace

X11Compositor::X11Compositor(xcb_connection_t* connection, const xcb_screen_t* screen,
                             const X11RenderFormats& formats)
    : m_c(connection), m_screen(screen), m_formats(formats),
      m_verify(qEnvironmentVariableIntValue("VISTREL_X11_VERIFY_FRAMES") == 1),
      m_cursor(std::make_unique<X11Cursor>(connection, screen, formats))
{
    for (xcb_xfixes_region_t* r : {&m_changed, &m_scratch, &m_windowClip, &m_underlay}) {
        *r = xcb_generate_id(m_c);
        xcb_xfixes_create_region(m_c, *r, 0, nullptr);
    }
    // The desktop's own pixels change without any window being damaged
    // (something drawing on the root); the exclusion forms repaint them.
    m_rootDamage = xcb_generate_id(m_c);
    xcb_damage_create(m_c, m_rootDamage, m_screen->root, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
}

X11Compositor::~X11Compositor()
{
    releaseTargets();
    xcb_damage_destroy(m_c, m_rootDamage);
    for (xcb_xfixes_region_t r : {m_changed, m_scratch, m_windowClip, m_underlay})
        xcb_xfixes_destroy_region(m_c, r);
    m_cursor.reset();
    xcb_flush(m_c);
}

void X11Compositor::releaseTargets()
{
    m_pool.reset();
    for (xcb_render_picture_t* p : {&m_canvasPicture, &m_scaledPicture, &m_backgroundPicture,
                                    &m_verifyPicture, &m_verifyBackgroundPicture}) {
        if (*p)
            xcb_render_free_picture(m_c, *p);
        *p = 0;
    }
    for (xcb_pixmap_t* p :
         {&m_canvas, &m_scaled, &m_background, &m_verifyCanvas, &m_verifyBackground}) {
        if (*p)
            xcb_free_pixmap(m_c, *p);
        *p = 0;
    }
    if (m_backgroundGc)
        xcb_free_gc(m_c, m_backgroundGc);
    m_backgroundGc = 0;
}

bool X11Compositor::configure(const QRect& area, QSize output, int queueDepth, X11WindowTree& tree)
{
    releaseTargets();
    m_area = area;
    m_output = output;
    m_wholeNext = true;
    m_drawnCursor = QRect();
    const auto w = quint16(area.width());
    const auto h = quint16(area.height());

    if (!createTarget(32, w, h, &m_canvas, &m_canvasPicture))
        return false;

    if (output != area.size()) {
        if (!createTarget(32, quint16(output.width()), quint16(output.height()), &m_scaled,
                          &m_scaledPicture))
            return false;
        // Output pixel (u, v) samples canvas point (u * sx, v * sy).
        const double sx = double(area.width()) / output.width();
        const double sy = double(area.height()) / output.height();
        const xcb_render_transform_t transform{fixed(sx), 0, 0, 0, fixed(sy), 0, 0, 0, fixed(1)};
        xcb_render_set_picture_transform(m_c, m_canvasPicture, transform);
        static const char bilinear[] = "bilinear";
        xcb_render_set_picture_filter(m_c, m_canvasPicture, sizeof(bilinear) - 1, bilinear, 0,
                                      nullptr);
    }

    if (!createTarget(m_screen->root_depth, w, h, &m_background, &m_backgroundPicture))
        return false;
    m_backgroundGc = xcb_generate_id(m_c);
    quint32 pixel = m_screen->black_pixel;
    sampleBackgroundColour(tree, &pixel);
    const quint32 gcValues[] = {pixel, 0, XCB_SUBWINDOW_MODE_CLIP_BY_CHILDREN};
    xcb_create_gc(m_c, m_backgroundGc, m_background,
                  XCB_GC_FOREGROUND | XCB_GC_GRAPHICS_EXPOSURES | XCB_GC_SUBWINDOW_MODE, gcValues);
    // Until the desktop shows somewhere, a window-covered part of it is
    // assumed to have the colour of its visible part.
    const xcb_rectangle_t all{0, 0, w, h};
    xcb_poly_fill_rectangle(m_c, m_background, m_backgroundGc, 1, &all);

    m_pool = std::make_unique<X11ShmImagePool>(m_c, output, queueDepth, m_screen->root);
    return m_pool->isValid();
}

bool X11Compositor::createTarget(quint8 depth, quint16 width, quint16 height, xcb_pixmap_t* pixmap,
                                 xcb_render_picture_t* picture)
{
    // Checked: a frame-sized pixmap is the allocation most likely to fail.
    *pixmap = xcb_generate_id(m_c);
    auto error = XcbError(xcb_request_check(
        m_c, xcb_create_pixmap_checked(m_c, depth, *pixmap, m_screen->root, width, height)));
    if (error) {
        *pixmap = 0;
        return false;
    }
    const xcb_render_pictformat_t rootFormat = m_formats.forVisual(m_screen->root_visual);
    const xcb_render_pictformat_t format =
        depth == 32 ? m_formats.argb32 : (rootFormat ? rootFormat : m_formats.rgb24);
    *picture = xcb_generate_id(m_c);
    xcb_render_create_picture(m_c, *picture, *pixmap, format, 0, nullptr);
    return true;
}

bool X11Compositor::sampleBackgroundColour(X11WindowTree& tree, quint32* pixel)
{
    // Find a point of the area that no viewable window covers and read it.
    QRegion covered;
    for (xcb_window_t id : tree.stacking()) {
        const TopLevel* w = tree.find(id);
        if (w && w->mapped && !w->inputOnly)
            covered += w->outer;
    }
    const QRegion free = QRegion(m_area) - covered;
    if (free.isEmpty())
        return false;
    const QPoint at = free.begin()->topLeft();
    auto [image, error] = xcbReply(xcb_get_image_reply, m_c,
                                   xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_screen->root,
                                                 qint16(at.x()), qint16(at.y()), 1, 1, ~0u));
    if (!image || xcb_get_image_data_length(image.get()) < 4)
        return false;
    std::memcpy(pixel, xcb_get_image_data(image.get()), 4);
    return true;
}

bool X11Compositor::contributes(const WindowAdmission& admission, const TopLevel& w) const
{
    return w.mapped && !w.inputOnly && w.factsResolved && w.outer.intersects(m_area) &&
           admission.admits(w.facts);
}

bool X11Compositor::pollCursor()
{
    return m_cursor->poll(m_area);
}

QRect X11Compositor::cursorRect() const
{
    const QRect rect = m_cursor->rect();
    return rect.isEmpty() ? QRect() : rect.translated(-m_area.topLeft());
}

void X11Compositor::addRect(const QRect& rect)
{
    const QRect inside = rect & QRect(QPoint(0, 0), m_area.size());
    if (inside.isEmpty())
        return;
    const xcb_rectangle_t r{qint16(inside.x()), qint16(inside.y()), quint16(inside.width()),
                            quint16(inside.height())};
    xcb_xfixes_set_region(m_c, m_scratch, 1, &r);
    xcb_xfixes_union_region(m_c, m_changed, m_scratch, m_changed);
}

void X11Compositor::compose(const Canvas& canvas, bool desktop, const QColor& fill,
                            const QList<const TopLevel*>& windows, bool cursor,
                            xcb_xfixes_region_t limit)
{
    const auto areaW = quint16(m_area.width());
    const auto areaH = quint16(m_area.height());
    xcb_xfixes_region_t underlay = limit;
    if (limit) {
        // An opaque window is drawn with SRC, which sets every pixel of its
        // clip: what lies beneath it need not be drawn first. Whole rebuilds
        // keep the plain order, so a check against them stays independent.
        xcb_xfixes_copy_region(m_c, limit, m_underlay);
        for (const TopLevel* w : windows) {
            if (w->pictureHasAlpha)
                continue;
            const QPoint inside =
                w->outer.topLeft() - m_area.topLeft() + QPoint(w->border, w->border);
            xcb_xfixes_copy_region(m_c, w->clip, m_windowClip);
            xcb_xfixes_translate_region(m_c, m_windowClip, qint16(inside.x()), qint16(inside.y()));
            xcb_xfixes_subtract_region(m_c, m_underlay, m_windowClip, m_underlay);
        }
        underlay = m_underlay;
    }
    xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, underlay, 0, 0);
    if (desktop) {
        // Only the root's own visible pixels are copied (the GC clips by
        // children); what windows cover keeps its last known pixels.
        if (limit)
            xcb_xfixes_set_gc_clip_region(m_c, m_backgroundGc, limit, 0, 0);
        xcb_copy_area(m_c, m_screen->root, canvas.background, m_backgroundGc, qint16(m_area.x()),
                      qint16(m_area.y()), 0, 0, areaW, areaH);
        if (limit)
            xcb_xfixes_set_gc_clip_region(m_c, m_backgroundGc, XCB_NONE, 0, 0);
        xcb_render_composite(m_c, XCB_RENDER_PICT_OP_SRC, canvas.backgroundPicture, XCB_NONE,
                             canvas.picture, 0, 0, 0, 0, 0, 0, areaW, areaH);
    } else {
        const xcb_rectangle_t all{0, 0, areaW, areaH};
        xcb_render_fill_rectangles(m_c, XCB_RENDER_PICT_OP_SRC, canvas.picture, renderColor(fill),
                                   1, &all);
    }

    for (const TopLevel* w : windows) {
        // Draw only what the window painted, inside its shape (and the limit).
        const QPoint origin = w->outer.topLeft() - m_area.topLeft();
        const QPoint inside = origin + QPoint(w->border, w->border);
        if (limit) {
            xcb_xfixes_copy_region(m_c, w->clip, m_windowClip);
            xcb_xfixes_translate_region(m_c, m_windowClip, qint16(inside.x()), qint16(inside.y()));
            xcb_xfixes_intersect_region(m_c, m_windowClip, limit, m_windowClip);
            xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, m_windowClip, 0, 0);
        } else {
            xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, w->clip, qint16(inside.x()),
                                               qint16(inside.y()));
        }
        xcb_render_composite(
            m_c, w->pictureHasAlpha ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC, w->picture,
            XCB_NONE, canvas.picture, 0, 0, 0, 0, qint16(origin.x()), qint16(origin.y()),
            quint16(w->outer.width()), quint16(w->outer.height()));
    }
    xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, limit, 0, 0);
    if (cursor)
        m_cursor->draw(canvas.picture, m_area.topLeft());
    if (limit)
        xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, XCB_NONE, 0, 0);
}

X11Compositor::Status X11Compositor::render(X11WindowTree& tree, const WindowAdmission& admission,
                                            const QColor& fill, bool showCursor, QImage* image)
{
    if (!m_pool || !m_pool->isValid())
        return Status::failed;
    X11ShmImagePool::Buffer* buffer = m_pool->acquire();
    if (!buffer)
        return Status::busy;

    const bool desktop = admission.drawsDesktop();
    // A scaled frame mixes neighbouring pixels: it is always built whole.
    bool whole =
        m_wholeNext || m_scaledPicture || desktop != m_lastDesktop || fill.rgba() != m_lastFill;
    xcb_xfixes_set_region(m_c, m_changed, 0, nullptr);

    QList<const TopLevel*> windows;
    for (xcb_window_t id : tree.stacking()) {
        TopLevel* w = tree.find(id);
        if (!w)
            continue;
        const bool wasDrawn = w->drawn;
        w->drawn = false;
        if (contributes(admission, *w)) {
            const bool collect = w->damaged && !whole;
            if (collect)
                xcb_xfixes_set_region(m_c, m_scratch, 0, nullptr);
            tree.takeDamage(*w, collect ? m_scratch : XCB_NONE);
            if (collect) {
                const QPoint inside =
                    w->outer.topLeft() - m_area.topLeft() + QPoint(w->border, w->border);
                xcb_xfixes_translate_region(m_c, m_scratch, qint16(inside.x()), qint16(inside.y()));
                xcb_xfixes_union_region(m_c, m_changed, m_scratch, m_changed);
            }
            if (tree.prepare(*w)) {
                w->drawn = true;
                windows.append(w);
            }
        }
        // A window joining or leaving the picture uncovers what lay below it.
        whole |= w->drawn != wasDrawn;
    }

    if (desktop && !whole) {
        xcb_damage_subtract(m_c, m_rootDamage, XCB_NONE, m_scratch);
        xcb_xfixes_translate_region(m_c, m_scratch, qint16(-m_area.x()), qint16(-m_area.y()));
        xcb_xfixes_union_region(m_c, m_changed, m_scratch, m_changed);
    } else {
        xcb_damage_subtract(m_c, m_rootDamage, XCB_NONE, XCB_NONE);
    }

    const bool reloaded = showCursor && m_cursor->prepare(tree, admission);
    const QRect cursorNow = showCursor ? cursorRect() : QRect();
    if (!whole && (reloaded || cursorNow != m_drawnCursor)) {
        // The old cursor is repaired from what lies under it.
        addRect(m_drawnCursor);
        addRect(cursorNow);
    }

    const Canvas canvas{m_canvasPicture, m_background, m_backgroundPicture};
    QRegion changed;
    if (whole) {
        compose(canvas, desktop, fill, windows, showCursor, XCB_NONE);
    } else {
        auto [region, error] =
            xcbReply(xcb_xfixes_fetch_region_reply, m_c, xcb_xfixes_fetch_region(m_c, m_changed));
        if (!region) {
            m_pool->release(buffer);
            m_wholeNext = true;
            return Status::failed;
        }
        const xcb_rectangle_t* rects = xcb_xfixes_fetch_region_rectangles(region.get());
        const int count = xcb_xfixes_fetch_region_rectangles_length(region.get());
        for (int i = 0; i < count; ++i)
            changed += QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height);
        changed &= QRect(QPoint(0, 0), m_area.size());
        if (!changed.isEmpty())
            compose(canvas, desktop, fill, windows, showCursor, m_changed);
    }
    m_drawnCursor = cursorNow;
    m_lastDesktop = desktop;
    m_lastFill = fill.rgba();
    m_wholeNext = false;

    xcb_drawable_t source = m_canvas;
    if (m_scaledPicture) {
        xcb_render_composite(m_c, XCB_RENDER_PICT_OP_SRC, m_canvasPicture, XCB_NONE,
                             m_scaledPicture, 0, 0, 0, 0, 0, 0, quint16(m_output.width()),
                             quint16(m_output.height()));
        source = m_scaled;
    }
    if (whole)
        m_pool->changedEverywhere();
    else
        m_pool->changed(changed);
    if (!m_pool->fill(buffer, source)) {
        m_pool->release(buffer);
        m_wholeNext = true;
        return Status::failed;
    }
    *image = m_pool->wrap(buffer);
    if (m_verify && !whole)
        verify(*image, desktop, fill, windows, showCursor);
    return Status::frame;
}

void X11Compositor::verify(const QImage& delivered, bool desktop, const QColor& fill,
                           const QList<const TopLevel*>& windows, bool cursor)
{
    const auto w = quint16(m_area.width());
    const auto h = quint16(m_area.height());
    if (!m_verifyBackgroundPicture) {
        const bool made =
            (m_verifyCanvas || createTarget(32, w, h, &m_verifyCanvas, &m_verifyPicture)) &&
            createTarget(m_screen->root_depth, w, h, &m_verifyBackground,
                         &m_verifyBackgroundPicture);
        if (!made) {
            ++s_verifyFailures;
            qCWarning(lcX11Compositor, "No room on the server for a whole rebuild to compare with");
            return;
        }
    }
    // The whole rebuild starts from the same remembered desktop, so only a
    // difference of this frame shows.
    xcb_copy_area(m_c, m_background, m_verifyBackground, m_backgroundGc, 0, 0, 0, 0, w, h);
    compose({m_verifyPicture, m_verifyBackground, m_verifyBackgroundPicture}, desktop, fill,
            windows, cursor, XCB_NONE);
    auto [reply, error] =
        xcbReply(xcb_get_image_reply, m_c,
                 xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_verifyCanvas, 0, 0, w, h, ~0u));
    ++s_verified;
    if (!reply || xcb_get_image_data_length(reply.get()) < int(w) * h * 4) {
        ++s_verifyFailures;
        qCWarning(lcX11Compositor, "Whole rebuild for comparison could not be read");
        return;
    }
    const uchar* expected = xcb_get_image_data(reply.get());
    for (int y = 0; y < h; ++y) {
        const auto* want = reinterpret_cast<const quint32*>(expected + qsizetype(y) * w * 4);
        const auto* got = reinterpret_cast<const quint32*>(delivered.constScanLine(y));
        if (std::memcmp(want, got, size_t(w) * 4) == 0)
            continue;
        int x = 0;
        while (want[x] == got[x])
            ++x;
        ++s_verifyFailures;
        qCWarning(lcX11Compositor,
                  "Partial frame differs from a whole rebuild at %d,%d: %08x instead of %08x", x, y,
                  got[x], want[x]);
        return;
    }
}

} // namespace vistrel::x11
