#include "cli/ListCommand.h"

#include "cli/RecordCommand.h"
#include "cli/RecordDevice.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "platform/RecordingEngineLoader.h"
#include "platform/pulse/AudioDeviceManager.h"
#include "platform/v4l2/V4L2CameraDiscovery.h"
#include "platform/x11/X11Coordinates.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::string_view usage =
    "list [--backend x11|wayland] displays|windows|applications|cameras|microphones|devices";

// The root's height is the top of the highest display: global points count up from its
// bottom edge.
int rootHeight(const SCShareableContent& content) {
    double top = 0;
    for (const SCDisplay& display : content.displays)
        top = std::max(top, display.frame.maxY());
    return int(top);
}

} // namespace

bool printContent(const QString& kind, const SCShareableContent& content, FILE* out) {
    const int height = rootHeight(content);
    if (kind == QLatin1String("displays")) {
        for (const SCDisplay& display : content.displays) {
            const X11Rect r = X11Coordinates::fromGlobal(display.frame, height);
            fmt::print(out, "{}\t{}x{}+{}+{}\tscale {}\n", display.displayID, r.width, r.height,
                       r.x, r.y, display.pixelScale);
        }
        return true;
    }
    if (kind == QLatin1String("windows")) {
        for (const SCWindow& window : content.windows) {
            const X11Rect r = X11Coordinates::fromGlobal(window.frame, height);
            const QString app =
                window.owningApplication ? window.owningApplication->bundleIdentifier : QString();
            fmt::print(out, "0x{:x}\t{}x{}+{}+{}\t{}\t{}\n", window.windowID, r.width, r.height,
                       r.x, r.y, app.isEmpty() ? "-" : app.toStdString(),
                       window.title.toStdString());
        }
        return true;
    }
    if (kind == QLatin1String("applications")) {
        for (const SCRunningApplication& app : content.applications)
            fmt::print(out, "{}\t{}\t{}\n", app.bundleIdentifier.toStdString(),
                       app.applicationName.toStdString(), app.processID);
        return true;
    }
    return false;
}

void printCameras(FILE* out) {
    for (const CameraDeviceInfo& camera : V4L2CameraDiscovery::discoverCameras()) {
        // The test camera's "path" is its graph; `record --camera` takes its name.
        const QString where = camera.isTestCamera ? QStringLiteral("lavfi") : camera.path;
        fmt::print(out, "{}\t{}\t{}\n", where.toStdString(), camera.name.toStdString(),
                   camera.formats.join(QStringLiteral(", ")).toStdString());
    }
}

// One line a microphone: source name, description, rate, channels, and "default" on the one
// recorded when none is named.
int printMicrophones(FILE* out) {
    for (const AudioDeviceManager::Microphone& microphone :
         AudioDeviceManager::describeMicrophones())
        fmt::print(out, "{}\t{}\t{} Hz\t{} ch{}\n", microphone.device.uniqueID.toStdString(),
                   microphone.device.localizedName.toStdString(), microphone.sampleRate,
                   microphone.channelCount, microphone.isDefault ? "\tdefault" : "");
    return 0;
}

int runList(const QStringList& given, FILE* out, FILE* err) {
    QStringList arguments = given;
    std::optional<CaptureBackend> backend = captureBackendSetting();
    if (const qsizetype at = arguments.indexOf(QStringLiteral("--backend")); at >= 0) {
        backend = parseCaptureBackend(arguments.value(at + 1));
        if (!backend) {
            fmt::print(err, "❌ --backend must be one of x11|wayland, not \"{}\"\n",
                       arguments.value(at + 1).toStdString());
            return 2;
        }
        arguments.remove(at, 2);
    }
    if (!checkCaptureBackend(backend, err))
        return 2;
    const QString kind = arguments.value(0);
    if (arguments.size() == 1 && kind == QLatin1String("cameras")) {
        // Cameras need no X server.
        printCameras(out);
        return 0;
    }
    if (arguments.size() == 1 && kind == QLatin1String("devices")) {
        printCaptureDevices(out);
        return 0;
    }
    if (arguments.size() == 1 && kind == QLatin1String("microphones"))
        return printMicrophones(out);
    if (arguments.size() != 1 ||
        !(kind == QLatin1String("displays") || kind == QLatin1String("windows") ||
          kind == QLatin1String("applications"))) {
        fmt::print(err, "❌ Unknown list \"{}\"\nusage: tavelquiston-cli {}\n",
                   arguments.join(QLatin1Char(' ')).toStdString(), usage);
        return 2;
    }
    SCShareableContent content;
    try {
        RecordingEngineLoaderOptions options;
        options.backend = backend;
        content = makeRecordingEngineFactory(options)->fetchShareableContent();
    } catch (const std::exception& error) {
        fmt::print(err, "❌ Nothing to list (DISPLAY={}, WAYLAND_DISPLAY={}): {}\n",
                   qEnvironmentVariable("DISPLAY").toStdString(),
                   qEnvironmentVariable("WAYLAND_DISPLAY").toStdString(), error.what());
        return 1;
    }
    printContent(kind, content, out);
    return 0;
}

CliCommand listCommand() {
    return CliCommand{
        "list", usage,
        "list the displays, windows, applications, cameras, microphones or devices to record",
        [](const QStringList& arguments) { return runList(arguments, stdout, stderr); }};
}
