#include "platform/x11/X11Cursor.h"

#include "platform/x11/XcbPtr.h"

#include <QList>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

namespace {

// A plain arrow, 11 x 17, hotspot at its tip: black inside, white outline.
// Premultiplied ARGB, as cursor pictures are.
QList<quint32> arrowPixels(QSize* size)
{
    static const char* const rows[] = {
        "X          ", "XX         ", "X.X        ", "X..X       ", "X...X      ", "X....X     ",
        "X.....X    ", "X......X   ", "X.......X  ", "X........X ", "X.....XXXXX", "X..X..X    ",
        "X.X X..X   ", "XX  X..X   ", "X    X..X  ", "     X..X  ", "      XX   ",
    };
    *size = QSize(11, 17);
    QList<quint32> pixels;
    for (const char* row : rows)
        for (int x = 0; x < size->width(); ++x)
            pixels << (row[x] == 'X' ? 0xffffffffu : row[x] == '.' ? 0xff000000u : 0u);
    return pixels;
}

} // namespace

X11Cursor::X11Cursor(xcb_connection_t* connection, const xcb_screen_t* screen,
                     const X11RenderFormats& formats)
    : m_c(connection), m_screen(screen), m_formats(formats)
{
}

void X11Cursor::upload(Image* image, QSize size, QPoint hotspot, const quint32* pixels)
{
    Image fresh;
    fresh.pixmap =
        createPixmap(m_c, 32, m_screen->root, quint16(size.width()), quint16(size.height()));
    {
        const XcbGc gc = createGc(m_c, fresh.pixmap.get());
        // Premultiplied ARGB, one 32-bit word per pixel, as the picture expects.
        xcb_put_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, fresh.pixmap.get(), gc.get(),
                      quint16(size.width()), quint16(size.height()), 0, 0, 0, 32,
                      quint32(size.width() * size.height() * 4),
                      reinterpret_cast<const quint8*>(pixels));
    }
    fresh.picture = createPicture(m_c, fresh.pixmap.get(), m_formats.argb32);
    fresh.size = size;
    fresh.hotspot = hotspot;
    *image = std::move(fresh);
}

void X11Cursor::load()
{
    m_stale = false;
    auto [cursor, error] =
        xcbReply(xcb_xfixes_get_cursor_image_reply, m_c, xcb_xfixes_get_cursor_image(m_c));
    if (!cursor || cursor->width == 0 || cursor->height == 0)
        return;
    m_position = QPoint(cursor->x, cursor->y);
    upload(&m_image, QSize(cursor->width, cursor->height), QPoint(cursor->xhot, cursor->yhot),
           xcb_xfixes_get_cursor_image_cursor_image(cursor.get()));
}

bool X11Cursor::poll(const QRect& area)
{
    auto [pointer, error] =
        xcbReply(xcb_query_pointer_reply, m_c, xcb_query_pointer(m_c, m_screen->root));
    if (!pointer)
        return false;
    const QPoint now(pointer->root_x, pointer->root_y);
    if (now == m_position && !m_stale)
        return false;
    const QRect before = rect();
    m_position = now;
    return m_stale || before.intersects(area) || rect().intersects(area);
}

bool X11Cursor::overHiddenWindow(X11WindowTree& tree, const WindowAdmission& admission) const
{
    // The top-most window under the pointer decides its image; input-only
    // windows count, they can set a cursor too.
    const QList<xcb_window_t>& stacking = tree.stacking();
    for (auto it = stacking.crbegin(); it != stacking.crend(); ++it) {
        const TopLevel* w = tree.find(*it);
        if (!w || !w->mapped || !w->outer.contains(m_position))
            continue;
        return !w->factsResolved || !admission.admits(w->facts);
    }
    return false;
}

bool X11Cursor::prepare(X11WindowTree& tree, const WindowAdmission& admission)
{
    bool changed = m_stale;
    if (m_stale)
        load();
    if (!m_arrow.picture) {
        QSize size;
        const QList<quint32> pixels = arrowPixels(&size);
        upload(&m_arrow, size, QPoint(0, 0), pixels.constData());
    }
    const bool overHidden = overHiddenWindow(tree, admission);
    changed |= overHidden != m_overHidden;
    m_overHidden = overHidden;
    return changed;
}

QRect X11Cursor::rect() const
{
    const Image& image = shown();
    return image.picture ? QRect(m_position - image.hotspot, image.size) : QRect();
}

void X11Cursor::draw(xcb_render_picture_t target, QPoint origin) const
{
    const Image& image = shown();
    if (!image.picture)
        return;
    const QPoint at = rect().topLeft() - origin;
    xcb_render_composite(m_c, XCB_RENDER_PICT_OP_OVER, image.picture.get(), XCB_NONE, target, 0, 0,
                         0, 0, qint16(at.x()), qint16(at.y()), quint16(image.size.width()),
                         quint16(image.size.height()));
}

} // namespace vistrel::x11
