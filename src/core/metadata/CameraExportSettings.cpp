#include "core/metadata/CameraExportSettings.h"

QString rawValue(CameraShape shape) {
    switch (shape) {
    case CameraShape::squircle:
        return QStringLiteral("squircle");
    case CameraShape::circle:
        return QStringLiteral("circle");
    case CameraShape::roundedRect:
        return QStringLiteral("roundedRect");
    case CameraShape::rectangle:
        return QStringLiteral("rectangle");
    }
    return {};
}

QString displayName(CameraShape shape) {
    switch (shape) {
    case CameraShape::squircle:
        return QStringLiteral("Squircle");
    case CameraShape::circle:
        return QStringLiteral("Circle");
    case CameraShape::roundedRect:
        return QStringLiteral("Rounded");
    case CameraShape::rectangle:
        return QStringLiteral("Rectangle");
    }
    return {};
}

QString iconName(CameraShape shape) {
    switch (shape) {
    case CameraShape::squircle:
        return QStringLiteral("app");
    case CameraShape::circle:
        return QStringLiteral("circle");
    case CameraShape::roundedRect:
        return QStringLiteral("rectangle");
    case CameraShape::rectangle:
        return QStringLiteral("square");
    }
    return {};
}

std::optional<CameraShape> cameraShapeFromRawValue(const QString& raw) {
    for (CameraShape shape : allCameraShapes) {
        if (rawValue(shape) == raw)
            return shape;
    }
    return std::nullopt;
}
