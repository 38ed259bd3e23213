#include "platform/x11/X11ScreenCaptureEngine.h"

#include "platform/pulse/PulseAudioCaptureEngine.h"
#include "platform/x11/X11DisplayWatcher.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Log.h"
#include "media/VideoFrame.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11CursorImage.h"
#include "platform/x11/X11FrameBuilder.h"
#include "platform/x11/X11ShareableContent.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

Rect unionOf(const Rect& a, const Rect& b) {
    const double minX = std::min(a.minX(), b.minX());
    const double minY = std::min(a.minY(), b.minY());
    return Rect(minX, minY, std::max(a.maxX(), b.maxX()) - minX,
                std::max(a.maxY(), b.maxY()) - minY);
}

} // namespace

namespace {
// A still screen still sends a frame this often. The movie is written in pieces of about a
// second that reach the disk when the encoder hands out the next piece's first frame, one
// frame after it came in (the encoder needs the next frame's time to know how long one lasts):
// without these frames, a recording killed after a minute of stillness would keep nothing of
// that minute; with them, a crash costs at most a second and a half.
constexpr auto stillScreenRefresh = std::chrono::milliseconds(500);
} // namespace

struct X11ScreenCaptureEngine::Run {
    explicit Run(const X11Connection& connection, const X11CaptureStream& stream)
        : builder(connection, stream), frameDuration(MediaTime::make(1, stream.frameRate)) {}

    X11FrameBuilder builder;
    MediaTime frameDuration;
    std::optional<X11DisplayWatcher> display;
    bool cursorAvailable = false;
    X11CursorImage lastCursor;
    bool first = true;
    bool idleSinceLastFrame = false;
    std::chrono::steady_clock::time_point lastDelivery = std::chrono::steady_clock::now();
    bool redraw = false; // a window shown smaller: once more at its new size, even if still
};

std::optional<uint32_t> X11ScreenCaptureEngine::backgroundRGB(BackgroundType background) {
    // The system colours of the platform the recorder's colours were chosen on.
    switch (background) {
    case BackgroundType::wallpaper:
        return std::nullopt;
    case BackgroundType::white:
        return 0xffffff;
    case BackgroundType::gray:
        return 0x8e8e93;
    case BackgroundType::yellow:
        return 0xffcc00;
    case BackgroundType::orange:
        return 0xff9500;
    case BackgroundType::green:
        return 0x34c759;
    case BackgroundType::blue:
        return 0x007aff;
    case BackgroundType::red:
        return 0xff3b30;
    case BackgroundType::clear: // a movie without alpha shows clear as black
    case BackgroundType::black:
    case BackgroundType::custom:
        return 0x000000;
    }
    return 0x000000;
}

X11ScreenCaptureEngine::X11ScreenCaptureEngine(QByteArray hiddenApps)
    : m_hiddenApps(std::move(hiddenApps)), m_frameTimingBuffer(Constants::frameTimingBufferSize) {}

X11ScreenCaptureEngine::~X11ScreenCaptureEngine() {
    stopSystemAudio();
    // The capture thread uses the connection and the handlers: it ends before they go.
    if (m_loop)
        m_loop->stop();
}

void X11ScreenCaptureEngine::setAvailableContent(const SCShareableContent& content) {
    m_availableContent = content;
}

void X11ScreenCaptureEngine::updateAvailableContent() {
    // X11 has no capture permission to ask for: a client that may connect may read the screen.
    if (!m_connection)
        m_connection = std::make_unique<X11Connection>();
    m_availableContent = X11ShareableContent::fetch(*m_connection);
}

std::shared_ptr<SCContentFilter>
X11ScreenCaptureEngine::createFilter(const RecordingMode& mode,
                                     const RecordingConfiguration& config) {
    if (!m_availableContent)
        throw RecordingError::invalidConfiguration(QStringLiteral("Available content not loaded"));
    auto filter = std::make_shared<X11ContentFilter>(
        X11ContentFilter::make(mode, config, *m_availableContent, m_hiddenApps));
    m_mode = mode;
    return filter;
}

SCStreamConfiguration X11ScreenCaptureEngine::streamSize(Size pointSize, double pointScale,
                                                         double resolutionScale) {
    return SCStreamConfiguration{int(double(int(pointSize.width)) * pointScale * resolutionScale),
                                 int(double(int(pointSize.height)) * pointScale * resolutionScale)};
}

void X11ScreenCaptureEngine::configureStream(std::shared_ptr<SCContentFilter> anyFilter,
                                             const RecordingMode& mode, ResolutionMode resolution,
                                             int frameRate, bool showCursor,
                                             BackgroundType backgroundColor, bool recordAudio) {
    m_recordsAudio = recordAudio;
    auto filter = std::dynamic_pointer_cast<X11ContentFilter>(std::move(anyFilter));
    if (!filter)
        throw RecordingError::invalidConfiguration(QStringLiteral("No content filter"));
    const double pointScale = resolution == ResolutionMode::high ? filter->pointPixelScale : 1.0;
    const double scale = resolutionScale(resolution);

    X11CaptureStream stream;
    stream.size = streamSize(filter->contentRect.size, pointScale, scale);
    stream.frameRate = clampFrameRate(frameRate);
    stream.showsCursor = showCursor;
    stream.background = backgroundColor;

    // The root grab is in pixels of the root window, origin top left.
    if (!m_connection)
        m_connection = std::make_unique<X11Connection>();
    const int rootHeight = m_connection->rootHeight();
    stream.backgroundRGB = backgroundRGB(backgroundColor);
    if (filter->kind != X11ContentFilter::Kind::display) {
        // Windows are composed on the display, or a lone window makes the whole picture.
        stream.source = X11Coordinates::fromGlobal(filter->contentRect, rootHeight);
        stream.composesWindows = true;
        stream.followsWindow = filter->desktopIndependentWindow;
        if (filter->kind == X11ContentFilter::Kind::windows) {
            for (const SCWindow& window : filter->includedWindows)
                stream.windows.windows.push_back(window.windowID);
            if (stream.windows.windows.empty())
                throw RecordingError::captureDeviceUnavailable();
        } else {
            // An application without windows yet shows them once it opens some.
            for (const SCRunningApplication& app : filter->includedApplications)
                stream.windows.applications.push_back(app.bundleIdentifier);
        }
        if (stream.size.width <= 0 || stream.size.height <= 0 || stream.source.width <= 0 ||
            stream.source.height <= 0)
            throw RecordingError::invalidConfiguration(QStringLiteral("The capture area is empty"));
        std::lock_guard lock(m_configurationMutex);
        m_stream = stream;
        m_filter = std::move(filter);
        return;
    }
    const X11Rect displayPixels = X11Coordinates::fromGlobal(filter->display.frame, rootHeight);
    stream.source = displayPixels;
    stream.displayID = filter->display.displayID;
    stream.displayPixels = displayPixels;
    if (const auto* area = mode.as<RecordingMode::ScreenArea>()) {
        // The area's rectangle counts from the display's bottom left; the source rectangle
        // counts from its top left.
        const Rect& r = area->rect;
        const double sourceY = filter->display.frame.height() - r.height() - r.origin.y;
        stream.source = X11Rect{displayPixels.x + int(r.origin.x), displayPixels.y + int(sourceY),
                                int(r.width()), int(r.height())};
        stream.size = SCStreamConfiguration{int(r.width() * pointScale * scale),
                                            int(r.height() * pointScale * scale)};
        // A rectangle that runs off the display records the part on it.
        stream.source.width =
            std::max(0, std::min(stream.source.width,
                                 displayPixels.x + displayPixels.width - stream.source.x));
        stream.source.height =
            std::max(0, std::min(stream.source.height,
                                 displayPixels.y + displayPixels.height - stream.source.y));
    }
    if (stream.size.width <= 0 || stream.size.height <= 0 || stream.source.width <= 0 ||
        stream.source.height <= 0)
        throw RecordingError::invalidConfiguration(QStringLiteral("The capture area is empty"));
    // Kept out wherever they go, and those opened later too.
    stream.windows.ownWindows = !mode.is<RecordingMode::SystemAudio>();
    stream.windows.applications = filter->excludedBundleIDs;
    for (const SCRunningApplication& app : filter->excludedApplications)
        stream.windows.applications.push_back(app.bundleIdentifier);
    std::lock_guard lock(m_configurationMutex);
    m_stream = stream;
    m_filter = std::move(filter);
}

std::optional<SCStreamConfiguration> X11ScreenCaptureEngine::configuration() const {
    std::lock_guard lock(m_configurationMutex);
    if (!m_stream)
        return std::nullopt;
    return m_stream->size;
}

void X11ScreenCaptureEngine::handleWindowResize(double contentScale) {
    std::lock_guard lock(m_configurationMutex);
    if (!m_stream || !m_isCapturing)
        return;
    const double factor = 1.0 / contentScale;
    const SCStreamConfiguration resized{int(double(m_stream->size.width) * factor),
                                        int(double(m_stream->size.height) * factor)};
    if (resized == m_stream->size)
        return;
    logLine("🔄 Window resized: contentScale={}, updating stream to {}x{}",
            formatDouble(contentScale), resized.width, resized.height);
    m_stream->size = resized;
    logLine("✅ Stream configuration updated successfully");
}

std::optional<Rect> X11ScreenCaptureEngine::captureRectInScreenSpace() const {
    if (!m_filter || !m_mode)
        return std::nullopt;
    const Rect base = m_filter->display.frame;
    if (m_mode->is<RecordingMode::Screen>())
        return base;
    if (const auto* area = m_mode->as<RecordingMode::ScreenArea>())
        return Rect(base.origin.x + area->rect.origin.x, base.origin.y + area->rect.origin.y,
                    area->rect.width(), area->rect.height());
    // Window frames are global points with the origin at the bottom left already.
    if (const auto* one = m_mode->as<RecordingMode::Window>()) {
        std::lock_guard lock(m_configurationMutex);
        return m_followedRect.value_or(one->window.frame);
    }
    if (const auto* list = m_mode->as<RecordingMode::Windows>(); list && !list->windows.empty()) {
        Rect joined = list->windows.front().frame;
        for (const SCWindow& window : list->windows)
            joined = unionOf(joined, window.frame);
        return joined;
    }
    return m_filter->contentRect;
}

QCoro::Task<void> X11ScreenCaptureEngine::startCapture() {
    if (!m_filter || !m_stream)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Filter and configuration must be set before starting capture"));
    if (m_loop && m_loop->isRunning() && m_isCapturing)
        co_return;
    // A stream that stopped on an error is started again from the beginning.
    if (m_loop)
        m_loop->stop();
    {
        std::lock_guard lock(m_configurationMutex);
        m_followedRect.reset();
    }
    if (!m_connection)
        m_connection = std::make_unique<X11Connection>();
    followMovedDisplay();
    m_delivered = 0;
    m_idle = 0;
    m_isCapturing = true;
    // A restart after the server lost the shared memory asks for new segments: they are what
    // keeps a large display affordable, while the plain path copies every frame through the
    // socket and falls behind on a busy screen. A server that refuses them gets the plain path,
    // as at any start.
    const X11CaptureStream stream = *m_stream;
    m_loop = std::make_unique<PacedLoop>(
        "X11Capture", PacedLoop::intervalAt(m_stream->frameRate),
        PacedLoop::Callbacks{.start = [this, stream] { return beginRun(stream); },
                             .tick = [this] { return captureTick(); },
                             .finish = [this](bool stopped) { endRun(stopped); }});
    startSystemAudio();
    co_return;
}

void X11ScreenCaptureEngine::startSystemAudio() {
    if (!m_recordsAudio || m_systemAudio)
        return;
    auto audio = std::make_unique<PulseAudioCaptureEngine>();
    try {
        audio->setupSystemAudioCapture();
        audio->setVolumes(m_systemAudioVolume, 1.0f);
        audio->setSystemAudioHandler(
            [this](const AudioBufferHandle& buffer, const AudioSampleTiming& timing) {
                if (m_audioHandler)
                    m_audioHandler(buffer, timing);
            });
        audio->startCapture();
    } catch (const std::exception& error) {
        // The picture goes on without sound rather than not at all.
        logLine("⚠️ System audio is not recorded: {}", error.what());
        return;
    }
    m_systemAudio = std::move(audio);
}

void X11ScreenCaptureEngine::stopSystemAudio() {
    if (m_systemAudio)
        m_systemAudio->stopCapture();
    m_systemAudio.reset();
}

void X11ScreenCaptureEngine::followMovedDisplay() {
    std::lock_guard lock(m_configurationMutex);
    if (!m_stream || !m_stream->displayID)
        return;
    const std::optional<X11Rect> now = currentMonitorPixels(*m_connection, *m_stream->displayID);
    if (!now)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The recorded display is no longer connected"));
    const X11Rect before = m_stream->displayPixels;
    if (*now == before)
        return;
    // The same part of the display as before, at the same output size: an area keeps its place
    // on the display, cut to what the display still has.
    X11Rect& source = m_stream->source;
    source.x = now->x + (source.x - before.x);
    source.y = now->y + (source.y - before.y);
    source.width = std::max(0, std::min(source.width, now->x + now->width - source.x));
    source.height = std::max(0, std::min(source.height, now->y + now->height - source.y));
    if (source.width <= 0 || source.height <= 0)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The recorded area is no longer on its display"));
    if (before.width == source.width && before.height == source.height) {
        source.width = now->width;
        source.height = now->height;
    }
    m_stream->displayPixels = *now;
    if (m_filter)
        m_filter->display.frame = X11Coordinates::toGlobal(*now, m_connection->rootHeight());
    logLine("🖥️ Display moved or resized: capturing {}x{} at {},{}", source.width,
            source.height, source.x, source.y);
}

QCoro::Task<void> X11ScreenCaptureEngine::stopCapture() {
    if (!m_loop || !m_loop->isRunning())
        co_return;
    stopSystemAudio();
    // The loop notices within one grab; a frame interval at most.
    m_loop->stop();
    logLine("📊 Capture: {} frames delivered, {} idle ticks, {} ticks missed", m_delivered.load(),
            m_idle.load(), m_loop->missedTicks());
    m_isCapturing = false;
    m_lastPTS.reset();
    m_frameTimingBuffer.clear();
    co_return;
}

void X11ScreenCaptureEngine::reportStop(const StreamError& error) {
    logLine("ScreenCaptureEngine: Stream stopped with error: {} ({}) - {}",
            error.domain.toStdString(), error.code, error.description.toStdString());
    if (!error.userInfo.isEmpty())
        logLine("   userInfo: {}", error.userInfo.toStdString());
    m_isCapturing = false;
    if (m_errorHandler)
        m_errorHandler(error);
}

bool X11ScreenCaptureEngine::beginRun(const X11CaptureStream& stream) {
    m_run = std::make_unique<Run>(*m_connection, stream);
    if (!m_run->builder.isAvailable()) {
        reportStop({QStringLiteral("X11"),
                    3,
                    QStringLiteral("The X server cannot capture single windows "
                                   "(no Composite extension)"),
                    {}});
        return false;
    }
    m_usesSharedMemory = m_run->builder.usesSharedMemory();
    if (stream.displayID)
        m_run->display.emplace(*m_connection, *stream.displayID, stream.displayPixels,
                               stream.frameRate);
    m_run->cursorAvailable = stream.showsCursor && X11CursorImage::isAvailable(m_connection->get());
    return true;
}

bool X11ScreenCaptureEngine::captureTick() {
    xcb_connection_t* c = m_connection->get();
    if (const int error = xcb_connection_has_error(c)) {
        reportStop({QStringLiteral("X11"),
                    error,
                    QStringLiteral("The connection to the X server was lost"),
                    {}});
        return false;
    }
    Run& run = *m_run;
    if (run.display && !run.display->tick()) {
        reportStop({QStringLiteral("X11"), 4,
                    QStringLiteral("The recorded display was removed, moved or resized"),
                    QString::fromStdString(run.display->change())});
        return false;
    }
    run.builder.readEvents(false);
    bool changed = run.first || run.redraw || run.builder.takeChange() ||
                   std::chrono::steady_clock::now() - run.lastDelivery >= stillScreenRefresh;
    X11CursorImage cursor;
    if (run.cursorAvailable) {
        cursor = X11CursorImage::read(c);
        changed = changed || (cursor != run.lastCursor);
    }
    if (!changed) {
        ++m_idle;
        run.idleSinceLastFrame = true;
        return true; // an idle frame: nothing new to show
    }
    return deliver(std::move(cursor));
}

void X11ScreenCaptureEngine::endRun(bool stopped) {
    // A still screen sends nothing for a long time; one closing frame at the stop makes the
    // recording last until the moment it was stopped.
    xcb_connection_t* c = m_connection->get();
    if (stopped && m_run && m_run->idleSinceLastFrame && !xcb_connection_has_error(c))
        deliver(m_run->cursorAvailable ? X11CursorImage::read(c) : X11CursorImage{});
    m_run.reset();
}

bool X11ScreenCaptureEngine::deliver(X11CursorImage cursor) {
    Run& run = *m_run;
    X11FrameBuilder::Built built = run.builder.build(run.frameDuration, configuration(), cursor);
    if (built.sharedMemoryLost) {
        m_usesSharedMemory = false;
        reportStop({QStringLiteral("X11"),
                    5,
                    QStringLiteral("The X server lost the shared memory the screen is grabbed "
                                   "through"),
                    {}});
        return false;
    }
    if (built.missingWindow) {
        reportStop({QStringLiteral("X11"),
                    2,
                    QStringLiteral("A captured window disappeared (0x%1)")
                        .arg(*built.missingWindow, 0, 16),
                    {}});
        return false;
    }
    VideoFrame& frame = built.frame;
    if (frame.isNull())
        return true;
    if (const auto followed = run.builder.followedFrame()) {
        // Clicks and cursor positions are normalised against where the window is now.
        std::lock_guard lock(m_configurationMutex);
        m_followedRect = X11Coordinates::toGlobal(*followed, m_connection->rootHeight());
    }
    // The picture is still handed on; the next ones come at the window's new size.
    if (frame.contentScale < 0.99) {
        handleWindowResize(frame.contentScale);
        run.redraw = true;
    } else {
        run.redraw = false;
    }
    run.lastCursor = std::move(cursor);
    run.first = false;
    run.idleSinceLastFrame = false;
    run.lastDelivery = std::chrono::steady_clock::now();
    frame.status = FrameStatus::complete;
    m_frameTimingBuffer.append(frame.presentationTime);
    m_lastPTS = frame.presentationTime;
    ++m_delivered;
    if (m_frameHandler) {
        const VideoSampleTiming timing{frame.presentationTime, frame.duration};
        m_frameHandler(std::make_shared<const VideoFrame>(frame), timing);
    }
    return true;
}
