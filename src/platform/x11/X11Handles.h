#pragma once

// The owners of what xcb hands out: every reply, error and event is held by X11Reply (xcb
// allocates them with malloc and leaves freeing to the caller), and every server-side resource
// this program creates by an X11Resource alias that destroys it on the connection that made
// it. The System V shared memory that MIT-SHM shares with the server has its two owners here
// too.

#include <xcb/damage.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <sys/shm.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace x11_detail {
struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
struct DetachMapping {
    void operator()(uint8_t* address) const { shmdt(address); }
};
} // namespace x11_detail

// A reply, error or event as xcb returns it; null when the request failed.
template <typename Reply>
using X11Reply = std::unique_ptr<Reply, x11_detail::FreeReply>;
using X11Event = X11Reply<xcb_generic_event_t>;
using X11Error = X11Reply<xcb_generic_error_t>;

// A server-side resource named by an id this client generated, destroyed by `Destroy` on the
// same connection. Destroying one the server already dropped (a window's damage after the
// window went) only earns an error that is never read. Not thread-safe; the connection must
// outlive it.
template <auto Destroy>
class X11Resource final {
public:
    X11Resource() = default;
    X11Resource(xcb_connection_t* connection, uint32_t id) : m_connection(connection), m_id(id) {}
    ~X11Resource() { reset(); }
    X11Resource(X11Resource&& other) noexcept
        : m_connection(other.m_connection), m_id(std::exchange(other.m_id, 0)) {}
    X11Resource& operator=(X11Resource&& other) noexcept {
        if (this != &other) {
            reset();
            m_connection = other.m_connection;
            m_id = std::exchange(other.m_id, 0);
        }
        return *this;
    }

    uint32_t id() const { return m_id; }
    explicit operator bool() const { return m_id != 0; }
    // The request is queued, not flushed: owners flush once after tearing several down.
    void reset() {
        if (m_id)
            Destroy(m_connection, std::exchange(m_id, 0));
    }

private:
    xcb_connection_t* m_connection = nullptr;
    uint32_t m_id = 0;
};

using X11Pixmap = X11Resource<xcb_free_pixmap>;
using X11Damage = X11Resource<xcb_damage_destroy>;
// The server's attachment of a shared memory segment (MIT-SHM).
using X11ShmSegment = X11Resource<xcb_shm_detach>;

// This process's mapping of a System V shared memory segment (shmat's address).
using SharedMemoryMapping = std::unique_ptr<uint8_t, x11_detail::DetachMapping>;

// A System V shared memory segment's id, marked for removal when this goes: the memory itself
// then lasts until every process has detached it, even if this one dies.
class SharedMemoryId final {
public:
    explicit SharedMemoryId(size_t size) : m_id(shmget(IPC_PRIVATE, size, IPC_CREAT | 0600)) {}
    ~SharedMemoryId() {
        if (m_id >= 0)
            shmctl(m_id, IPC_RMID, nullptr);
    }
    SharedMemoryId(const SharedMemoryId&) = delete;
    SharedMemoryId& operator=(const SharedMemoryId&) = delete;

    int id() const { return m_id; }
    explicit operator bool() const { return m_id >= 0; }
    // Null when it cannot be mapped.
    SharedMemoryMapping map() const {
        void* address = m_id >= 0 ? shmat(m_id, nullptr, 0) : reinterpret_cast<void*>(-1);
        return SharedMemoryMapping(
            address == reinterpret_cast<void*>(-1) ? nullptr : static_cast<uint8_t*>(address));
    }

private:
    int m_id = -1;
};
