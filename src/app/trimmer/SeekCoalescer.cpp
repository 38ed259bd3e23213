#include "app/trimmer/SeekCoalescer.h"

SeekCoalescer::SeekCoalescer(ClockFunction clock) : m_clock(std::move(clock)) {}

double SeekCoalescer::issue(double seconds) {
    m_lastSeek = m_clock();
    m_pending.reset();
    ++m_seekCount;
    return seconds;
}

std::optional<double> SeekCoalescer::request(double seconds) {
    if (!m_lastSeek || m_clock() - *m_lastSeek >= minimumInterval)
        return issue(seconds);
    m_pending = seconds;
    return std::nullopt;
}

std::optional<double> SeekCoalescer::takeDue() {
    if (!m_pending || (m_lastSeek && m_clock() - *m_lastSeek < minimumInterval))
        return std::nullopt;
    return issue(*m_pending);
}

std::optional<SeekCoalescer::Clock::duration> SeekCoalescer::timeUntilDue() const {
    if (!m_pending)
        return std::nullopt;
    if (!m_lastSeek)
        return Clock::duration::zero();
    const Clock::duration left = *m_lastSeek + minimumInterval - m_clock();
    return left > Clock::duration::zero() ? left : Clock::duration::zero();
}

double SeekCoalescer::finish(double seconds) {
    return issue(seconds);
}
