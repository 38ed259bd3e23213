#include "cli/RecordDevice.h"

#include "app/camera/CameraPreviewWidget.h"

#include "core/recording/RecordingCoordinator.h"
#include "core/recording/RecordingPreparation.h"
#include "core/recording/RecordingServices.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "platform/RecordingEngineLoader.h"
#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"
#include "platform/v4l2/V4L2DeviceCaptureEngine.h"

#include <QApplication>
#include <QDateTime>
#include <QEventLoop>
#include <QTimer>

#include <fmt/format.h>

#include <csignal>

namespace {

volatile std::sig_atomic_t deviceStopSignals = 0;

void onDeviceStopSignal(int) {
    deviceStopSignals = deviceStopSignals + 1;
}

std::string text(const QString& value) {
    return value.toStdString();
}

} // namespace

void printCaptureDevices(FILE* out) {
    for (const CaptureDeviceInfo& device : V4L2CaptureDeviceDiscovery::discoverDevices()) {
        // The test camera's "path" is its graph; `--device` takes its name.
        const QString where =
            device.device.isTestCamera ? QStringLiteral("lavfi") : device.device.path;
        const std::string sound =
            device.sound ? fmt::format("sound: {} ({})", text(device.sound->description),
                                       device.sound->sourceName)
                         : std::string("no sound");
        const std::string size = device.size
                                     ? fmt::format("{}x{}", device.size->width, device.size->height)
                                     : std::string("size unknown");
        fmt::print(out, "{}\t{}\t{}\t{}\t{}\t{}\n", text(where), text(device.device.name),
                   device.isCaptureCard ? "capture card" : "camera",
                   text(device.inputs.join(QStringLiteral(", "))), size, sound);
    }
}

int runDeviceRecord(const RecordRequest& request, FILE* out, FILE* err) {
    if (!request.device) {
        fmt::print(err, "❌ --mode device needs --device NAME (see `tavelquiston-cli list "
                        "devices`)\n");
        return 2;
    }
    const auto device = V4L2CaptureDeviceDiscovery::findDevice(*request.device);
    if (!device) {
        fmt::print(err,
                   "❌ --device \"{}\" is not a capture device; `tavelquiston-cli list "
                   "devices` shows them\n",
                   text(*request.device));
        return 2;
    }

    // The device's own sound unless told otherwise.
    std::optional<DeviceSound> sound = device->sound;
    if (request.deviceAudio) {
        if (*request.deviceAudio == QLatin1String("none")) {
            sound.reset();
        } else {
            sound = V4L2CaptureDeviceDiscovery::findSound(*request.deviceAudio);
            if (!sound) {
                fmt::print(err,
                           "❌ --device-audio \"{}\" is not a sound source; `pactl list short "
                           "sources` shows them (or give \"none\")\n",
                           text(*request.deviceAudio));
                return 2;
            }
        }
    }

    RecordingConfiguration configuration(RecordingMode::iOSDevice(device->device.captureDevice()),
                                         request.outputDirectory);
    configuration.outputFormat = request.format;
    const QString outputURL =
        RecordingPreparation::generateOutputURL(&configuration, QDateTime::currentDateTime());

    // The preview outlives the engine that feeds it: the coordinator below ends the engine first.
    std::unique_ptr<CameraPreviewWidget> preview;
    if (request.devicePreview) {
        if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
            preview = std::make_unique<CameraPreviewWidget>();
            preview->setWindowTitle(device->device.name + QStringLiteral(" — Preview"));
            preview->resize(640, 360);
            preview->show();
        } else {
            fmt::print(err, "⚠️ --preview needs a display (DISPLAY is not set); recording "
                            "without it\n");
        }
    }

    const std::unique_ptr<RecordingEngineFactory> factory =
        makeRecordingEngineFactory(RecordingEngineLoaderOptions{});
    RecordingServices services;
    services.engines = factory.get();
    RecordingCoordinator coordinator(services);

    CameraInput::Options options;
    options.size = request.cameraSize;
    options.frameRate = request.frameRate;
    auto owned = std::make_unique<V4L2DeviceCaptureEngine>(device->device, options, sound);
    V4L2DeviceCaptureEngine* engine = owned.get();
    if (preview)
        engine->previewHandler = [view = preview.get()](const VideoFrame& frame) {
            view->offerFrame(frame);
        };
    coordinator.setIOSDeviceEngine(std::move(owned));

    QEventLoop loop;
    bool ended = false;
    QString partialFile;
    auto end = [&] {
        ended = true;
        loop.quit();
    };
    try {
        // The coordinator replaces (destroys) the engine in either callback.
        engine->startRecording(
            outputURL,
            [&](const QString& fileURL) {
                coordinator.deviceRecordingDidFinish(fileURL);
                end();
            },
            [&](const std::exception& error, const QString& partialFileURL) {
                partialFile = partialFileURL;
                coordinator.deviceRecordingDidFail(error);
                end();
            });
    } catch (const std::exception& error) {
        fmt::print(err, "❌ Could not record \"{}\": {}\n", text(device->device.name), error.what());
        return 1;
    }

    deviceStopSignals = 0;
    struct sigaction stop = {}, oldInt = {}, oldTerm = {};
    stop.sa_handler = onDeviceStopSignal;
    sigaction(SIGINT, &stop, &oldInt);
    sigaction(SIGTERM, &stop, &oldTerm);
    const QDateTime started = QDateTime::currentDateTime();
    bool stopAsked = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        const bool timeUp = request.duration && started.msecsTo(QDateTime::currentDateTime()) >=
                                                    *request.duration * 1000;
        if (!ended && !stopAsked && (timeUp || deviceStopSignals > 0)) {
            stopAsked = true;
            engine->stopRecording();
        }
    });
    poll.start(20);
    loop.exec();
    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGTERM, &oldTerm, nullptr);

    const RecordingState& state = coordinator.recordingState();
    if (const auto* completed = state.as<RecordingState::Completed>()) {
        fmt::print(out, "{}\n", text(completed->fileURL));
        std::fflush(out);
        return 0;
    }
    // The part recorded before the device went is a finished movie of its own.
    if (!partialFile.isEmpty())
        fmt::print(out, "{}\n", text(partialFile));
    std::fflush(out);
    fmt::print(err, "❌ The device recording failed: \"{}\" went away\n", text(device->device.name));
    return 1;
}
