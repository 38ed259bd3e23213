#pragma once

#include "media/encoding/PacketDrain.h"

#include "core/model/WriterConfiguration.h"
#include "media/FFmpegHandles.h"

#include "media/encoding/AudioTrackMixer.h"

#include <functional>
#include <memory>
#include <string>

class AudioBuffer;

// Turns float planar audio blocks of any size and rate into packets of one audio codec. Blocks
// carry their own start times; small jitter between them is absorbed, a gap is filled with
// silence and an overlap is cut, so the track stays continuous and in step with the video.
// Used on the writer's worker thread only, after creation.
class AudioTrackEncoder final {
public:
    // Receives each packet in the encoder's time base (1/sample rate); negative stops encoding.
    using PacketSink = ::PacketSink;

    static std::unique_ptr<AudioTrackEncoder>
    create(const WriterConfiguration::AudioSettings& settings, bool globalHeader,
           std::string& error);
    ~AudioTrackEncoder();

    const AVCodecContext* context() const { return m_context.get(); }
    // Whether the codec must be written in the ISO (mp4) layout of the movie file.
    bool needsIsoLayout() const;

    // startSeconds: the block's first sample on the file's time line. `source` tells apart the
    // streams that share the track: from the second one on, blocks are summed with the others'
    // on the time line before they are encoded. 0 or a negative AVERROR.
    int encode(const AudioBuffer& buffer, double startSeconds, const PacketSink& sink,
               int source = 0);
    int flush(const PacketSink& sink);
    // Silence up to endSeconds when the track, already begun, stops short of it by at most a
    // quarter second: the moment between the sound's stop and the picture's. A longer shortfall
    // is a track that ended on its own and stays as it is.
    int padTo(double endSeconds, const PacketSink& sink);

private:
    AudioTrackEncoder() = default;
    int encodeContinuous(const AudioBuffer& buffer, double startSeconds, const PacketSink& sink);
    int encodeMixed(const PacketSink& sink, bool everything);
    int ensureResampler(const AudioBuffer& buffer);
    int writeSilence(int64_t samples);
    // final: also the samples short of a frame; atEnd: as a short last frame where allowed.
    int sendFrames(bool final, bool atEnd, const PacketSink& sink);
    int drain(const PacketSink& sink);

    AVCodecContextPtr m_context;
    SwrContextPtr m_resampler;
    int m_inputRate = 0;
    int m_inputChannels = 0;
    AVAudioFifoPtr m_fifo;
    int m_frameSize = 1024;
    bool m_started = false;
    int64_t m_fifoStart = 0; // sample index of the fifo's first sample
    AVPacketPtr m_packet;
    int m_firstSource = -1;
    std::unique_ptr<AudioTrackMixer> m_mixer; // from the second source on
};
