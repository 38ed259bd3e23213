#pragma once

#include "cli/CliCommand.h"
#include "core/model/RecordingConfiguration.h"
#include "core/model/SCShareableContent.h"

#include <QRect>

#include <optional>
#include <stdexcept>
#include <vector>

// `record`: records the screen, an area, windows or applications through the recording
// coordinator until --duration seconds of recording have passed or SIGINT/SIGTERM arrives;
// SIGUSR1 toggles pause. Prints the movie's path, then its metadata's. SIGINT/SIGTERM before
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
};

// A value on the command line that cannot be used; its message names the option and value.
class CliUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The options given on top of `defaults` (the application's settings, see RecordSettings.h).
// Throws CliUsageError.
RecordRequest parseRecordRequest(const QStringList& arguments, RecordRequest defaults = {});
// The recording mode for the request on this desktop; the area becomes the mode's own
// convention (from the display's bottom left). Throws CliUsageError for unknown ids or an
// area outside the display.
RecordingMode resolveRecordingMode(const RecordRequest& request, const SCShareableContent& content);
RecordingConfiguration makeRecordingConfiguration(const RecordRequest& request, RecordingMode mode);

int runRecord(const QStringList& arguments, FILE* out, FILE* err);
