#include "app/trimmer/TrimmerPlayer.h"

#include "app/trimmer/PlayableRanges.h"
#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/TrimmerAudioOutput.h"
#include "core/support/Log.h"

#include <QAudioDevice>
#include <QMediaDevices>
#include <QPointer>

#include <algorithm>
#include <cmath>

TrimmerPlayer::TrimmerPlayer(std::unique_ptr<PreviewRenderer> renderer, double duration,
                             QObject* parent)
    : QObject(parent), m_renderer(std::move(renderer)), m_duration(duration),
      m_ranges(std::make_unique<PlayableRanges>(duration, std::vector<VideoSegment>{})) {
    // The playhead and the frame follow the clock at display rate while playing.
    m_clock.attach([this] { return playbackTime(); });
    connect(&m_clock, &EditorPlaybackClock::currentTimeChanged, this, &TrimmerPlayer::clockTicked);
    connect(&m_clock, &EditorPlaybackClock::frameTicked, this, &TrimmerPlayer::frameTicked);
    m_scrubTimer.setSingleShot(true);
    connect(&m_scrubTimer, &QTimer::timeout, this, &TrimmerPlayer::flushScrub);
    m_refineTimer.setSingleShot(true);
    m_refineTimer.setInterval(150);
    connect(&m_refineTimer, &QTimer::timeout, this, [this] { requestFrame(m_position); });
    m_thread = std::thread([this] { decodeLoop(); });
    requestFrame(0.0);
}

TrimmerPlayer::~TrimmerPlayer() {
    // Closing a sound device may run the event loop: frames delivered then reach no view (the
    // owner's pointer to this player is already gone), and nothing starts again.
    m_closing = true;
    blockSignals(true);
    m_playing = false;
    m_followingAudio = false;
    m_clock.detach();
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_audio)
        disconnect(m_audio.get(), nullptr, this, nullptr);
    m_audio.reset();
}

void TrimmerPlayer::setPosition(double seconds) {
    seconds = std::clamp(seconds, 0.0, m_duration);
    if (seconds == m_position)
        return;
    m_position = seconds;
    emit positionChanged(seconds);
}

void TrimmerPlayer::requestFrame(double seconds, bool rebuild, bool exact) {
    m_lastRequest = seconds;
    {
        std::lock_guard lock(m_mutex);
        Request request;
        request.seconds = seconds;
        request.styled = m_styled;
        request.exact = exact;
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
        PreviewRenderer::Frame frame =
            m_renderer->render(request.seconds, request.styled, request.exact);
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
    if (image.isNull() || m_closing)
        return;
    if (m_playing && start > playbackTime() + 0.001) {
        // A frame made ahead of its time waits for it; one that is not the next (asked for
        // before a seek) is of no use.
        if (m_frameLength > 0 &&
            std::abs(start - (m_frameStart + m_frameLength)) < m_frameLength / 2)
            m_ahead = Ahead{std::move(image), seconds, start, length};
        return;
    }
    show(seconds, std::move(image), start, length);
}

void TrimmerPlayer::show(double seconds, QImage image, double start, double length) {
    if (m_playing) {
        ++m_statistics.shown;
        if (length > 0 && playbackTime() > start + length + 0.5 * length)
            ++m_statistics.late;
        if (start == m_lastPlayedStart)
            ++m_statistics.repeated;
        const double passed = start - m_lastPlayedStart;
        // At normal speed or slower every frame is due; a jump (a removed part, a loop) is not
        // a drop.
        if (m_rate <= 1.0 && m_lastPlayedStart >= 0 && length > 0 && passed > 1.5 * length &&
            passed < 1.0)
            m_statistics.dropped += int(std::lround(passed / length)) - 1;
        if (start > m_lastPlayedStart || passed < -1.0)
            m_lastPlayedStart = start;
    }
    m_frame = std::move(image);
    m_frameTime = seconds;
    m_frameStart = start;
    m_frameLength = length;
    emit frameShown(seconds);
    // While playing, the next frame is made while this one is on screen.
    if (m_playing && length > 0) {
        const double next = start + length * 1.25;
        if (next < m_duration && m_ranges->resolve(next) == next)
            requestFrame(next);
    }
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

void TrimmerPlayer::openAudio(const std::filesystem::path& movie) {
    openAudio(movie, QMediaDevices::defaultAudioOutput());
}

void TrimmerPlayer::openAudio(const std::filesystem::path& movie, const QAudioDevice& device) {
    pause();
    std::string error;
    m_audio = TrimmerAudioOutput::open(movie, m_duration, device, error);
    if (!error.empty())
        logLine("⚠️ The trimmer plays without sound: {}", error);
    if (!m_audio)
        return;
    m_audio->setVolume(m_volume);
    m_audio->setMuted(m_muted);
    connect(m_audio.get(), &TrimmerAudioOutput::failed, this, [this] {
        // The picture goes on from where the sound stopped, by the steady clock.
        if (m_followingAudio) {
            m_followingAudio = false;
            restartClocks(m_position);
        }
    });
}

void TrimmerPlayer::setVolume(double volume) {
    m_volume = std::clamp(volume, 0.0, 1.0);
    if (m_audio)
        m_audio->setVolume(m_volume);
    emit volumeChanged(m_volume, m_muted);
}

void TrimmerPlayer::setMuted(bool muted) {
    m_muted = muted;
    if (m_audio)
        m_audio->setMuted(muted);
    emit volumeChanged(m_volume, m_muted);
}

void TrimmerPlayer::setCutSegments(const std::vector<VideoSegment>& segments) {
    PlayableRanges ranges(m_duration, segments);
    if (ranges == *m_ranges)
        return;
    *m_ranges = std::move(ranges);
    if (m_playing)
        restartClocks(m_ranges->resolve(m_position));
}

void TrimmerPlayer::setLooping(bool looping) {
    if (looping == m_looping)
        return;
    m_looping = looping;
    if (m_playing && m_followingAudio)
        restartClocks(m_position);
}

double TrimmerPlayer::playbackTime() const {
    if (!m_playing)
        return m_position;
    if (m_followingAudio) {
        if (const std::optional<double> heard = m_audio->position())
            return *heard;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_anchorTime;
    return m_anchorPosition + elapsed.count() * m_rate;
}

void TrimmerPlayer::restartClocks(double seconds) {
    m_anchorTime = std::chrono::steady_clock::now();
    m_anchorPosition = seconds;
    m_lastPlayedStart = -1.0;
    m_lastRequest = -1.0;
    m_ahead.reset();
    m_audioMovedAt = m_anchorTime;
    m_audioLastPosition = -1.0;
    m_followingAudio = m_playing && m_audio && !m_audio->hasFailed() &&
                       m_audio->start(seconds, m_rate, *m_ranges, m_looping);
}

void TrimmerPlayer::play() {
    if (m_playing)
        return;
    if (m_ranges->isEmpty())
        return;
    if (m_ranges->resolve(m_position) >= m_duration)
        setPosition(m_ranges->first());
    else
        setPosition(m_ranges->resolve(m_position));
    m_playing = true;
    m_statistics = {};
    restartClocks(m_position);
    m_clock.start();
    emit playingChanged(true);
}

void TrimmerPlayer::pause() {
    if (!m_playing)
        return;
    // The position heard last is where the pause leaves the playhead.
    const double at = std::clamp(playbackTime(), 0.0, m_duration);
    m_playing = false;
    m_followingAudio = false;
    if (m_audio)
        m_audio->stop();
    m_clock.stop();
    m_ahead.reset();
    setPosition(at);
    emit playingChanged(false);
    requestFrame(m_position);
}

void TrimmerPlayer::finishPlayback() {
    m_playing = false;
    m_followingAudio = false;
    if (m_audio)
        m_audio->stop();
    m_clock.stop();
    setPosition(m_duration);
    emit playingChanged(false);
    requestFrame(m_position);
}

void TrimmerPlayer::frameTicked() {
    if (!m_playing || !m_followingAudio)
        return;
    // The sound's clock stands still at the end, so its end is watched here.
    if (m_audio->isDrained()) {
        finishPlayback();
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    const double heard = m_audio->position().value_or(-1.0);
    if (heard != m_audioLastPosition) {
        m_audioLastPosition = heard;
        m_audioMovedAt = now;
    } else if (now - m_audioMovedAt > std::chrono::seconds(1)) {
        // A sink that takes nothing for a second is stuck: the picture goes on without it.
        logLine("⚠️ The sound stopped playing; the trimmer goes on without it");
        m_audio->stop();
        m_followingAudio = false;
        const double at = m_position;
        m_anchorTime = now;
        m_anchorPosition = at;
    }
}

void TrimmerPlayer::clockTicked(double position) {
    if (!m_playing)
        return;
    if (!m_followingAudio && m_ranges->resolve(position) >= m_duration) {
        if (!m_looping) {
            finishPlayback();
            return;
        }
        restartClocks(m_ranges->first());
        position = m_ranges->first();
    } else if (!m_followingAudio) {
        // The sound leaves removed parts out by itself; the steady clock is moved over them.
        const double resolved = m_ranges->resolve(position);
        if (resolved != position) {
            restartClocks(resolved);
            position = resolved;
        }
    }
    position = std::min(position, m_duration);
    setPosition(position);
    if (m_ahead && position >= m_ahead->start) {
        Ahead ahead = std::move(*m_ahead);
        m_ahead.reset();
        if (position < ahead.start + ahead.length) {
            show(ahead.seconds, std::move(ahead.image), ahead.start, ahead.length);
            return;
        }
    }
    // The source frame on screen, or the one asked for last, still holds: composing it again
    // would show the same picture and take the time the next one needs.
    if (m_frameTime >= 0 && m_frameLength > 0) {
        const auto frameOf = [this](double t) {
            return std::floor((t - m_frameStart) / m_frameLength + 1e-6);
        };
        const double frame = frameOf(position);
        if (frame == 0.0 || (m_lastRequest >= 0 && frame == frameOf(m_lastRequest)))
            return;
    }
    requestFrame(position);
}

void TrimmerPlayer::setRate(double rate) {
    rate = std::clamp(rate, 0.25, 4.0);
    if (rate == m_rate)
        return;
    // Both clocks start again from here, so the playhead does not jump.
    const double at = playbackTime();
    m_rate = rate;
    if (m_playing)
        restartClocks(at);
    emit rateChanged(rate);
}

void TrimmerPlayer::seek(double seconds) {
    setPosition(seconds);
    if (m_playing)
        restartClocks(m_ranges->resolve(m_position));
    requestFrame(m_position);
}

void TrimmerPlayer::scrub(double seconds) {
    setPosition(seconds);
    m_refineTimer.start();
    if (const auto now = m_coalescer.request(m_position)) {
        requestFrame(*now, m_coalescer.rebuildDue(), false);
        return;
    }
    if (const auto wait = m_coalescer.timeUntilDue(); wait && !m_scrubTimer.isActive()) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(*wait).count();
        m_scrubTimer.start(int(std::max<long long>(ms, 1)));
    }
}

void TrimmerPlayer::flushScrub() {
    if (const auto due = m_coalescer.takeDue()) {
        requestFrame(*due, m_coalescer.rebuildDue(), false);
    } else if (const auto wait = m_coalescer.timeUntilDue()) {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(*wait).count();
        m_scrubTimer.start(int(std::max<long long>(ms, 1)));
    }
}

void TrimmerPlayer::endScrub(double seconds) {
    m_scrubTimer.stop();
    m_refineTimer.stop();
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
