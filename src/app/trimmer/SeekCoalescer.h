#pragma once

#include <chrono>
#include <functional>
#include <optional>

// Turns the stream of positions a dragged scrubber produces into seeks the decoder can keep up
// with: at most one every `minimumInterval`, the newest position winning while one is held
// back, and the exact position at once when the drag ends. After `rebuildInterval` seeks the
// decoder is worth opening afresh, which drops whatever a long scrub left in its buffers.
//
// Thread: one (the window's). The clock is given so that tests can drive it.
class SeekCoalescer final {
public:
    using Clock = std::chrono::steady_clock;
    using ClockFunction = std::function<Clock::time_point()>;
    static constexpr std::chrono::milliseconds minimumInterval{1000 / 30};
    static constexpr int rebuildInterval = 400;

    explicit SeekCoalescer(ClockFunction clock = [] { return Clock::now(); });

    // A position while dragging: the seek to make now, or nothing when it waits (see `due`).
    std::optional<double> request(double seconds);
    // The held-back position once its turn has come; nothing before, or when none waits.
    std::optional<double> takeDue();
    // How long until a held-back position is due; nothing when none waits.
    std::optional<Clock::duration> timeUntilDue() const;
    // The drag ended here: this position is sought at once and anything held back is dropped.
    double finish(double seconds);

    int seekCount() const { return m_seekCount; }
    // Whether the seek just made is one after which the decoder should be rebuilt.
    bool rebuildDue() const { return m_seekCount > 0 && m_seekCount % rebuildInterval == 0; }

private:
    double issue(double seconds);

    ClockFunction m_clock;
    std::optional<Clock::time_point> m_lastSeek;
    std::optional<double> m_pending;
    int m_seekCount = 0;
};
