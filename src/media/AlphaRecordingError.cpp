#include "media/AlphaRecordingError.h"

namespace {
std::string size(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}
} // namespace

AlphaRecordingError AlphaRecordingError::codecNotSupported(AlphaVideoCodec codec) {
    return {Kind::codecNotSupported,
            "Alpha codec '" + displayName(codec) + "' is not supported on this system",
            "Try using a different codec or disable alpha channel recording."};
}

AlphaRecordingError AlphaRecordingError::invalidResolution(int width, int height) {
    return {Kind::invalidResolution,
            "Invalid resolution: " + size(width, height) +
                ". Width and height must be greater than 0.",
            "Choose a valid resolution with positive dimensions."};
}

AlphaRecordingError AlphaRecordingError::resolutionTooLarge(int width, int height, int max) {
    return {Kind::resolutionTooLarge,
            "Resolution " + size(width, height) + " exceeds maximum supported dimension of " +
                std::to_string(max) + ".",
            "Choose a smaller resolution."};
}

AlphaRecordingError AlphaRecordingError::invalidAlignment(int width, int height, int required) {
    return {Kind::invalidAlignment,
            "Resolution " + size(width, height) +
                " has invalid alignment. Dimensions must be multiples of " +
                std::to_string(required) + ".",
            "Adjust resolution so both width and height are multiples of " +
                std::to_string(required) + "."};
}

AlphaRecordingError AlphaRecordingError::alphaChannelNotSupported() {
    return {
        Kind::alphaChannelNotSupported,
        "Alpha channel recording is not supported on this system. Requires macOS 13.0 or later.",
        "Upgrade to macOS 13.0 or later, or disable alpha channel recording."};
}
