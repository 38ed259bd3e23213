#pragma once

#include "core/model/RecordingPackage.h"

#include <QString>

#include <stdexcept>

// Why a layer recording or a package could not be made or read. what() is the readable
// description.
class LayerRecordingError : public std::runtime_error {
public:
    enum class Kind {
        packageNotFound,
        missingFile,
        writerInitializationFailed,
        packageNotCreated,
        alreadyRecording,
        notRecording,
    };

    static LayerRecordingError packageNotFound(const QString& path);
    static LayerRecordingError missingFile(RecordingLayer layer);
    static LayerRecordingError writerInitializationFailed(RecordingLayer layer,
                                                          const std::string& underlying);
    static LayerRecordingError packageNotCreated();
    static LayerRecordingError alreadyRecording();
    static LayerRecordingError notRecording();

    Kind kind() const { return m_kind; }
    QString errorDescription() const { return QString::fromStdString(what()); }

private:
    LayerRecordingError(Kind kind, const std::string& description)
        : std::runtime_error(description), m_kind(kind) {}
    Kind m_kind;
};

// The case name a layer prints as in messages ("screen", "camera").
const char* layerName(RecordingLayer layer);
