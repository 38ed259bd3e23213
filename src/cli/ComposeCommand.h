#pragma once

#include "cli/CliCommand.h"

#include <cstdio>

// `compose`: one styled frame of a recording (or of a still picture standing in for the screen)
// rendered to PNG with the export's compositor, for previewing a look without exporting.
int runCompose(const QStringList& arguments, FILE* out, FILE* err);
CliCommand composeCommand();
