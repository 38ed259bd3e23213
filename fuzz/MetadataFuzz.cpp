// Feeds arbitrary bytes to the metadata decoder. Whatever decodes must encode, decode again to an
// equal document and encode to the same text; migration must then run on it. Nothing may crash,
// leak or invoke undefined behaviour on the way.
#include "core/metadata/MetadataJson.h"
#include "core/metadata/ZoomMigration.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {
[[noreturn]] void failWith(const char* problem, const std::string& text) {
    std::fprintf(stderr, "%s:\n%s\n", problem, text.c_str());
    std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    RecordingMetadata metadata;
    try {
        metadata = decodeMetadata(text);
    } catch (const MetadataDecodingError&) {
        return 0;
    }
    const std::string encoded = encodeMetadata(metadata);
    RecordingMetadata again;
    try {
        again = decodeMetadata(encoded);
    } catch (const MetadataDecodingError& error) {
        failWith(error.what(), encoded);
    }
    if (!(again == metadata))
        failWith("decoded document changed in a round trip", encoded);
    if (encodeMetadata(again) != encoded)
        failWith("encoding is not stable", encoded);

    // Segments that the migration makes (not those read from the file, which keep any values)
    // never end before they start.
    const RecordingMetadata migrated = migrateZoomMetadata(metadata);
    if (metadata.zoomSegments.empty()) {
        for (const ZoomSegment& segment : migrated.zoomSegments) {
            if (!(segment.startTime <= segment.endTime))
                failWith("a generated segment ends before it starts", encodeMetadata(migrated));
        }
    }
    (void)encodeMetadata(migrated);
    return 0;
}
