#include "media/AudioPackagePlayback.h"

#include "media/AudioSourceStream.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <vector>

AudioPackagePlayback::AudioPackagePlayback(std::filesystem::path package)
    : m_package(std::move(package)), m_mixer(m_package), m_info(m_mixer.info()) {
    if (m_mixer.systemAudioPath()) {
        m_system = std::make_unique<AudioSourceStream>(*m_mixer.systemAudioPath());
        m_duration = AudioSourceStream::durationSeconds(*m_mixer.systemAudioPath());
    }
    if (m_mixer.microphonePath()) {
        m_microphone = std::make_unique<AudioSourceStream>(*m_mixer.microphonePath());
        m_duration =
            std::max(m_duration, AudioSourceStream::durationSeconds(*m_mixer.microphonePath()));
    }
}

AudioPackagePlayback::~AudioPackagePlayback() = default;

bool AudioPackagePlayback::hasSystemAudio() const {
    return bool(m_system);
}
bool AudioPackagePlayback::hasMicrophone() const {
    return bool(m_microphone);
}

float AudioPackagePlayback::sysVolume() const {
    std::lock_guard lock(m_mutex);
    return m_info.sysVol;
}

float AudioPackagePlayback::micVolume() const {
    std::lock_guard lock(m_mutex);
    return m_info.micVol;
}

bool AudioPackagePlayback::setSysVolume(float volume) {
    std::lock_guard lock(m_mutex);
    m_info.sysVol = std::max(0.0f, volume);
    return saveInfo();
}

bool AudioPackagePlayback::setMicVolume(float volume) {
    std::lock_guard lock(m_mutex);
    m_info.micVol = std::max(0.0f, volume);
    return saveInfo();
}

// Under m_mutex. Written beside and renamed over, so a crash never leaves half a description.
bool AudioPackagePlayback::saveInfo() {
    const auto path = m_package / "info.json";
    const auto temporary = m_package / "info.json.tmp";
    {
        std::ofstream file(temporary, std::ios::trunc);
        file << m_info.toJson();
        if (!file.flush())
            return false;
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    return !error;
}

double AudioPackagePlayback::position() const {
    std::lock_guard lock(m_mutex);
    return double(m_position) / AudioSourceStream::sampleRate;
}

void AudioPackagePlayback::seek(double seconds) {
    std::lock_guard lock(m_mutex);
    m_position =
        int64_t(std::llround(std::clamp(seconds, 0.0, m_duration) * AudioSourceStream::sampleRate));
    for (auto* stream : {m_system.get(), m_microphone.get()}) {
        if (stream)
            stream->seek(m_position);
    }
    m_levels = {};
}

int AudioPackagePlayback::read(float* interleaved, int frames) {
    std::lock_guard lock(m_mutex);
    std::vector<float> left(size_t(frames), 0.0f), right(size_t(frames), 0.0f);
    const std::array<float*, 2> mix{left.data(), right.data()};
    int count = 0;
    m_levels = {};
    if (m_system)
        count = std::max(count, m_system->addInto(mix, frames, m_info.sysVol, &m_levels.system));
    if (m_microphone)
        count = std::max(count,
                         m_microphone->addInto(mix, frames, m_info.micVol, &m_levels.microphone));
    for (int i = 0; i < count; ++i) {
        interleaved[2 * i] = std::clamp(left[size_t(i)], -1.0f, 1.0f);
        interleaved[2 * i + 1] = std::clamp(right[size_t(i)], -1.0f, 1.0f);
    }
    m_position += count;
    return count;
}

AudioPackagePlayback::Levels AudioPackagePlayback::levels() const {
    std::lock_guard lock(m_mutex);
    return m_levels;
}

AudioMixResult AudioPackagePlayback::exportMix(AudioMixOptions options) const {
    {
        std::lock_guard lock(m_mutex);
        if (!options.sysVolume)
            options.sysVolume = m_info.sysVol;
        if (!options.micVolume)
            options.micVolume = m_info.micVol;
        if (!options.mp3)
            options.mp3 = m_info.exportMP3;
    }
    return m_mixer.mix(options);
}
