#pragma once

#include "media/export/ExportComposition.h"
#include "media/export/ExportWriter.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

class VideoTrackReader;

// Turns a composition into a movie file: demux and decode with exact seeking, each output frame
// composed on the compositor's serial stage, encode and mux, with the audio cut and re-timed
// along the same ranges. Decoding, composing and encoding overlap, with a few frames in flight
// between them. The passthrough preset instead copies the screen file's packets for each range
// (cut at the key frame before the range), with no pixel changed.
//
// Threads: set-up, exportAsynchronously and cancelExport on any one controlling thread; the
// work runs on a reader thread of its own, the compositor's stage and the writer's worker;
// the completion runs on the reader thread once the file is complete, failed or removed.
// progress and status may be read from anywhere.
class ExportSession final {
public:
    enum class Preset { passthrough, highestQuality };
    enum class Status { waiting, exporting, completed, failed, cancelled };

    ExportSession(ExportComposition composition, Preset preset);
    // Cancels a running export and waits for its threads.
    ~ExportSession();
    ExportSession(const ExportSession&) = delete;
    ExportSession& operator=(const ExportSession&) = delete;

    std::filesystem::path outputURL;
    ExportEncoding encoding;
    std::optional<ExportVideoComposition> videoComposition;

    void exportAsynchronously(std::function<void()> completion);
    // Stops within about a frame and removes the partial output.
    void cancelExport();
    // Blocks until the export has ended; for command-line use and tests.
    void waitUntilFinished();
    // The same with a bound; true once the export has ended.
    bool waitForFinish(std::chrono::milliseconds timeout);

    double progress() const { return m_progress.load(); }
    Status status() const { return m_status.load(); }
    std::optional<std::string> error() const;

private:
    void run();
    bool runComposed();
    bool runPassthrough();
    bool composeRange(ExportWriter& writer, VideoTrackReader& screen, VideoTrackReader* camera,
                      const MediaTimeRange& range, MediaTime compositionStart, int64_t& frameIndex,
                      int64_t totalFrames, const std::function<bool(double)>& feedAudio);
    void setError(std::string text);
    void waitForFramesInFlight(int limit);

    const ExportComposition m_composition;
    const Preset m_preset;
    std::function<void()> m_completion;
    std::thread m_thread;
    std::atomic<double> m_progress{0.0};
    std::atomic<Status> m_status{Status::waiting};
    std::atomic<bool> m_cancelled{false};
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_framesInFlight = 0;           // guarded by m_mutex
    bool m_finished = false;            // guarded by m_mutex
    std::optional<std::string> m_error; // guarded by m_mutex
};
