#include "platform/x11/X11Monitors.h"

#include "platform/x11/XcbPtr.h"

#include <cstring>
#include <xcb/randr.h>

namespace vistrel::x11 {

namespace {

QString atomName(xcb_connection_t* c, xcb_atom_t atom)
{
    auto [reply, e] = xcbReply(xcb_get_atom_name_reply, c, xcb_get_atom_name(c, atom));
    if (!reply)
        return {};
    return QString::fromUtf8(xcb_get_atom_name_name(reply.get()),
                             xcb_get_atom_name_name_length(reply.get()));
}

std::optional<QString> outputProductName(xcb_connection_t* c, xcb_randr_output_t output,
                                         xcb_atom_t edidAtom)
{
    if (edidAtom == XCB_ATOM_NONE)
        return std::nullopt;
    auto [reply, e] =
        xcbReply(xcb_randr_get_output_property_reply, c,
                 xcb_randr_get_output_property(c, output, edidAtom, XCB_ATOM_ANY, 0, 128, 0, 0));
    if (!reply || reply->format != 8)
        return std::nullopt;
    return edidProductName(QByteArrayView(
        reinterpret_cast<const char*>(xcb_randr_get_output_property_data(reply.get())),
        xcb_randr_get_output_property_data_length(reply.get())));
}

} // namespace

QList<X11Monitor> readMonitors(xcb_connection_t* c, const xcb_screen_t* screen)
{
    QList<X11Monitor> result;
    auto [monitors, e] =
        xcbReply(xcb_randr_get_monitors_reply, c, xcb_randr_get_monitors(c, screen->root, 1));
    if (!monitors)
        return result;
    // only_if_exists: no EDID atom means no output has ever had one.
    auto [edid, e2] = xcbReply(xcb_intern_atom_reply, c, xcb_intern_atom(c, 1, 4, "EDID"));
    const xcb_atom_t edidAtom = edid ? edid->atom : xcb_atom_t(XCB_ATOM_NONE);
    for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
         xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t* m = it.data;
        const xcb_randr_output_t* outputs = xcb_randr_monitor_info_outputs(m);
        const bool hasOutput = xcb_randr_monitor_info_outputs_length(m) > 0;
        X11Monitor monitor;
        monitor.displayID = hasOutput ? outputs[0] : m->name;
        monitor.name = atomName(c, m->name);
        if (hasOutput)
            monitor.productName = outputProductName(c, outputs[0], edidAtom);
        monitor.geometry = QRect(m->x, m->y, m->width, m->height);
        result << monitor;
    }
    return result;
}

std::optional<QString> edidProductName(QByteArrayView edid)
{
    static constexpr unsigned char header[] = {0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0};
    if (edid.size() < 128 || std::memcmp(edid.data(), header, sizeof header) != 0)
        return std::nullopt;
    for (int offset = 54; offset <= 108; offset += 18) {
        const auto* d = reinterpret_cast<const unsigned char*>(edid.data()) + offset;
        if (d[0] != 0 || d[1] != 0 || d[3] != 0xfc)
            continue;
        QByteArray name(reinterpret_cast<const char*>(d + 5), 13);
        if (const qsizetype end = name.indexOf('\n'); end >= 0)
            name.truncate(end);
        const QString text = QString::fromLatin1(name).trimmed();
        if (!text.isEmpty())
            return text;
    }
    return std::nullopt;
}

} // namespace vistrel::x11
