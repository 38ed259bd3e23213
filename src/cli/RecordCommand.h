#pragma once

#include "cli/CliCommand.h"
#include "cli/RecordCursorOptions.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "platform/RecordingEngineLoader.h"

#include <QRect>

#include <optional>
#include <stdexcept>
#include <vector>

// `record`: records the screen, an area, windows or applications (or only sound, with --mode
// audio) through the recording
// coordinator until --duration seconds of recording have passed or SIGINT/SIGTERM arrives;
// SIGUSR1 toggles pause. Prints the movie's path (with --separate-layers the package folder's),
// then its metadata's. SIGINT/SIGTERM before
// the recording started (while preparing or counting down) cancel it: exit status 1, no file.
CliCommand recordCommand();

// What the command line asked for, before it is matched against the desktop.
struct RecordRequest {
    QString mode = QStringLiteral("screen");
    std::optional<uint32_t> displayID;
    // Pixels of the display from its top-left corner, as screenshots and xwininfo show them.
    std::optional<QRect> area;
    std::vector<uint32_t> windowIDs;
    QStringList applicationIDs;
    int frameRate = 60;
    ResolutionMode resolution = ResolutionMode::normal;
    VideoQuality quality = VideoQuality::high;
    VideoEncoder codec = VideoEncoder::h264;
    OutputFormat format = OutputFormat::mov;
    bool showCursor = false;
    BackgroundType background = BackgroundType::black;
    int countdown = 0;
    std::optional<double> duration;
    QString outputDirectory;
    // A /dev path or a name from `list cameras`.
    std::optional<QString> camera;
    std::optional<VideoDimensions> cameraSize;
    bool mirror = false;
    // The screen and the camera as files of their own in a package folder.
    bool separateLayers = false;
    QString cameraPosition = QStringLiteral("bottom-right");
    RecordCursorOptions cursor;
    // Sound: the microphone's source name ("default" for the server's default microphone).
    std::optional<QString> microphone;
    bool systemAudio = false;
    float microphoneVolume = 1.0f;
    float systemAudioVolume = 1.0f;
    bool echoCancellation = false;
    QString audioFormat = QStringLiteral("aac");
    QString backend; // "x11" or "wayland"; empty: the setting, else the desktop's
    // --mode device: a capture device's /dev path or name from `list devices`.
    std::optional<QString> device;
    // --device-audio: the sound source to record with the device, "none" for its picture alone;
    // absent: the source that belongs to the device, if one does.
    std::optional<QString> deviceAudio;
    bool devicePreview = false; // a window showing the device's picture while it records
};

// A value on the command line that cannot be used; its message names the option and value.
class CliUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Whether these program arguments are a `record` that shows the camera overlay window (a camera
// in a single-file recording), which needs a GUI application object.
bool recordShowsCameraOverlay(const QStringList& programArguments);

// The options given on top of `defaults` (the application's settings, see RecordSettings.h).
// Throws CliUsageError.
RecordRequest parseRecordRequest(const QStringList& arguments, RecordRequest defaults = {});
// The recording mode for the request on this desktop; the area becomes the mode's own
// convention (from the display's bottom left). `--mode window` without `--window` (Wayland
// only) is the window the desktop shared. Throws CliUsageError for unknown ids or an area
// outside the display.
RecordingMode resolveRecordingMode(const RecordRequest& request, const SCShareableContent& content);
RecordingConfiguration makeRecordingConfiguration(const RecordRequest& request, RecordingMode mode);
// Throws CliUsageError when a sound source the request names is not on the sound server,
// naming it and the ones that are, or when --aec names a microphone that is not the default.
// The default microphone named by its source name becomes "default".
void checkAudioSources(RecordRequest& request);

// False, after one error on `err`, when the backend asked for cannot run on this desktop.
bool checkCaptureBackend(std::optional<CaptureBackend> backend, FILE* err);

int runRecord(const QStringList& arguments, FILE* out, FILE* err);
