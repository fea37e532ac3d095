#pragma once

// Builds one frame on the server with Render: desktop background (the
// exclusion forms) or a fill colour (the allow list: transparent), the admitted windows in stacking
// order clipped to their painted and shaped region, the cursor, then an optional bilinear scale,
// read back through MIT-SHM into a pooled buffer.
//
// The canvas is kept between frames. When only window contents (and the
// desktop's own pixels, or the cursor) changed since the last frame, only
// the changed region is composed again, by the same steps clipped to it,
// and only what each buffer has not seen yet is read back. Anything else
// (see invalidate) rebuilds the whole frame.
//
// With VISTREL_X11_VERIFY_FRAMES=1 in the environment every partial frame
// is also rebuilt whole on the side and compared with what was delivered;
// a difference is logged and counted (for tests; it costs a full frame).
//
// Worker thread only. `area` is in root coordinates (y-down, pixels).

#include "platform/SampleBuffer.h"
#include "platform/WindowAdmission.h"
#include "platform/x11/X11Cursor.h"
#include "platform/x11/X11RenderFormats.h"
#include "platform/x11/X11ShmImagePool.h"
#include "platform/x11/X11WindowTree.h"
#include "platform/x11/XcbResource.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QRect>
#include <QRegion>
#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>
#include <xcb/damage.h>
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

    bool contributes(const WindowAdmission& admission, const TopLevel& window) const;

    // The next frame is rebuilt whole: the windows' geometry, stacking,
    // shape, mapping or owners changed, or the filter did.
    void invalidate() { m_wholeNext = true; }

    // Partial frames compared with a whole rebuild, and how many differed
    // (process-wide; counted only with verification on).
    static int verifiedFrames() { return s_verified.load(); }
    static int verificationFailures() { return s_verifyFailures.load(); }

    // Cursor: the image is re-read after the server says it changed; the
    // position is polled. pollCursor returns true when the drawn cursor moved.
    void cursorImageChanged() { m_cursor->imageChanged(); }
    bool pollCursor();

    // The pointer over a window the filter leaves out is drawn as a plain
    // arrow: that window's cursor image could tell what it shows.
    // `changed`: where this frame differs from the previous one rendered
    // (output pixels); absent when it was built whole.
    Status render(X11WindowTree& tree, const WindowAdmission& admission, const QColor& fill,
                  bool showCursor, QImage* image, std::optional<QRegion>* changed,
                  ServerFrame* server);

private:
    // A pixmap and a picture on it.
    struct Target {
        XcbPixmap pixmap;
        XcbPicture picture;
        explicit operator bool() const { return bool(picture); }
    };
    struct Canvas {
        xcb_render_picture_t picture;
        xcb_pixmap_t background;
        xcb_render_picture_t backgroundPicture;
    };

    void releaseTargets();
    // ARGB at depth 32, else the root's format; empty when the server refused.
    Target createTarget(quint8 depth, quint16 width, quint16 height);
    // Fill or background, windows and cursor onto `canvas`; only inside
    // `limit` (canvas coordinates) unless it is XCB_NONE.
    void compose(const Canvas& canvas, bool desktop, const QColor& fill,
                 const QList<const TopLevel*>& windows, bool cursor, xcb_xfixes_region_t limit);
    // A picture on a pool buffer's pixmap, made once per buffer.
    xcb_render_picture_t bufferPicture(xcb_pixmap_t pixmap);
    QRect cursorRect() const; // canvas coordinates
    void addRect(const QRect& rect);
    bool sampleBackgroundColour(X11WindowTree& tree, quint32* pixel);
    // Where windows cover the root (their bounding shapes), canvas coordinates.
    void collectCovered(X11WindowTree& tree);
    void verify(const QImage& delivered, bool desktop, const QColor& fill,
                const QList<const TopLevel*>& windows, bool cursor);

    xcb_connection_t* m_c;
    const xcb_screen_t* m_screen;
    const X11RenderFormats& m_formats;

    QRect m_area;
    QSize m_output;
    // Composed into, then copied to the buffers: when the output is scaled
    // or the buffers are not pixmaps. Otherwise frames are composed in them.
    Target m_canvas;
    Target m_scaled; // when the output size differs from the area's
    // The desktop's own pixels where no window covers them, kept from frame
    // to frame so that what lies behind an excluded window is the desktop.
    Target m_background;
    XcbGc m_backgroundGc;
    std::unique_ptr<X11ShmImagePool> m_pool;
    std::vector<std::pair<xcb_pixmap_t, XcbPicture>> m_bufferPictures;

    // What the canvas holds, so that the next frame can be partial.
    bool m_wholeNext = true;
    bool m_lastDesktop = false;
    QRgb m_lastFill = 0;
    QRect m_drawnCursor; // canvas coordinates; empty when none was drawn
    XcbDamage m_rootDamage;
    XcbRegion m_changed; // this frame's region, canvas coordinates
    XcbRegion m_scratch;
    XcbRegion m_windowClip;
    XcbRegion m_underlay; // what a partial frame draws below the windows
    // Where windows covered the root when the canvas was last built whole:
    // until something moves, maps or reshapes (which rebuilds whole), root
    // damage there is a window drawing, not the desktop changing.
    XcbRegion m_covered;
    bool m_coveredStale = true;

    const bool m_verify;
    Target m_verifyCanvas;
    Target m_verifyBackground;
    static std::atomic<int> s_verified;
    static std::atomic<int> s_verifyFailures;

    std::unique_ptr<X11Cursor> m_cursor;
};

} // namespace vistrel::x11
