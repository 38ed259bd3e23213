#include "core/model/AlphaVideoCodec.h"

std::string rawValue(AlphaVideoCodec codec) {
    switch (codec) {
    case AlphaVideoCodec::hevcWithAlpha:
        return "hevcWithAlpha";
    case AlphaVideoCodec::proRes4444:
        return "proRes4444";
    case AlphaVideoCodec::proRes4444XQ:
        return "proRes4444XQ";
    }
    return {};
}

std::string displayName(AlphaVideoCodec codec) {
    switch (codec) {
    case AlphaVideoCodec::hevcWithAlpha:
        return "HEVC with Alpha";
    case AlphaVideoCodec::proRes4444:
        return "ProRes 4444";
    case AlphaVideoCodec::proRes4444XQ:
        return "ProRes 4444 XQ";
    }
    return {};
}

std::string fileExtension(AlphaVideoCodec) {
    return "mov";
}

std::optional<AlphaVideoCodec> alphaVideoCodecFromRawValue(const std::string& raw) {
    for (AlphaVideoCodec codec : allAlphaVideoCodecs) {
        if (rawValue(codec) == raw)
            return codec;
    }
    return std::nullopt;
}
