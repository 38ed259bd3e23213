#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <filesystem>
#include <optional>
#include <vector>

// The layers of a separate-layers package, each already closed by salvageRecording into a
// "(Recovered)" file beside it; absent for a layer that was not recorded or kept nothing.
struct SalvagedLayers {
    std::optional<std::filesystem::path> screen;
    std::optional<std::filesystem::path> camera;
};

// Makes a package whose recording ended on an error or was killed whole again: each salvaged
// layer takes its layer's name back, the metadata (`metadata` when the caller has it, else the
// package's own, else what the screen layer's salvage found) is cut to the screen layer's length,
// and the folder becomes "<name> (Recovered)" (numbered when taken) with a manifest written last,
// so that it opens like a finished package. Returns the new folder. Throws RecordingSalvageError
// when the screen layer kept nothing. Thread: any.
std::filesystem::path settleSalvagedPackage(const std::filesystem::path& folder,
                                            const SalvagedLayers& layers,
                                            std::optional<RecordingMetadata> metadata = {});

// The same for a package whose writers died: every layer left unfinished is salvaged first.
std::filesystem::path salvageRecordingPackage(const std::filesystem::path& folder);

// Package folders directly inside `folder` whose screen layer was left unfinished by a writer
// that is no longer alive, oldest name first.
std::vector<std::filesystem::path> findUnfinishedPackages(const std::filesystem::path& folder);
