// Feeds arbitrary bytes to the metadata decoder. Whatever decodes must encode, decode again to an
// equal document and encode to the same text; nothing may crash, leak or invoke undefined
// behaviour on the way.
#include "core/metadata/MetadataJson.h"

#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    RecordingMetadata metadata;
    try {
        metadata = decodeMetadata(text);
    } catch (const MetadataDecodingError&) {
        return 0;
    }
    const std::string encoded = encodeMetadata(metadata);
    const RecordingMetadata again = decodeMetadata(encoded);
    if (!(again == metadata)) {
        std::fprintf(stderr, "decoded document changed in a round trip:\n%s\n", encoded.c_str());
        std::abort();
    }
    if (encodeMetadata(again) != encoded) {
        std::fprintf(stderr, "encoding is not stable:\n%s\n", encoded.c_str());
        std::abort();
    }
    return 0;
}
