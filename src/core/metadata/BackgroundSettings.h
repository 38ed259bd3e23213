#pragma once

#include "core/metadata/CodableColor.h"
#include "core/metadata/GradientSettings.h"

#include <QString>
#include <QUrl>

#include <array>
#include <optional>

// Raw values are the case names.
enum class StudioBackgroundType { gradient, solidColor, image };

inline constexpr std::array allStudioBackgroundTypes{
    StudioBackgroundType::gradient, StudioBackgroundType::solidColor, StudioBackgroundType::image};

QString rawValue(StudioBackgroundType type);
std::optional<StudioBackgroundType> studioBackgroundTypeFromRawValue(const QString& raw);

// The background chosen for a styled export. Only the member that `type` names is used; the
// others may be kept so that switching back restores them.
struct BackgroundSettings {
    StudioBackgroundType type = StudioBackgroundType::gradient;
    std::optional<GradientSettings> gradient{};
    std::optional<CodableColor> color{};
    std::optional<QUrl> imageURL{};
    double opacity = 1.0;
    bool operator==(const BackgroundSettings&) const = default;
};

// A one-line description for log lines.
QString describe(const BackgroundSettings& settings);
