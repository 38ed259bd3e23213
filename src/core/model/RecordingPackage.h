#pragma once

#include "core/geometry/Rect.h"

#include <QDateTime>
#include <QString>

#include <optional>

enum class RecordingLayer { screen, camera, audio, metadata };

// What a separate-layers recording was made with; part of the package's manifest.
struct PackageConfiguration {
    bool hasAlphaChannel = false;
    bool hasSeparateLayers = true;
    Size resolution;
    int frameRate = 30;
    double duration = 0.0;
    std::optional<Point> contentOrigin;
    bool operator==(const PackageConfiguration&) const = default;
};

// A separate-layers recording on disk: a folder with one file per layer. Paths are local.
struct RecordingPackage {
    QString version = QStringLiteral("1.0");
    QString packageURL;
    QString screenVideoURL;
    std::optional<QString> cameraVideoURL;
    QString audioURL;
    QString metadataURL;
    QDateTime createdAt;
    PackageConfiguration configuration;
    bool operator==(const RecordingPackage&) const = default;
};
