#include "exporter/AdvancedVideoExporter.h"

#include "exporter/RoundedCameraVideoCompositing.h"
#include "media/export/ExportSession.h"
#include "media/export/VideoTrackReader.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr auto progressInterval = std::chrono::milliseconds(100);

AdvancedVideoExporter::ExportError failure(AdvancedVideoExporter::ExportError::Kind kind,
                                           std::optional<std::string> underlying = {}) {
    return {kind, std::move(underlying)};
}

// Codecs an MPEG-4 file takes as they are.
bool copiesIntoMpeg4(const std::string& codec) {
    return codec == "h264" || codec == "hevc";
}
} // namespace

std::string AdvancedVideoExporter::ExportError::description() const {
    switch (kind) {
    case Kind::exportFailed:
        return underlying ? "Export failed: " + *underlying : "Export failed";
    case Kind::invalidAssets:
        return underlying ? "Invalid assets: " + *underlying : "Invalid assets";
    case Kind::compositionFailed:
        return underlying ? "Composition failed: " + *underlying : "Composition failed";
    case Kind::cancelled:
        return "Export cancelled";
    }
    return "Export failed";
}

bool AdvancedVideoExporter::needsCustomCompositor(const AdvancedExportArguments& arguments) {
    if (arguments.cameraAsset || arguments.backgroundEnabled)
        return true;
    if (!arguments.metadata)
        return false;
    return !arguments.metadata->zoomSegments.empty() ||
           (arguments.cursorOverlaySettings.enabled &&
            !arguments.metadata->cursorPositions.empty());
}

RoundedCameraCompositorSettings
AdvancedVideoExporter::compositorSettings(const AdvancedExportArguments& arguments,
                                          Size naturalSize, Size cameraNaturalSize) {
    RoundedCameraCompositorSettings settings;
    const std::optional<RecordingMetadata>& metadata = arguments.metadata;
    settings.cameraSettings = arguments.cameraSettings;
    settings.zoomSegments = metadata ? metadata->zoomSegments : std::vector<ZoomSegment>{};
    settings.cameraNaturalSize = cameraNaturalSize;
    settings.cursorPositions = metadata ? metadata->cursorPositions : std::vector<CursorPosition>{};
    std::stable_sort(settings.cursorPositions.begin(), settings.cursorPositions.end(),
                     [](const auto& a, const auto& b) { return a.timestamp < b.timestamp; });
    settings.cursorOverlaySettings = arguments.cursorOverlaySettings;
    settings.clickEvents = metadata ? metadata->cursorClicks : std::vector<CursorClick>{};
    settings.backgroundSettings = arguments.backgroundSettings;
    settings.backgroundEnabled = arguments.backgroundEnabled;
    settings.videoPadding = arguments.videoPadding;
    settings.videoCornerRadius = arguments.videoCornerRadius;
    settings.outputAspectRatio = arguments.outputAspectRatio;
    settings.originalVideoSize = naturalSize;
    settings.verticalStack = arguments.verticalStack;
    settings.screenShadowOpacity = arguments.screenShadowOpacity;
    settings.screenShadowRadius = arguments.screenShadowRadius;
    settings.cameraShadowOpacity = arguments.cameraShadowOpacity;
    settings.cameraShadowRadius = arguments.cameraShadowRadius;
    return settings;
}

std::unique_ptr<AdvancedVideoExporter::Export>
AdvancedVideoExporter::exportVideo(AdvancedExportArguments arguments,
                                   ProgressHandler progressHandler, Completion completion) {
    std::unique_ptr<Export> running(new Export());
    running->m_thread = std::thread([running = running.get(), arguments = std::move(arguments),
                                     progressHandler = std::move(progressHandler),
                                     completion = std::move(completion)]() mutable {
        running->run(std::move(arguments), std::move(progressHandler), std::move(completion));
    });
    return running;
}

AdvancedVideoExporter::Export::~Export() {
    cancel();
    if (m_thread.joinable())
        m_thread.join();
}

void AdvancedVideoExporter::Export::cancel() {
    m_cancelled = true;
    std::lock_guard lock(m_mutex);
    if (m_session)
        m_session->cancelExport();
}

bool AdvancedVideoExporter::Export::wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    return m_done.wait_for(lock, timeout, [this] { return m_finished; });
}

void AdvancedVideoExporter::Export::run(AdvancedExportArguments arguments, ProgressHandler progress,
                                        Completion completion) {
    Result result = compose(arguments, progress);
    if (progress)
        progress(1.0);
    if (completion)
        completion(std::move(result));
    {
        std::lock_guard lock(m_mutex);
        m_finished = true;
    }
    m_done.notify_all();
}

AdvancedVideoExporter::Result
AdvancedVideoExporter::Export::compose(const AdvancedExportArguments& arguments,
                                       const ProgressHandler& progress) {
    using Kind = ExportError::Kind;
    std::string error;
    const std::unique_ptr<VideoTrackReader> screen =
        VideoTrackReader::open(arguments.screenAsset, error);
    if (!screen)
        return {std::nullopt, failure(Kind::invalidAssets, error)};
    const MediaTime duration = screen->duration();
    const Size naturalSize{double(screen->width()), double(screen->height())};
    const Size renderSize = outputSize(arguments.outputAspectRatio, naturalSize);

    ExportComposition composition;
    composition.screenURL = arguments.screenAsset;
    composition.screenTimeRanges = arguments.timeRanges;
    if (composition.screenTimeRanges.empty())
        composition.screenTimeRanges.push_back({MediaTime::zero(), duration});
    for (const MediaTimeRange& range : composition.screenTimeRanges) {
        if (!range.start.isNumeric() || range.start < MediaTime::zero() ||
            !(range.duration > MediaTime::zero()) || range.end() > duration)
            return {std::nullopt,
                    failure(Kind::compositionFailed, "a time range lies outside the video")};
    }
    // A camera movie without a picture exports as if none were given.
    Size cameraNaturalSize{0.0, 0.0};
    if (arguments.cameraAsset) {
        std::string cameraError;
        if (const auto camera = VideoTrackReader::open(*arguments.cameraAsset, cameraError)) {
            composition.cameraURL = arguments.cameraAsset;
            composition.cameraDuration = std::min(camera->duration(), duration);
            cameraNaturalSize = {double(camera->width()), double(camera->height())};
        }
    }

    AdvancedExportArguments effective = arguments;
    if (!composition.cameraURL)
        effective.cameraAsset.reset();
    const bool custom = needsCustomCompositor(effective) || arguments.alwaysCompose;
    std::unique_ptr<RoundedCameraVideoCompositing> compositor;
    ExportVideoComposition videoComposition;
    videoComposition.renderWidth = int(std::lround(renderSize.width));
    videoComposition.renderHeight = int(std::lround(renderSize.height));
    videoComposition.frameDuration = arguments.frameDuration;
    if (custom) {
        RoundedCameraCompositorSettings& settings = RoundedCameraCompositorSettings::shared();
        settings = compositorSettings(arguments, naturalSize, cameraNaturalSize);
        compositor = std::make_unique<RoundedCameraVideoCompositing>(settings);
        videoComposition.customVideoCompositor = compositor.get();
    }
    const bool passthrough = !custom && arguments.allowPassthrough &&
                             arguments.encoding.fileType != ExportEncoding::FileType::gif &&
                             renderSize.width == naturalSize.width &&
                             renderSize.height == naturalSize.height &&
                             (arguments.encoding.fileType == ExportEncoding::FileType::mov ||
                              copiesIntoMpeg4(screen->codecName()));
    ExportSession session(std::move(composition), passthrough
                                                      ? ExportSession::Preset::passthrough
                                                      : ExportSession::Preset::highestQuality);
    session.outputURL = arguments.outputURL;
    session.encoding = arguments.encoding;
    session.videoComposition = videoComposition;
    {
        std::lock_guard lock(m_mutex);
        if (m_cancelled)
            return {std::nullopt, failure(Kind::cancelled)};
        m_session = &session;
    }
    session.exportAsynchronously({});
    while (!session.waitForFinish(progressInterval)) {
        if (progress)
            progress(session.progress());
    }
    {
        std::lock_guard lock(m_mutex);
        m_session = nullptr;
    }
    switch (session.status()) {
    case ExportSession::Status::completed:
        return {arguments.outputURL, std::nullopt};
    case ExportSession::Status::cancelled:
        return {std::nullopt, failure(Kind::cancelled)};
    default:
        return {std::nullopt, failure(Kind::exportFailed, session.error())};
    }
}
