#pragma once

// Builds one frame on the server with Render: desktop background (the
// exclusion forms) or a fill colour (the allow list: transparent), the admitted windows in stacking
// order clipped to their painted and shaped region, the cursor, then an optional bilinear scale,
// read back through MIT-SHM into a pooled buffer.
//
// Worker thread only. `area` is in root coordinates (y-down, pixels).

#include "platform/ContentFilter.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11ShmImagePool.h"
#include "platform/x11/X11WindowTree.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QRect>
#include <memory>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11Compositor {
public:
    enum class Status { frame, busy, failed };

    X11Compositor(xcb_connection_t* connection, const xcb_screen_t* screen,
                  const X11RenderFormats& formats);
    ~X11Compositor();
    X11Compositor(const X11Compositor&) = delete;
    X11Compositor& operator=(const X11Compositor&) = delete;

    // (Re)allocates the canvas, the scale target and the buffer pool. False
    // when the server refused them.
    bool configure(const QRect& area, QSize output, int queueDepth, X11WindowTree& tree);
    const QRect& area() const { return m_area; }

    bool contributes(const ContentFilter& filter, const TopLevel& window) const;

    // Cursor: the image is re-read after the server says it changed; the
    // position is polled. pollCursor returns true when the drawn cursor moved.
    void cursorImageChanged() { m_cursorStale = true; }
    bool pollCursor();

    Status render(X11WindowTree& tree, const ContentFilter& filter, const QColor& fill,
                  bool showCursor, QImage* image);

private:
    void releaseTargets();
    void drawBackground(X11WindowTree& tree);
    void drawCursor();
    void loadCursor();
    bool sampleBackgroundColour(X11WindowTree& tree, quint32* pixel);

    xcb_connection_t* m_c;
    const xcb_screen_t* m_screen;
    const X11RenderFormats& m_formats;

    QRect m_area;
    QSize m_output;
    xcb_pixmap_t m_canvas = 0;
    xcb_render_picture_t m_canvasPicture = 0;
    xcb_pixmap_t m_scaled = 0;
    xcb_render_picture_t m_scaledPicture = 0;
    // The desktop's own pixels where no window covers them, kept from frame
    // to frame so that what lies behind an excluded window is the desktop.
    xcb_pixmap_t m_background = 0;
    xcb_render_picture_t m_backgroundPicture = 0;
    xcb_gcontext_t m_backgroundGc = 0;
    std::unique_ptr<X11ShmImagePool> m_pool;

    xcb_pixmap_t m_cursorPixmap = 0;
    xcb_render_picture_t m_cursorPicture = 0;
    QPoint m_cursorHotspot;
    QSize m_cursorSize;
    QPoint m_cursorPosition{-100000, -100000};
    bool m_cursorStale = true;
};

} // namespace vistrel::x11
