#pragma once

// Ownership of what a connection creates on the server: pixmaps, Render
// pictures, XFixes regions, Damage objects, graphics contexts and attached
// shared-memory segments. Each owner frees its resource exactly once, on the
// connection that made it; that connection must outlive the owner (the
// server frees everything of a closed connection anyway, but a request on a
// disconnected xcb_connection_t is a use after free). Move-only, like the
// reply owners in XcbPtr.h.
//
// Threading: the thread that owns the connection. Freeing sends a request
// without flushing; the owner of the connection flushes.

#include "platform/x11/XcbPtr.h"

#include <cstdint>
#include <utility>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace vistrel::x11 {

template<auto Free> class XcbResource {
public:
    XcbResource() = default;
    // Takes over an id that the server has accepted (created, attached).
    XcbResource(xcb_connection_t* connection, std::uint32_t id) noexcept : m_c(connection), m_id(id)
    {
    }
    ~XcbResource() { reset(); }
    XcbResource(XcbResource&& other) noexcept : m_c(other.m_c), m_id(std::exchange(other.m_id, 0))
    {
    }
    XcbResource& operator=(XcbResource&& other) noexcept
    {
        if (this != &other) {
            reset();
            m_c = other.m_c;
            m_id = std::exchange(other.m_id, 0);
        }
        return *this;
    }
    XcbResource(const XcbResource&) = delete;
    XcbResource& operator=(const XcbResource&) = delete;

    std::uint32_t get() const { return m_id; }
    explicit operator bool() const { return m_id != 0; }
    void reset()
    {
        if (m_id)
            Free(m_c, std::exchange(m_id, 0));
    }

private:
    xcb_connection_t* m_c = nullptr;
    std::uint32_t m_id = 0;
};

using XcbPixmap = XcbResource<&xcb_free_pixmap>;
using XcbPicture = XcbResource<&xcb_render_free_picture>;
using XcbRegion = XcbResource<&xcb_xfixes_destroy_region>;
using XcbDamage = XcbResource<&xcb_damage_destroy>;
using XcbGc = XcbResource<&xcb_free_gc>;
using XcbShmSegment = XcbResource<&xcb_shm_detach>;

// Creation without a round trip: errors, if any, arrive as events later.

inline XcbRegion createRegion(xcb_connection_t* c)
{
    const xcb_xfixes_region_t id = xcb_generate_id(c);
    xcb_xfixes_create_region(c, id, 0, nullptr);
    return {c, id};
}

// Reports once whenever the drawable goes from undamaged to damaged.
inline XcbDamage createDamage(xcb_connection_t* c, xcb_drawable_t drawable)
{
    const xcb_damage_damage_t id = xcb_generate_id(c);
    xcb_damage_create(c, id, drawable, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    return {c, id};
}

inline XcbPixmap createPixmap(xcb_connection_t* c, std::uint8_t depth, xcb_drawable_t drawable,
                              std::uint16_t width, std::uint16_t height)
{
    const xcb_pixmap_t id = xcb_generate_id(c);
    xcb_create_pixmap(c, depth, id, drawable, width, height);
    return {c, id};
}

// With a round trip, for allocations that may well fail (frame-sized
// pixmaps): empty when the server refused.
inline XcbPixmap createPixmapChecked(xcb_connection_t* c, std::uint8_t depth,
                                     xcb_drawable_t drawable, std::uint16_t width,
                                     std::uint16_t height)
{
    const xcb_pixmap_t id = xcb_generate_id(c);
    if (XcbError(
            xcb_request_check(c, xcb_create_pixmap_checked(c, depth, id, drawable, width, height))))
        return {};
    return {c, id};
}

inline XcbGc createGc(xcb_connection_t* c, xcb_drawable_t drawable, std::uint32_t mask = 0,
                      const std::uint32_t* values = nullptr)
{
    const xcb_gcontext_t id = xcb_generate_id(c);
    xcb_create_gc(c, id, drawable, mask, values);
    return {c, id};
}

inline XcbPicture createPicture(xcb_connection_t* c, xcb_drawable_t drawable,
                                xcb_render_pictformat_t format, std::uint32_t mask = 0,
                                const std::uint32_t* values = nullptr)
{
    const xcb_render_picture_t id = xcb_generate_id(c);
    xcb_render_create_picture(c, id, drawable, format, mask, values);
    return {c, id};
}

} // namespace vistrel::x11
