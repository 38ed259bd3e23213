#pragma once

#include "cli/RecordCommand.h"

#include <cstdio>

// `list devices`: one line a capture device: where, name, "capture card" or "camera", inputs,
// picture size, and the sound that goes with it ("sound: DESCRIPTION (SOURCE)" or "no sound").
void printCaptureDevices(FILE* out);

// `record --mode device --device NAME`: records the device's picture, with its own sound (or the
// source --device-audio names, or none), straight to a movie file in the output folder, through the
// coordinator's device callbacks, until --duration seconds have passed or SIGINT/SIGTERM arrives,
// with --preview in a window showing the picture. Prints the movie's path. A device that goes away
// during the recording leaves the part recorded so far as a finished movie (its path is printed
// too) and exits with status 1.
int runDeviceRecord(const RecordRequest& request, FILE* out, FILE* err);
