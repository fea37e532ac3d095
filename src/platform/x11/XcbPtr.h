#pragma once

// Ownership of XCB replies, errors and connections. Every reply and error
// that libxcb hands out is malloc'ed and must be freed exactly once; every
// call site wraps it at once and null-checks it.

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace vistrel::x11 {

struct FreeDeleter {
    void operator()(void* p) const noexcept { std::free(p); }
};

// A reply or event from libxcb (null when the request failed).
template<class T> using XcbReply = std::unique_ptr<T, FreeDeleter>;

using XcbError = std::unique_ptr<xcb_generic_error_t, FreeDeleter>;

struct ConnectionDeleter {
    void operator()(xcb_connection_t* c) const noexcept
    {
        if (c)
            xcb_disconnect(c);
    }
};

using XcbConnection = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

// Waits for the reply of a request made with a checked cookie, keeping both
// the reply and the error. Usage:
//   auto [reply, error] = xcbReply(xcb_get_geometry_reply, c, cookie);
template<class Fn, class Cookie> auto xcbReply(Fn fn, xcb_connection_t* c, Cookie cookie)
{
    xcb_generic_error_t* rawError = nullptr;
    auto* raw = fn(c, cookie, &rawError);
    using ReplyT = std::remove_pointer_t<decltype(raw)>;
    return std::pair<XcbReply<ReplyT>, XcbError>{XcbReply<ReplyT>(raw), XcbError(rawError)};
}

} // namespace vistrel::x11
