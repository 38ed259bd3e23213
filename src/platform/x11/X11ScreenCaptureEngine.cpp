#include "platform/x11/X11ScreenCaptureEngine.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Log.h"
#include "media/VideoFrame.h"
#include "platform/pulse/PulseAudioCaptureEngine.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11FramePixels.h"
#include "platform/x11/X11RootGrabber.h"
#include "platform/x11/X11ShareableContent.h"
#include "platform/x11/X11WindowCompositor.h"

#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

template <typename Reply>
struct Freed {
    void operator()(Reply* reply) const { std::free(reply); }
};
template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, Freed<Reply>>;

Rect unionOf(const Rect& a, const Rect& b) {
    const double minX = std::min(a.minX(), b.minX());
    const double minY = std::min(a.minY(), b.minY());
    return Rect(minX, minY, std::max(a.maxX(), b.maxX()) - minX,
                std::max(a.maxY(), b.maxY()) - minY);
}

bool rectsIntersect(const X11Rect& a, int x, int y, int width, int height) {
    return a.x < x + width && x < a.x + a.width && a.y < y + height && y < a.y + a.height;
}

// Damage on the root, reported as growing bounding boxes; each tick takes what arrived and
// starts a fresh region, so a change made while a frame is grabbed shows in the next one too.
class RootDamage {
public:
    RootDamage(xcb_connection_t* c, xcb_window_t root) : m_connection(c) {
        const xcb_query_extension_reply_t* extension = xcb_get_extension_data(c, &xcb_damage_id);
        if (!extension || !extension->present)
            return;
        ReplyPtr<xcb_damage_query_version_reply_t> version(xcb_damage_query_version_reply(
            c, xcb_damage_query_version(c, XCB_DAMAGE_MAJOR_VERSION, XCB_DAMAGE_MINOR_VERSION),
            nullptr));
        if (!version)
            return;
        m_firstEvent = extension->first_event;
        m_damage = xcb_generate_id(c);
        xcb_damage_create(c, m_damage, root, XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
        xcb_flush(c);
    }
    ~RootDamage() {
        if (m_damage)
            xcb_damage_destroy(m_connection, m_damage);
    }
    bool available() const { return m_damage != 0; }

    // One event from the connection's queue; damage inside `area` is noted.
    void handle(const xcb_generic_event_t* event, const X11Rect& area) {
        if (!m_damage || (event->response_type & 0x7f) != m_firstEvent + XCB_DAMAGE_NOTIFY)
            return;
        const auto* notify = reinterpret_cast<const xcb_damage_notify_event_t*>(event);
        m_any = true;
        m_damaged = m_damaged || rectsIntersect(area, notify->area.x, notify->area.y,
                                                notify->area.width, notify->area.height);
    }

    // Whether anything inside the area changed since the last call.
    bool takeDamage() {
        if (std::exchange(m_any, false)) {
            xcb_damage_subtract(m_connection, m_damage, XCB_NONE, XCB_NONE);
            xcb_flush(m_connection);
        }
        return std::exchange(m_damaged, false);
    }

private:
    xcb_connection_t* m_connection;
    xcb_damage_damage_t m_damage = 0;
    uint8_t m_firstEvent = 0;
    bool m_any = false;
    bool m_damaged = false;
};

struct CursorImage {
    ReplyPtr<xcb_xfixes_get_cursor_image_reply_t> reply;
    int x = 0, y = 0; // the image's top left on the root
    bool operator!=(const CursorImage& other) const {
        if (!reply || !other.reply)
            return bool(reply) != bool(other.reply);
        return x != other.x || y != other.y || reply->cursor_serial != other.reply->cursor_serial;
    }
};

CursorImage readCursor(xcb_connection_t* c) {
    CursorImage image;
    image.reply.reset(
        xcb_xfixes_get_cursor_image_reply(c, xcb_xfixes_get_cursor_image(c), nullptr));
    if (image.reply) {
        image.x = image.reply->x - image.reply->xhot;
        image.y = image.reply->y - image.reply->yhot;
    }
    return image;
}

bool initXFixes(xcb_connection_t* c) {
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (!extension || !extension->present)
        return false;
    ReplyPtr<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 4, 0), nullptr));
    return version != nullptr;
}

} // namespace

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
    {
        std::lock_guard lock(m_wakeMutex);
        m_stopRequested = true;
    }
    m_wake.notify_all();
    stopSystemAudio();
    if (m_thread.joinable())
        m_thread.join();
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
    auto filter = std::make_shared<SCContentFilter>(
        SCContentFilter::make(mode, config, *m_availableContent, m_hiddenApps));
    m_mode = mode;
    return filter;
}

SCStreamConfiguration X11ScreenCaptureEngine::streamSize(Size pointSize, double pointScale,
                                                         double resolutionScale) {
    return SCStreamConfiguration{int(double(int(pointSize.width)) * pointScale * resolutionScale),
                                 int(double(int(pointSize.height)) * pointScale * resolutionScale)};
}

void X11ScreenCaptureEngine::configureStream(std::shared_ptr<SCContentFilter> filter,
                                             const RecordingMode& mode, ResolutionMode resolution,
                                             int frameRate, bool showCursor,
                                             BackgroundType backgroundColor, bool recordAudio) {
    m_recordsAudio = recordAudio;
    if (!filter)
        throw RecordingError::invalidConfiguration(QStringLiteral("No content filter"));
    const double pointScale = resolution == ResolutionMode::high ? filter->pointPixelScale : 1.0;
    const double scale = resolutionScale(resolution);

    Stream stream;
    stream.size = streamSize(filter->contentRect.size, pointScale, scale);
    stream.frameRate = clampFrameRate(frameRate);
    stream.showsCursor = showCursor;
    stream.background = backgroundColor;

    // The root grab is in pixels of the root window, origin top left.
    if (!m_connection)
        m_connection = std::make_unique<X11Connection>();
    const int rootHeight = m_connection->rootHeight();
    stream.backgroundRGB = backgroundRGB(backgroundColor);
    if (filter->kind != SCContentFilter::Kind::display) {
        // Windows are composed on the display, or a lone window makes the whole picture.
        stream.source = X11Coordinates::fromGlobal(filter->contentRect, rootHeight);
        stream.composesWindows = true;
        stream.followsWindow = filter->desktopIndependentWindow;
        if (filter->kind == SCContentFilter::Kind::windows) {
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

void X11ScreenCaptureEngine::readPictureUnderWindows(const Stream& stream,
                                                     std::vector<uint32_t>& picture) const {
    const X11Rect& source = stream.source;
    picture.assign(size_t(source.width) * size_t(source.height),
                   0xff000000u | backgroundRGB(stream.background).value_or(0));
    xcb_connection_t* c = m_connection->get();
    // Desktop setters publish the wallpaper's pixmap on the root; without one the colour stays.
    const std::string id = m_connection->property(
        m_connection->root(), m_connection->atom("_XROOTPMAP_ID"), XCB_ATOM_PIXMAP);
    if (id.size() < sizeof(xcb_pixmap_t))
        return;
    xcb_pixmap_t pixmap = 0;
    std::memcpy(&pixmap, id.data(), sizeof pixmap);
    xcb_get_image_reply_t* image = xcb_get_image_reply(
        c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, int16_t(source.x), int16_t(source.y),
                      uint16_t(source.width), uint16_t(source.height), ~0u),
        nullptr);
    if (image && xcb_get_image_data_length(image) >= source.width * source.height * 4)
        std::memcpy(picture.data(), xcb_get_image_data(image), picture.size() * 4);
    std::free(image);
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
    if (const auto* one = m_mode->as<RecordingMode::Window>())
        return one->window.frame;
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
    if (m_thread.joinable())
        co_return;
    if (!m_connection)
        m_connection = std::make_unique<X11Connection>();
    {
        std::lock_guard lock(m_wakeMutex);
        m_stopRequested = false;
    }
    m_delivered = 0;
    m_idle = 0;
    m_missed = 0;
    m_isCapturing = true;
    m_thread = std::thread([this, stream = *m_stream] { captureLoop(stream); });
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

QCoro::Task<void> X11ScreenCaptureEngine::stopCapture() {
    if (!m_thread.joinable())
        co_return;
    {
        std::lock_guard lock(m_wakeMutex);
        m_stopRequested = true;
    }
    m_wake.notify_all();
    stopSystemAudio();
    // The loop notices within one grab; a frame interval at most.
    m_thread.join();
    logLine("📊 Capture: {} frames delivered, {} idle ticks, {} ticks missed", m_delivered.load(),
            m_idle.load(), m_missed.load());
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

namespace {

// How many frame intervals a late capture thread may fall behind and still deliver every tick.
constexpr int maxCatchUpTicks = 3;

} // namespace

void X11ScreenCaptureEngine::captureLoop(Stream stream) {
    xcb_connection_t* c = m_connection->get();
    std::optional<X11RootGrabber> grabber;
    std::optional<RootDamage> damage;
    X11WindowTracker tracker(*m_connection, stream.windows);
    tracker.start();
    std::optional<X11WindowCompositor> compositor;
    if (stream.composesWindows) {
        compositor.emplace(*m_connection, tracker, stream.source, stream.backgroundRGB,
                           stream.followsWindow);
        if (!compositor->isAvailable()) {
            reportStop({QStringLiteral("X11"),
                        3,
                        QStringLiteral("The X server cannot capture single windows "
                                       "(no Composite extension)"),
                        {}});
            return;
        }
    } else {
        grabber.emplace(c, m_connection->root(), stream.source);
        m_usesSharedMemory = grabber->usesSharedMemory();
        damage.emplace(c, m_connection->root());
    }
    // Read when first needed and kept: a wallpaper changes rarely, and the grab must stay
    // cheap at every tick.
    std::vector<uint32_t> under;
    bool repaint = false; // an excluded window moved: its old place is shown again next
    // Every event of the connection goes to all that watch it: the tracker, damage, windows.
    // `queuedOnly` takes just what came in with the last reply, without reading the socket.
    auto readEvents = [&](bool queuedOnly) {
        while (xcb_generic_event_t* event =
                   queuedOnly ? xcb_poll_for_queued_event(c) : xcb_poll_for_event(c)) {
            tracker.handle(event);
            if (damage)
                damage->handle(event, stream.source);
            if (compositor)
                compositor->handle(event);
            std::free(event);
        }
        tracker.update();
    };
    const bool cursorAvailable = stream.showsCursor && initXFixes(c);
    auto pool = std::make_unique<VideoFramePool>(stream.size.width, stream.size.height);
    const double scaleX = double(stream.size.width) / stream.source.width;
    const double scaleY = double(stream.size.height) / stream.source.height;

    const MediaTime frameDuration = MediaTime::make(1, stream.frameRate);
    const auto interval = std::chrono::nanoseconds(1'000'000'000LL / stream.frameRate);
    auto deadline = std::chrono::steady_clock::now();
    bool first = true;
    bool idleSinceLastFrame = false;
    bool redraw = false;
    CursorImage lastCursor;

    // At full size the server writes each grab straight into the frame's own buffer.
    const bool grabsIntoFrames = grabber && stream.size.width == stream.source.width &&
                                 stream.size.height == stream.source.height;
    auto deliver = [&](CursorImage cursor) {
        VideoFrame frame;
        if (grabsIntoFrames)
            frame = grabber->grabFrame(MediaTime::hostTimeNow(), frameDuration);
        const bool grabbedIntoFrame = !frame.isNull();
        if (!grabbedIntoFrame) {
            // Off screen for now, or the connection broke (reported at the next tick).
            if (grabber && !grabber->grab())
                return true;
            if (const auto size = configuration();
                size && (size->width != pool->width() || size->height != pool->height()))
                pool = std::make_unique<VideoFramePool>(size->width, size->height);
            frame = pool->makeFrame(MediaTime::hostTimeNow(), frameDuration);
            if (frame.isNull())
                return true;
        }
        if (compositor) {
            if (const auto gone = compositor->compose(frame.mutableBytes(), frame.bytesPerRow(),
                                                      frame.width(), frame.height())) {
                reportStop(
                    {QStringLiteral("X11"),
                     2,
                     QStringLiteral("A captured window disappeared (0x%1)").arg(*gone, 0, 16),
                     {}});
                return false;
            }
            frame.contentScale = compositor->contentScale();
            // The picture is still handed on; the next ones come at the window's new size.
            if (frame.contentScale < 0.99) {
                handleWindowResize(frame.contentScale);
                redraw = true; // the window at its new size, even if it holds still now
            }
        } else {
            if (!grabbedIntoFrame)
                X11FramePixels::copyOpaque(grabber->pixels(), grabber->bytesPerRow(),
                                           stream.source.width, stream.source.height,
                                           frame.mutableBytes(), frame.bytesPerRow(), frame.width(),
                                           frame.height());
            // Where the excluded windows were when the screen was grabbed: the grab's reply
            // came after every event sent before it. A window that moved since the last frame
            // is painted out over all the places it passed, so none of it shows on the way.
            readEvents(true);
            if (tracker.takeWallpaperChange())
                under.clear();
            auto paintOut = [&](const X11Rect& place) {
                if (under.empty())
                    readPictureUnderWindows(stream, under);
                X11FramePixels::paintOver(under.data(), stream.source.width, stream.source.height,
                                          place.x - stream.source.x, place.y - stream.source.y,
                                          place.width, place.height, frame.mutableBytes(),
                                          frame.bytesPerRow(), frame.width(), frame.height());
            };
            for (const X11WindowTracker::Window& window : tracker.windows())
                if (window.shown)
                    paintOut(window.swept);
            for (const X11Rect& place : tracker.vanished())
                paintOut(place);
            repaint = tracker.takeSweep();
        }
        if (cursor.reply) {
            // A followed window is the picture wherever it is now, at the scale it was fitted.
            X11Rect origin = stream.source;
            double cursorScaleX = scaleX;
            double cursorScaleY = scaleY;
            if (const auto followed = compositor && compositor->followsWindow()
                                          ? compositor->followedFrame()
                                          : std::nullopt) {
                origin = *followed;
                cursorScaleX = cursorScaleY = compositor->contentScale();
            }
            const auto* pixels = xcb_xfixes_get_cursor_image_cursor_image(cursor.reply.get());
            X11FramePixels::blendCursor(pixels, cursor.reply->width, cursor.reply->height,
                                        int((cursor.x - origin.x) * cursorScaleX),
                                        int((cursor.y - origin.y) * cursorScaleY),
                                        frame.mutableBytes(), frame.bytesPerRow(), frame.width(),
                                        frame.height());
        }
        lastCursor = std::move(cursor);
        first = false;
        redraw = redraw && frame.contentScale < 0.99;
        idleSinceLastFrame = false;
        frame.status = FrameStatus::complete;
        m_frameTimingBuffer.append(frame.presentationTime);
        m_lastPTS = frame.presentationTime;
        ++m_delivered;
        if (m_frameHandler) {
            const VideoSampleTiming timing{frame.presentationTime, frame.duration};
            m_frameHandler(std::make_shared<const VideoFrame>(frame), timing);
        }
        return true;
    };

    for (;;) {
        bool stopping = false;
        {
            std::unique_lock lock(m_wakeMutex);
            stopping = m_wake.wait_until(lock, deadline, [this] { return m_stopRequested; });
        }
        if (stopping) {
            // A still screen sends nothing for a long time; one closing frame at the stop
            // makes the recording last until the moment it was stopped.
            if (idleSinceLastFrame && !xcb_connection_has_error(c))
                deliver(cursorAvailable ? readCursor(c) : CursorImage{});
            return;
        }
        deadline += interval;
        // A tick that came late (the thread was not scheduled in time) is followed at once by
        // the ones it held up, so a short stall costs no frames. Further behind than that, the
        // ticks in between are given up: a burst of frames all showing the same moment helps
        // nobody, and they are counted as missed.
        if (const auto behind = std::chrono::steady_clock::now() - deadline;
            behind > maxCatchUpTicks * interval) {
            m_missed += behind / interval;
            deadline += (behind / interval) * interval;
        }

        if (xcb_connection_has_error(c)) {
            reportStop({QStringLiteral("X11"),
                        xcb_connection_has_error(c),
                        QStringLiteral("The connection to the X server was lost"),
                        {}});
            return;
        }

        // Without XDamage every tick counts as a change.
        readEvents(false);
        bool changed =
            first || redraw || repaint ||
            (compositor ? compositor->takeDamage() : !damage->available() || damage->takeDamage());
        CursorImage cursor;
        if (cursorAvailable) {
            cursor = readCursor(c);
            changed = changed || (cursor != lastCursor);
        }
        if (!changed) {
            ++m_idle;
            idleSinceLastFrame = true;
            continue; // an idle frame: nothing new to show
        }
        if (!deliver(std::move(cursor)))
            return;
    }
}
