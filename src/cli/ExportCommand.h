#pragma once

#include "cli/CliCommand.h"

#include <cstdio>

// `export`: a recording (movie or package) made into a finished, styled video beside it, with
// cuts, per-part files or a plain trim; progress on standard error, the output path last on
// standard output. Needs a running Qt event loop's application object (no loop yet).
int runExport(const QStringList& arguments, FILE* out, FILE* err);
CliCommand exportCommand();

// `waveform`: the loudness values of a movie's audio, one per line.
int runWaveform(const QStringList& arguments, FILE* out, FILE* err);
CliCommand waveformCommand();
