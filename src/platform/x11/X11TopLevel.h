#pragma once

// One child of the root as the compositor sees it: geometry, map state, who
// owns it and what it is drawn from.
//
// Worker thread only. Coordinates are root coordinates (y-down, pixels).

#include "platform/WindowAdmission.h"
#include "platform/x11/X11WindowResources.h"

#include <QRect>
#include <xcb/xcb.h>

namespace vistrel::x11 {

struct TopLevel {
    xcb_window_t id = 0;
    QRect outer; // including the border
    int border = 0;
    bool mapped = false;
    bool overrideRedirect = false;
    bool inputOnly = false;
    xcb_visualid_t visual = 0;

    // Resolved whenever the window or its content changes owner (map,
    // reparent inside it, the client's class, pid or type property);
    // compositing waits for it, and admission never draws an unknown owner.
    bool factsResolved = false;
    WindowFacts facts;
    bool orphaned = false; // a frame that lost its client: never drawn

    X11WindowResources resources;
    bool drawn = false; // part of the latest frame
};

} // namespace vistrel::x11
