#include "media/layers/LayerRecordingError.h"

const char* layerName(RecordingLayer layer) {
    switch (layer) {
    case RecordingLayer::screen:
        return "screen";
    case RecordingLayer::camera:
        return "camera";
    case RecordingLayer::audio:
        return "audio";
    case RecordingLayer::metadata:
        return "metadata";
    }
    return "unknown";
}

LayerRecordingError LayerRecordingError::packageNotFound(const QString& path) {
    return {Kind::packageNotFound, "Recording package not found at: " + path.toStdString()};
}

LayerRecordingError LayerRecordingError::missingFile(RecordingLayer layer) {
    return {Kind::missingFile,
            std::string("Missing ") + layerName(layer) + " file in recording package"};
}

LayerRecordingError LayerRecordingError::writerInitializationFailed(RecordingLayer layer,
                                                                    const std::string& underlying) {
    return {Kind::writerInitializationFailed,
            std::string("Failed to initialize ") + layerName(layer) + " writer: " + underlying};
}

LayerRecordingError LayerRecordingError::packageNotCreated() {
    return {Kind::packageNotCreated, "Recording package has not been created"};
}

LayerRecordingError LayerRecordingError::alreadyRecording() {
    return {Kind::alreadyRecording, "Layer recording is already in progress"};
}

LayerRecordingError LayerRecordingError::notRecording() {
    return {Kind::notRecording, "Layer recording is not active"};
}
