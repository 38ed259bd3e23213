#include "core/metadata/BackgroundSettings.h"

QString rawValue(StudioBackgroundType type) {
    switch (type) {
    case StudioBackgroundType::gradient:
        return QStringLiteral("gradient");
    case StudioBackgroundType::solidColor:
        return QStringLiteral("solidColor");
    case StudioBackgroundType::image:
        return QStringLiteral("image");
    }
    return {};
}

std::optional<StudioBackgroundType> studioBackgroundTypeFromRawValue(const QString& raw) {
    for (StudioBackgroundType type : allStudioBackgroundTypes) {
        if (rawValue(type) == raw)
            return type;
    }
    return std::nullopt;
}

QString describe(const BackgroundSettings& settings) {
    QString text = QStringLiteral("BackgroundSettings(type: %1").arg(rawValue(settings.type));
    if (settings.gradient) {
        text += QStringLiteral(", gradient: %1 colors at %2°")
                    .arg(settings.gradient->colors.size())
                    .arg(settings.gradient->angle);
        if (settings.gradient->preset)
            text += QStringLiteral(" (%1)").arg(rawValue(*settings.gradient->preset));
    }
    if (settings.color) {
        text += QStringLiteral(", color: (%1, %2, %3, %4)")
                    .arg(settings.color->red)
                    .arg(settings.color->green)
                    .arg(settings.color->blue)
                    .arg(settings.color->alpha);
    }
    if (settings.imageURL)
        text += QStringLiteral(", imageURL: %1").arg(settings.imageURL->toString());
    text += QStringLiteral(", opacity: %1)").arg(settings.opacity);
    return text;
}
