#pragma once

#include "core/geometry/Rect.h"

#include <QString>

#include <array>
#include <optional>

// The outline of the camera picture. Raw values are the case names.
enum class CameraShape { squircle, circle, roundedRect, rectangle };

inline constexpr std::array allCameraShapes{CameraShape::squircle, CameraShape::circle,
                                            CameraShape::roundedRect, CameraShape::rectangle};

QString rawValue(CameraShape shape);
QString displayName(CameraShape shape);
QString iconName(CameraShape shape);
std::optional<CameraShape> cameraShapeFromRawValue(const QString& raw);

// How the exporter places the camera picture. Not part of the metadata document: the editor
// fills every field for each export.
struct CameraExportSettings {
    Point centerNormalized{};
    double widthFraction = 0.0;
    double shrinkFactor = 0.0;
    double easeDuration = 0.0;
    CameraShape shape = CameraShape::squircle;
    bool operator==(const CameraExportSettings&) const = default;
};
