#pragma once

#include <QRect>
#include <optional>
#include <xcb/xcb.h>

namespace vistrel::x11 {

// Root-coordinate rectangle of the display with the given id: the RandR
// monitor that holds that output (or, for a monitor without outputs, whose
// name atom is the id), else the output's CRTC. Id 0 means the whole screen.
// Absent when no display has that id.
std::optional<QRect> displayGeometry(xcb_connection_t* connection, const xcb_screen_t* screen,
                                     quint32 displayID);

} // namespace vistrel::x11
