#include "cli/RecordCommand.h"

#include "cli/RecordDevice.h"

#include "app/camera/CameraOverlayWindowController.h"
#include "cli/CountdownPrinter.h"
#include "cli/RecordCamera.h"
#include "cli/RecordSettings.h"
#include "core/metadata/MetadataLocation.h"

#include "core/model/RecordingError.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/RecordingServices.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/UserDefaults.h"
#include "platform/RecordingEngineLoader.h"
#include "platform/desktop/DBusSystemEventMonitor.h"
#include "platform/pulse/AudioDeviceManager.h"
#include "platform/wayland/PortalScreenCaptureEngine.h"
#include "platform/wayland/WaylandRecordingEngineFactory.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRect>
#include <QSettings>
#include <QTemporaryDir>

#include <QCoro/QCoroTask>
#include <QCoro/QCoroTimer>

#include <fmt/format.h>

#include <csignal>

namespace {

constexpr std::string_view usage =
    "record [--mode screen|area|window|windows|application] [--display ID] [--area X,Y,W,H] "
    "[--window ID]... [--app BUNDLE-ID]... [--fps N] [--resolution low|normal|high] "
    "[--quality low|medium|high] [--codec h264|h265] [--format mov|mp4] [--show-cursor] "
    "[--background COLOR] [--countdown SECONDS] [--duration SECONDS] [--output DIR] "
    "[--camera DEVICE] [--camera-size WxH] [--mirror] [--separate-layers] "
    "[--camera-position top-left|top-right|bottom-left|bottom-right|center] "
    "[--click-to-zoom] [--zoom-level X] [--zoom-duration SECONDS] [--click-threshold SECONDS] "
    "[--smart-zoom on|off] [--highlight] [--magnifier] "
    "[--cursor-style circle|arrow|pointer|custom] [--cursor-size PX] [--ripple on|off] "
    "[--ripple-color COLOR] "
    "[--mode audio] [--microphone [SOURCE]] [--system-audio] [--mic-volume GAIN] "
    "[--system-volume GAIN] [--aec] [--audio-format aac|alac|flac|opus] "
    "[--backend x11|wayland] "
    "[--mode device --device NAME [--device-audio SOURCE|none] [--preview]]";

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

float parseVolume(const QString& option, const QString& value) {
    bool ok = false;
    const double gain = value.toDouble(&ok);
    if (!ok || !(gain >= 0) || gain > 16)
        throw CliUsageError(
            fmt::format("{} needs a gain from 0 to 16 (1 leaves the level), not \"{}\"",
                        text(option), text(value)));
    return float(gain);
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

VideoDimensions parseSize(const QString& option, const QString& value) {
    const QStringList parts = value.split(QLatin1Char('x'));
    bool okWidth = false, okHeight = false;
    const int width = parts.size() == 2 ? parts[0].toInt(&okWidth) : 0;
    const int height = parts.size() == 2 ? parts[1].toInt(&okHeight) : 0;
    if (!okWidth || !okHeight || width < 16 || height < 16 || width > 8192 || height > 8192 ||
        width % 2 || height % 2)
        throw CliUsageError(
            fmt::format("{} needs WIDTHxHEIGHT in even pixels from 16 to 8192, not \"{}\"",
                        text(option), text(value)));
    return VideoDimensions{width, height};
}

CameraOverlayWindowController::Position overlayPosition(const QString& name) {
    using Position = CameraOverlayWindowController::Position;
    if (name == QLatin1String("top-left"))
        return Position::topLeft;
    if (name == QLatin1String("top-right"))
        return Position::topRight;
    if (name == QLatin1String("bottom-left"))
        return Position::bottomLeft;
    if (name == QLatin1String("center"))
        return Position::center;
    return Position::bottomRight;
}

// The overlay's size on screen: a 16:9 picture-in-picture a sixth of a 1920-wide screen.
constexpr QSize overlaySize(320, 180);

} // namespace

bool recordShowsCameraOverlay(const QStringList& programArguments) {
    return programArguments.value(0) == QLatin1String("record") &&
           programArguments.contains(QStringLiteral("--camera")) &&
           !programArguments.contains(QStringLiteral("--separate-layers"));
}

bool checkCaptureBackend(std::optional<CaptureBackend> backend, FILE* err) {
    if (backend != CaptureBackend::wayland || isCaptureBackendAvailable(CaptureBackend::wayland))
        return true;
    fmt::print(err, "❌ --backend wayland needs the desktop's ScreenCast portal "
                    "(org.freedesktop.portal.Desktop) on the session bus, and none answered\n");
    return false;
}

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
            parseChoice<int>(option, request.mode,
                             {{"screen", 0},
                              {"area", 0},
                              {"window", 0},
                              {"windows", 0},
                              {"application", 0},
                              {"audio", 0},
                              {"device", 0}});
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
        } else if (option == QLatin1String("--camera")) {
            request.camera = value();
        } else if (option == QLatin1String("--device")) {
            request.device = value();
        } else if (option == QLatin1String("--device-audio")) {
            request.deviceAudio = value();
        } else if (option == QLatin1String("--preview")) {
            request.devicePreview = true;
        } else if (option == QLatin1String("--camera-size")) {
            request.cameraSize = parseSize(option, value());
        } else if (option == QLatin1String("--mirror")) {
            request.mirror = true;
        } else if (option == QLatin1String("--separate-layers")) {
            request.separateLayers = true;
        } else if (option == QLatin1String("--camera-position")) {
            request.cameraPosition = value();
            parseChoice<int>(option, request.cameraPosition,
                             {{"top-left", 0},
                              {"top-right", 0},
                              {"bottom-left", 0},
                              {"bottom-right", 0},
                              {"center", 0}});
        } else if (request.cursor.parse(option, value)) {
        } else if (option == QLatin1String("--microphone")) {
            // The source's name is optional: without one, the default microphone.
            const bool named = i + 1 < arguments.size() && !arguments[i + 1].startsWith("--");
            request.microphone = named ? arguments[++i] : QStringLiteral("default");
        } else if (option == QLatin1String("--system-audio")) {
            request.systemAudio = true;
        } else if (option == QLatin1String("--mic-volume")) {
            request.microphoneVolume = parseVolume(option, value());
        } else if (option == QLatin1String("--system-volume")) {
            request.systemAudioVolume = parseVolume(option, value());
        } else if (option == QLatin1String("--aec")) {
            request.echoCancellation = true;
        } else if (option == QLatin1String("--audio-format")) {
            request.audioFormat = value();
            parseChoice<int>(option, request.audioFormat,
                             {{"aac", 0}, {"alac", 0}, {"flac", 0}, {"opus", 0}});
        } else if (option == QLatin1String("--backend")) {
            request.backend = value();
            parseChoice<int>(option, request.backend, {{"x11", 0}, {"wayland", 0}});
        } else {
            throw CliUsageError(fmt::format("Unexpected argument \"{}\"", text(option)));
        }
    }
    if (!modeGiven && request.area)
        request.mode = QStringLiteral("area");
    if (request.mode == QLatin1String("area") && !request.area)
        throw CliUsageError("--mode area needs --area X,Y,W,H");
    // On Wayland the desktop's dialog picks the one window.
    const bool pickedByDesktop =
        request.mode == QLatin1String("window") && request.backend == QLatin1String("wayland");
    if ((request.mode == QLatin1String("window") || request.mode == QLatin1String("windows")) &&
        request.windowIDs.empty() && !pickedByDesktop)
        throw CliUsageError(fmt::format("--mode {} needs --window ID", text(request.mode)));
    if (request.mode == QLatin1String("window") && request.windowIDs.size() > 1)
        throw CliUsageError("--mode window takes one --window; use --mode windows for more");
    if (request.mode == QLatin1String("application") && request.applicationIDs.empty())
        throw CliUsageError("--mode application needs --app BUNDLE-ID");
    if (request.mode == QLatin1String("audio") && !request.systemAudio && !request.microphone)
        throw CliUsageError("--mode audio needs --system-audio, --microphone or both");
    if (request.echoCancellation && !request.microphone)
        throw CliUsageError("--aec cancels echo in the microphone: it needs --microphone");
    return request;
}

void checkAudioSources(RecordRequest& request) {
    if (request.systemAudio && !AudioDeviceManager::systemAudioSource())
        throw CliUsageError("--system-audio needs a sound server with a default sink; none answers "
                            "(PULSE_SERVER=" +
                            qEnvironmentVariable("PULSE_SERVER").toStdString() + ")");
    if (!request.microphone)
        return;
    const std::vector<AVCaptureDevice> microphones = AudioDeviceManager::getAvailableMicrophones();
    std::string names;
    for (const AVCaptureDevice& device : microphones)
        names += (names.empty() ? "" : ", ") + text(device.uniqueID);
    if (names.empty())
        names = "none";
    if (*request.microphone == QLatin1String("default")) {
        if (!AudioDeviceManager::getDefaultMicrophone())
            throw CliUsageError("--microphone: the sound server offers no microphone");
        return;
    }
    const bool found =
        std::any_of(microphones.begin(), microphones.end(), [&](const AVCaptureDevice& device) {
            return device.uniqueID == *request.microphone;
        });
    if (!found)
        throw CliUsageError(fmt::format("--microphone \"{}\" is not a microphone here; the sound "
                                        "server offers: {}",
                                        text(*request.microphone), names));
    const std::optional<AVCaptureDevice> preferred = AudioDeviceManager::getDefaultMicrophone();
    if (preferred && preferred->uniqueID == *request.microphone) {
        request.microphone = QStringLiteral("default");
    } else if (request.echoCancellation) {
        throw CliUsageError(fmt::format(
            "--aec cancels echo in the default microphone only; \"{}\" is not it (the default is "
            "\"{}\")",
            text(*request.microphone), preferred ? text(preferred->uniqueID) : "none"));
    }
}

RecordingMode resolveRecordingMode(const RecordRequest& request,
                                   const SCShareableContent& content) {
    if (request.mode == QLatin1String("audio"))
        return RecordingMode::systemAudio();
    if (request.mode == QLatin1String("window") && request.windowIDs.empty()) {
        // On Wayland: the window the user picked in the desktop's dialog.
        if (content.windows.empty())
            throw CliUsageError("The desktop shared no window; pick one in its dialog (delete "
                                "the screenCastRestoreToken setting to be asked again)");
        return RecordingMode::window(content.windows.front());
    }
    if (content.displays.empty() && !content.windows.empty())
        throw CliUsageError("The desktop shared a window, not a display; use --mode window, or "
                            "delete the screenCastRestoreToken setting to pick a monitor");
    if (content.displays.empty())
        throw CliUsageError("The desktop reports no display");
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
    configuration.recordSystemAudio = request.systemAudio;
    configuration.recordMicrophone = request.microphone.has_value();
    configuration.microphoneDevice = request.microphone;
    configuration.enableAEC = request.echoCancellation;
    configuration.systemAudioVolume = request.systemAudioVolume;
    configuration.microphoneVolume = request.microphoneVolume;
    configuration.audioEncoder = request.audioFormat;
    // A command run by a script keeps the machine awake by other means when it needs to.
    configuration.preventSleep = false;
    if (request.separateLayers) {
        StudioRecordingConfiguration studio;
        studio.enableSeparateLayers = true;
        configuration.studioConfig = studio;
        // Only the layer package records the camera itself; a single file gets it through the
        // overlay window the screen capture sees.
        if (request.camera) {
            configuration.recordCamera = true;
            configuration.cameraDevice = request.camera;
        }
    }
    request.cursor.apply(configuration);
    return configuration;
}

namespace {

QCoro::Task<int> recordUntilStopped(RecordingCoordinator& coordinator, RecordingMode mode,
                                    RecordingConfiguration configuration,
                                    std::optional<double> duration,
                                    CameraOverlayWindowController* overlay, FILE* out, FILE* err) {
    // The overlay is recorded with the screen: its first picture should be there when the
    // first frame is taken. A camera that shows nothing within a few seconds is recorded as it
    // comes.
    for (int waited = 0; overlay && !overlay->hasShownFrame() && waited < 250; ++waited) {
        QCoro::Task<void> waiting = QCoro::sleepFor(std::chrono::milliseconds(20));
        co_await waiting;
    }
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
        // The coordinator ended the recording itself (a lost stream, a failing writer) and has
        // said why.
        if (const auto* failed = coordinator.recordingState().as<RecordingState::Failed>();
            failed && !coordinator.isCleaningUp()) {
            fmt::print(err, "❌ The recording ended: {}\n", text(failed->error.errorDescription()));
            // What was kept of it is the command's result all the same.
            if (const auto& kept = coordinator.salvagedURL()) {
                fmt::print(out, "{}\n", text(*kept));
                const QString metadata = metadataLocations(*kept).hiddenSibling;
                if (QFileInfo::exists(metadata))
                    fmt::print(out, "{}\n", text(metadata));
                std::fflush(out);
            }
            co_return 1;
        }
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
    // The overlay was part of the picture; it goes with the recording, before the paths print.
    if (overlay)
        overlay->closeCameraOverlay();
    const auto* completed = coordinator.recordingState().as<RecordingState::Completed>();
    if (!completed) {
        fmt::print(err, "❌ The recording did not complete\n");
        co_return 1;
    }
    const QFileInfo movie(completed->fileURL);
    fmt::print(out, "{}\n", text(movie.absoluteFilePath()));
    // A layer package keeps its metadata inside; a movie has it beside.
    const QString metadata = movie.isDir()
                                 ? packageMetadataPath(movie.absoluteFilePath())
                                 : metadataLocations(movie.absoluteFilePath()).hiddenSibling;
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
    // A folder that does not exist yet is made, as a script that names a new one expects.
    if (!QFileInfo(request.outputDirectory).isDir() && !QDir().mkpath(request.outputDirectory)) {
        fmt::print(err, "❌ --output \"{}\" is not a folder and cannot be made one\n",
                   text(request.outputDirectory));
        return 2;
    }
    if (request.mode == QLatin1String("device"))
        return runDeviceRecord(request, out, err);
    // A device's options on another mode would be dropped without a word.
    if (request.device || request.deviceAudio) {
        fmt::print(err, "❌ {} is for --mode device\n",
                   request.device ? "--device" : "--device-audio");
        return 2;
    }

    try {
        checkAudioSources(request);
    } catch (const CliUsageError& error) {
        fmt::print(err, "❌ {}\n", error.what());
        return 2;
    }

    const std::optional<CaptureBackend> backend =
        request.backend.isEmpty() ? captureBackendSetting() : parseCaptureBackend(request.backend);
    if (!checkCaptureBackend(backend, err))
        return 2;

    const std::optional<QString> hidden = UserDefaults::standard().stringValue("hiddenApps");
    // A recording across a suspend pauses before the machine sleeps, as in the application.
    SystemEventMonitor::setShared(std::make_unique<DBusSystemEventMonitor>(
        QDBusConnection::sessionBus(), QDBusConnection::systemBus()));
    RecordingEngineLoaderOptions loaderOptions;
    loaderOptions.hiddenApps = hidden ? hidden->toUtf8() : QByteArray();
    loaderOptions.camera = CameraInput::Options{request.cameraSize};
    loaderOptions.backend =
        request.backend.isEmpty() ? captureBackendSetting() : parseCaptureBackend(request.backend);
    if (!checkCaptureBackend(loaderOptions.backend, err))
        return 2;
    const std::unique_ptr<RecordingEngineFactory> factory =
        makeRecordingEngineFactory(loaderOptions);
    // What the desktop's portal cannot share is refused before its dialog asks the user.
    if (dynamic_cast<const WaylandRecordingEngineFactory*>(factory.get())) {
        const std::optional<RecordingMode> unshareable =
            request.mode == QLatin1String("application")
                ? std::optional(RecordingMode::application({}))
            : request.mode == QLatin1String("windows") ? std::optional(RecordingMode::windows({}))
                                                       : std::nullopt;
        if (const auto reason = unshareable ? PortalScreenCaptureEngine::refusalReason(*unshareable)
                                            : std::nullopt) {
            fmt::print(err, "❌ {}\n", reason->toStdString());
            return 2;
        }
    }
    SCShareableContent content;
    try {
        // Sound alone needs no screen.
        if (request.mode != QLatin1String("audio"))
            content = factory->fetchShareableContent();
    } catch (const std::exception& error) {
        fmt::print(err, "❌ Nothing to record (DISPLAY={}, WAYLAND_DISPLAY={}): {}\n",
                   qEnvironmentVariable("DISPLAY").toStdString(),
                   qEnvironmentVariable("WAYLAND_DISPLAY").toStdString(), error.what());
        return 1;
    }
    std::optional<RecordingMode> mode;
    try {
        mode = resolveRecordingMode(request, content);
    } catch (const CliUsageError& error) {
        fmt::print(err, "❌ {}\n", error.what());
        return 2;
    }

    if (request.camera) {
        try {
            // The coordinator finds cameras by name; a /dev path becomes the listed name.
            request.camera = checkRecordCamera(*request.camera, *factory).name;
        } catch (const CliUsageError& error) {
            fmt::print(err, "❌ {}\n", error.what());
            return 2;
        }
    }

    CountdownPrinter countdown(err);
    RecordingServices services;
    services.engines = factory.get();
    services.panel = &countdown;
    // Options that live in the settings apply to this recording only: a private copy of the
    // person's settings carries them.
    QTemporaryDir settingsFolder;
    std::unique_ptr<UserDefaults> settings;
    if (request.cursor.overridesDefaults()) {
        const QString copy = settingsFolder.filePath(QStringLiteral("tavelquiston.ini"));
        QFile::copy(QSettings(QSettings::IniFormat, QSettings::UserScope,
                              QStringLiteral("tavelquiston"), QStringLiteral("tavelquiston"))
                        .fileName(),
                    copy);
        QFile(copy).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        settings = std::make_unique<UserDefaults>(copy);
        request.cursor.writeDefaults(*settings);
        services.defaults = settings.get();
    }
    RecordingCoordinator coordinator(services);
    if (request.cursor.magnifier)
        coordinator.cursorOverlayController().setMagnifierEnabled(true);

    stopSignals = 0;
    pauseToggles = 0;
    struct sigaction stop = {}, pause = {}, oldInt = {}, oldTerm = {}, oldUsr1 = {};
    stop.sa_handler = onStopSignal;
    pause.sa_handler = onPauseSignal;
    sigaction(SIGINT, &stop, &oldInt);
    sigaction(SIGTERM, &stop, &oldTerm);
    sigaction(SIGUSR1, &pause, &oldUsr1);

    std::unique_ptr<CameraOverlayWindowController> overlay;
    if (request.camera && !request.separateLayers) {
        if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
            fmt::print(err, "❌ --camera without --separate-layers shows a window and needs a "
                            "display\n");
            return 2;
        }
        overlay = std::make_unique<CameraOverlayWindowController>();
        overlay->setFlipped(request.mirror);
        if (!overlay->showCameraOverlay(AVCaptureDevice{QString(), *request.camera}, overlaySize,
                                        overlayPosition(request.cameraPosition))) {
            fmt::print(err, "❌ --camera \"{}\" could not be shown\n", text(*request.camera));
            return 2;
        }
    }

    QCoro::Task<int> recording =
        recordUntilStopped(coordinator, *mode, makeRecordingConfiguration(request, *mode),
                           request.duration, overlay.get(), out, err);
    const int status = QCoro::waitFor(recording);
    overlay.reset();

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
