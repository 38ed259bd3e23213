#include "app/trimmer/TrimmerAudioOutput.h"

#include "app/trimmer/PlayableRanges.h"
#include "core/support/Log.h"
#include "media/export/AudioTrackReader.h"

#include <QAudioDevice>
#include <QAudioSink>
#include <QIODevice>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {
constexpr int bytesPerFrame = TrimmerAudioOutput::channelCount * int(sizeof(float));
// How far decoding runs ahead of the sink: enough to ride out a busy moment, little enough
// that a seek or a change of speed has nothing much to throw away.
constexpr int64_t queueLimit = TrimmerAudioOutput::sampleRate / 4;
// What is decoded before the sink starts, so that it does not begin by running dry.
constexpr int64_t prefill = TrimmerAudioOutput::sampleRate / 20;
constexpr int silenceChunk = 1024;
} // namespace

// What the sink pulls the samples from.
class TrimmerAudioOutput::Feed final : public QIODevice {
public:
    explicit Feed(TrimmerAudioOutput& output) : m_output(output) {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override {
        std::lock_guard lock(m_output.m_mutex);
        return qint64(m_output.m_queue.size()) * qint64(sizeof(float)) +
               QIODevice::bytesAvailable();
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        std::lock_guard lock(m_output.m_mutex);
        auto& queue = m_output.m_queue;
        const int64_t frames =
            std::min<int64_t>(maxSize / bytesPerFrame, int64_t(queue.size()) / channelCount);
        const size_t values = size_t(frames) * channelCount;
        std::copy(queue.begin(), queue.begin() + std::ptrdiff_t(values),
                  reinterpret_cast<float*>(data));
        queue.erase(queue.begin(), queue.begin() + std::ptrdiff_t(values));
        m_output.m_taken += frames;
        m_output.m_space.notify_one();
        return frames * bytesPerFrame;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    TrimmerAudioOutput& m_output;
};

std::unique_ptr<TrimmerAudioOutput> TrimmerAudioOutput::open(const std::filesystem::path& movie,
                                                             double duration,
                                                             const QAudioDevice& device,
                                                             std::string& error) {
    auto reader = AudioTrackReader::open(movie, {sampleRate, channelCount}, error);
    if (!reader)
        return nullptr;
    return std::unique_ptr<TrimmerAudioOutput>(
        new TrimmerAudioOutput(std::move(reader), duration, device));
}

TrimmerAudioOutput::TrimmerAudioOutput(std::unique_ptr<AudioTrackReader> reader, double duration,
                                       const QAudioDevice& device)
    : m_reader(std::move(reader)), m_duration(duration),
      m_device(std::make_unique<QAudioDevice>(device)), m_feed(std::make_unique<Feed>(*this)) {}

TrimmerAudioOutput::~TrimmerAudioOutput() {
    stop();
    delete m_sink;
}

void TrimmerAudioOutput::fail(const std::string& reason) {
    if (!m_failed)
        logLine("⚠️ The trimmer plays without sound: {}", reason);
    m_failed = true;
}

bool TrimmerAudioOutput::start(double seconds, double rate, const PlayableRanges& ranges,
                               bool looping) {
    // A sink that plays goes on playing: only what it has not taken yet is replaced. Stopping
    // and starting it at once, as a quick run of seeks would, can leave it taking nothing more.
    const bool running = isPlaying() && m_sink && m_sink->state() != QAudio::StoppedState;
    if (running)
        stopDecoding();
    else
        stop();
    if (m_failed)
        return false;
    QAudioFormat format;
    format.setSampleRate(sampleRate);
    format.setChannelCount(channelCount);
    format.setSampleFormat(QAudioFormat::Float);
    if (!running && !m_sink) {
        if (m_device->isNull()) {
            fail("no sound output device");
            return false;
        }
        if (!m_device->isFormatSupported(format)) {
            fail("the sound device " + m_device->description().toStdString() +
                 " cannot play 48 kHz stereo");
            return false;
        }
        m_sink = new QAudioSink(*m_device, format, this);
        connect(m_sink, &QAudioSink::stateChanged, this, [this](QAudio::State state) {
            if (state != QAudio::StoppedState || !isPlaying() || !m_sink ||
                m_sink->error() == QAudio::NoError)
                return;
            fail("the sound device stopped with error " + std::to_string(int(m_sink->error())));
            stop();
            emit failed();
        });
    }
    {
        std::lock_guard lock(m_mutex);
        m_queue.clear();
        m_markers.clear();
        if (!running) {
            m_taken = 0;
            m_lastHeard = 0;
        }
        // What the sink holds already is still heard before the new sound.
        m_written = m_taken;
        m_firstFrame = m_taken;
        m_finished = false;
        m_stopping = false;
    }
    m_rate = rate;
    m_pending.clear();
    m_phase = 0.0;
    m_worker = std::thread([this, seconds, ranges, looping] { decode(seconds, ranges, looping); });
    if (running)
        return true;
    {
        // Decoding is many times faster than playing: this wait is a few milliseconds.
        std::unique_lock lock(m_mutex);
        m_space.wait_for(lock, std::chrono::milliseconds(300),
                         [this] { return m_written >= prefill || m_finished; });
    }
    m_feed->open(QIODevice::ReadOnly);
    applyVolume();
    m_sink->start(m_feed.get());
    if (m_sink->error() != QAudio::NoError) {
        fail("the sound device refused to start (error " + std::to_string(int(m_sink->error())) +
             ")");
        stop();
        return false;
    }
    return true;
}

void TrimmerAudioOutput::stopDecoding() {
    if (!m_worker.joinable())
        return;
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_space.notify_all();
    m_worker.join();
}

void TrimmerAudioOutput::stop() {
    if (!m_worker.joinable())
        return;
    if (m_sink) {
        const QSignalBlocker quiet(m_sink);
        m_sink->stop();
    }
    stopDecoding();
    m_feed->close();
}

void TrimmerAudioOutput::setVolume(double volume) {
    m_volume = std::clamp(volume, 0.0, 1.0);
    applyVolume();
}

void TrimmerAudioOutput::setMuted(bool muted) {
    m_muted = muted;
    applyVolume();
}

void TrimmerAudioOutput::applyVolume() {
    if (m_sink)
        m_sink->setVolume(m_muted ? 0.0 : m_volume);
}

double TrimmerAudioOutput::secondsAt(int64_t frame) const {
    if (m_markers.empty())
        return 0.0;
    auto marker = std::upper_bound(m_markers.begin(), m_markers.end(), frame,
                                   [](int64_t f, const Marker& m) { return f < m.frame; });
    if (marker != m_markers.begin())
        --marker;
    const double seconds = marker->seconds + double(frame - marker->frame) * m_rate / sampleRate;
    return std::min(seconds, m_duration);
}

int64_t TrimmerAudioOutput::heardFrame() const {
    // What the sink holds has been taken from us but not yet played.
    const int64_t buffered =
        m_sink ? std::max<int64_t>(0, m_sink->bufferSize() - m_sink->bytesFree()) / bytesPerFrame
               : 0;
    std::lock_guard lock(m_mutex);
    const int64_t heard = std::clamp<int64_t>(m_taken - buffered, 0, m_taken);
    // The sink's figures move in steps of its own: the clock never goes back.
    m_lastHeard = std::max(m_lastHeard, heard);
    return m_lastHeard;
}

std::optional<double> TrimmerAudioOutput::position() const {
    if (!isPlaying())
        return std::nullopt;
    const int64_t heard = heardFrame();
    std::lock_guard lock(m_mutex);
    // Sound from before the last start still plays out of the sink's buffer.
    if (heard < m_firstFrame)
        return std::nullopt;
    return secondsAt(heard);
}

std::optional<double> TrimmerAudioOutput::consumedPosition() const {
    if (!isPlaying())
        return std::nullopt;
    std::lock_guard lock(m_mutex);
    return secondsAt(m_taken);
}

bool TrimmerAudioOutput::isDrained() const {
    if (!isPlaying())
        return false;
    const int64_t heard = heardFrame();
    // A sink that ran dry has played all it held, whatever its buffer figures say.
    const bool dry = m_sink && m_sink->state() == QAudio::IdleState;
    std::lock_guard lock(m_mutex);
    return m_finished && m_taken >= m_written && (heard >= m_written || dry);
}

// The decoding thread.

void TrimmerAudioOutput::jumpTo(double seconds) {
    m_pending.clear();
    m_phase = 0.0;
    m_reader->seek(MediaTime::fromSeconds(seconds, sampleRate));
    std::lock_guard lock(m_mutex);
    m_markers.push_back({m_written, seconds});
}

bool TrimmerAudioOutput::pushOutput(const float* frames, int64_t count) {
    while (count > 0) {
        std::unique_lock lock(m_mutex);
        m_space.wait(lock, [this] {
            return m_stopping || int64_t(m_queue.size()) / channelCount < queueLimit;
        });
        if (m_stopping)
            return false;
        const int64_t room = queueLimit - int64_t(m_queue.size()) / channelCount;
        const int64_t now = std::min(count, room);
        m_queue.insert(m_queue.end(), frames, frames + now * channelCount);
        m_written += now;
        frames += now * channelCount;
        count -= now;
        m_space.notify_all();
    }
    return true;
}

bool TrimmerAudioOutput::pushSource(const float* frames, int64_t count) {
    if (m_rate == 1.0)
        return pushOutput(frames, count);
    // Linear interpolation between source frames, `m_rate` source frames per output frame.
    m_pending.insert(m_pending.end(), frames, frames + count * channelCount);
    const int64_t available = int64_t(m_pending.size()) / channelCount;
    std::vector<float> out;
    out.reserve(size_t(double(available) / m_rate + 2) * channelCount);
    while (int64_t(m_phase) + 1 < available) {
        const int64_t at = int64_t(m_phase);
        const float weight = float(m_phase - double(at));
        for (int c = 0; c < channelCount; ++c) {
            const float a = m_pending[size_t(at * channelCount + c)];
            const float b = m_pending[size_t((at + 1) * channelCount + c)];
            out.push_back(a + (b - a) * weight);
        }
        m_phase += m_rate;
    }
    const int64_t used = std::min<int64_t>(int64_t(m_phase), available);
    m_pending.erase(m_pending.begin(), m_pending.begin() + std::ptrdiff_t(used * channelCount));
    m_phase -= double(used);
    return pushOutput(out.data(), int64_t(out.size()) / channelCount);
}

bool TrimmerAudioOutput::pushSilence(double seconds) {
    static const std::vector<float> silence(size_t(silenceChunk) * channelCount, 0.0f);
    int64_t frames = std::llround(seconds * sampleRate);
    while (frames > 0) {
        const int64_t now = std::min<int64_t>(frames, silenceChunk);
        if (!pushSource(silence.data(), now))
            return false;
        frames -= now;
    }
    return true;
}

void TrimmerAudioOutput::decode(double seconds, PlayableRanges ranges, bool looping) {
    const double end = std::min(m_duration, ranges.duration());
    double cursor = ranges.resolve(seconds);
    if (cursor >= end && looping)
        cursor = ranges.first();
    if (cursor < end) {
        jumpTo(cursor);
        std::vector<float> interleaved;
        for (;;) {
            const double keptEnd = std::min(ranges.keptEnd(cursor), end);
            while (cursor < keptEnd) {
                const AudioBuffer block = m_reader->nextBuffer();
                if (block.isNull()) {
                    // The sound ended before the picture: silence carries the clock on.
                    if (!pushSilence(keptEnd - cursor))
                        return;
                    cursor = keptEnd;
                    break;
                }
                const double blockStart = block.presentationTime.seconds();
                const int count = block.sampleCount();
                const double gap = blockStart - cursor;
                if (gap * sampleRate >= 1.0) {
                    if (!pushSilence(std::min(gap, keptEnd - cursor)))
                        return;
                    cursor = std::min(blockStart, keptEnd);
                }
                const int first = int(std::clamp<int64_t>(
                    std::llround((cursor - blockStart) * sampleRate), 0, count));
                const int last = int(std::clamp<int64_t>(
                    std::llround((keptEnd - blockStart) * sampleRate), 0, count));
                if (last <= first)
                    continue;
                interleaved.resize(size_t(last - first) * channelCount);
                for (int c = 0; c < channelCount; ++c) {
                    const float* samples = block.channelData(c);
                    for (int i = first; i < last; ++i)
                        interleaved[size_t(i - first) * channelCount + size_t(c)] = samples[i];
                }
                if (!pushSource(interleaved.data(), last - first))
                    return;
                cursor = last == count ? blockStart + double(count) / sampleRate
                                       : blockStart + double(last) / sampleRate;
            }
            double next = ranges.resolve(keptEnd);
            if (next >= end) {
                if (!looping)
                    break;
                next = ranges.first();
            }
            jumpTo(next);
            cursor = next;
        }
    }
    std::lock_guard lock(m_mutex);
    m_finished = true;
    m_space.notify_all();
}
