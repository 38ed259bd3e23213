#pragma once

#include "cli/RecordCommand.h"

class UserDefaults;

// A recording request with the choices made in the application's settings: only keys that are
// stored there count, so a machine where the application never ran records with the command's
// own defaults. Options on the command line override these.
RecordRequest recordRequestFromSettings(const UserDefaults& defaults);
