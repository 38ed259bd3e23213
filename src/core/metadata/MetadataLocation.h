#pragma once

#include <QString>

#include <optional>

// The metadata document of a video: ".metadata.json" in the video's folder, or else the older
// layout "<video name without extension>.metadata.json" beside it. None when neither exists.
std::optional<QString> locateMetadataFile(const QString& videoPath);
