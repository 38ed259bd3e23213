#pragma once

#include "cli/CliCommand.h"

#include <cstdio>
#include <filesystem>
#include <optional>

// `edit FILE`: opens a recording (movie or package) in the desktop program's trimmer. The file
// is checked here first, so a bad one fails on the command line with status 2; a good one
// replaces this process with the desktop program.
int runEdit(const QStringList& arguments, FILE* err);
CliCommand editCommand();

// The desktop program beside this one (installed side by side, or in the build tree's app
// folder); absent when it is not there and PATH must find it.
std::optional<std::filesystem::path> desktopProgramPath();
