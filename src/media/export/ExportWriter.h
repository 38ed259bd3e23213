#pragma once

#include "core/model/WriterConfiguration.h"
#include "media/AudioBuffer.h"
#include "media/VideoCodecSettings.h"
#include "media/VideoFrame.h"
#include "media/encoding/BoundedQueue.h"
#include "media/encoding/EncoderTuning.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

struct AVFormatContext;
struct AVPacket;
class AudioTrackEncoder;
class GifEncoder;
class AudioPacketSource;
class VideoTrackEncoder;

// How an export encodes: the video codec and its tuning, the audio, the container.
struct ExportEncoding {
    enum class FileType { mp4, mov, gif };
    VideoCodecSettings video;
    EncoderTuning tuning;
    std::optional<WriterConfiguration::AudioSettings> audio;
    FileType fileType = FileType::mp4;
    // The index moved to the front of an MPEG-4 file, so a player can start before it has it all.
    bool shouldOptimizeForNetworkUse = true;
};

// Encodes and muxes an export's frames and audio into one ordinary (not fragmented) movie file
// on a worker thread of its own. Unlike a recording's writer, producers wait when the queue is
// full: an export goes as fast as the encoder, never faster.
//
// Threads: create, finish and cancel on the controlling thread; appends from the export's reader
// thread and the compositor's stage; counters from anywhere.
class ExportWriter final {
public:
    // With `copiedAudio`, its packets go into the file as they are (appendAudioPacket) instead
    // of encoding.audio.
    static std::unique_ptr<ExportWriter> create(const std::filesystem::path& path,
                                                const ExportEncoding& encoding, std::string& error,
                                                const AudioPacketSource* copiedAudio = nullptr);
    // Cancels an unfinished file.
    ~ExportWriter();
    ExportWriter(const ExportWriter&) = delete;
    ExportWriter& operator=(const ExportWriter&) = delete;

    // pts in 1/90000 s on the output's time line. False once failed or cancelled.
    bool appendVideo(VideoFrame frame, int64_t pts);
    // startSeconds: the block's first sample on the output's time line.
    bool appendAudio(AudioBuffer buffer, double startSeconds);
    // A packet of the copied audio track, its times already on the output's time line.
    bool appendAudioPacket(std::shared_ptr<AVPacket> packet);

    // Drains, flushes the encoders and completes the file; false with an error.
    bool finish();
    // Stops at once and removes the file.
    void cancel();

    std::optional<std::string> error() const;
    int64_t encodedVideoFrames() const { return m_encodedVideoFrames.load(); }
    std::string videoEncoderName() const;

private:
    struct Job {
        VideoFrame video;
        AudioBuffer audio;
        int64_t pts = 0;
        double audioStart = 0;
        std::shared_ptr<AVPacket> packet;
    };
    ExportWriter();
    void run();
    int write(AVPacket* packet, bool video);
    void fail(const std::string& text);
    void stopWorker();

    std::filesystem::path m_path;
    std::unique_ptr<VideoTrackEncoder> m_video;
    std::unique_ptr<AudioTrackEncoder> m_audio;
    std::unique_ptr<GifEncoder> m_gif;  // instead of the two above and the muxer
    AVFormatContext* m_muxer = nullptr; // owned, freed in the destructor after its file is closed
    int m_videoStream = -1;
    int m_audioStream = -1;
    int m_copiedAudioStream = -1;
    int m_copiedTimeBaseNum = 1;
    int m_copiedTimeBaseDen = 1;
    // A few jobs: each composed 1080p frame is 8 MB, and the encoder keeps its own lookahead.
    BoundedQueue<Job> m_queue{4};
    std::thread m_worker;
    std::atomic<bool> m_failed{false};
    std::atomic<bool> m_stopped{false};
    bool m_fileCreated = false; // only a file this writer made is removed on cancel
    std::atomic<int64_t> m_encodedVideoFrames{0};
    mutable std::mutex m_errorMutex;
    std::optional<std::string> m_error;
};
