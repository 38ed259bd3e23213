#pragma once

#include "cli/CliCommand.h"
#include "core/model/SCShareableContent.h"

// `list displays|windows|applications|cameras`: what can be recorded, one line each, with the
// ids `record` takes. Frames are in pixels from the top left of the screen, as --area expects;
// cameras as path, name and pixel formats.
CliCommand listCommand();

// The lines for one kind of content; false for an unknown kind.
bool printContent(const QString& kind, const SCShareableContent& content, FILE* out);

void printCameras(FILE* out);
int runList(const QStringList& arguments, FILE* out, FILE* err);
