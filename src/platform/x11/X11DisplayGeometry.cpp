#include "platform/x11/X11DisplayGeometry.h"

#include "platform/x11/XcbPtr.h"

#include <xcb/randr.h>

namespace vistrel::x11 {

std::optional<QRect> displayGeometry(xcb_connection_t* c, const xcb_screen_t* screen,
                                     quint32 displayID)
{
    const QRect whole(0, 0, screen->width_in_pixels, screen->height_in_pixels);
    if (displayID == 0)
        return whole;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (!randr || !randr->present)
        return std::nullopt;
    auto [monitors, error] =
        xcbReply(xcb_randr_get_monitors_reply, c, xcb_randr_get_monitors(c, screen->root, 1));
    if (monitors) {
        auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get());
        for (; it.rem; xcb_randr_monitor_info_next(&it)) {
            const xcb_randr_monitor_info_t* m = it.data;
            const QRect rect(m->x, m->y, m->width, m->height);
            const xcb_randr_output_t* outputs = xcb_randr_monitor_info_outputs(m);
            for (int i = 0; i < xcb_randr_monitor_info_outputs_length(m); ++i)
                if (outputs[i] == displayID)
                    return rect;
            if (m->name == displayID)
                return rect;
        }
    }
    auto [output, oError] = xcbReply(xcb_randr_get_output_info_reply, c,
                                     xcb_randr_get_output_info(c, displayID, XCB_CURRENT_TIME));
    if (!output || output->crtc == XCB_NONE)
        return std::nullopt;
    auto [crtc, cError] = xcbReply(xcb_randr_get_crtc_info_reply, c,
                                   xcb_randr_get_crtc_info(c, output->crtc, XCB_CURRENT_TIME));
    if (!crtc || crtc->width == 0)
        return std::nullopt;
    return QRect(crtc->x, crtc->y, crtc->width, crtc->height);
}

} // namespace vistrel::x11
