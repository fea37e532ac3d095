#pragma once

// A fixed set of shared-memory frame buffers, allocated once per output size
// (the first read into a fresh segment is slow, so segments are reused).
// Images handed out wrap pool memory; the buffer returns to the pool when
// the last copy of its image goes away, from whatever thread that happens.

#include <QImage>
#include <QSize>
#include <memory>
#include <xcb/shm.h>
#include <xcb/xcb.h>

namespace vistrel::x11 {

class X11ShmImagePool {
public:
    struct Buffer;
    struct State;

    // Worker thread. count buffers of size pixels, 32 bits each.
    X11ShmImagePool(xcb_connection_t* connection, QSize size, int count);
    ~X11ShmImagePool();
    X11ShmImagePool(const X11ShmImagePool&) = delete;
    X11ShmImagePool& operator=(const X11ShmImagePool&) = delete;

    bool isValid() const;
    QSize size() const { return m_size; }

    // A free buffer (segment id for the X server, memory for the reader), or
    // null when every buffer is still in flight.
    Buffer* acquire();
    xcb_shm_seg_t segment(const Buffer* buffer) const;
    // Wraps a filled buffer; the buffer stays out until the image is gone.
    QImage wrap(Buffer* buffer);
    // Gives back a buffer that was acquired but not wrapped.
    void release(Buffer* buffer);

private:
    void discard();

    xcb_connection_t* m_c;
    bool m_valid = false;
    QSize m_size;
    std::shared_ptr<State> m_state;
};

} // namespace vistrel::x11
