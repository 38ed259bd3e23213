#pragma once

#include "cli/CliCommand.h"

// `analyze <video-or-metadata.json> [--explain]`: prints a recording's metadata after migration,
// with its automatic zoom segments, as it would be saved. `--explain` adds one line per
// attention cluster on standard error. `--camera-path FPS` and `--cursor-path FPS` print those
// paths as CSV instead of the document (PathExport.h).
CliCommand analyzeCommand();

// The command's body, with its output streams, so tests can run it in process.
int runAnalyze(const QStringList& arguments, FILE* out, FILE* err);
