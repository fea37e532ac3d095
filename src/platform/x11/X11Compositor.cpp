#include "platform/x11/X11Compositor.h"

#include "platform/x11/X11RenderValues.h"
#include "platform/x11/XcbPtr.h"

#include <QLoggingCategory>
#include <cstring>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

Q_LOGGING_CATEGORY(lcX11Compositor, "quorbit.Vistrel.Capture")

std::atomic<int> X11Compositor::s_verified{0};
std::atomic<int> X11Compositor::s_verifyFailures{0};

X11Compositor::X11Compositor(xcb_connection_t* connection, const xcb_screen_t* screen,
                             const X11RenderFormats& formats)
    : m_c(connection), m_screen(screen), m_formats(formats),
      // The desktop's own pixels change without any window being damaged
      // (something drawing on the root); the exclusion forms repaint them.
      m_rootDamage(createDamage(connection, screen->root)), m_changed(createRegion(connection)),
      m_scratch(createRegion(connection)), m_windowClip(createRegion(connection)),
      m_underlay(createRegion(connection)), m_covered(createRegion(connection)),
      m_verify(qEnvironmentVariableIntValue("VISTREL_X11_VERIFY_FRAMES") == 1),
      m_cursor(std::make_unique<X11Cursor>(connection, screen, formats))
{
}

X11Compositor::~X11Compositor() = default;

void X11Compositor::releaseTargets()
{
    m_bufferPictures.clear();
    m_pool.reset();
    for (Target* target :
         {&m_canvas, &m_scaled, &m_background, &m_verifyCanvas, &m_verifyBackground})
        *target = Target();
    m_backgroundGc.reset();
}

bool X11Compositor::configure(const QRect& area, QSize output, int queueDepth, X11WindowTree& tree)
{
    releaseTargets();
    m_area = area;
    m_output = output;
    m_wholeNext = true;
    m_coveredStale = true;
    m_drawnCursor = QRect();
    const auto w = quint16(area.width());
    const auto h = quint16(area.height());

    m_pool = std::make_unique<X11ShmImagePool>(m_c, output, queueDepth, m_screen->root);
    if (!m_pool->isValid())
        return false;
    // A frame of the area's size is composed straight into its buffer when
    // the buffers are pixmaps: no canvas, and no copy out of one.
    if ((output != area.size() || !m_pool->hasPixmaps()) && !(m_canvas = createTarget(32, w, h)))
        return false;

    if (output != area.size()) {
        if (!(m_scaled = createTarget(32, quint16(output.width()), quint16(output.height()))))
            return false;
        // Output pixel (u, v) samples canvas point (u * sx, v * sy).
        const double sx = double(area.width()) / output.width();
        const double sy = double(area.height()) / output.height();
        const xcb_render_transform_t transform{renderFixed(sx), 0, 0, 0, renderFixed(sy), 0, 0, 0,
                                               renderFixed(1)};
        xcb_render_set_picture_transform(m_c, m_canvas.picture.get(), transform);
        static const char bilinear[] = "bilinear";
        xcb_render_set_picture_filter(m_c, m_canvas.picture.get(), sizeof(bilinear) - 1, bilinear,
                                      0, nullptr);
    }

    if (!(m_background = createTarget(m_screen->root_depth, w, h)))
        return false;
    quint32 pixel = m_screen->black_pixel;
    sampleBackgroundColour(tree, &pixel);
    const quint32 gcValues[] = {pixel, 0, XCB_SUBWINDOW_MODE_CLIP_BY_CHILDREN};
    m_backgroundGc =
        createGc(m_c, m_background.pixmap.get(),
                 XCB_GC_FOREGROUND | XCB_GC_GRAPHICS_EXPOSURES | XCB_GC_SUBWINDOW_MODE, gcValues);
    // Until the desktop shows somewhere, a window-covered part of it is
    // assumed to have the colour of its visible part.
    const xcb_rectangle_t all{0, 0, w, h};
    xcb_poly_fill_rectangle(m_c, m_background.pixmap.get(), m_backgroundGc.get(), 1, &all);
    return true;
}

xcb_render_picture_t X11Compositor::bufferPicture(xcb_pixmap_t pixmap)
{
    for (const auto& [known, picture] : m_bufferPictures)
        if (known == pixmap)
            return picture.get();
    m_bufferPictures.emplace_back(pixmap, createPicture(m_c, pixmap, m_formats.argb32));
    return m_bufferPictures.back().second.get();
}

X11Compositor::Target X11Compositor::createTarget(quint8 depth, quint16 width, quint16 height)
{
    Target target;
    target.pixmap = createPixmapChecked(m_c, depth, m_screen->root, width, height);
    if (!target.pixmap)
        return target;
    const xcb_render_pictformat_t rootFormat = m_formats.forVisual(m_screen->root_visual);
    const xcb_render_pictformat_t format =
        depth == 32 ? m_formats.argb32 : (rootFormat ? rootFormat : m_formats.rgb24);
    target.picture = createPicture(m_c, target.pixmap.get(), format);
    return target;
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

void X11Compositor::collectCovered(X11WindowTree& tree)
{
    // The server's own idea of each window's bounding shape, so that a
    // shaped window leaves the desktop around it counted. A shape may
    // reach past the window (set for an older size): only the window's
    // box covers. A window that vanished meanwhile only leaves more damage
    // counted.
    const xcb_xfixes_region_t covered = m_covered.get();
    const xcb_xfixes_region_t box = m_windowClip.get();
    xcb_xfixes_set_region(m_c, covered, 0, nullptr);
    for (xcb_window_t id : tree.stacking()) {
        const TopLevel* w = tree.find(id);
        if (!w || !w->mapped || w->inputOnly || !w->outer.intersects(m_area))
            continue;
        const QRect outer = w->outer.translated(-m_area.topLeft());
        const xcb_rectangle_t rect{qint16(outer.x()), qint16(outer.y()), quint16(outer.width()),
                                   quint16(outer.height())};
        xcb_xfixes_set_region(m_c, box, 1, &rect);
        const xcb_xfixes_region_t shape = xcb_generate_id(m_c);
        xcb_xfixes_create_region_from_window(m_c, shape, w->id, XCB_SHAPE_SK_BOUNDING);
        // Relative to the window's origin, inside its border.
        xcb_xfixes_translate_region(m_c, shape, qint16(outer.x() + w->border),
                                    qint16(outer.y() + w->border));
        xcb_xfixes_intersect_region(m_c, shape, box, shape);
        xcb_xfixes_union_region(m_c, covered, shape, covered);
        xcb_xfixes_destroy_region(m_c, shape);
    }
    m_coveredStale = false;
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
    xcb_xfixes_set_region(m_c, m_scratch.get(), 1, &r);
    xcb_xfixes_union_region(m_c, m_changed.get(), m_scratch.get(), m_changed.get());
}

void X11Compositor::compose(const Canvas& canvas, bool desktop, const QColor& fill,
                            const QList<const TopLevel*>& windows, bool cursor,
                            xcb_xfixes_region_t limit)
{
    const auto areaW = quint16(m_area.width());
    const auto areaH = quint16(m_area.height());
    const xcb_xfixes_region_t windowClip = m_windowClip.get();
    const xcb_gcontext_t backgroundGc = m_backgroundGc.get();
    xcb_xfixes_region_t underlay = limit;
    if (limit) {
        // An opaque window is drawn with SRC, which sets every pixel of its
        // clip: what lies beneath it need not be drawn first. Whole rebuilds
        // keep the plain order, so a check against them stays independent.
        xcb_xfixes_copy_region(m_c, limit, m_underlay.get());
        for (const TopLevel* w : windows) {
            if (w->resources.hasAlpha())
                continue;
            const QPoint inside =
                w->outer.topLeft() - m_area.topLeft() + QPoint(w->border, w->border);
            xcb_xfixes_copy_region(m_c, w->resources.clip(), windowClip);
            xcb_xfixes_translate_region(m_c, windowClip, qint16(inside.x()), qint16(inside.y()));
            xcb_xfixes_subtract_region(m_c, m_underlay.get(), windowClip, m_underlay.get());
        }
        underlay = m_underlay.get();
    }
    xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, underlay, 0, 0);
    if (desktop) {
        // Only the root's own visible pixels are copied (the GC clips by
        // children); what windows cover keeps its last known pixels.
        if (limit)
            xcb_xfixes_set_gc_clip_region(m_c, backgroundGc, limit, 0, 0);
        xcb_copy_area(m_c, m_screen->root, canvas.background, backgroundGc, qint16(m_area.x()),
                      qint16(m_area.y()), 0, 0, areaW, areaH);
        if (limit)
            xcb_xfixes_set_gc_clip_region(m_c, backgroundGc, XCB_NONE, 0, 0);
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
            xcb_xfixes_copy_region(m_c, w->resources.clip(), windowClip);
            xcb_xfixes_translate_region(m_c, windowClip, qint16(inside.x()), qint16(inside.y()));
            xcb_xfixes_intersect_region(m_c, windowClip, limit, windowClip);
            xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, windowClip, 0, 0);
        } else {
            xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, w->resources.clip(),
                                               qint16(inside.x()), qint16(inside.y()));
        }
        xcb_render_composite(
            m_c, w->resources.hasAlpha() ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC,
            w->resources.picture(), XCB_NONE, canvas.picture, 0, 0, 0, 0, qint16(origin.x()),
            qint16(origin.y()), quint16(w->outer.width()), quint16(w->outer.height()));
    }
    xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, limit, 0, 0);
    if (cursor)
        m_cursor->draw(canvas.picture, m_area.topLeft());
    if (limit)
        xcb_xfixes_set_picture_clip_region(m_c, canvas.picture, XCB_NONE, 0, 0);
}

X11Compositor::Status X11Compositor::render(X11WindowTree& tree, const WindowAdmission& admission,
                                            const QColor& fill, bool showCursor, QImage* image,
                                            std::optional<QRegion>* changedOut, ServerFrame* server)
{
    if (!m_pool || !m_pool->isValid())
        return Status::failed;
    X11ShmImagePool::Buffer* buffer = m_pool->acquire();
    if (!buffer)
        return Status::busy;

    const bool desktop = admission.drawsDesktop();
    // A scaled frame mixes neighbouring pixels: it is always built whole.
    bool whole = m_wholeNext || m_scaled || desktop != m_lastDesktop || fill.rgba() != m_lastFill;
    const xcb_xfixes_region_t changedRegion = m_changed.get();
    const xcb_xfixes_region_t scratch = m_scratch.get();
    xcb_xfixes_set_region(m_c, changedRegion, 0, nullptr);

    QList<const TopLevel*> windows;
    for (xcb_window_t id : tree.stacking()) {
        TopLevel* w = tree.find(id);
        if (!w)
            continue;
        const bool wasDrawn = w->drawn;
        w->drawn = false;
        if (contributes(admission, *w)) {
            const bool collect = w->resources.damaged() && !whole;
            if (collect)
                xcb_xfixes_set_region(m_c, scratch, 0, nullptr);
            tree.takeDamage(*w, collect ? scratch : XCB_NONE);
            if (collect) {
                const QPoint inside =
                    w->outer.topLeft() - m_area.topLeft() + QPoint(w->border, w->border);
                xcb_xfixes_translate_region(m_c, scratch, qint16(inside.x()), qint16(inside.y()));
                xcb_xfixes_union_region(m_c, changedRegion, scratch, changedRegion);
            }
            if (tree.prepare(*w)) {
                w->drawn = true;
                windows.append(w);
            }
        }
        // A window joining or leaving the picture uncovers what lay below it.
        whole |= w->drawn != wasDrawn;
    }

    if (whole)
        m_coveredStale = true;
    if (desktop && !whole) {
        xcb_damage_subtract(m_c, m_rootDamage.get(), XCB_NONE, scratch);
        xcb_xfixes_translate_region(m_c, scratch, qint16(-m_area.x()), qint16(-m_area.y()));
        // The root's damage also reports every window that draws over it,
        // Vistrel's own output among them: left in, each repaint of the
        // output would come back as a change in the next frame. The root's
        // own pixels can only have changed where no window covers it.
        if (m_coveredStale)
            collectCovered(tree);
        xcb_xfixes_subtract_region(m_c, scratch, m_covered.get(), scratch);
        xcb_xfixes_union_region(m_c, changedRegion, scratch, changedRegion);
    } else {
        xcb_damage_subtract(m_c, m_rootDamage.get(), XCB_NONE, XCB_NONE);
    }

    const bool reloaded = showCursor && m_cursor->prepare(tree, admission);
    const QRect cursorNow = showCursor ? cursorRect() : QRect();
    if (!whole && (reloaded || cursorNow != m_drawnCursor)) {
        // The old cursor is repaired from what lies under it.
        addRect(m_drawnCursor);
        addRect(cursorNow);
    }

    QRegion changed;
    if (!whole) {
        auto [region, error] = xcbReply(xcb_xfixes_fetch_region_reply, m_c,
                                        xcb_xfixes_fetch_region(m_c, changedRegion));
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
    }
    if (whole)
        m_pool->changedEverywhere();
    else
        m_pool->changed(changed);

    if (m_canvas) {
        const Canvas canvas{m_canvas.picture.get(), m_background.pixmap.get(),
                            m_background.picture.get()};
        if (whole)
            compose(canvas, desktop, fill, windows, showCursor, XCB_NONE);
        else if (!changed.isEmpty())
            compose(canvas, desktop, fill, windows, showCursor, changedRegion);
        xcb_drawable_t source = m_canvas.pixmap.get();
        if (m_scaled) {
            xcb_render_composite(m_c, XCB_RENDER_PICT_OP_SRC, m_canvas.picture.get(), XCB_NONE,
                                 m_scaled.picture.get(), 0, 0, 0, 0, 0, 0,
                                 quint16(m_output.width()), quint16(m_output.height()));
            source = m_scaled.pixmap.get();
        }
        if (!m_pool->fill(buffer, source)) {
            m_pool->release(buffer);
            m_wholeNext = true;
            return Status::failed;
        }
    } else {
        // The buffer still holds the frame it was last filled with: what
        // changed since then, this frame's change among it, is drawn anew.
        const Canvas canvas{bufferPicture(m_pool->pixmap(buffer)), m_background.pixmap.get(),
                            m_background.picture.get()};
        const QRegion stale = m_pool->stale(buffer);
        if (stale == QRegion(QRect(QPoint(0, 0), m_area.size()))) {
            compose(canvas, desktop, fill, windows, showCursor, XCB_NONE);
        } else if (!stale.isEmpty()) {
            const QList<xcb_rectangle_t> rects = xcbRectangles(stale);
            xcb_xfixes_set_region(m_c, scratch, quint32(rects.size()), rects.constData());
            compose(canvas, desktop, fill, windows, showCursor, scratch);
        }
        // The planes read the buffer on connections of their own: its
        // pixels are drawn before anyone learns of it.
        XcbReply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
        m_pool->markFilled(buffer);
    }
    m_drawnCursor = cursorNow;
    m_lastDesktop = desktop;
    m_lastFill = fill.rgba();
    m_wholeNext = false;

    *image = m_pool->wrap(buffer);
    // The desktop lies under everything in those forms.
    *server = {m_pool->pixmap(buffer), m_pool->serial(), desktop};
    if (whole)
        changedOut->reset();
    else
        *changedOut = changed;
    if (m_verify && !whole)
        verify(*image, desktop, fill, windows, showCursor);
    return Status::frame;
}

void X11Compositor::verify(const QImage& delivered, bool desktop, const QColor& fill,
                           const QList<const TopLevel*>& windows, bool cursor)
{
    const auto w = quint16(m_area.width());
    const auto h = quint16(m_area.height());
    if (!m_verifyBackground) {
        if (!m_verifyCanvas)
            m_verifyCanvas = createTarget(32, w, h);
        if (m_verifyCanvas)
            m_verifyBackground = createTarget(m_screen->root_depth, w, h);
        if (!m_verifyBackground) {
            ++s_verifyFailures;
            qCWarning(lcX11Compositor, "No room on the server for a whole rebuild to compare with");
            return;
        }
    }
    // The whole rebuild starts from the same remembered desktop, so only a
    // difference of this frame shows.
    xcb_copy_area(m_c, m_background.pixmap.get(), m_verifyBackground.pixmap.get(),
                  m_backgroundGc.get(), 0, 0, 0, 0, w, h);
    compose({m_verifyCanvas.picture.get(), m_verifyBackground.pixmap.get(),
             m_verifyBackground.picture.get()},
            desktop, fill, windows, cursor, XCB_NONE);
    auto [reply, error] = xcbReply(xcb_get_image_reply, m_c,
                                   xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                 m_verifyCanvas.pixmap.get(), 0, 0, w, h, ~0u));
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
