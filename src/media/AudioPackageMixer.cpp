#include "media/AudioPackageMixer.h"

#include "media/AudioFileEncoder.h"
#include "media/AudioSourceStream.h"

#include <ebur128.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace {

constexpr int blockSamples = 4096;

// The package's file for a source: "sys.m4a" or any other extension the recorder used.
std::optional<std::filesystem::path> findSource(const std::filesystem::path& package,
                                                const std::string& prefix) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(package, error)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name.rfind(prefix, 0) == 0 && name.size() > prefix.size())
            return entry.path();
    }
    return std::nullopt;
}

struct Ebur128Free {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using Ebur128Ptr = std::unique_ptr<ebur128_state, Ebur128Free>;

} // namespace

AudioPackageMixer::AudioPackageMixer(std::filesystem::path package)
    : m_package(std::move(package)) {
    if (!std::filesystem::is_directory(m_package))
        throw AudioPackageError(
            fmt::format("{} is not an audio package folder", m_package.string()));
    const auto infoPath = m_package / "info.json";
    std::ifstream file(infoPath);
    if (!file)
        throw AudioPackageError(fmt::format("{} cannot be read", infoPath.string()));
    std::stringstream text;
    text << file.rdbuf();
    try {
        m_info = AudioPackageInfo::fromJson(text.str());
    } catch (const std::invalid_argument& error) {
        throw AudioPackageError(fmt::format("{} is damaged ({})", infoPath.string(), error.what()));
    }
    m_systemAudio = findSource(m_package, "sys.");
    m_microphone = findSource(m_package, "mic.");
    if (!m_systemAudio && !m_microphone)
        throw AudioPackageError(
            fmt::format("{} has neither a \"sys.\" nor a \"mic.\" file", m_package.string()));
}

std::filesystem::path AudioPackageMixer::defaultOutputPath(const std::string& extension) const {
    std::filesystem::path path = m_package;
    if (!path.has_filename())
        path = path.parent_path();
    return path.replace_extension(extension);
}

template <typename Each>
int64_t AudioPackageMixer::forEachMixedBlock(float sysVolume, float micVolume, Each&& each) const {
    std::optional<AudioSourceStream> system, microphone;
    if (m_systemAudio)
        system.emplace(*m_systemAudio);
    if (m_microphone)
        microphone.emplace(*m_microphone);
    std::vector<float> left(blockSamples), right(blockSamples);
    int64_t total = 0;
    for (;;) {
        std::fill(left.begin(), left.end(), 0.0f);
        std::fill(right.begin(), right.end(), 0.0f);
        const std::array<float*, 2> mix{left.data(), right.data()};
        // The longer source sets the length; the shorter one adds silence after its end.
        int count = 0;
        if (system)
            count = std::max(count, system->addInto(mix, blockSamples, sysVolume));
        if (microphone)
            count = std::max(count, microphone->addInto(mix, blockSamples, micVolume));
        if (count == 0)
            return total;
        each(left.data(), right.data(), count);
        total += count;
    }
}

double AudioPackageMixer::normalizingGain(float sysVolume, float micVolume) const {
    Ebur128Ptr state(
        ebur128_init(channelCount, sampleRate, EBUR128_MODE_I | EBUR128_MODE_SAMPLE_PEAK));
    if (!state)
        throw std::runtime_error("cannot measure loudness: out of memory");
    std::vector<float> interleaved(size_t(blockSamples) * channelCount);
    forEachMixedBlock(sysVolume, micVolume, [&](const float* left, const float* right, int count) {
        for (int i = 0; i < count; ++i) {
            interleaved[size_t(2 * i)] = left[i];
            interleaved[size_t(2 * i + 1)] = right[i];
        }
        ebur128_add_frames_float(state.get(), interleaved.data(), size_t(count));
    });
    double loudness = 0;
    if (ebur128_loudness_global(state.get(), &loudness) != EBUR128_SUCCESS ||
        !std::isfinite(loudness))
        return 1; // silence, or too short to measure: nothing to normalise
    double peak = 0;
    for (unsigned channel = 0; channel < channelCount; ++channel) {
        double channelPeak = 0;
        ebur128_sample_peak(state.get(), channel, &channelPeak);
        peak = std::max(peak, channelPeak);
    }
    double gain = std::pow(10.0, (targetLoudness - loudness) / 20.0);
    // Quiet speech with loud clicks would clip at the full gain: louder than that it never gets.
    if (peak > 0 && gain * peak > 1.0)
        gain = 1.0 / peak;
    return gain;
}

AudioMixResult AudioPackageMixer::mix(const AudioMixOptions& options) const {
    const float sysVolume = options.sysVolume.value_or(m_info.sysVol);
    const float micVolume = options.micVolume.value_or(m_info.micVol);
    AudioMixResult result;
    auto codec = AudioFileEncoder::Codec::aac;
    result.format = "m4a";
    if (options.mp3) {
        if (AudioFileEncoder::isAvailable(AudioFileEncoder::Codec::mp3)) {
            codec = AudioFileEncoder::Codec::mp3;
            result.format = "mp3";
        } else {
            result.note = "no MP3 encoder (libmp3lame) in this FFmpeg, so the mix is an m4a file";
        }
    }
    result.output = options.output.empty() ? defaultOutputPath(result.format) : options.output;
    if (options.normalize)
        result.gain = normalizingGain(sysVolume, micVolume);

    std::string error;
    auto encoder = AudioFileEncoder::create(result.output, codec, sampleRate, channelCount, error);
    if (!encoder)
        throw std::runtime_error(error);
    const auto gain = float(result.gain);
    int64_t samples = 0;
    try {
        samples =
            forEachMixedBlock(sysVolume, micVolume, [&](float* left, float* right, int count) {
                for (float* channel : {left, right}) {
                    for (int i = 0; i < count; ++i)
                        channel[i] = std::clamp(channel[i] * gain, -1.0f, 1.0f);
                }
                const float* const planes[] = {left, right};
                if (!encoder->write(planes, count))
                    throw std::runtime_error(encoder->error());
            });
        if (!encoder->finish())
            throw std::runtime_error(encoder->error());
    } catch (...) {
        encoder.reset();
        std::error_code ignored;
        std::filesystem::remove(result.output, ignored);
        throw;
    }
    result.seconds = double(samples) / sampleRate;
    return result;
}
