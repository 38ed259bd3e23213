#pragma once

#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/support/CircularBuffer.h"
#include "core/time/MediaTime.h"
#include "platform/x11/X11CaptureFilter.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11WindowTracker.h"

#include <QByteArray>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

class X11Connection;
class PulseAudioCaptureEngine;

// Screen capture on an X server. Displays and areas are grabbed from the root window through
// shared memory (a plain GetImage when the server refuses it), paced at the frame interval on
// the engine's own thread. XDamage tells whether anything changed since the last frame; a tick
// without change is idle and its frame is dropped, so a still screen costs almost nothing.
// Frames are BGRA with an opaque alpha, stamped with the host clock.
class X11ScreenCaptureEngine final : public ScreenCaptureEngine {
public:
    // `hiddenApps` is the persisted list of applications the user hid from recordings.
    explicit X11ScreenCaptureEngine(QByteArray hiddenApps = {});
    ~X11ScreenCaptureEngine() override;

    void setAvailableContent(const SCShareableContent& content) override;
    void updateAvailableContent() override;
    std::shared_ptr<SCContentFilter> createFilter(const RecordingMode& mode,
                                                  const RecordingConfiguration& config) override;
    void configureStream(std::shared_ptr<SCContentFilter> filter, const RecordingMode& mode,
                         ResolutionMode resolution, int frameRate, bool showCursor,
                         BackgroundType backgroundColor, bool recordAudio) override;

    void setFrameHandler(FrameHandler handler) override { m_frameHandler = std::move(handler); }
    void setAudioHandler(AudioHandler handler) override { m_audioHandler = std::move(handler); }
    void setErrorHandler(ErrorHandler handler) override { m_errorHandler = std::move(handler); }
    void setSystemAudioVolume(float volume) override { m_systemAudioVolume = volume; }

    std::optional<SCStreamConfiguration> configuration() const override;
    std::optional<Rect> captureRectInScreenSpace() const override;

    QCoro::Task<void> startCapture() override;
    QCoro::Task<void> stopCapture() override;

    bool isCapturing() const { return m_isCapturing.load(); }
    bool hasAvailableContent() const { return m_availableContent.has_value(); }
    // Frames handed on, ticks dropped as idle, and ticks lost because the thread fell too far
    // behind to catch up, since the start; for tests and benchmarks.
    int64_t deliveredFrameCount() const { return m_delivered.load(); }
    int64_t idleFrameCount() const { return m_idle.load(); }
    int64_t missedTickCount() const { return m_missed.load(); }
    bool usesSharedMemory() const { return m_usesSharedMemory.load(); }

    // The stream's pixel size for content of `pointSize`: the size is cut to whole points, then
    // the product with both scales is cut again.
    static SCStreamConfiguration streamSize(Size pointSize, double pointScale,
                                            double resolutionScale);
    static int clampFrameRate(int frameRate) { return std::clamp(frameRate, 15, 60); }
    // The colour under composed windows as 0xRRGGBB; absent for the wallpaper.
    static std::optional<uint32_t> backgroundRGB(BackgroundType background);
    static double resolutionScale(ResolutionMode resolution) {
        return resolution == ResolutionMode::low ? 0.5 : 1.0;
    }

private:
    struct Stream {
        SCStreamConfiguration size;
        X11Rect source; // root pixels that are grabbed
        int frameRate = 60;
        bool showsCursor = false;
        BackgroundType background = BackgroundType::black;
        // Window modes: the windows composed, over this colour (absent: the wallpaper).
        // Display modes: the windows kept out, painted over with what lies below them.
        X11WindowSelection windows;
        bool composesWindows = false;
        bool followsWindow = false; // one window by itself, wherever it goes
        std::optional<uint32_t> backgroundRGB;
    };
    // What lies under excluded windows across the source: the wallpaper the desktop publishes,
    // else the stream's background colour. One row after the other, source.width wide.
    void readPictureUnderWindows(const Stream& stream, std::vector<uint32_t>& picture) const;

    void captureLoop(Stream stream);
    void reportStop(const StreamError& error);
    // System audio runs beside the picture on the sound server's thread, on the same clock.
    void startSystemAudio();
    void stopSystemAudio();
    // A window grown past the stream: the stream grows by the inverse of the scale the window
    // was shown at. The file keeps the size it was opened with.
    void handleWindowResize(double contentScale);

    QByteArray m_hiddenApps;
    std::unique_ptr<X11Connection> m_connection;
    std::optional<SCShareableContent> m_availableContent;
    std::optional<RecordingMode> m_mode;
    std::shared_ptr<SCContentFilter> m_filter;
    // The stream's size changes on the capture thread when a window grows; the main thread
    // reads it.
    mutable std::mutex m_configurationMutex;
    std::optional<Stream> m_stream;

    FrameHandler m_frameHandler;
    AudioHandler m_audioHandler;
    ErrorHandler m_errorHandler;

    bool m_recordsAudio = false;
    float m_systemAudioVolume = 1.0f;
    std::unique_ptr<PulseAudioCaptureEngine> m_systemAudio;

    CircularBuffer<MediaTime> m_frameTimingBuffer;
    std::optional<MediaTime> m_lastPTS; // written by the capture thread only while it runs

    std::thread m_thread;
    std::mutex m_wakeMutex;
    std::condition_variable m_wake;
    bool m_stopRequested = false; // under m_wakeMutex
    std::atomic<bool> m_isCapturing{false};
    std::atomic<bool> m_usesSharedMemory{false};
    std::atomic<int64_t> m_delivered{0};
    std::atomic<int64_t> m_idle{0};
    std::atomic<int64_t> m_missed{0};
};
