#include "cli/RecordCommand.h"

#include "cli/CountdownPrinter.h"
#include "cli/RecordSettings.h"

#include "core/model/RecordingError.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/RecordingServices.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/UserDefaults.h"
#include "platform/RecordingEngineLoader.h"
#include "platform/desktop/DBusSystemEventMonitor.h"

#include <QDir>
#include <QFileInfo>
#include <QRect>

#include <QCoro/QCoroTask>
#include <QCoro/QCoroTimer>

#include <fmt/format.h>

#include <csignal>

namespace {

constexpr std::string_view usage =
    "record [--mode screen|area|window|windows|application] [--display ID] [--area X,Y,W,H] "
    "[--window ID]... [--app BUNDLE-ID]... [--fps N] [--resolution low|normal|high] "
    "[--quality low|medium|high] [--codec h264|h265] [--format mov|mp4] [--show-cursor] "
    "[--background COLOR] [--countdown SECONDS] [--duration SECONDS] [--output DIR]";

// Signals only set these; the recording loop looks at them between waits.
volatile std::sig_atomic_t stopSignals = 0;
volatile std::sig_atomic_t pauseToggles = 0;

// Nothing was recorded, which a script must not mistake for a finished movie.
constexpr int cancelledStatus = 1;

void onStopSignal(int) {
    stopSignals = stopSignals + 1;
}
void onPauseSignal(int) {
    pauseToggles = pauseToggles + 1;
}

std::string text(const QString& value) {
    return value.toStdString();
}

int parseInteger(const QString& option, const QString& value, int minimum) {
    bool ok = false;
    const int number = value.toInt(&ok);
    if (!ok || number < minimum)
        throw CliUsageError(fmt::format("{} needs a whole number of at least {}, not \"{}\"",
                                        text(option), minimum, text(value)));
    return number;
}

uint32_t parseID(const QString& option, const QString& value) {
    bool ok = false;
    // Window ids as xwininfo prints them (0x...) or in decimal.
    const uint32_t id = value.toUInt(&ok, 0);
    if (!ok)
        throw CliUsageError(
            fmt::format("{} needs a numeric id, not \"{}\"", text(option), text(value)));
    return id;
}

template <typename T>
T parseChoice(const QString& option, const QString& value,
              const std::vector<std::pair<const char*, T>>& choices) {
    for (const auto& [name, choice] : choices)
        if (value == QLatin1String(name))
            return choice;
    std::string names;
    for (const auto& choice : choices)
        names += (names.empty() ? "" : "|") + std::string(choice.first);
    throw CliUsageError(
        fmt::format("{} must be one of {}, not \"{}\"", text(option), names, text(value)));
}

QRect parseArea(const QString& value) {
    const QStringList parts = value.split(QLatin1Char(','));
    bool ok = parts.size() == 4;
    int numbers[4] = {};
    for (int i = 0; ok && i < 4; ++i)
        numbers[i] = parts[i].trimmed().toInt(&ok);
    if (!ok || numbers[2] <= 0 || numbers[3] <= 0 || numbers[0] < 0 || numbers[1] < 0)
        throw CliUsageError(fmt::format(
            "--area needs X,Y,W,H in pixels with a positive size, not \"{}\"", text(value)));
    return QRect(numbers[0], numbers[1], numbers[2], numbers[3]);
}

} // namespace

RecordRequest parseRecordRequest(const QStringList& arguments, RecordRequest defaults) {
    RecordRequest request = std::move(defaults);
    if (request.outputDirectory.isEmpty())
        request.outputDirectory = QDir::currentPath();
    bool modeGiven = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& option = arguments[i];
        auto value = [&]() -> QString {
            if (i + 1 >= arguments.size())
                throw CliUsageError(fmt::format("{} needs a value", text(option)));
            return arguments[++i];
        };
        if (option == QLatin1String("--mode")) {
            request.mode = value();
            modeGiven = true;
            parseChoice<int>(
                option, request.mode,
                {{"screen", 0}, {"area", 0}, {"window", 0}, {"windows", 0}, {"application", 0}});
        } else if (option == QLatin1String("--display")) {
            request.displayID = parseID(option, value());
        } else if (option == QLatin1String("--area")) {
            request.area = parseArea(value());
        } else if (option == QLatin1String("--window")) {
            request.windowIDs.push_back(parseID(option, value()));
        } else if (option == QLatin1String("--app")) {
            request.applicationIDs.push_back(value());
        } else if (option == QLatin1String("--fps")) {
            request.frameRate = parseInteger(option, value(), 1);
        } else if (option == QLatin1String("--resolution")) {
            request.resolution = parseChoice<ResolutionMode>(option, value(),
                                                             {{"low", ResolutionMode::low},
                                                              {"normal", ResolutionMode::normal},
                                                              {"high", ResolutionMode::high}});
        } else if (option == QLatin1String("--quality")) {
            request.quality = parseChoice<VideoQuality>(option, value(),
                                                        {{"low", VideoQuality::low},
                                                         {"medium", VideoQuality::medium},
                                                         {"high", VideoQuality::high}});
        } else if (option == QLatin1String("--codec")) {
            request.codec = parseChoice<VideoEncoder>(
                option, value(), {{"h264", VideoEncoder::h264}, {"h265", VideoEncoder::h265}});
        } else if (option == QLatin1String("--format")) {
            request.format = parseChoice<OutputFormat>(
                option, value(), {{"mov", OutputFormat::mov}, {"mp4", OutputFormat::mp4}});
        } else if (option == QLatin1String("--show-cursor")) {
            request.showCursor = true;
        } else if (option == QLatin1String("--background")) {
            const QString name = value();
            const auto type = backgroundTypeFromRawValue(name);
            if (!type)
                throw CliUsageError(
                    fmt::format("--background names no known colour: \"{}\"", text(name)));
            request.background = *type;
        } else if (option == QLatin1String("--countdown")) {
            request.countdown = parseInteger(option, value(), 0);
        } else if (option == QLatin1String("--duration")) {
            const QString given = value();
            bool ok = false;
            const double seconds = given.toDouble(&ok);
            if (!ok || !(seconds > 0))
                throw CliUsageError(fmt::format(
                    "--duration needs a positive number of seconds, not \"{}\"", text(given)));
            request.duration = seconds;
        } else if (option == QLatin1String("--output")) {
            request.outputDirectory = value();
        } else {
            throw CliUsageError(fmt::format("Unexpected argument \"{}\"", text(option)));
        }
    }
    if (!modeGiven && request.area)
        request.mode = QStringLiteral("area");
    if (request.mode == QLatin1String("area") && !request.area)
        throw CliUsageError("--mode area needs --area X,Y,W,H");
    if ((request.mode == QLatin1String("window") || request.mode == QLatin1String("windows")) &&
        request.windowIDs.empty())
        throw CliUsageError(fmt::format("--mode {} needs --window ID", text(request.mode)));
    if (request.mode == QLatin1String("window") && request.windowIDs.size() > 1)
        throw CliUsageError("--mode window takes one --window; use --mode windows for more");
    if (request.mode == QLatin1String("application") && request.applicationIDs.empty())
        throw CliUsageError("--mode application needs --app BUNDLE-ID");
    return request;
}

RecordingMode resolveRecordingMode(const RecordRequest& request,
                                   const SCShareableContent& content) {
    if (content.displays.empty())
        throw CliUsageError("The X server reports no display");
    SCDisplay display = content.displays.front();
    if (request.displayID) {
        const auto found =
            std::find_if(content.displays.begin(), content.displays.end(),
                         [&](const SCDisplay& d) { return d.displayID == *request.displayID; });
        if (found == content.displays.end())
            throw CliUsageError(fmt::format(
                "--display {} is not a display here; `tavelquiston-cli list displays` shows them",
                *request.displayID));
        display = *found;
    }
    if (request.mode == QLatin1String("screen"))
        return RecordingMode::screen(display);
    if (request.mode == QLatin1String("area")) {
        const QRect& a = *request.area;
        const int width = int(display.frame.width());
        const int height = int(display.frame.height());
        if (a.x() + a.width() > width || a.y() + a.height() > height)
            throw CliUsageError(fmt::format("--area {},{},{},{} does not fit the {}x{} display",
                                            a.x(), a.y(), a.width(), a.height(), width, height));
        // The mode counts from the display's bottom left.
        return RecordingMode::screenArea(
            display, Rect(a.x(), height - a.y() - a.height(), a.width(), a.height()));
    }
    if (request.mode == QLatin1String("window") || request.mode == QLatin1String("windows")) {
        std::vector<SCWindow> windows;
        for (uint32_t id : request.windowIDs) {
            const auto found = std::find_if(content.windows.begin(), content.windows.end(),
                                            [&](const SCWindow& w) { return w.windowID == id; });
            if (found == content.windows.end())
                throw CliUsageError(fmt::format("--window 0x{:x} is not a window on this desktop; "
                                                "`tavelquiston-cli list windows` shows them",
                                                id));
            windows.push_back(*found);
        }
        if (request.mode == QLatin1String("window"))
            return RecordingMode::window(windows.front());
        return RecordingMode::windows(std::move(windows));
    }
    std::vector<SCRunningApplication> apps;
    for (const QString& id : request.applicationIDs) {
        const auto found = std::find_if(
            content.applications.begin(), content.applications.end(),
            [&](const SCRunningApplication& app) { return app.bundleIdentifier == id; });
        if (found == content.applications.end())
            throw CliUsageError(fmt::format("--app {} is not running; `tavelquiston-cli list "
                                            "applications` shows them",
                                            text(id)));
        apps.push_back(*found);
    }
    return RecordingMode::application(std::move(apps));
}

RecordingConfiguration makeRecordingConfiguration(const RecordRequest& request,
                                                  RecordingMode mode) {
    RecordingConfiguration configuration(std::move(mode), request.outputDirectory);
    configuration.frameRate = request.frameRate;
    configuration.resolution = request.resolution;
    configuration.videoQuality = request.quality;
    configuration.encoder = request.codec;
    configuration.outputFormat = request.format;
    configuration.showCursor = request.showCursor;
    configuration.backgroundColor = request.background;
    configuration.countdown = request.countdown;
    // No audio engine records on this platform yet; an empty track would only confuse players.
    configuration.recordSystemAudio = false;
    configuration.recordMicrophone = false;
    // A command run by a script keeps the machine awake by other means when it needs to.
    configuration.preventSleep = false;
    return configuration;
}

namespace {

QCoro::Task<int> recordUntilStopped(RecordingCoordinator& coordinator, RecordingMode mode,
                                    RecordingConfiguration configuration,
                                    std::optional<double> duration, FILE* out, FILE* err) {
    // The trace ends at the first written frame and lands in the startup timing log.
    coordinator.beginStartupTrace(QStringLiteral("commandLine"));
    bool started = false;
    bool cancelled = false;
    try {
        QCoro::Task<void> preparing = coordinator.prepareRecording(mode, configuration);
        co_await preparing;
        // The coordinator counts down; a stop signal meanwhile cancels the start, which ends
        // the count at its next second.
        QCoro::Task<void> starting = coordinator.startRecording();
        while (!starting.isReady()) {
            if (stopSignals != 0 && coordinator.recordingState().is<RecordingState::Ready>())
                coordinator.cancelPreparation();
            QCoro::Task<void> waiting = QCoro::sleepFor(std::chrono::milliseconds(20));
            co_await waiting;
        }
        co_await starting;
        if (stopSignals != 0 && !coordinator.recordingState().isActive())
            cancelled = true;
        else
            started = true;
    } catch (const std::exception& error) {
        // A signal during preparation may surface as its failure; it was still a cancel.
        if (stopSignals == 0)
            fmt::print(err, "❌ Could not start recording: {}\n", error.what());
        else
            cancelled = true;
    }
    if (cancelled) {
        coordinator.cancelPreparation();
        coordinator.cancelStartupTrace(QStringLiteral("cancelledBySignal"));
        fmt::print(err, "⏹️ Stopped before recording started; no movie was written\n");
        co_return cancelledStatus;
    }
    if (!started) {
        QCoro::Task<void> cleaning = coordinator.cleanupAfterError();
        co_await cleaning;
        co_return 1;
    }
    fmt::print(err, "🔴 Recording; Ctrl+C or SIGTERM stops, SIGUSR1 pauses and resumes\n");

    std::sig_atomic_t handledToggles = pauseToggles;
    while (stopSignals == 0) {
        if (duration) {
            const std::optional<double> recorded = coordinator.currentRecordingTimestamp();
            if (recorded && *recorded >= *duration)
                break;
        }
        while (handledToggles != pauseToggles) {
            ++handledToggles;
            try {
                if (coordinator.isPaused()) {
                    coordinator.resumeRecording();
                    fmt::print(err, "▶️ Resumed\n");
                } else {
                    coordinator.pauseRecording();
                    fmt::print(err, "⏸️ Paused\n");
                }
            } catch (const std::exception& error) {
                fmt::print(err, "⚠️ {}\n", error.what());
            }
        }
        QCoro::Task<void> waiting = QCoro::sleepFor(std::chrono::milliseconds(20));
        co_await waiting;
    }

    try {
        QCoro::Task<void> stopping = coordinator.stopRecording();
        co_await stopping;
    } catch (const std::exception& error) {
        fmt::print(err, "❌ Could not finish the recording: {}\n", error.what());
        co_return 1;
    }
    const auto* completed = coordinator.recordingState().as<RecordingState::Completed>();
    if (!completed) {
        fmt::print(err, "❌ The recording did not complete\n");
        co_return 1;
    }
    const QFileInfo movie(completed->fileURL);
    fmt::print(out, "{}\n", text(movie.absoluteFilePath()));
    const QString metadata = movie.dir().filePath(QLatin1Char('.') + movie.completeBaseName() +
                                                  QStringLiteral(".metadata.json"));
    if (QFileInfo::exists(metadata))
        fmt::print(out, "{}\n", text(metadata));
    std::fflush(out);
    co_return 0;
}

} // namespace

int runRecord(const QStringList& arguments, FILE* out, FILE* err) {
    RecordRequest request;
    try {
        request =
            parseRecordRequest(arguments, recordRequestFromSettings(UserDefaults::standard()));
    } catch (const CliUsageError& error) {
        fmt::print(err, "❌ {}\nusage: tavelquiston-cli {}\n", error.what(), usage);
        return 2;
    }
    if (!QFileInfo(request.outputDirectory).isDir()) {
        fmt::print(err, "❌ --output \"{}\" is not a folder\n", text(request.outputDirectory));
        return 2;
    }

    const std::optional<QString> hidden = UserDefaults::standard().stringValue("hiddenApps");
    // A recording across a suspend pauses before the machine sleeps, as in the application.
    SystemEventMonitor::setShared(std::make_unique<DBusSystemEventMonitor>(
        QDBusConnection::sessionBus(), QDBusConnection::systemBus()));
    RecordingEngineLoaderOptions loaderOptions;
    loaderOptions.hiddenApps = hidden ? hidden->toUtf8() : QByteArray();
    const std::unique_ptr<RecordingEngineFactory> factory =
        makeRecordingEngineFactory(loaderOptions);
    SCShareableContent content;
    try {
        content = factory->fetchShareableContent();
    } catch (const std::exception& error) {
        fmt::print(err, "❌ No X server to record (DISPLAY={}): {}\n",
                   qEnvironmentVariable("DISPLAY").toStdString(), error.what());
        return 1;
    }
    std::optional<RecordingMode> mode;
    try {
        mode = resolveRecordingMode(request, content);
    } catch (const CliUsageError& error) {
        fmt::print(err, "❌ {}\n", error.what());
        return 2;
    }

    CountdownPrinter countdown(err);
    RecordingServices services;
    services.engines = factory.get();
    services.panel = &countdown;
    RecordingCoordinator coordinator(services);

    stopSignals = 0;
    pauseToggles = 0;
    struct sigaction stop = {}, pause = {}, oldInt = {}, oldTerm = {}, oldUsr1 = {};
    stop.sa_handler = onStopSignal;
    pause.sa_handler = onPauseSignal;
    sigaction(SIGINT, &stop, &oldInt);
    sigaction(SIGTERM, &stop, &oldTerm);
    sigaction(SIGUSR1, &pause, &oldUsr1);

    QCoro::Task<int> recording = recordUntilStopped(
        coordinator, *mode, makeRecordingConfiguration(request, *mode), request.duration, out, err);
    const int status = QCoro::waitFor(recording);

    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGTERM, &oldTerm, nullptr);
    sigaction(SIGUSR1, &oldUsr1, nullptr);
    return status;
}

CliCommand recordCommand() {
    return CliCommand{
        "record", usage, "record the screen, an area, windows or applications",
        [](const QStringList& arguments) { return runRecord(arguments, stdout, stderr); }};
}
