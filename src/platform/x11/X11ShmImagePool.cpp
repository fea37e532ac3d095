#include "platform/x11/X11ShmImagePool.h"

#include "platform/x11/XcbPtr.h"

#include <mutex>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>

namespace vistrel::x11 {

struct X11ShmImagePool::Buffer {
    State* owner = nullptr;
    xcb_shm_seg_t segment = 0;
    uchar* memory = nullptr;
    bool inUse = false;
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

} // namespace

X11ShmImagePool::X11ShmImagePool(xcb_connection_t* connection, QSize size, int count)
    : m_c(connection), m_size(size), m_state(std::make_shared<State>())
{
    const size_t bytes = size_t(size.width()) * size_t(size.height()) * 4;
    m_state->buffers.resize(size_t(std::max(count, 1)));
    for (Buffer& b : m_state->buffers) {
        b.owner = m_state.get();
        const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
        if (id < 0) {
            discard();
            return;
        }
        void* memory = shmat(id, nullptr, 0);
        if (memory == reinterpret_cast<void*>(-1)) {
            shmctl(id, IPC_RMID, nullptr);
            discard();
            return;
        }
        b.memory = static_cast<uchar*>(memory);
        b.segment = xcb_generate_id(m_c);
        auto error = XcbError(
            xcb_request_check(m_c, xcb_shm_attach_checked(m_c, b.segment, quint32(id), 0)));
        // Marked for removal at once: the memory goes when the last user detaches,
        // even if this process dies.
        shmctl(id, IPC_RMID, nullptr);
        if (error) {
            b.segment = 0;
            discard();
            return;
        }
    }
    m_valid = true;
}

X11ShmImagePool::~X11ShmImagePool()
{
    discard();
}

void X11ShmImagePool::discard()
{
    // Buffers still in flight keep their memory (the images own a reference
    // to the state); the server lets go of every segment now.
    for (Buffer& b : m_state->buffers)
        if (b.segment)
            xcb_shm_detach(m_c, b.segment);
    xcb_flush(m_c);
    std::lock_guard lock(m_state->mutex);
    for (Buffer& b : m_state->buffers)
        b.segment = 0;
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
    return QImage(buffer->memory, m_size.width(), m_size.height(), m_size.width() * 4,
                  QImage::Format_ARGB32_Premultiplied, &returnBuffer, buffer);
}

void X11ShmImagePool::release(Buffer* buffer)
{
    std::lock_guard lock(m_state->mutex);
    buffer->inUse = false;
}

} // namespace vistrel::x11
