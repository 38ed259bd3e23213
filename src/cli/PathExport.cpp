#include "cli/PathExport.h"

#include "core/cursor/CursorOverlayRenderer.h"
#include "core/metadata/MetadataJson.h"
#include "core/zoom/ZoomCameraEngine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace {

// A rate beyond this would print millions of lines for a short clip; it is surely a typo.
constexpr double maximumFps = 1000.0;

std::optional<double> parseFps(const QString& option, const QString* value, FILE* err) {
    if (!value) {
        fmt::print(err, "❌ {} needs a frame rate, e.g. {} 60\n", option.toStdString(),
                   option.toStdString());
        return std::nullopt;
    }
    bool ok = false;
    const double fps = value->toDouble(&ok);
    if (!ok || !std::isfinite(fps) || fps <= 0.0 || fps > maximumFps) {
        fmt::print(err, "❌ {}: \"{}\" is not a frame rate (a number above 0, at most {})\n",
                   option.toStdString(), value->toStdString(), maximumFps);
        return std::nullopt;
    }
    return fps;
}

// Frame times at `fps` from 0 up to, not including, the end; a recording without length still
// has its first frame.
template <typename Body>
void forEachFrame(double duration, double fps, Body body) {
    const double frames =
        std::isfinite(duration) && duration > 0.0 ? std::ceil(duration * fps - 1e-9) : 1.0;
    const auto count = static_cast<long long>(std::max(1.0, frames));
    for (long long i = 0; i < count; ++i) {
        body(static_cast<double>(i) / fps);
    }
}

std::vector<CursorPosition> sortedPositions(const RecordingMetadata& metadata) {
    std::vector<CursorPosition> positions = metadata.cursorPositions;
    std::stable_sort(
        positions.begin(), positions.end(),
        [](const CursorPosition& a, const CursorPosition& b) { return a.timestamp < b.timestamp; });
    return positions;
}

} // namespace

std::optional<PathExportRequest> extractPathOptions(QStringList& arguments, FILE* err) {
    PathExportRequest request;
    QStringList rest;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        std::optional<double>* target = nullptr;
        if (argument == QLatin1String("--camera-path")) {
            target = &request.cameraPathFps;
        } else if (argument == QLatin1String("--cursor-path")) {
            target = &request.cursorPathFps;
        } else {
            rest.append(argument);
            continue;
        }
        const QString* value = i + 1 < arguments.size() ? &arguments[i + 1] : nullptr;
        *target = parseFps(argument, value, err);
        if (!*target) {
            return std::nullopt;
        }
        ++i;
    }
    arguments = rest;
    return request;
}

int printPaths(const RecordingMetadata& metadata, const PathExportRequest& request, FILE* out) {
    if (request.cameraPathFps) {
        printCameraPath(metadata, *request.cameraPathFps, out);
    }
    if (request.cursorPathFps) {
        printCursorPath(metadata, *request.cursorPathFps, out);
    }
    std::fflush(out);
    return 0;
}

void printCameraPath(const RecordingMetadata& metadata, double fps, FILE* out) {
    const std::vector<CursorPosition> positions = sortedPositions(metadata);
    const ZoomCameraOptions options = ZoomCameraOptions::exportOptions();
    ZoomCameraEngine engine;
    fmt::print(out,
               "time,scale,centerX,centerY,tx,ty,strength,activeSegmentID,isConnectedTransition\n");
    forEachFrame(metadata.duration, fps, [&](double t) {
        const ZoomCameraFrame f =
            engine.evaluate(t, metadata.zoomSegments, positions, metadata.resolution, options);
        const std::string id = f.activeSegmentID ? uuidString(*f.activeSegmentID) : std::string();
        fmt::print(out, "{:.6f},{:.6f},{:.6f},{:.6f},{:.3f},{:.3f},{:.6f},{},{}\n", t, f.scale,
                   f.center.x, f.center.y, f.transform.tx, f.transform.ty, f.strength, id,
                   f.isConnectedTransition ? 1 : 0);
    });
}

void printCursorPath(const RecordingMetadata& metadata, double fps, FILE* out) {
    const CursorOverlayRenderer renderer(CursorOverlaySettings::defaults(),
                                         metadata.cursorPositions, metadata.cursorClicks);
    fmt::print(out, "time,x,y,scale,isVisible,motionBlurAmount\n");
    forEachFrame(metadata.duration, fps, [&](double t) {
        const CursorState s = renderer.cursorState(t);
        fmt::print(out, "{:.6f},{:.6f},{:.6f},{:.6f},{},{:.6f}\n", t, s.position.x, s.position.y,
                   s.scale, s.isVisible ? 1 : 0, s.motionBlurAmount);
    });
}
