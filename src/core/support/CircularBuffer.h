#pragma once

#include <cstddef>
#include <vector>

// A fixed-capacity ring: fills up in order, then overwrites its oldest slot. `array()` is the
// storage order, not time order. Not thread-safe.
template <typename T>
class CircularBuffer {
public:
    explicit CircularBuffer(std::size_t capacity) : m_capacity(capacity) {
        m_buffer.reserve(capacity);
    }

    void append(const T& value) {
        if (m_capacity == 0)
            return;
        if (m_buffer.size() < m_capacity) {
            m_buffer.push_back(value);
            return;
        }
        m_buffer[m_index] = value;
        m_index = (m_index + 1) % m_capacity;
    }
    const std::vector<T>& array() const { return m_buffer; }
    std::size_t index() const { return m_index; }
    void clear() {
        m_buffer.clear();
        m_index = 0;
    }

private:
    std::vector<T> m_buffer;
    std::size_t m_capacity;
    std::size_t m_index = 0;
};
