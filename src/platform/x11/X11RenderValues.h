#pragma once

// Values as Render takes them.

#include <QColor>
#include <xcb/render.h>

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

} // namespace vistrel::x11
