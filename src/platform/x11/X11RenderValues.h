#pragma once

// Values as the server takes them: Render's fixed point and colours, and
// rectangle lists (clips, fills).

#include <QColor>
#include <QList>
#include <QRegion>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace vistrel::x11 {

// 16.16 fixed point.
inline xcb_render_fixed_t renderFixed(double value)
{
    return xcb_render_fixed_t(value * 65536.0);
}

// Premultiplied, 16 bits per channel.
inline xcb_render_color_t renderColor(const QColor& colour)
{
    const double a = colour.alphaF();
    return {quint16(colour.redF() * a * 0xffff), quint16(colour.greenF() * a * 0xffff),
            quint16(colour.blueF() * a * 0xffff), quint16(a * 0xffff)};
}

inline QList<xcb_rectangle_t> xcbRectangles(const QRegion& region)
{
    QList<xcb_rectangle_t> rects;
    rects.reserve(region.rectCount());
    for (const QRect& r : region)
        rects.append({qint16(r.x()), qint16(r.y()), quint16(r.width()), quint16(r.height())});
    return rects;
}

} // namespace vistrel::x11
