#pragma once

#include "core/recording/engines/ScreenCaptureEngine.h"
#include "platform/wayland/PipeWireVideoStream.h"

#include <QRect>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

class X11ContentFilter;
class PortalCursorFeed;
class PortalSessionKeeper;
class PortalScreenCast;

// Screen capture on a Wayland desktop: the desktop's ScreenCast portal shares monitors as
// PipeWire streams and this engine consumes one. A display is its monitor's stream; an area is
// a crop of it. Frames are BGRA stamped with the host clock; a stream with nothing new sends
// nothing, and one closing frame at the stop makes the recording last until then. When the
// desktop ends the session or the stream fails, the error handler hears it once.
// A window is the one the user picked in the desktop's dialog (its id is its stream's node),
// recorded alone at the size it had then. Several windows and applications cannot be asked
// for, so those modes are refused with the reason. The stream is
// connected when configured (on the preparing thread) and hands frames on from the start.
class PortalScreenCaptureEngine final : public ScreenCaptureEngine {
public:
    // The engine offers its stream's pointer position to `cursorFeed` (when given) from the
    // moment its stream is connected until it stops.
    explicit PortalScreenCaptureEngine(std::shared_ptr<PortalSessionKeeper> sessions,
                                       std::shared_ptr<PortalCursorFeed> cursorFeed = {});
    ~PortalScreenCaptureEngine() override;

    // Why the portal cannot record `mode`; absent when it can. Applications and sets of windows
    // are nothing its dialog offers.
    static std::optional<QString> refusalReason(const RecordingMode& mode);

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

    std::optional<SCStreamConfiguration> configuration() const override;
    std::optional<Rect> captureRectInScreenSpace() const override;

    QCoro::Task<void> startCapture() override;
    QCoro::Task<void> stopCapture() override;

    // Where the desktop last put the pointer, in global points with the origin at the bottom
    // left; absent when the desktop sends no cursor metadata. Thread-safe.
    std::optional<Point> cursorLocation() const;
    int64_t deliveredFrameCount() const { return m_stream ? m_stream->deliveredFrameCount() : 0; }
    int64_t idleFrameCount() const { return m_stream ? m_stream->idleFrameCount() : 0; }

private:
    struct Plan {
        uint32_t nodeID = 0;
        Rect displayFrame;          // global points of the monitor
        std::optional<QRect> crop;  // pixels of the monitor's picture, from its top left
        SCStreamConfiguration size; // of the frames handed on
        QSize pictureSize;          // of the source's picture, as agreed with the stream
        int frameRate = 60;
        bool showsCursor = false;
    };
    // Connects to the monitor's stream without handing frames on yet, so the start has a
    // picture at once. Throws RecordingError.
    void prepareStream();
    void reportStop(const StreamError& error);

    std::shared_ptr<PortalSessionKeeper> m_sessions;
    std::shared_ptr<PortalCursorFeed> m_cursorFeed;
    std::shared_ptr<PortalScreenCast> m_session;
    std::optional<SCShareableContent> m_availableContent;
    std::optional<RecordingMode> m_mode;
    std::shared_ptr<X11ContentFilter> m_filter;
    std::optional<Plan> m_plan;

    FrameHandler m_frameHandler;
    AudioHandler m_audioHandler;
    ErrorHandler m_errorHandler;

    std::unique_ptr<PipeWireVideoStream> m_stream;
    std::atomic<bool> m_stopReported{false};
};
