#include "platform/x11/X11RenderFormats.h"

#include "platform/x11/XcbPtr.h"

namespace vistrel::x11 {

bool X11RenderFormats::load(xcb_connection_t* c)
{
    auto [reply, error] =
        xcbReply(xcb_render_query_pict_formats_reply, c, xcb_render_query_pict_formats(c));
    if (!reply)
        return false;
    auto formats = xcb_render_query_pict_formats_formats_iterator(reply.get());
    for (; formats.rem; xcb_render_pictforminfo_next(&formats)) {
        const xcb_render_pictforminfo_t& f = *formats.data;
        if (f.type != XCB_RENDER_PICT_TYPE_DIRECT)
            continue;
        const auto& d = f.direct;
        hasAlpha.insert(f.id, d.alpha_mask != 0);
        const bool rgb = d.red_shift == 16 && d.red_mask == 0xff && d.green_shift == 8 &&
                         d.green_mask == 0xff && d.blue_shift == 0 && d.blue_mask == 0xff;
        if (rgb && f.depth == 32 && d.alpha_shift == 24 && d.alpha_mask == 0xff)
            argb32 = f.id;
        if (rgb && f.depth == 24 && d.alpha_mask == 0)
            rgb24 = f.id;
    }
    auto screens = xcb_render_query_pict_formats_screens_iterator(reply.get());
    for (; screens.rem; xcb_render_pictscreen_next(&screens)) {
        auto depths = xcb_render_pictscreen_depths_iterator(screens.data);
        for (; depths.rem; xcb_render_pictdepth_next(&depths)) {
            auto visuals = xcb_render_pictdepth_visuals_iterator(depths.data);
            for (; visuals.rem; xcb_render_pictvisual_next(&visuals))
                byVisual.insert(visuals.data->visual, visuals.data->format);
        }
    }
    return argb32 != 0 && rgb24 != 0;
}

} // namespace vistrel::x11
