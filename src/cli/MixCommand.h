#pragma once

#include "cli/CliCommand.h"

#include <cstdio>

// `mix PACKAGE [--sys-volume V] [--mic-volume V] [--normalize] [--output FILE] [--mp3]`: mixes an
// audio package's sources into one file (m4a, or mp3 when asked and possible) and prints its path.
CliCommand mixCommand();

// The command's body, with its output streams, so tests can run it in process.
int runMix(const QStringList& arguments, FILE* out, FILE* err);
