#include "cli/ExportCommand.h"

#include "cli/StylingOptions.h"
#include "core/metadata/MetadataJson.h"
#include "exporter/VideoTrimmerViewModel.h"
#include "media/WaveformGenerator.h"
#include "media/export/VideoTrackReader.h"

#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace {

constexpr std::string_view usage =
    "export INPUT [--output OUT] [--zoom auto|none|FILE] [--cut START-END]... [--parts] "
    "[--trim START-END] [--codec h264|hevc|prores] [--quality high|medium|low] [--fps N] "
    "[--encoder auto|software|vaapi|nvenc] [--gif] [--no-cursor] [--camera MOVIE] "
    "[--aspect Original|16:9|1:1|4:3|9:16|3:4|4:5] "
    "[--background gradient:<preset>|color:#RRGGBB] [--padding N] [--corner-radius N] "
    "[--screen-shadow OPACITY,RADIUS] [--camera-shadow OPACITY,RADIUS] "
    "[--camera-shape squircle|circle|roundedRect|rectangle] [--camera-center X,Y] "
    "[--camera-width F] [--camera-shrink F] [--vertical-stack]";

constexpr double maximumGifSeconds = 30.0;

// Set by SIGINT/SIGTERM only; the event loop looks at it.
volatile std::sig_atomic_t interruptRequested = 0;
void onInterrupt(int) {
    interruptRequested = 1;
}

struct ExportOptions {
    QString input;
    std::optional<QString> output;
    QString zoom = QStringLiteral("auto");
    std::vector<std::pair<double, double>> cuts;
    bool parts = false;
    std::optional<std::pair<double, double>> trim;
    std::optional<QString> camera;
    bool cursor = true;
    bool encodingAsked = false;
    VideoCodecSettings::Codec codec = VideoCodecSettings::Codec::h264;
    int crf = 20;
    std::optional<int> fps;
    bool gif = false;
    QString encoder = QStringLiteral("auto");
};

std::pair<double, double> parseRange(const QString& option, const QString& text) {
    const qsizetype dash = text.indexOf(QLatin1Char('-'), 1);
    if (dash < 0)
        throw BadInput{fmt::format("{}: \"{}\" is not START-END in seconds", option.toStdString(),
                                   text.toStdString())};
    const double start = parseNumber(option, text.left(dash));
    const double end = parseNumber(option, text.mid(dash + 1));
    if (start < 0 || end <= start)
        throw BadInput{fmt::format("{}: \"{}\" is not a range (START must be below END)",
                                   option.toStdString(), text.toStdString())};
    return {start, end};
}

ExportOptions parse(const QStringList& arguments, RoundedCameraCompositorSettings& settings) {
    ExportOptions options;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const auto value = [&]() -> QString {
            if (i + 1 >= arguments.size())
                throw BadInput{fmt::format("{} needs a value", argument.toStdString())};
            return arguments[++i];
        };
        if (parseStylingOption(arguments, i, settings))
            continue;
        if (argument == QLatin1String("--output")) {
            options.output = value();
        } else if (argument == QLatin1String("--zoom")) {
            options.zoom = value();
        } else if (argument == QLatin1String("--cut")) {
            options.cuts.push_back(parseRange(argument, value()));
        } else if (argument == QLatin1String("--gif")) {
            options.gif = true;
            options.encodingAsked = true;
        } else if (argument == QLatin1String("--parts")) {
            options.parts = true;
        } else if (argument == QLatin1String("--trim")) {
            options.trim = parseRange(argument, value());
        } else if (argument == QLatin1String("--camera")) {
            options.camera = value();
        } else if (argument == QLatin1String("--cursor")) {
            options.cursor = true;
        } else if (argument == QLatin1String("--no-cursor")) {
            options.cursor = false;
        } else if (argument == QLatin1String("--codec")) {
            const QString text = value();
            options.encodingAsked = true;
            if (text == QLatin1String("h264"))
                options.codec = VideoCodecSettings::Codec::h264;
            else if (text == QLatin1String("hevc"))
                options.codec = VideoCodecSettings::Codec::hevc;
            else if (text == QLatin1String("prores"))
                options.codec = VideoCodecSettings::Codec::proRes4444;
            else
                throw BadInput{fmt::format("--codec: unknown codec \"{}\"", text.toStdString())};
        } else if (argument == QLatin1String("--quality")) {
            const QString text = value();
            options.encodingAsked = true;
            if (text == QLatin1String("high"))
                options.crf = 18;
            else if (text == QLatin1String("medium"))
                options.crf = 23;
            else if (text == QLatin1String("low"))
                options.crf = 28;
            else
                throw BadInput{
                    fmt::format("--quality: unknown quality \"{}\"", text.toStdString())};
        } else if (argument == QLatin1String("--fps")) {
            const double fps = parseNumber(argument, value());
            if (fps < 1 || fps > 240 || fps != std::floor(fps))
                throw BadInput{fmt::format("--fps: {} is not a whole number from 1 to 240", fps)};
            options.fps = int(fps);
            options.encodingAsked = true;
        } else if (argument == QLatin1String("--encoder")) {
            options.encoder = value();
            options.encodingAsked = true;
            if (options.encoder != QLatin1String("auto") &&
                options.encoder != QLatin1String("software") &&
                options.encoder != QLatin1String("vaapi") &&
                options.encoder != QLatin1String("nvenc"))
                throw BadInput{fmt::format("--encoder: unknown encoder \"{}\"",
                                           options.encoder.toStdString())};
        } else if (argument.startsWith(QLatin1Char('-')) || !options.input.isEmpty()) {
            throw BadInput{fmt::format("Unexpected argument \"{}\"", argument.toStdString())};
        } else {
            options.input = argument;
        }
    }
    if (options.input.isEmpty())
        throw BadInput{"INPUT is required"};
    if (options.trim && !options.cuts.empty())
        throw BadInput{"--trim and --cut cannot be combined"};
    if (options.parts && options.cuts.empty())
        throw BadInput{"--parts needs at least one --cut"};
    if (options.gif && (options.parts || options.trim))
        throw BadInput{"--gif makes one styled clip; it cannot be combined with --parts or --trim"};
    return options;
}

// Zoom segments from a file: a list of segments, or a metadata document holding them.
std::vector<ZoomSegment> zoomSegmentsFromFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw BadInput{fmt::format("--zoom: {}: no such file", path.toStdString()), false};
    const QByteArray text = file.readAll();
    try {
        if (text.trimmed().startsWith('['))
            return decodeZoomSegments(text.toStdString());
        return decodeMetadata(text.toStdString()).zoomSegments;
    } catch (const std::exception& error) {
        throw BadInput{fmt::format("--zoom: {}: {}", path.toStdString(), error.what()), false};
    }
}

// A bar on a terminal; elsewhere a line per whole percent, which a script can follow.
class ProgressDisplay {
public:
    explicit ProgressDisplay(FILE* err) : m_err(err), m_terminal(::isatty(::fileno(err))) {}
    void show(double progress) {
        const int percent = int(progress * 100);
        if (percent == m_shown)
            return;
        m_shown = percent;
        if (m_terminal) {
            const int filled = percent * 30 / 100;
            fmt::print(m_err, "\r[{}{}] {:3}%", std::string(size_t(filled), '#'),
                       std::string(size_t(30 - filled), '.'), percent);
        } else {
            fmt::print(m_err, "{}%\n", percent);
        }
        std::fflush(m_err);
    }
    void end() {
        if (m_terminal && m_shown >= 0)
            fmt::print(m_err, "\n");
    }

private:
    FILE* m_err;
    bool m_terminal;
    int m_shown = -1;
};

// The cut ranges as they will be kept: sorted, overlapping ones joined.
std::vector<std::pair<double, double>> mergedCuts(std::vector<std::pair<double, double>> cuts) {
    std::sort(cuts.begin(), cuts.end());
    std::vector<std::pair<double, double>> merged;
    for (const auto& cut : cuts) {
        if (!merged.empty() && cut.first <= merged.back().second)
            merged.back().second = std::max(merged.back().second, cut.second);
        else
            merged.push_back(cut);
    }
    return merged;
}

void checkRange(const char* option, std::pair<double, double> range, double duration) {
    if (range.second > duration + 1e-3)
        throw BadInput{fmt::format("{}: {}-{} lies outside the video (0-{:.3f} s)", option,
                                   range.first, range.second, duration),
                       false};
}

MediaTimeRange timeRange(std::pair<double, double> range, double duration) {
    const MediaTime start = MediaTime::fromSeconds(range.first, 600);
    const MediaTime end = MediaTime::fromSeconds(std::min(range.second, duration), 600);
    return {start, end - start};
}

} // namespace

int runExport(const QStringList& arguments, FILE* out, FILE* err) {
    RoundedCameraCompositorSettings style;
    style.cameraSettings = defaultCameraExportSettings;
    VideoTrimmerViewModel session;
    ExportOptions options;
    try {
        options = parse(arguments, style);
        if (const std::optional<QString> error = session.loadVideo(options.input))
            throw BadInput{error->toStdString(), false};
        if (options.output && QFileInfo(*options.output).exists() &&
            QFileInfo(*options.output).canonicalFilePath() ==
                QFileInfo(*session.fileURL()).canonicalFilePath())
            throw BadInput{
                fmt::format("--output: {} is the recording itself", options.output->toStdString()),
                false};
        const double duration = session.videoDuration().seconds();
        for (const auto& cut : options.cuts)
            checkRange("--cut", cut, duration);
        if (options.trim)
            checkRange("--trim", *options.trim, duration);
        // The palette needs the whole clip in memory before the first frame is written.
        double kept = options.cuts.empty() ? duration : 0.0;
        for (const auto& cut : mergedCuts(options.cuts))
            kept += cut.second - cut.first;
        if (options.gif && kept > maximumGifSeconds)
            throw BadInput{fmt::format("--gif: {:.1f} s is too long for a GIF (at most {:.0f} s; "
                                       "use --cut to choose a part)",
                                       kept, maximumGifSeconds),
                           false};
        if (options.zoom == QLatin1String("none")) {
            session.zoomSegments.clear();
            session.zoomKeyframes.clear();
        } else if (options.zoom != QLatin1String("auto")) {
            session.zoomSegments = zoomSegmentsFromFile(options.zoom);
        }
        if (options.camera) {
            if (!QFileInfo(*options.camera).isFile())
                throw BadInput{
                    fmt::format("--camera: {}: no such file", options.camera->toStdString())};
            session.setCameraURL(*options.camera);
        }
    } catch (const BadInput& bad) {
        fmt::print(err, "❌ {}\n", bad.message);
        if (bad.showUsage)
            fmt::print(err, "usage: tavelquiston-cli {}\n", usage);
        return 2;
    }

    session.cursorOverlaySettings.enabled = options.cursor;
    session.backgroundEnabled = style.backgroundEnabled;
    if (style.backgroundSettings)
        session.backgroundSettings = *style.backgroundSettings;
    session.allowPassthrough = !options.encodingAsked;
    // A GIF plays smoothly enough at 15 frames/s and stays a fraction of the size.
    session.frameDuration = MediaTime::make(1, options.fps.value_or(options.gif ? 15 : 60));
    session.outputURLOverride = options.output;
    ExportEncoding& encoding = session.encoding;
    encoding.video.codec = options.codec;
    encoding.tuning.softwareH264Preset = "veryfast";
    encoding.tuning.softwareHEVCPreset = "veryfast";
    encoding.tuning.proResEncoder = "prores_ks";
    // An export wants throughput, not the low latency of a live recording: x264's own threads.
    encoding.tuning.singleThreadH264PixelRate = 0;
    encoding.tuning.constantRateFactor = options.crf;
    encoding.tuning.allowHardware = options.encoder != QLatin1String("software");
    if (options.encoder == QLatin1String("vaapi") || options.encoder == QLatin1String("nvenc"))
        encoding.tuning.preferredHardware = options.encoder.toStdString();
    encoding.audio = WriterConfiguration::AudioSettings{};
    if (options.gif)
        encoding.fileType = ExportEncoding::FileType::gif;

    VideoTrimmerViewModel::ExportStyle look;
    look.cameraSettings = style.cameraSettings;
    look.videoPadding = style.videoPadding;
    look.videoCornerRadius = style.videoCornerRadius;
    look.outputAspectRatio = style.outputAspectRatio;
    look.verticalStack = style.verticalStack;
    look.screenShadowOpacity = style.screenShadowOpacity;
    look.screenShadowRadius = style.screenShadowRadius;
    look.cameraShadowOpacity = style.cameraShadowOpacity;
    look.cameraShadowRadius = style.cameraShadowRadius;

    ProgressDisplay progress(err);
    QObject::connect(&session, &VideoTrimmerViewModel::exportProgressChanged, &session,
                     [&progress](double value) { progress.show(value); });
    QEventLoop loop;
    VideoTrimmerViewModel::ExportOutcome outcome;
    bool finished = false;
    auto done = [&](VideoTrimmerViewModel::ExportOutcome result) {
        outcome = std::move(result);
        finished = true;
        loop.quit();
    };
    const double duration = session.videoDuration().seconds();
    if (options.trim) {
        session.exportTrimmedVideo(timeRange(*options.trim, duration), done);
    } else if (!options.cuts.empty()) {
        std::vector<MediaTimeRange> kept;
        for (const auto& cut : options.cuts)
            kept.push_back(timeRange(cut, duration));
        session.keepOnly(kept);
        if (options.parts)
            session.exportSegments(done);
        else
            session.exportMergedVideo(look, done);
    } else {
        session.exportAdvancedVideo(look, done);
    }

    interruptRequested = 0;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    struct sigaction previousInt {
    }, previousTerm{};
    sigaction(SIGINT, &action, &previousInt);
    sigaction(SIGTERM, &action, &previousTerm);
    QTimer watch;
    bool cancelled = false;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (interruptRequested && !cancelled) {
            cancelled = true;
            session.cancelExport();
        }
    });
    watch.start(50);
    if (!finished)
        loop.exec();
    watch.stop();
    sigaction(SIGINT, &previousInt, nullptr);
    sigaction(SIGTERM, &previousTerm, nullptr);
    progress.end();

    if (cancelled) {
        fmt::print(err, "❌ Export cancelled\n");
        return 130;
    }
    if (outcome.error) {
        fmt::print(err, "❌ {}\n", outcome.error->toStdString());
        return 1;
    }
    if (options.parts)
        fmt::print(err, "✅ Exported {} segments\n", outcome.urls.size());
    for (const QString& url : outcome.urls)
        fmt::print(out, "{}\n", url.toStdString());
    std::fflush(out);
    return 0;
}

CliCommand exportCommand() {
    return {"export", usage, "make a styled video (or cut, parts, trim) of a recording",
            [](const QStringList& arguments) { return runExport(arguments, stdout, stderr); }};
}

int runWaveform(const QStringList& arguments, FILE* out, FILE* err) {
    if (arguments.size() != 1 || arguments[0].startsWith(QLatin1Char('-'))) {
        fmt::print(err, "usage: tavelquiston-cli waveform INPUT\n");
        return 2;
    }
    const QString input = arguments[0];
    if (!QFileInfo(input).isFile()) {
        fmt::print(err, "❌ {}: no such file\n", input.toStdString());
        return 2;
    }
    std::string error;
    const auto reader = VideoTrackReader::open(input.toStdString(), error);
    if (!reader) {
        fmt::print(err, "❌ {}\n", error);
        return 2;
    }
    for (float value :
         WaveformGenerator::generateWaveform(input.toStdString(), reader->duration().seconds()))
        fmt::print(out, "{:.6f}\n", value);
    return 0;
}

CliCommand waveformCommand() {
    return {"waveform", "waveform INPUT", "print the timeline's loudness values of a movie",
            [](const QStringList& arguments) { return runWaveform(arguments, stdout, stderr); }};
}
