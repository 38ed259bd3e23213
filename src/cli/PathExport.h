#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <QStringList>

#include <cstdio>
#include <optional>

// The analyze command's path options: `--camera-path FPS` prints the zoom camera and
// `--cursor-path FPS` the drawn cursor, one CSV line per frame over the whole recording, as the
// export evaluates them. Users plot these to see why a zoom or the cursor moves as it does.
struct PathExportRequest {
    std::optional<double> cameraPathFps;
    std::optional<double> cursorPathFps;

    bool any() const { return cameraPathFps || cursorPathFps; }
};

// Takes the path options and their values out of `arguments`, leaving the rest for the
// command. A missing or unusable frame rate is reported on `err`, naming the value, and gives
// nothing.
std::optional<PathExportRequest> extractPathOptions(QStringList& arguments, FILE* err);

// Prints the requested paths of a migrated recording, the camera's first, each under a header
// line. Returns the command's exit status.
int printPaths(const RecordingMetadata& metadata, const PathExportRequest& request, FILE* out);

// The camera as the export sees it: export options with springs, the recording's own size.
// Columns: time, scale, center x, center y, tx, ty, strength, active segment id, connected.
void printCameraPath(const RecordingMetadata& metadata, double fps, FILE* out);
// The cursor with the default overlay settings. Columns: time, x, y, scale, visible, motion blur.
void printCursorPath(const RecordingMetadata& metadata, double fps, FILE* out);
