#pragma once

#include "cli/CliCommand.h"

#include <cstdio>

// `recover [DIR]`: finds the recordings in DIR (by default the output folder of the settings)
// that a killed or crashed recorder left unfinished, closes each into a playable
// "<name> (Recovered).<ext>" with its metadata cut to the same length, and prints the recovered
// movies' paths, one a line, after its log. Recordings still being written are left alone; a
// second run finds nothing more to do.
CliCommand recoverCommand();

// The command's body, with its output streams, so tests can run it in process.
int runRecover(const QStringList& arguments, FILE* out, FILE* err);
