#pragma once

#include "cli/CliCommand.h"

// `play PACKAGE`: opens an audio package in the player window until it is closed.
CliCommand playCommand();
