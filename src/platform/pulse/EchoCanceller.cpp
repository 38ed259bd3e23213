#include "platform/pulse/EchoCanceller.h"

#ifdef TAVELQUISTON_HAS_WEBRTC_APM
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#endif

#include <algorithm>

namespace {
constexpr int rate = 48000;
constexpr int step = rate / 100; // the library works in 10 ms frames

// The mean of the channels, appended to `into`.
void appendMono(const AudioBuffer& buffer, std::vector<float>& into) {
    const int channels = buffer.channelCount();
    const size_t start = into.size();
    into.resize(start + size_t(buffer.sampleCount()), 0.0f);
    for (int channel = 0; channel < channels; ++channel) {
        const float* samples = buffer.channelData(channel);
        for (int i = 0; i < buffer.sampleCount(); ++i)
            into[start + size_t(i)] += samples[i] / float(channels);
    }
}
} // namespace

#ifdef TAVELQUISTON_HAS_WEBRTC_APM
struct EchoCanceller::Processor {
    std::unique_ptr<webrtc::AudioProcessing> apm;
};

std::unique_ptr<EchoCanceller> EchoCanceller::create() {
    webrtc::Config config;
    // The delay between the monitor and the microphone is not known ahead: let it be found.
    config.Set<webrtc::DelayAgnostic>(new webrtc::DelayAgnostic(true));
    config.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(true));
    auto processor = std::make_unique<Processor>();
    processor->apm.reset(webrtc::AudioProcessing::Create(config));
    if (!processor->apm)
        return nullptr;
    processor->apm->echo_cancellation()->enable_drift_compensation(false);
    processor->apm->echo_cancellation()->set_suppression_level(
        webrtc::EchoCancellation::kHighSuppression);
    if (processor->apm->echo_cancellation()->Enable(true) != webrtc::AudioProcessing::kNoError)
        return nullptr;
    return std::unique_ptr<EchoCanceller>(new EchoCanceller(std::move(processor)));
}

void EchoCanceller::addReference(const AudioBuffer& buffer) {
    if (buffer.sampleRate() != rate)
        return;
    appendMono(buffer, m_reference);
    const webrtc::StreamConfig mono(rate, 1, false);
    size_t done = 0;
    for (; done + step <= m_reference.size(); done += step) {
        float* frame = m_reference.data() + done;
        m_processor->apm->ProcessReverseStream(&frame, mono, mono, &frame);
    }
    m_reference.erase(m_reference.begin(), m_reference.begin() + long(done));
}

AudioBuffer EchoCanceller::process(const AudioBuffer& microphone) {
    if (microphone.sampleRate() != rate)
        return microphone;
    appendMono(microphone, m_microphone);
    const size_t ready = m_microphone.size() / step * step;
    if (ready == 0)
        return {};
    const webrtc::StreamConfig mono(rate, 1, false);
    for (size_t done = 0; done < ready; done += step) {
        float* frame = m_microphone.data() + done;
        m_processor->apm->set_stream_delay_ms(0);
        m_processor->apm->ProcessStream(&frame, mono, mono, &frame);
    }
    // The block's samples end where the microphone's do; what is kept back comes later.
    const MediaTime end = microphone.presentationTime + microphone.duration();
    const int64_t kept = int64_t(m_microphone.size() - ready);
    AudioBuffer out = AudioBuffer::allocate(microphone.channelCount(), rate, int(ready),
                                            end - MediaTime::make(int64_t(ready) + kept, rate));
    if (out.isNull())
        return {};
    for (int channel = 0; channel < out.channelCount(); ++channel)
        std::copy_n(m_microphone.begin(), ready, out.mutableChannelData(channel));
    m_microphone.erase(m_microphone.begin(), m_microphone.begin() + long(ready));
    return out;
}
#else
struct EchoCanceller::Processor {};

std::unique_ptr<EchoCanceller> EchoCanceller::create() {
    return nullptr;
}

void EchoCanceller::addReference(const AudioBuffer&) {}

AudioBuffer EchoCanceller::process(const AudioBuffer& microphone) {
    return microphone;
}
#endif

EchoCanceller::EchoCanceller(std::unique_ptr<Processor> processor)
    : m_processor(std::move(processor)) {}

EchoCanceller::~EchoCanceller() = default;
