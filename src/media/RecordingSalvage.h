#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <vector>

// A recording that could not be salvaged; the message names the file and the reason.
class RecordingSalvageError final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct SalvagedRecording {
    std::filesystem::path movie;    // "<recording name> (Recovered).<ext>" beside the original
    std::filesystem::path metadata; // hidden beside it, as a finished recording's is
    double duration = 0;            // seconds of the time line kept
};

struct SalvageOptions {
    // The recording's own metadata when the caller still has it (a recording that failed while
    // the program runs); without it the metadata is made from what the disk holds: a metadata
    // file beside the movie, else the movie's size and rate and the cursor samples of a spill
    // file left in `spillFolder` during the recording.
    std::optional<RecordingMetadata> metadata;
    std::filesystem::path spillFolder = std::filesystem::temp_directory_path();
};

// Closes what a recording left on disk into a complete, playable movie: every complete fragment
// of `movie` is copied, without re-encoding, into a new file "<name> (Recovered).<ext>" beside
// it (numbered when that is taken; never over an existing file), and its metadata, cut to the
// same length, is saved beside that. Once the new file is complete on disk the original and its
// unfinished marker are removed: everything playable in them is in the new file. Throws
// RecordingSalvageError when nothing playable could be written, and then leaves all as it was,
// except that a movie without a single complete frame loses its marker: it is never retried.
//
// For a movie whose writer is stopped: salvaging a file that is still being written copies
// only what reached the disk. Thread: any; it blocks for the time of one pass over the file.
SalvagedRecording salvageRecording(const std::filesystem::path& movie,
                                   const SalvageOptions& options = {});

// The metadata without anything after `duration` seconds (clicks, zooms, cursor samples), its
// duration set to it.
RecordingMetadata cutMetadataTo(RecordingMetadata metadata, double duration);

// The movies in `folder` left unfinished by a writer that is no longer alive, oldest name first.
std::vector<std::filesystem::path> findUnfinishedRecordings(const std::filesystem::path& folder);
