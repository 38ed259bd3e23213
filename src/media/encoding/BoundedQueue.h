#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

// A queue of at most `capacity` items between producers that must never wait and one consumer
// that may. tryPush refuses when full or closed; pop waits for an item or for the close, after
// which the remaining items are still handed out. Thread-safe. The lock is held only to move an
// item in or out, never while the consumer works on one.
template <typename T>
class BoundedQueue final {
public:
    explicit BoundedQueue(size_t capacity) : m_capacity(capacity) {}

    bool tryPush(T item) {
        {
            std::lock_guard lock(m_mutex);
            if (m_closed || m_items.size() >= m_capacity)
                return false;
            m_items.push_back(std::move(item));
        }
        m_ready.notify_one();
        return true;
    }

    // For producers that may wait (an export, not a capture): waits for room; false once closed.
    bool push(T item) {
        {
            std::unique_lock lock(m_mutex);
            m_room.wait(lock, [this] { return m_closed || m_items.size() < m_capacity; });
            if (m_closed)
                return false;
            m_items.push_back(std::move(item));
        }
        m_ready.notify_one();
        return true;
    }

    // Waits for the next item; nothing once the queue is closed and empty.
    std::optional<T> pop() {
        std::unique_lock lock(m_mutex);
        m_ready.wait(lock, [this] { return !m_items.empty() || m_closed; });
        if (m_items.empty())
            return std::nullopt;
        T item = std::move(m_items.front());
        m_items.pop_front();
        lock.unlock();
        m_room.notify_one();
        return item;
    }

    void close() {
        {
            std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_ready.notify_all();
        m_room.notify_all();
    }

    size_t size() const {
        std::lock_guard lock(m_mutex);
        return m_items.size();
    }

private:
    const size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_ready;
    std::condition_variable m_room;
    std::deque<T> m_items;
    bool m_closed = false;
};
