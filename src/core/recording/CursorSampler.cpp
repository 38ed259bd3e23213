#include "core/recording/CursorSampler.h"

#include "core/metadata/CursorClick.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/StudioRecordingConfiguration.h"
#include "core/recording/CustomCursorSettings.h"
#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingStartupTrace.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/settings/UserDefaults.h"
#include "core/support/Log.h"
#include "core/support/TimerManager.h"

#include <algorithm>

namespace {
const char* boolText(bool value) {
    return value ? "true" : "false";
}

QString samplingTimerID() {
    return QString::fromLatin1(TimerManager::TimerID::cursorSampling);
}
} // namespace

CursorSampler::CursorSampler(CursorOverlayController& monitor, RecordingClock& clock, Hooks hooks)
    : m_monitor(monitor), m_clock(clock), m_hooks(std::move(hooks)),
      m_smartClickZoom(
          SmartClickZoom::Targets{[this] { return m_hooks.isRecording() && !m_hooks.isPaused(); },
                                  [this] { return m_hooks.metadataRecorder(); },
                                  [this] { return m_hooks.zoomRenderer(); }}) {}

CursorSampler::~CursorSampler() {
    // The timer's body points here; it must not outlive the sampler.
    m_clock.invalidate(samplingTimerID());
}

bool CursorSampler::isUsable(const std::optional<Rect>& rect) {
    return rect && *rect != Rect() && rect->width() > 0 && rect->height() > 0;
}

Point CursorSampler::normalizedBottomLeft(Point p, const Rect& rect) {
    return Point{std::clamp((p.x - rect.minX()) / rect.width(), 0.0, 1.0),
                 std::clamp((p.y - rect.minY()) / rect.height(), 0.0, 1.0)};
}

void CursorSampler::start(const RecordingConfiguration& configuration, const UserDefaults& defaults,
                          const std::optional<QDateTime>& startTime, RecordingStartupTrace& trace) {
    logLine("🔍 Checking MetadataRecorder...");
    if (MetadataRecorderEngine* metadata = m_hooks.metadataRecorder(); metadata && startTime) {
        trace.phase(QStringLiteral("metadataRecorder.start"), [&] {
            metadata->startRecording(*startTime);
            metadata->setTimeProvider(m_hooks.timestamp);
        });
        configure(configuration.studioConfig, defaults.enableSmartAutoClickZoom(), true);
    } else {
        logLine("⚠️ MetadataRecorder is nil - cannot start recording metadata");
    }
    startMonitoring(configuration, defaults);
}

void CursorSampler::configure(const std::optional<StudioRecordingConfiguration>& studio,
                              bool smartAutoClickZoomEnabled, bool recorderExists) {
    logLine("🔍 Checking click-to-zoom configuration...");
    m_lastSampleTime.reset();
    m_clickToZoomEnabled = studio && studio->enableClickToZoom;
    m_smartAutoClickZoomEnabled = smartAutoClickZoomEnabled;
    m_zoomLevel = studio ? studio->zoomLevel : 2.0;
    m_zoomDuration = studio ? studio->zoomDuration : 0.5;
    const double clickThreshold = studio ? studio->clickThreshold : 0.5;

    logLine("✅ Configuring click handler...");
    logLine("   Click-to-zoom enabled: {}", boolText(m_clickToZoomEnabled));
    logLine("   Smart auto click-zoom enabled: {}", boolText(m_smartAutoClickZoomEnabled));
    if (m_clickToZoomEnabled) {
        logLine("   Zoom level: {}", formatDouble(m_zoomLevel));
        logLine("   Zoom duration: {}", formatDouble(m_zoomDuration));
        logLine("   Click threshold: {}", formatDouble(clickThreshold));
    }
    m_monitor.setClickThreshold(clickThreshold);
    m_monitor.setClickHandler(
        [this](Point location, ClickType type) { handleClick(location, type); });
    logLine("✅ Click handler configured");
    m_monitor.setCursorMoveHandler([this](Point location) { handleMove(location); });
    logLine("✅ Cursor move handler configured for position sampling (recorder exists: {})",
            boolText(recorderExists));
}

void CursorSampler::startSampling() {
    logLine("🔧 Creating cursor sampling timer...");
    // The handlers fire only when the mouse does something; the timer also traces a cursor at
    // rest. The first sample is taken at once, not a tick later.
    if (const std::optional<Point> location = m_monitor.mouseLocation()) {
        const std::optional<Rect> rect = m_hooks.captureRect();
        if (isUsable(rect)) {
            recordPosition(*location, *rect);
            const Point tl = topLeft(normalizedBottomLeft(*location, *rect));
            logLine("📍 Initial cursor position recorded: ({:.3f}, {:.3f})", tl.x, tl.y);
        }
    }
    m_clock.schedule(samplingTimerID(), samplingInterval, true, [this] { tick(); });
    logLine("✅ Cursor sampling timer started (30 Hz)");
}

void CursorSampler::tick() {
    if (!m_hooks.isRecording()) {
        logLine("⚠️ Cursor timer: not recording (state: {})",
                m_hooks.stateName().toStdString());
        return;
    }
    if (m_hooks.isPaused()) {
        logLine("⚠️ Cursor timer: paused");
        return;
    }
    if (m_hooks.isRecovering())
        return;
    sample();
}

void CursorSampler::sample() {
    const std::optional<Point> location = m_monitor.mouseLocation();
    if (!location)
        return;
    const std::optional<Rect> rect = m_hooks.captureRect();
    if (!isUsable(rect)) {
        logLine("⚠️ Cursor timer: captureRect invalid - {}",
                rect ? fmt::format("({}, {}, {}, {})", formatDouble(rect->minX()),
                                   formatDouble(rect->minY()), formatDouble(rect->width()),
                                   formatDouble(rect->height()))
                     : std::string("nil"));
        return;
    }
    recordPosition(*location, *rect);
}

void CursorSampler::recordPosition(Point screenPoint, const Rect& rect) {
    const Point tl = topLeft(normalizedBottomLeft(screenPoint, rect));
    const std::optional<double> time = m_hooks.timestamp();
    // The video's time line can step back for a moment: at the first frame (from the
    // recording's clock to the file's) and right after a resume, before the next frame, when
    // the last frame's time meets the grown pause offset. Samples keep to the time line's order.
    if (time && m_lastSampleTime && *time < *m_lastSampleTime)
        return;
    if (time)
        m_lastSampleTime = time;
    if (MetadataRecorderEngine* metadata = m_hooks.metadataRecorder())
        metadata->recordCursorPosition(tl);
    if (time)
        m_smartClickZoom.recordSmartCursorSample(tl, *time);
}

void CursorSampler::handleClick(Point screenPoint, ClickType type) {
    // Clicks while paused or while the stream recovers are not part of the recording.
    if (m_hooks.isPaused() || m_hooks.isRecovering())
        return;
    const std::optional<Rect> rect = m_hooks.captureRect();
    if (!isUsable(rect) || !rect->contains(screenPoint))
        return;
    const Point bl = normalizedBottomLeft(screenPoint, *rect);
    const Point tl = topLeft(bl);
    if (MetadataRecorderEngine* metadata = m_hooks.metadataRecorder())
        metadata->recordCursorClick(tl, type);
    if (m_clickToZoomEnabled && m_smartAutoClickZoomEnabled && type == ClickType::leftClick) {
        const double clickTimestamp = m_hooks.timestamp().value_or(0.0);
        m_smartClickZoom.scheduleSmartClickZoomDecision(
            SmartClickZoom::Click{clickTimestamp, tl, bl, m_zoomLevel, m_zoomDuration});
    }
}

void CursorSampler::handleMove(Point screenPoint) {
    if (m_hooks.isRecovering())
        return;
    const std::optional<Rect> rect = m_hooks.captureRect();
    if (ZoomRenderer* renderer = m_hooks.zoomRenderer()) {
        // A followed window may have moved since the renderer was set up.
        if (isUsable(rect))
            renderer->setCaptureFrame(rect->size, rect->origin);
        renderer->updateCursor(screenPoint);
    }
    if (!isUsable(rect)) {
        logLine("   ⚠️ captureRect unavailable or zero");
        return;
    }
    // No contains test here: a pointer outside the rectangle is traced along its edge.
    recordPosition(screenPoint, *rect);
}

void CursorSampler::startMonitoring(const RecordingConfiguration& configuration,
                                    const UserDefaults& defaults) {
    const bool clickToZoom =
        configuration.studioConfig && configuration.studioConfig->enableClickToZoom;
    if (!configuration.highlightCursor && !clickToZoom) {
        logLine("⚠️ Cursor monitoring NOT started - no features require it");
        return;
    }
    if (configuration.highlightCursor) {
        if (const auto custom = CustomCursorSettings::fromDefaults(defaults))
            m_monitor.configureCustomCursor(custom->style, custom->size, true,
                                            custom->scaleAnimation, custom->rippleEffect,
                                            custom->rippleColor);
        m_monitor.setHighlightEnabled(true);
    }
    logLine("✅ Starting cursor overlay monitoring...");
    m_monitor.startMonitoring();
    startSampling();
}

void CursorSampler::stopMonitoring() {
    m_monitor.stopMonitoring();
    m_monitor.setHighlightEnabled(false);
    m_monitor.setMagnifierEnabled(false);
}
