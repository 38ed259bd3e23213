#pragma once

#include "core/time/MediaTime.h"
#include "media/AudioBuffer.h"
#include "media/FFmpegHandles.h"
#include "platform/pulse/DeliveryClock.h"
#include "platform/pulse/PulseConnection.h"

#include <functional>
#include <string>

// One record stream from a source of the sound server, converted by libswresample to 48 kHz,
// two channels, float planar whatever the device gives, and handed on as it arrives. Blocks are
// stamped with the host clock: the audio read in one delivery ends at the moment of delivery,
// read through a DeliveryClock so that the waits of a busy machine do not tear the stream.
// When the device goes away (unplugged, its module unloaded) the stream keeps delivering
// silence in step with the clock, after one warning, so whatever records it stays continuous.
// Thread: start and stop on the controlling thread; the handler runs on the loop's thread and
// must not block.
class PulseRecordStream final {
public:
    using Handler = std::function<void(const AudioBuffer& buffer)>;
    static constexpr int outputSampleRate = 48000;
    static constexpr int outputChannelCount = 2;

    // `label` names the stream in log lines ("Microphone", "System audio").
    PulseRecordStream(PulseConnection& connection, PulseConnection::Source source,
                      std::string label, Handler handler);
    ~PulseRecordStream();
    PulseRecordStream(const PulseRecordStream&) = delete;
    PulseRecordStream& operator=(const PulseRecordStream&) = delete;

    // Throws std::runtime_error naming the source when the server refuses the stream.
    void start();
    void stop();

    const PulseConnection::Source& source() const { return m_source; }
    bool needsConversion() const {
        return m_source.sampleRate != outputSampleRate ||
               m_source.channelCount != outputChannelCount;
    }

private:
    static void onRead(pa_stream* stream, size_t bytes, void* self);
    static void onState(pa_stream* stream, void* self);
    static void onSilenceTick(pa_mainloop_api* api, pa_time_event* event, const timeval* when,
                              void* self);
    void readAvailable();
    void deliver(const float* interleaved, int frames, MediaTime start);
    void deliverSilence(int frames, MediaTime start);
    void beginSilence();

    PulseConnection& m_connection;
    const PulseConnection::Source m_source;
    const std::string m_label;
    const Handler m_handler;
    PaStreamPtr m_stream;
    SwrContextPtr m_resampler;
    // Loop thread only, after start.
    MediaTime m_deliveredEnd = MediaTime::invalid();
    DeliveryClock m_clock{m_source.sampleRate};
    pa_time_event* m_silenceTimer = nullptr;
    bool m_stopping = false;
    bool m_running = false; // connected and delivering, until stopped
};
