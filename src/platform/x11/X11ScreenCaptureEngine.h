#pragma once

#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/support/CircularBuffer.h"
#include "core/support/PacedLoop.h"
#include "core/time/MediaTime.h"
#include "platform/x11/X11CaptureFilter.h"
#include "platform/x11/X11CaptureStream.h"

#include <QByteArray>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

class X11Connection;
class PulseAudioCaptureEngine;
class X11CursorImage;

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
    int64_t missedTickCount() const { return m_loop ? m_loop->missedTicks() : 0; }
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
    // What a capture run keeps from tick to tick; made, used and let go of on its thread.
    struct Run;
    bool beginRun(const X11CaptureStream& stream);
    bool captureTick();
    void endRun(bool stopped);
    // Builds the picture now and hands it on; false when the stream had to stop.
    bool deliver(X11CursorImage cursor);
    void reportStop(const StreamError& error);
    // Before a (re)start: follows the recorded display to where it is now; throws when it is
    // gone.
    void followMovedDisplay();
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
    std::shared_ptr<X11ContentFilter> m_filter;
    // The stream's size changes on the capture thread when a window grows; the main thread
    // reads it.
    mutable std::mutex m_configurationMutex;
    std::optional<X11CaptureStream> m_stream;
    bool m_recordsAudio = false;
    float m_systemAudioVolume = 1.0f;
    std::unique_ptr<PulseAudioCaptureEngine> m_systemAudio;
    // Where a followed window is now, global points; under m_configurationMutex.
    std::optional<Rect> m_followedRect;

    FrameHandler m_frameHandler;
    AudioHandler m_audioHandler;
    ErrorHandler m_errorHandler;

    CircularBuffer<MediaTime> m_frameTimingBuffer;
    std::optional<MediaTime> m_lastPTS; // written by the capture thread only while it runs

    std::unique_ptr<Run> m_run; // the capture thread's
    // The capture thread, paced at the frame interval; made anew at each start.
    std::unique_ptr<PacedLoop> m_loop;
    std::atomic<bool> m_isCapturing{false};
    std::atomic<bool> m_usesSharedMemory{false};
    std::atomic<int64_t> m_delivered{0};
    std::atomic<int64_t> m_idle{0};
};
