#include "media/MediaWriterError.h"

MediaWriterError
MediaWriterError::writerInitializationFailed(std::optional<std::string> underlying) {
    return {Kind::writerInitializationFailed,
            underlying ? "Failed to initialize media writer: " + *underlying
                       : "Failed to initialize media writer"};
}

MediaWriterError MediaWriterError::cannotAddInput(const std::string& type) {
    return {Kind::cannotAddInput, "Cannot add " + type + " input to asset writer"};
}

MediaWriterError MediaWriterError::invalidState(const std::string& current) {
    return {Kind::invalidState, "Invalid writer state: " + current};
}

MediaWriterError MediaWriterError::writingFailed(std::optional<std::string> underlying) {
    return {Kind::writingFailed, underlying ? "Writing failed: " + *underlying : "Writing failed"};
}

MediaWriterError MediaWriterError::alphaCodecNotSupported(AlphaVideoCodec codec) {
    return {Kind::alphaCodecNotSupported,
            "Alpha codec '" + displayName(codec) + "' is not supported on this system"};
}

MediaWriterError MediaWriterError::writerNotConfigured() {
    return {Kind::writerNotConfigured, "Media writer is not configured"};
}

MediaWriterError MediaWriterError::notWriting() {
    return {Kind::notWriting, "Writer is not currently writing"};
}

MediaWriterError MediaWriterError::outputURLMissing() {
    return {Kind::outputURLMissing, "Output URL is missing"};
}
