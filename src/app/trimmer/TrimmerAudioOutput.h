#pragma once

#include <QObject>

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class AudioTrackReader;
class PlayableRanges;
class QAudioDevice;
class QAudioSink;
class QIODevice;

// The sound of the recording in the trimmer: decoded on a thread of its own, played through a
// QAudioSink, and the clock the picture follows while it plays. The clock is the recording time
// of the sample being heard: what the sink has taken, less what still waits in its buffer.
// Removed parts are left out as the export leaves them out; other speeds play the samples
// faster or slower (the pitch moves with the speed, as on tape).
//
// Main thread: every call and the signal. The decoding thread only touches the reader and the
// queue of samples.
class TrimmerAudioOutput final : public QObject {
    Q_OBJECT
public:
    static constexpr int sampleRate = 48000;
    static constexpr int channelCount = 2;

    // Nothing with an empty error when the movie has no sound; with an error naming the file
    // when its sound cannot be read.
    static std::unique_ptr<TrimmerAudioOutput> open(const std::filesystem::path& movie,
                                                    double duration, const QAudioDevice& device,
                                                    std::string& error);
    ~TrimmerAudioOutput() override;

    // Plays from `seconds`; false when no sound can be played (no device, or the sink refused),
    // which is reported once in the log and then for good.
    bool start(double seconds, double rate, const PlayableRanges& ranges, bool looping);
    void stop();
    bool isPlaying() const { return m_worker.joinable(); }
    bool hasFailed() const { return m_failed; }

    // The recording time being heard; nothing when not playing, or while what the sink held
    // before the last start still plays.
    std::optional<double> position() const;
    // The recording time of the last sample the sink has taken (ahead of what is heard by the
    // sink's buffer); nothing when not playing.
    std::optional<double> consumedPosition() const;
    // Everything up to the end has been heard (never while looping).
    bool isDrained() const;

    double volume() const { return m_volume; }
    bool isMuted() const { return m_muted; }
    void setVolume(double volume);
    void setMuted(bool muted);

signals:
    // The sink stopped with an error while playing; the output is of no more use.
    void failed();

private:
    class Feed;
    struct Marker {
        int64_t frame = 0;    // an output frame
        double seconds = 0.0; // the recording time it plays
    };

    TrimmerAudioOutput(std::unique_ptr<AudioTrackReader> reader, double duration,
                       const QAudioDevice& device);
    void fail(const std::string& reason);
    void stopDecoding();
    void applyVolume();
    double secondsAt(int64_t frame) const; // with m_mutex held
    int64_t heardFrame() const;

    // The decoding thread.
    void decode(double seconds, PlayableRanges ranges, bool looping);
    // Source frames (interleaved), played at m_rate; false once stopping.
    bool pushSource(const float* frames, int64_t count);
    bool pushSilence(double seconds);
    bool pushOutput(const float* frames, int64_t count);
    void jumpTo(double seconds);

    std::unique_ptr<AudioTrackReader> m_reader;
    double m_duration = 0.0;
    std::unique_ptr<QAudioDevice> m_device;
    QAudioSink* m_sink = nullptr;
    std::unique_ptr<Feed> m_feed;
    bool m_failed = false;
    double m_volume = 1.0;
    bool m_muted = false;
    double m_rate = 1.0;

    // Resampling state of the decoding thread.
    std::vector<float> m_pending;
    double m_phase = 0.0;

    mutable std::mutex m_mutex;
    std::condition_variable m_space;
    std::deque<float> m_queue; // interleaved output frames not yet taken by the sink
    std::deque<Marker> m_markers;
    int64_t m_written = 0;    // output frames queued so far
    int64_t m_taken = 0;      // output frames the sink has taken
    int64_t m_firstFrame = 0; // the first output frame of the last start
    mutable int64_t m_lastHeard = 0;
    bool m_finished = false; // no more frames will come
    bool m_stopping = false;
    std::thread m_worker;
};
