#include "platform/x11/X11ShmImagePool.h"

#include "platform/x11/X11RenderValues.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>

namespace vistrel::x11 {

struct X11ShmImagePool::Buffer {
    State* owner = nullptr;
    xcb_shm_seg_t segment = 0; // owned by the pool
    xcb_pixmap_t pixmap = 0;   // the segment as a pixmap, when the server shares them
    uchar* memory = nullptr;
    bool inUse = false;
    // Worker thread only: what changed since this buffer was last filled.
    QRegion stale;
    // Keeps the pool's memory alive while an image wraps this buffer.
    std::shared_ptr<State> keepAlive;
};

struct X11ShmImagePool::State {
    std::mutex mutex;
    std::vector<Buffer> buffers;

    ~State()
    {
        for (Buffer& b : buffers)
            if (b.memory)
                shmdt(b.memory);
    }
};

namespace {

void returnBuffer(void* info)
{
    auto* buffer = static_cast<X11ShmImagePool::Buffer*>(info);
    std::shared_ptr<X11ShmImagePool::State> last;
    {
        std::lock_guard lock(buffer->owner->mutex);
        buffer->inUse = false;
        last = std::move(buffer->keepAlive);
    }
    // `last` may be the final reference: the pool's memory goes with it,
    // after the lock above has been released.
}

// A shared segment of `bytes`, attached here and by the server; empty when
// either refused (then `*memory` is what still needs detaching, or null).
XcbShmSegment attachSegment(xcb_connection_t* c, size_t bytes, uchar** memory)
{
    *memory = nullptr;
    const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (id < 0)
        return {};
    void* mapped = shmat(id, nullptr, 0);
    if (mapped == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return {};
    }
    *memory = static_cast<uchar*>(mapped);
    const xcb_shm_seg_t segment = xcb_generate_id(c);
    auto error = XcbError(xcb_request_check(c, xcb_shm_attach_checked(c, segment, quint32(id), 0)));
    // Marked for removal at once: the memory goes when the last user detaches,
    // even if this process dies.
    shmctl(id, IPC_RMID, nullptr);
    return error ? XcbShmSegment() : XcbShmSegment(c, segment);
}

// Above this share of the frame one plain read is cheaper than reading the
// parts and copying their rows.
constexpr double wholeReadShare = 0.5;
// More rectangles than this are read as their bounding rectangle.
constexpr int maxParts = 32;

std::atomic<quint64> poolsMade{0};

bool sharesPixmaps(xcb_connection_t* c)
{
    auto [version, error] = xcbReply(xcb_shm_query_version_reply, c, xcb_shm_query_version(c));
    return version && version->shared_pixmaps &&
           version->pixmap_format == XCB_IMAGE_FORMAT_Z_PIXMAP;
}

} // namespace

X11ShmImagePool::X11ShmImagePool(xcb_connection_t* connection, QSize size, int count,
                                 xcb_window_t root)
    : m_c(connection), m_size(size), m_serial(++poolsMade), m_state(std::make_shared<State>())
{
    // VISTREL_X11_SHARED_PIXMAPS=0 reads frames back instead, for a server
    // whose shared pixmaps misbehave.
    const bool pixmaps =
        root != XCB_NONE && qgetenv("VISTREL_X11_SHARED_PIXMAPS") != "0" && sharesPixmaps(m_c);
    const size_t bytes = size_t(size.width()) * size_t(size.height()) * 4;
    m_state->buffers.resize(size_t(std::max(count, 1)));
    for (Buffer& b : m_state->buffers) {
        b.owner = m_state.get();
        b.stale = QRegion(QRect(QPoint(0, 0), size));
        XcbShmSegment segment = attachSegment(m_c, bytes, &b.memory);
        if (!segment) {
            discard();
            return;
        }
        b.segment = segment.get();
        m_segments.push_back(std::move(segment));
        if (pixmaps) {
            const xcb_pixmap_t pixmap = xcb_generate_id(m_c);
            auto error = XcbError(xcb_request_check(
                m_c, xcb_shm_create_pixmap_checked(m_c, pixmap, root, quint16(size.width()),
                                                   quint16(size.height()), 32, b.segment, 0)));
            if (!error) {
                b.pixmap = pixmap;
                m_pixmaps.emplace_back(m_c, pixmap);
            }
        }
    }
    // All buffers are pixmaps or none is: one way of reading per pool.
    if (m_pixmaps.size() == m_state->buffers.size()) {
        const quint32 noExposures = 0;
        m_copyGc = createGc(m_c, m_pixmaps.front().get(), XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    } else {
        m_pixmaps.clear();
        for (Buffer& b : m_state->buffers)
            b.pixmap = 0;
        m_scratchSegment = attachSegment(m_c, bytes, &m_scratch);
        if (!m_scratchSegment) {
            discard();
            return;
        }
    }
    m_valid = true;
}

X11ShmImagePool::~X11ShmImagePool()
{
    discard();
    if (m_scratch)
        shmdt(m_scratch);
}

void X11ShmImagePool::discard()
{
    // Buffers still in flight keep their memory (the images own a reference
    // to the state); the server lets go of every segment now.
    m_pixmaps.clear();
    m_copyGc.reset();
    m_segments.clear();
    m_scratchSegment.reset();
    xcb_flush(m_c);
    std::lock_guard lock(m_state->mutex);
    for (Buffer& b : m_state->buffers) {
        b.pixmap = 0;
        b.segment = 0;
    }
    m_valid = false;
}

bool X11ShmImagePool::isValid() const
{
    return m_valid;
}

X11ShmImagePool::Buffer* X11ShmImagePool::acquire()
{
    if (!m_valid)
        return nullptr;
    std::lock_guard lock(m_state->mutex);
    for (Buffer& b : m_state->buffers) {
        if (!b.inUse) {
            b.inUse = true;
            return &b;
        }
    }
    return nullptr;
}

xcb_shm_seg_t X11ShmImagePool::segment(const Buffer* buffer) const
{
    return buffer->segment;
}

QImage X11ShmImagePool::wrap(Buffer* buffer)
{
    {
        std::lock_guard lock(m_state->mutex);
        buffer->keepAlive = m_state;
    }
    // Read-only: a consumer that paints on its frame gets a copy, so the
    // buffer never holds pixels the server did not send.
    return QImage(static_cast<const uchar*>(buffer->memory), m_size.width(), m_size.height(),
                  m_size.width() * 4, QImage::Format_ARGB32_Premultiplied, &returnBuffer, buffer);
}

xcb_pixmap_t X11ShmImagePool::pixmap(const Buffer* buffer) const
{
    return buffer->pixmap;
}

void X11ShmImagePool::changed(const QRegion& region)
{
    for (Buffer& b : m_state->buffers)
        b.stale += region;
}

void X11ShmImagePool::changedEverywhere()
{
    changed(QRect(QPoint(0, 0), m_size));
}

bool X11ShmImagePool::fill(Buffer* buffer, xcb_drawable_t source)
{
    const QRect bounds(QPoint(0, 0), m_size);
    QRegion region = buffer->stale & bounds;
    if (region.isEmpty())
        return true;
    if (buffer->pixmap) {
        const bool copied = copyInto(buffer, source, region);
        buffer->stale = copied ? QRegion() : QRegion(bounds);
        return copied;
    }
    qint64 pixels = 0;
    for (const QRect& r : region)
        pixels += qint64(r.width()) * r.height();
    if (region.rectCount() > maxParts) {
        region = region.boundingRect();
        pixels = qint64(region.boundingRect().width()) * region.boundingRect().height();
    }
    const bool ok = pixels >= qint64(wholeReadShare * m_size.width() * m_size.height())
                        ? readWhole(buffer, source)
                        : readParts(buffer, source, region);
    buffer->stale = ok ? QRegion() : QRegion(bounds);
    return ok;
}

QRegion X11ShmImagePool::stale(const Buffer* buffer) const
{
    return buffer->stale & QRect(QPoint(0, 0), m_size);
}

void X11ShmImagePool::markFilled(Buffer* buffer)
{
    buffer->stale = QRegion();
}

bool X11ShmImagePool::copyInto(Buffer* buffer, xcb_drawable_t source, const QRegion& region)
{
    const QList<xcb_rectangle_t> rects = xcbRectangles(region);
    xcb_set_clip_rectangles(m_c, XCB_CLIP_ORDERING_UNSORTED, m_copyGc.get(), 0, 0,
                            quint32(rects.size()), rects.constData());
    // Checked: the buffer is handed out only once the server has written it.
    auto error = XcbError(xcb_request_check(
        m_c, xcb_copy_area_checked(m_c, source, buffer->pixmap, m_copyGc.get(), 0, 0, 0, 0,
                                   quint16(m_size.width()), quint16(m_size.height()))));
    return !error;
}

bool X11ShmImagePool::readWhole(Buffer* buffer, xcb_drawable_t source)
{
    auto [reply, error] = xcbReply(
        xcb_shm_get_image_reply, m_c,
        xcb_shm_get_image(m_c, source, 0, 0, quint16(m_size.width()), quint16(m_size.height()), ~0u,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, buffer->segment, 0));
    return bool(reply);
}

bool X11ShmImagePool::readParts(Buffer* buffer, xcb_drawable_t source, const QRegion& region)
{
    // Every part is requested before the first reply is awaited; the server
    // writes each one packed at its own offset of the scratch segment.
    QList<xcb_shm_get_image_cookie_t> cookies;
    QList<quint32> offsets;
    quint32 offset = 0;
    for (const QRect& r : region) {
        cookies.append(xcb_shm_get_image(
            m_c, source, qint16(r.x()), qint16(r.y()), quint16(r.width()), quint16(r.height()), ~0u,
            XCB_IMAGE_FORMAT_Z_PIXMAP, m_scratchSegment.get(), offset));
        offsets.append(offset);
        offset += quint32(r.width() * r.height() * 4);
    }
    bool ok = true;
    for (const auto& cookie : cookies) {
        auto [reply, error] = xcbReply(xcb_shm_get_image_reply, m_c, cookie);
        ok &= bool(reply);
    }
    if (!ok)
        return false;
    const qsizetype stride = qsizetype(m_size.width()) * 4;
    qsizetype part = 0;
    for (const QRect& r : region) {
        const uchar* from = m_scratch + offsets[part++];
        const size_t rowBytes = size_t(r.width()) * 4;
        uchar* to = buffer->memory + r.y() * stride + qsizetype(r.x()) * 4;
        for (int row = 0; row < r.height(); ++row, from += rowBytes, to += stride)
            std::memcpy(to, from, rowBytes);
    }
    return true;
}

void X11ShmImagePool::release(Buffer* buffer)
{
    std::lock_guard lock(m_state->mutex);
    buffer->inUse = false;
}

} // namespace vistrel::x11
