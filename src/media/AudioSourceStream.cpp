#include "media/AudioSourceStream.h"

#include "media/AudioBuffer.h"
#include "media/AudioPackageMixer.h"
#include "media/FFmpegHandles.h"
#include "media/export/AudioTrackReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

AudioSourceStream::AudioSourceStream(std::filesystem::path path)
    : m_path(std::move(path)), m_block(std::make_unique<AudioBuffer>()) {
    std::string error;
    m_reader = AudioTrackReader::open(m_path, {sampleRate, channelCount}, error);
    if (!m_reader)
        throw AudioPackageError(error.empty() ? fmt::format("{} has no audio", m_path.string())
                                              : error);
}

AudioSourceStream::~AudioSourceStream() = default;

int AudioSourceStream::addInto(std::array<float*, 2> mix, int count, float volume, float* peak) {
    int added = 0;
    float loudest = 0;
    while (added < count) {
        if (m_offset == m_block->sampleCount() && !refill())
            break;
        const int take = std::min(count - added, m_block->sampleCount() - m_offset);
        for (int channel = 0; channel < channelCount; ++channel) {
            const float* from = m_block->channelData(channel) + m_offset;
            float* to = mix[size_t(channel)] + added;
            for (int i = 0; i < take; ++i) {
                const float value = volume * from[i];
                to[i] += value;
                if (peak)
                    loudest = std::max(loudest, std::fabs(value));
            }
        }
        m_offset += take;
        added += take;
    }
    if (peak)
        *peak = loudest;
    return added;
}

void AudioSourceStream::seek(int64_t sample) {
    // Decoders of overlapping transforms (AAC, Opus) need a frame or two before the first sample
    // they give right: start that much earlier and drop it.
    constexpr int64_t preRoll = 4096;
    m_reader->seek(MediaTime::make(std::max<int64_t>(0, sample - preRoll), sampleRate));
    *m_block = AudioBuffer();
    m_offset = 0;
    m_skipTo = sample;
    m_ended = false;
}

bool AudioSourceStream::refill() {
    while (!m_ended) {
        *m_block = m_reader->nextBuffer();
        m_offset = 0;
        if (m_block->isNull()) {
            m_ended = true;
            if (m_reader->error())
                throw AudioPackageError(fmt::format("{}: {}", m_path.string(), *m_reader->error()));
            return false;
        }
        // After a seek the decoder starts at the packet before the sample asked for.
        const auto start = int64_t(std::llround(m_block->presentationTime.seconds() * sampleRate));
        const int64_t end = start + m_block->sampleCount();
        if (end <= m_skipTo)
            continue;
        m_offset = int(std::clamp<int64_t>(m_skipTo - start, 0, m_block->sampleCount()));
        m_skipTo = 0;
        return true;
    }
    return false;
}

double AudioSourceStream::durationSeconds(const std::filesystem::path& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0)
        return 0;
    AVInputFormatContextPtr input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0 || input->duration <= 0)
        return 0;
    return double(input->duration) / AV_TIME_BASE;
}
