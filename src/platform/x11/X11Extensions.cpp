#include "platform/x11/X11Extensions.h"

#include "platform/x11/XcbPtr.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/res.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

namespace {

QString missing(const char* name)
{
    return u"The X server does not support the %1 extension, which screen capture needs."_s.arg(
        QLatin1StringView(name));
}

QString tooOld(const char* name, quint32 major, quint32 minor, const char* needed)
{
    return u"The X server's %1 extension is version %2.%3; screen capture needs %4 or later."_s
        .arg(QLatin1StringView(name))
        .arg(major)
        .arg(minor)
        .arg(QLatin1StringView(needed));
}

bool atLeast(quint32 major, quint32 minor, quint32 wantMajor, quint32 wantMinor)
{
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

} // namespace

std::variant<X11Extensions, QString> X11Extensions::check(xcb_connection_t* c)
{
    // Prefetch every extension's presence in one round trip.
    for (xcb_extension_t* ext : {&xcb_composite_id, &xcb_damage_id, &xcb_xfixes_id, &xcb_render_id,
                                 &xcb_shm_id, &xcb_shape_id, &xcb_res_id})
        xcb_prefetch_extension_data(c, ext);

    struct Need {
        xcb_extension_t* ext;
        const char* name;
    };
    for (const Need& need : {Need{&xcb_composite_id, "Composite"}, Need{&xcb_damage_id, "DAMAGE"},
                             Need{&xcb_xfixes_id, "XFIXES"}, Need{&xcb_render_id, "RENDER"},
                             Need{&xcb_shm_id, "MIT-SHM"}, Need{&xcb_shape_id, "SHAPE"}}) {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, need.ext);
        if (!data || !data->present)
            return missing(need.name);
    }

    X11Extensions result;
    result.damageFirstEvent = xcb_get_extension_data(c, &xcb_damage_id)->first_event;
    result.xfixesFirstEvent = xcb_get_extension_data(c, &xcb_xfixes_id)->first_event;
    result.shapeFirstEvent = xcb_get_extension_data(c, &xcb_shape_id)->first_event;

    auto composite =
        xcbReply(xcb_composite_query_version_reply, c, xcb_composite_query_version(c, 0, 4));
    auto damage = xcbReply(xcb_damage_query_version_reply, c, xcb_damage_query_version(c, 1, 1));
    auto xfixes = xcbReply(xcb_xfixes_query_version_reply, c, xcb_xfixes_query_version(c, 5, 0));
    auto render = xcbReply(xcb_render_query_version_reply, c, xcb_render_query_version(c, 0, 11));
    auto shm = xcbReply(xcb_shm_query_version_reply, c, xcb_shm_query_version(c));
    auto shape = xcbReply(xcb_shape_query_version_reply, c, xcb_shape_query_version(c));

    if (!composite.first)
        return missing("Composite");
    if (!atLeast(composite.first->major_version, composite.first->minor_version, 0, 2))
        return tooOld("Composite", composite.first->major_version, composite.first->minor_version,
                      "0.2");
    if (!damage.first)
        return missing("DAMAGE");
    if (!atLeast(damage.first->major_version, damage.first->minor_version, 1, 1))
        return tooOld("DAMAGE", damage.first->major_version, damage.first->minor_version, "1.1");
    if (!xfixes.first)
        return missing("XFIXES");
    if (!atLeast(xfixes.first->major_version, xfixes.first->minor_version, 2, 0))
        return tooOld("XFIXES", xfixes.first->major_version, xfixes.first->minor_version, "2.0");
    if (!render.first)
        return missing("RENDER");
    if (!atLeast(render.first->major_version, render.first->minor_version, 0, 6))
        return tooOld("RENDER", render.first->major_version, render.first->minor_version, "0.6");
    if (!shm.first)
        return missing("MIT-SHM");
    if (!shape.first)
        return missing("SHAPE");
    if (!atLeast(shape.first->major_version, shape.first->minor_version, 1, 1))
        return tooOld("SHAPE", shape.first->major_version, shape.first->minor_version, "1.1");

    const xcb_query_extension_reply_t* res = xcb_get_extension_data(c, &xcb_res_id);
    if (res && res->present) {
        auto version = xcbReply(xcb_res_query_version_reply, c, xcb_res_query_version(c, 1, 2));
        result.hasResource = version.first && atLeast(version.first->server_major,
                                                      version.first->server_minor, 1, 2);
    }
    return result;
}

} // namespace vistrel::x11
