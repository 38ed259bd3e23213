#include "app/trimmer/TrimmerPlayer.h"

#include "app/trimmer/PreviewRenderer.h"

#include <QPointer>

#include <algorithm>
#include <cmath>

namespace {
// The display's pace: the playhead and the frame follow the clock at about 60 a second.
constexpr int displayIntervalMs = 16;
} // namespace

TrimmerPlayer::TrimmerPlayer(std::unique_ptr<PreviewRenderer> renderer, double duration,
                             QObject* parent)
    : QObject(parent), m_renderer(std::move(renderer)), m_duration(duration) {
    m_displayTimer.setTimerType(Qt::PreciseTimer);
    m_displayTimer.setInterval(displayIntervalMs);
    connect(&m_displayTimer, &QTimer::timeout, this, &TrimmerPlayer::tick);
    m_scrubTimer.setSingleShot(true);
    connect(&m_scrubTimer, &QTimer::timeout, this, &TrimmerPlayer::flushScrub);
    m_thread = std::thread([this] { decodeLoop(); });
    requestFrame(0.0);
}

TrimmerPlayer::~TrimmerPlayer() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void TrimmerPlayer::setPosition(double seconds) {
    seconds = std::clamp(seconds, 0.0, m_duration);
    if (seconds == m_position)
        return;
    m_position = seconds;
    emit positionChanged(seconds);
}

void TrimmerPlayer::requestFrame(double seconds, bool rebuild) {
    {
        std::lock_guard lock(m_mutex);
        Request request;
        request.seconds = seconds;
        request.styled = m_styled;
        // A rebuild asked for earlier and not yet done still happens.
        request.rebuild = rebuild || (m_request && m_request->rebuild);
        request.settings = std::move(m_pendingSettings);
        m_pendingSettings = nullptr;
        if (m_request && m_request->settings && !request.settings)
            request.settings = std::move(m_request->settings);
        m_request = std::move(request);
    }
    m_wake.notify_one();
}

void TrimmerPlayer::decodeLoop() {
    for (;;) {
        Request request;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || m_request; });
            if (m_stopping)
                return;
            request = std::move(*m_request);
            m_request.reset();
        }
        if (request.settings)
            m_renderer->setSettings(*request.settings);
        if (request.rebuild)
            m_renderer->rebuild();
        PreviewRenderer::Frame frame = m_renderer->render(request.seconds, request.styled);
        QPointer<TrimmerPlayer> self(this);
        QMetaObject::invokeMethod(
            this,
            [self, seconds = request.seconds, frame = std::move(frame)]() mutable {
                const double length = frame.duration.isNumeric() ? frame.duration.seconds() : 0.0;
                if (self)
                    self->deliver(seconds, std::move(frame.image), frame.start.seconds(), length);
            },
            Qt::QueuedConnection);
    }
}

void TrimmerPlayer::deliver(double seconds, QImage image, double start, double length) {
    if (image.isNull())
        return;
    m_frame = std::move(image);
    m_frameTime = seconds;
    m_frameStart = start;
    m_frameLength = length;
    emit frameShown(seconds);
}

void TrimmerPlayer::setStyled(bool styled) {
    if (m_styled == styled)
        return;
    m_styled = styled;
    requestFrame(m_position);
}

void TrimmerPlayer::setCompositorSettings(const RoundedCameraCompositorSettings& settings) {
    {
        std::lock_guard lock(m_mutex);
        m_pendingSettings = std::make_shared<const RoundedCameraCompositorSettings>(settings);
    }
    requestFrame(m_position);
}

void TrimmerPlayer::play() {
    if (m_playing)
        return;
    if (m_position >= m_duration)
        setPosition(0.0);
    m_anchorTime = std::chrono::steady_clock::now();
    m_anchorPosition = m_position;
    m_playing = true;
    m_displayTimer.start();
    emit playingChanged(true);
}

void TrimmerPlayer::pause() {
    if (!m_playing)
        return;
    m_playing = false;
    m_displayTimer.stop();
    emit playingChanged(false);
    requestFrame(m_position);
}

void TrimmerPlayer::tick() {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_anchorTime;
    double position = m_anchorPosition + elapsed.count() * m_rate;
    if (position >= m_duration) {
        if (m_looping) {
            m_anchorTime = std::chrono::steady_clock::now();
            m_anchorPosition = 0.0;
            position = 0.0;
        } else {
            setPosition(m_duration);
            pause();
            return;
        }
    }
    setPosition(position);
    requestFrame(position);
}

void TrimmerPlayer::setRate(double rate) {
    rate = std::clamp(rate, 0.25, 4.0);
    if (rate == m_rate)
        return;
    // The clock is re-anchored here, so the playhead does not jump.
    m_anchorTime = std::chrono::steady_clock::now();
    m_anchorPosition = m_position;
    m_rate = rate;
    emit rateChanged(rate);
}

void TrimmerPlayer::seek(double seconds) {
    setPosition(seconds);
    if (m_playing) {
        m_anchorTime = std::chrono::steady_clock::now();
        m_anchorPosition = m_position;
    }
    requestFrame(m_position);
}

void TrimmerPlayer::scrub(double seconds) {
    setPosition(seconds);
    if (const auto now = m_coalescer.request(m_position)) {
        requestFrame(*now, m_coalescer.rebuildDue());
        return;
    }
    if (const auto wait = m_coalescer.timeUntilDue(); wait && !m_scrubTimer.isActive()) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(*wait).count();
        m_scrubTimer.start(int(std::max<long long>(ms, 1)));
    }
}

void TrimmerPlayer::flushScrub() {
    if (const auto due = m_coalescer.takeDue()) {
        requestFrame(*due, m_coalescer.rebuildDue());
    } else if (const auto wait = m_coalescer.timeUntilDue()) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(*wait).count();
        m_scrubTimer.start(int(std::max<long long>(ms, 1)));
    }
}

void TrimmerPlayer::endScrub(double seconds) {
    m_scrubTimer.stop();
    setPosition(seconds);
    requestFrame(m_coalescer.finish(m_position), m_coalescer.rebuildDue());
}

void TrimmerPlayer::step(int frames) {
    pause();
    // Steps go from the frame on screen, by its own length, so they land on every frame.
    const double length = m_frameLength > 0 ? m_frameLength : 1.0 / 60.0;
    const double start = m_frameTime >= 0 ? m_frameStart : m_position;
    // A quarter into the target frame, so rounding never lands just before its start.
    const double target = start + length * (frames + 0.25);
    seek(std::clamp(target, 0.0, m_duration));
}
