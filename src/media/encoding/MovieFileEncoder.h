#pragma once

#include "core/model/RecordingOptions.h"
#include "core/model/WriterConfiguration.h"
#include "core/time/MediaTime.h"
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
#include <vector>

struct AVFormatContext;
struct AVPacket;
struct AVStream;
class AudioTrackEncoder;
class FileOutput;
class UnfinishedRecordingMarker;
class VideoTrackEncoder;

// One movie file being written: its tracks' encoders, the muxer and one worker thread that does
// all encoding and writing. Appends only hand a reference-counted frame to the worker's bounded
// queue; a full queue refuses at once, so a capture thread never waits on the encoder or the
// disk. The file is written in fragments of about a second, each complete on disk as soon as it
// is written, so a file cut short by a crash or a power loss plays up to its last fragment.
//
// Threads: set-up (add tracks, startWriting), finishWriting and cancelWriting on one controlling
// thread; startSession and the appends from any capture threads; status and error from anywhere.
class MovieFileEncoder final {
public:
    enum class Status { unknown, writing, completed, failed, cancelled };

    MovieFileEncoder(std::filesystem::path path, OutputFormat format, EncoderTuning tuning = {});
    // Stops the worker. A file not finished stays as its last complete fragment left it.
    ~MovieFileEncoder();
    MovieFileEncoder(const MovieFileEncoder&) = delete;
    MovieFileEncoder& operator=(const MovieFileEncoder&) = delete;

    // Before startWriting: the new track's index, or -1 with an error text.
    int addVideoTrack(const VideoCodecSettings& settings, std::string& error);
    int addAudioTrack(const WriterConfiguration::AudioSettings& settings, std::string& error);

    // Creates the file and starts the worker; false with status failed and an error. The file
    // is never one that existed: a taken name gets a number (see FileOutput), and path() says
    // which; a hidden marker beside it says it is unfinished until finishWriting completes.
    bool startWriting();
    std::filesystem::path path() const;
    // The source time that becomes the file's zero; call once, before the first append.
    void startSession(MediaTime sourceTime);

    bool isReadyForMoreMediaData(int track) const;
    bool appendVideo(int track, VideoFrame frame);
    // `source` tells apart streams that share one track (system audio 0, microphone 1).
    bool appendAudio(int track, AudioBuffer buffer, int source = 0);

    // Drains the queue, completes the file and syncs it; blocks until done. True if completed.
    bool finishWriting();
    // Drops what is queued and stops; the file is left for the caller to remove, its marker
    // goes.
    void cancelWriting();
    // Drops what is queued and stops, leaving the file as its complete fragments left it and
    // its marker in place, for a salvage.
    void abandonWriting();

    Status status() const { return m_status.load(); }
    std::optional<std::string> error() const;
    std::string videoEncoderName() const;
    // Video frames the worker dropped because their time was not after the previous frame's.
    int outOfOrderFrameCount() const { return m_outOfOrderFrames.load(); }

private:
    struct Track;
    struct Job {
        int track = 0;
        VideoFrame video;
        AudioBuffer audio;
        int source = 0;
    };

    bool push(int track, Job job);
    void run();
    int encodeJob(const Job& job);
    int writePacket(Track& track, AVPacket* packet);
    void fail(int code);
    void stopWorker();
    bool openFile();

    const std::filesystem::path m_path;
    const OutputFormat m_format;
    const EncoderTuning m_tuning;
    std::vector<std::unique_ptr<Track>> m_tracks; // fixed once writing starts
    std::unique_ptr<FileOutput> m_output;
    std::unique_ptr<UnfinishedRecordingMarker> m_marker;
    AVFormatContext* m_muxer = nullptr; // owned; freed after the output it writes to is closed
    MediaTime m_sessionStart =
        MediaTime::invalid(); // written before the first push, read by the worker
    BoundedQueue<Job> m_queue;
    std::thread m_worker;
    std::atomic<Status> m_status{Status::unknown};
    std::atomic<bool> m_discard{false};
    std::atomic<int> m_outOfOrderFrames{0};
    bool m_sawFirstKeyFrame = false; // the worker's, then finishWriting's
    mutable std::mutex m_errorMutex;
    std::optional<std::string> m_error;
};

std::string description(MovieFileEncoder::Status status);
