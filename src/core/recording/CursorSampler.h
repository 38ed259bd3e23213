#pragma once

#include "core/geometry/Rect.h"
#include "core/recording/SmartClickZoom.h"

#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>

enum class ClickType;
class CursorOverlayController;
class MetadataRecorderEngine;
class RecordingClock;
struct RecordingConfiguration;
class RecordingStartupTrace;
struct StudioRecordingConfiguration;
class UserDefaults;
class ZoomRenderer;

// Turns the pointer monitor's clicks and moves, and a steady 30 Hz sample of where the pointer
// is, into metadata normalised against the captured rectangle, and hands left clicks to the
// smart click-to-zoom decision. The coordinator owns one and wires it to each recording.
//
// Thread: main. Everything it reaches is looked up through the coordinator's hooks at the
// moment of use, so a recording that ended or a renderer that was replaced is never touched.
class CursorSampler {
public:
    struct Hooks {
        // The recording's capture rectangle in global points, origin bottom left.
        std::function<std::optional<Rect>()> captureRect;
        // Seconds on the video's time line, else of the recording; absent before it runs.
        std::function<std::optional<double>()> timestamp;
        std::function<bool()> isRecording;
        std::function<QString()> stateName;
        std::function<bool()> isPaused;
        // Stream recovery in progress, or its first frame awaited.
        std::function<bool()> isRecovering;
        std::function<MetadataRecorderEngine*()> metadataRecorder;
        std::function<ZoomRenderer*()> zoomRenderer;
    };

    static constexpr double samplingInterval = 1.0 / 30.0;

    CursorSampler(CursorOverlayController& monitor, RecordingClock& clock, Hooks hooks);
    ~CursorSampler();
    CursorSampler(const CursorSampler&) = delete;
    CursorSampler& operator=(const CursorSampler&) = delete;

    // At the start of a recording: the metadata recorder starts at `startTime` and stamps its
    // events with the hooks' timestamp, the clicks are configured for it, then the pointer is
    // monitored as startMonitoring() says.
    void start(const RecordingConfiguration& configuration, const UserDefaults& defaults,
               const std::optional<QDateTime>& startTime, RecordingStartupTrace& trace);
    // Reads the click-to-zoom settings and installs the monitor's click and move handlers.
    void configure(const std::optional<StudioRecordingConfiguration>& studio,
                   bool smartAutoClickZoomEnabled, bool recorderExists);
    // Records where the pointer is now and starts the sampling timer.
    void startSampling();
    // Starts the pointer monitor with the highlight the configuration asks for, then the
    // sampling; nothing when no feature of the recording needs the pointer.
    void startMonitoring(const RecordingConfiguration& configuration, const UserDefaults& defaults);
    // Stops the monitor and takes every live overlay down.
    void stopMonitoring();

    void handleClick(Point screenPoint, ClickType type);
    void handleMove(Point screenPoint);
    void sample();

    SmartClickZoom& smartClickZoom() { return m_smartClickZoom; }

    // A rectangle that normalises: present, not the empty one, and of positive size.
    static bool isUsable(const std::optional<Rect>& rect);
    // Normalised against `rect`, clamped to 0...1, origin bottom left.
    static Point normalizedBottomLeft(Point screenPoint, const Rect& rect);
    static Point topLeft(Point normalizedBottomLeft) {
        return Point{normalizedBottomLeft.x, 1.0 - normalizedBottomLeft.y};
    }

private:
    // Records the pointer position into the metadata and the smart-zoom history.
    void recordPosition(Point screenPoint, const Rect& rect);
    void tick();

    CursorOverlayController& m_monitor;
    RecordingClock& m_clock;
    Hooks m_hooks;
    SmartClickZoom m_smartClickZoom;
    bool m_clickToZoomEnabled = false;
    bool m_smartAutoClickZoomEnabled = true;
    double m_zoomLevel = 2.0;
    double m_zoomDuration = 0.5;
    std::optional<double> m_lastSampleTime;
};
