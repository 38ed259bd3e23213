#include "cli/ComposeCommand.h"

#include "cli/StylingOptions.h"

#include "core/metadata/MetadataFile.h"
#include "core/metadata/MetadataJson.h"
#include "core/metadata/MetadataLocation.h"
#include "core/metadata/ZoomMigration.h"
#include "media/VideoFrameGrabber.h"
#include "render/RoundedCameraCompositor.h"

#include <QFileInfo>
#include <QImage>
#include <QImageReader>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

constexpr std::string_view usage =
    "compose INPUT --time T --output OUT.png [--metadata FILE] [--cursor|--no-cursor] "
    "[--camera IMAGE-OR-VIDEO] [--aspect Original|16:9|1:1|4:3|9:16|3:4|4:5] "
    "[--background gradient:<preset>|color:#RRGGBB] [--padding N] [--corner-radius N] "
    "[--screen-shadow OPACITY,RADIUS] [--camera-shadow OPACITY,RADIUS] "
    "[--camera-shape squircle|circle|roundedRect|rectangle] [--camera-center X,Y] "
    "[--camera-width F] [--camera-shrink F] [--vertical-stack]";

// A still picture, or the frame of a movie at `seconds`, as premultiplied ARGB.
QImage picture(const QString& path, double seconds) {
    if (!QFileInfo(path).isFile())
        throw BadInput{fmt::format("{}: no such file", path.toStdString())};
    if (!QImageReader::imageFormat(path).isEmpty()) {
        QImage image(path);
        if (image.isNull())
            throw BadInput{fmt::format("{}: cannot read the picture", path.toStdString())};
        return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    }
    std::string error;
    const std::optional<GrabbedVideoFrame> frame = grabVideoFrame(path, seconds, &error);
    if (!frame || frame->bgra.empty())
        throw BadInput{error.empty() ? fmt::format("{}: no frame decoded", path.toStdString())
                                     : error};
    // BGRA bytes are ARGB32 words on a little-endian machine.
    return QImage(frame->bgra.data(), frame->width, frame->height, frame->width * 4,
                  QImage::Format_ARGB32)
        .convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

struct ComposeOptions {
    QString input;
    QString output;
    double time = 0.0;
    std::optional<QString> metadata;
    std::optional<QString> camera;
    bool cursor = true;
};

// Reads the options into `settings`, starting from the editor panel's defaults.
ComposeOptions parse(const QStringList& arguments, RoundedCameraCompositorSettings& settings) {
    ComposeOptions options;
    settings.cameraSettings = defaultCameraExportSettings;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const auto value = [&]() -> QString {
            if (i + 1 >= arguments.size())
                throw BadInput{fmt::format("{} needs a value", argument.toStdString())};
            return arguments[++i];
        };
        if (parseStylingOption(arguments, i, settings)) {
            continue;
        } else if (argument == QLatin1String("--time")) {
            options.time = parseNumber(argument, value());
        } else if (argument == QLatin1String("--output")) {
            options.output = value();
        } else if (argument == QLatin1String("--metadata")) {
            options.metadata = value();
        } else if (argument == QLatin1String("--cursor")) {
            options.cursor = true;
        } else if (argument == QLatin1String("--no-cursor")) {
            options.cursor = false;
        } else if (argument == QLatin1String("--camera")) {
            options.camera = value();
        } else if (argument.startsWith(QLatin1Char('-')) || !options.input.isEmpty()) {
            throw BadInput{fmt::format("Unexpected argument \"{}\"", argument.toStdString())};
        } else {
            options.input = argument;
        }
    }
    if (options.input.isEmpty() || options.output.isEmpty())
        throw BadInput{"INPUT and --output are required"};
    return options;
}

} // namespace

int runCompose(const QStringList& arguments, FILE* out, FILE* err) {
    RoundedCameraCompositorSettings settings;
    try {
        const ComposeOptions options = parse(arguments, settings);
        const QImage screen = picture(options.input, options.time);
        std::optional<QString> metadataPath = options.metadata;
        if (!metadataPath && QImageReader::imageFormat(options.input).isEmpty())
            metadataPath = locateMetadataFile(options.input);
        if (metadataPath) {
            RecordingMetadata metadata;
            try {
                metadata = migrateZoomMetadata(readMetadataFile(*metadataPath));
            } catch (const MetadataFileError& error) {
                throw BadInput{error.what()};
            } catch (const MetadataDecodingError& error) {
                throw BadInput{fmt::format("{}: {}", metadataPath->toStdString(), error.what())};
            }
            settings.zoomSegments = metadata.zoomSegments;
            settings.cursorPositions = metadata.cursorPositions;
            std::sort(settings.cursorPositions.begin(), settings.cursorPositions.end(),
                      [](const CursorPosition& a, const CursorPosition& b) {
                          return a.timestamp < b.timestamp;
                      });
            settings.clickEvents = metadata.cursorClicks;
        }
        // Without recorded positions there is no cursor to draw.
        settings.cursorOverlaySettings.enabled =
            options.cursor && !settings.cursorPositions.empty();
        std::vector<QImage> frames{screen};
        if (options.camera) {
            const QImage camera = picture(*options.camera, options.time);
            settings.cameraNaturalSize = {double(camera.width()), double(camera.height())};
            frames.push_back(camera);
        }
        settings.originalVideoSize = {double(screen.width()), double(screen.height())};
        const Size canvas = outputSize(settings.outputAspectRatio, settings.originalVideoSize);
        CompositionRequest request;
        request.compositionTime = options.time;
        request.renderSize = {std::round(canvas.width), std::round(canvas.height)};
        request.sourceFrames = std::move(frames);
        RoundedCameraCompositor compositor(settings);
        const CompositionResult result = compositor.processRequest(request);
        if (!result.composedFrame) {
            fmt::print(err, "❌ {}\n",
                       result.error ? result.error->description.toStdString() : "no frame");
            return 1;
        }
        if (!result.composedFrame->save(options.output, "PNG")) {
            fmt::print(err, "❌ {}: cannot write the picture\n", options.output.toStdString());
            return 1;
        }
        fmt::print(out, "✅ {} ({}x{})\n", options.output.toStdString(),
                   result.composedFrame->width(), result.composedFrame->height());
        return 0;
    } catch (const BadInput& bad) {
        fmt::print(err, "❌ {}\nusage: tavelquiston-cli {}\n", bad.message, usage);
        return 2;
    }
}

CliCommand composeCommand() {
    return {"compose", usage, "render one styled frame to PNG, to preview a look",
            [](const QStringList& arguments) { return runCompose(arguments, stdout, stderr); }};
}
