#pragma once

// A fixed set of shared-memory frame buffers, allocated once per output size
// (the first read into a fresh segment is slow, so segments are reused).
// Images handed out wrap pool memory read-only; the buffer returns to the
// pool when the last copy of its image goes away, from whatever thread that
// happens.
//
// A buffer keeps the frame it last held, so only what changed since then is
// read into it again: the pool tracks, per buffer, the region that changed
// on the server since that buffer was filled.

#include "platform/x11/XcbResource.h"

#include <QImage>
#include <QRegion>
#include <QSize>
#include <memory>
#include <vector>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11ShmImagePool {
public:
    struct Buffer;
    struct State;

    // Worker thread. count buffers of size pixels, 32 bits each. With the
    // screen's root given and a server that shares pixmaps, each buffer is
    // also a 32-bit pixmap, and a read is a clipped copy on the server.
    X11ShmImagePool(xcb_connection_t* connection, QSize size, int count,
                    xcb_window_t root = XCB_NONE);
    ~X11ShmImagePool();
    X11ShmImagePool(const X11ShmImagePool&) = delete;
    X11ShmImagePool& operator=(const X11ShmImagePool&) = delete;

    bool isValid() const;
    QSize size() const { return m_size; }

    // A free buffer (segment id for the X server, memory for the reader), or
    // null when every buffer is still in flight.
    Buffer* acquire();
    xcb_shm_seg_t segment(const Buffer* buffer) const;
    // Worker thread. The source changed inside `region` (pool coordinates),
    // or everywhere.
    void changed(const QRegion& region);
    void changedEverywhere();
    // Reads into the buffer what changed since it was last filled. False
    // when the server refused a read (the buffer then counts as unfilled).
    bool fill(Buffer* buffer, xcb_drawable_t source);
    // For a writer that draws into the buffer's pixmap itself: what it has
    // to draw, and that it has.
    QRegion stale(const Buffer* buffer) const;
    void markFilled(Buffer* buffer);
    // Wraps a filled buffer; the buffer stays out until the image is gone.
    QImage wrap(Buffer* buffer);
    // The buffer as a pixmap (0 when the server does not share pixmaps),
    // and this pool's number among all pools of the process.
    xcb_pixmap_t pixmap(const Buffer* buffer) const;
    bool hasPixmaps() const { return !m_pixmaps.empty(); }
    quint64 serial() const { return m_serial; }
    // Gives back a buffer that was acquired but not wrapped.
    void release(Buffer* buffer);

private:
    void discard();
    bool copyInto(Buffer* buffer, xcb_drawable_t source, const QRegion& region);
    bool readWhole(Buffer* buffer, xcb_drawable_t source);
    bool readParts(Buffer* buffer, xcb_drawable_t source, const QRegion& region);

    xcb_connection_t* m_c;
    bool m_valid = false;
    QSize m_size;
    quint64 m_serial;
    std::shared_ptr<State> m_state;
    // The server's side of the buffers lives here, let go of on this
    // thread: the buffers may outlive the pool (an image still wraps one)
    // and only name their segment and pixmap.
    std::vector<XcbShmSegment> m_segments;
    std::vector<XcbPixmap> m_pixmaps; // one per buffer, or none
    XcbGc m_copyGc;                   // with shared pixmaps
    // Sub-rectangles arrive packed, so they are read here first and copied
    // row by row into the buffer.
    XcbShmSegment m_scratchSegment;
    uchar* m_scratch = nullptr;
};

} // namespace vistrel::x11
