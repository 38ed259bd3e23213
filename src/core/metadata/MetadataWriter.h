#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <string>

// Writes a document's JSON text straight from the values, in the same layout as
// `nlohmann::json(metadata).dump(2)` (keys sorted, two-space indent) without building the JSON
// tree first: an hour of cursor samples is some 100,000 objects, and the tree cost several times
// the text. Throws MetadataEncodingError for a number that is not finite.
//
// Thread: any.
std::string writeMetadataText(const RecordingMetadata& metadata);
