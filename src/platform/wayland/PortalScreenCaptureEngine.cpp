#include "platform/wayland/PortalScreenCaptureEngine.h"

#include "core/model/RecordingError.h"
#include "core/support/Log.h"
#include "platform/wayland/PortalCoordinates.h"
#include "platform/wayland/PortalCursorFeed.h"
#include "platform/wayland/PortalScreenCast.h"
#include "platform/wayland/PortalSessionKeeper.h"
#include "platform/x11/X11CaptureFilter.h"

#include <algorithm>
#include <chrono>

namespace {

const QString portalDomain = QStringLiteral("ScreenCastPortal");
const QString pipeWireDomain = QStringLiteral("PipeWire");
constexpr auto formatTimeout = std::chrono::milliseconds(5000);
constexpr auto firstPictureTimeout = std::chrono::milliseconds(1000);

} // namespace

PortalScreenCaptureEngine::PortalScreenCaptureEngine(std::shared_ptr<PortalSessionKeeper> sessions,
                                                     std::shared_ptr<PortalCursorFeed> cursorFeed)
    : m_sessions(std::move(sessions)), m_cursorFeed(std::move(cursorFeed)) {}

PortalScreenCaptureEngine::~PortalScreenCaptureEngine() {
    // The feed's reader reaches into this engine: it goes first.
    if (m_cursorFeed)
        m_cursorFeed->detach(this);
    // The capture thread calls the handlers: it ends before they go.
    if (m_stream)
        m_stream->stop(false);
    if (m_session)
        m_session->setClosedHandler({});
}

void PortalScreenCaptureEngine::setAvailableContent(const SCShareableContent& content) {
    m_availableContent = content;
}

void PortalScreenCaptureEngine::updateAvailableContent() {
    m_availableContent = m_sessions->content();
}

std::optional<QString> PortalScreenCaptureEngine::refusalReason(const RecordingMode& mode) {
    // The portal shares what the user picks in the desktop's dialog: monitors and single windows.
    // Nothing there names an application or a set of windows.
    if (mode.is<RecordingMode::Application>())
        return QStringLiteral(
            "Applications cannot be recorded on Wayland: the desktop's screen cast portal shares "
            "only monitors and single windows, picked in its own dialog; record a display, an "
            "area of it, or one window");
    if (mode.is<RecordingMode::Windows>())
        return QStringLiteral(
            "Several windows cannot be recorded on Wayland: the desktop's screen cast portal "
            "shares one window at a time, picked in its own dialog; record one window, a display "
            "or an area of it");
    if (!mode.is<RecordingMode::Screen>() && !mode.is<RecordingMode::ScreenArea>() &&
        !mode.is<RecordingMode::Window>())
        return QStringLiteral("The screen cast portal shares displays and windows only");
    return std::nullopt;
}

std::shared_ptr<SCContentFilter>
PortalScreenCaptureEngine::createFilter(const RecordingMode& mode,
                                        const RecordingConfiguration& config) {
    if (!m_availableContent)
        throw RecordingError::invalidConfiguration(QStringLiteral("Available content not loaded"));
    if (const auto* window = mode.as<RecordingMode::Window>()) {
        const auto& windows = m_availableContent->windows;
        const auto shared =
            std::find_if(windows.begin(), windows.end(), [&](const SCWindow& candidate) {
                return candidate.windowID == window->window.windowID;
            });
        if (shared == windows.end())
            throw RecordingError::captureDeviceUnavailable();
        auto filter = std::make_shared<X11ContentFilter>();
        filter->kind = X11ContentFilter::Kind::windows;
        filter->includedWindows = {*shared};
        filter->desktopIndependentWindow = true;
        filter->contentRect = shared->frame;
        m_mode = mode;
        return filter;
    }
    if (const std::optional<QString> reason = refusalReason(mode))
        throw RecordingError::invalidConfiguration(*reason);
    auto filter = std::make_shared<X11ContentFilter>(
        X11ContentFilter::make(mode, config, *m_availableContent, {}));
    m_mode = mode;
    return filter;
}

void PortalScreenCaptureEngine::configureStream(std::shared_ptr<SCContentFilter> anyFilter,
                                                const RecordingMode& mode,
                                                ResolutionMode resolution, int frameRate,
                                                bool showCursor, BackgroundType, bool) {
    // The plan and stream change under the feed's reader: it waits until they are in place.
    if (m_cursorFeed)
        m_cursorFeed->detach(this);
    // The same description of what to capture as on X11: displays, areas and windows.
    auto filter = std::dynamic_pointer_cast<X11ContentFilter>(std::move(anyFilter));
    if (!filter)
        throw RecordingError::invalidConfiguration(QStringLiteral("No content filter"));
    Plan plan;
    if (filter->kind == X11ContentFilter::Kind::windows) {
        // The picture is the window alone, wherever it is.
        plan.nodeID = filter->includedWindows.front().windowID;
        plan.displayFrame = filter->contentRect;
    } else {
        plan.nodeID = filter->display.displayID;
        plan.displayFrame = filter->display.frame;
    }
    plan.frameRate = std::clamp(frameRate, 15, 60);
    plan.showsCursor = showCursor;
    const double scale = resolution == ResolutionMode::low ? 0.5 : 1.0;
    QSize source(int(plan.displayFrame.width()), int(plan.displayFrame.height()));
    if (const auto* area = mode.as<RecordingMode::ScreenArea>()) {
        plan.crop = PortalCoordinates::areaToPicture(area->rect, source);
        source = plan.crop->size();
    }
    // Encoders want even sizes.
    plan.size =
        SCStreamConfiguration{int(source.width() * scale) & ~1, int(source.height() * scale) & ~1};
    // A window whose size the portal did not say takes the size its stream agrees on.
    const bool sizeFromStream =
        filter->kind == X11ContentFilter::Kind::windows && plan.displayFrame.width() <= 0;
    if (!sizeFromStream && (plan.size.width <= 0 || plan.size.height <= 0))
        throw RecordingError::invalidConfiguration(QStringLiteral("The capture area is empty"));
    m_plan = plan;
    m_filter = std::move(filter);
    if (m_stream) {
        m_stream->stop(false);
        m_stream.reset();
    }
    prepareStream();
}

std::optional<SCStreamConfiguration> PortalScreenCaptureEngine::configuration() const {
    if (!m_plan)
        return std::nullopt;
    return m_plan->size;
}

std::optional<Rect> PortalScreenCaptureEngine::captureRectInScreenSpace() const {
    if (!m_plan || !m_mode)
        return std::nullopt;
    // Wayland does not tell where a window is, and a window's stream counts the pointer from
    // the window's own top left: the window stands at the origin of a space of its own.
    if (m_mode->is<RecordingMode::Window>())
        return m_plan->displayFrame;
    const Rect base = m_plan->displayFrame;
    if (const auto* area = m_mode->as<RecordingMode::ScreenArea>())
        return Rect(base.origin.x + area->rect.origin.x, base.origin.y + area->rect.origin.y,
                    area->rect.width(), area->rect.height());
    return base;
}

std::optional<Point> PortalScreenCaptureEngine::cursorLocation() const {
    if (!m_stream || !m_plan)
        return std::nullopt;
    const auto position = m_stream->cursorPosition();
    if (!position)
        return std::nullopt;
    return PortalCoordinates::streamPointToGlobal(*position, m_plan->pictureSize,
                                                  m_plan->displayFrame);
}

void PortalScreenCaptureEngine::reportStop(const StreamError& error) {
    if (m_stopReported.exchange(true))
        return;
    logLine("ScreenCaptureEngine: Stream stopped with error: {} ({}) - {}",
            error.domain.toStdString(), error.code, error.description.toStdString());
    if (m_errorHandler)
        m_errorHandler(error);
}

void PortalScreenCaptureEngine::prepareStream() {
    // A session the desktop ended (a restart after the user stopped sharing) is asked anew.
    m_session = m_sessions->session();
    const auto shared =
        std::find_if(m_session->streams().begin(), m_session->streams().end(),
                     [&](const PortalStream& stream) { return stream.nodeID == m_plan->nodeID; });
    if (shared == m_session->streams().end())
        throw RecordingError::captureDeviceUnavailable();
    m_stopReported = false;
    m_session->setClosedHandler([this] {
        reportStop(
            {portalDomain, 1, QStringLiteral("The desktop ended the screen cast session"), {}});
    });

    PipeWireVideoStream::Options options;
    options.remoteFd = m_session->openPipeWireRemote();
    options.nodeID = m_plan->nodeID;
    options.crop = m_plan->crop;
    if (m_plan->size.width > 0 && m_plan->size.height > 0)
        options.outputSize = QSize(m_plan->size.width, m_plan->size.height);
    options.showsCursor = m_plan->showsCursor;
    options.frameRate = m_plan->frameRate;
    options.delivering = false;
    auto stream = std::make_unique<PipeWireVideoStream>(
        options,
        [this](VideoFrame frame) {
            if (!m_frameHandler)
                return;
            const VideoSampleTiming timing{frame.presentationTime, frame.duration};
            m_frameHandler(std::make_shared<const VideoFrame>(std::move(frame)), timing);
        },
        [this](const QString& description) {
            reportStop({pipeWireDomain, 2, description, {}});
        });
    try {
        stream->start();
    } catch (const std::exception& error) {
        throw RecordingError::invalidConfiguration(QString::fromUtf8(error.what()));
    }
    const std::optional<QSize> agreed = stream->waitForFormat(formatTimeout);
    if (!agreed)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The screen cast stream agreed on no picture format within 5 s"));
    if (m_plan->size.width <= 0 || m_plan->size.height <= 0) {
        m_plan->size = SCStreamConfiguration{agreed->width(), agreed->height()};
        m_plan->displayFrame = Rect(0, 0, agreed->width(), agreed->height());
    }
    m_plan->pictureSize = *agreed;
    // With a picture in hand the recording starts showing the screen at once; a desktop that
    // sends nothing until something changes starts with its first change instead.
    stream->waitForPicture(firstPictureTimeout);
    m_stream = std::move(stream);
    if (m_cursorFeed)
        m_cursorFeed->attach(this, [this] { return cursorLocation(); });
}

QCoro::Task<void> PortalScreenCaptureEngine::startCapture() {
    if (!m_filter || !m_plan)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("Filter and configuration must be set before starting capture"));
    if (!m_stream)
        prepareStream();
    m_stream->beginDelivery();
    co_return;
}

QCoro::Task<void> PortalScreenCaptureEngine::stopCapture() {
    if (!m_stream)
        co_return;
    if (m_cursorFeed)
        m_cursorFeed->detach(this);
    m_stream->stop(true);
    logLine("📊 Capture: {} frames delivered ({} without a copy), {} idle buffers",
            m_stream->deliveredFrameCount(), m_stream->lentFrameCount(),
            m_stream->idleFrameCount());
    m_stream.reset();
    if (m_session)
        m_session->setClosedHandler({});
    co_return;
}
