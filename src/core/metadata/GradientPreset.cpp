#include "core/metadata/GradientPreset.h"
#include "core/metadata/GradientSettings.h"

namespace {
CodableColor rgb(double red, double green, double blue) {
    return {red, green, blue, 1.0};
}
} // namespace

QString rawValue(GradientPreset preset) {
    switch (preset) {
    case GradientPreset::sunset:
        return QStringLiteral("sunset");
    case GradientPreset::ocean:
        return QStringLiteral("ocean");
    case GradientPreset::forest:
        return QStringLiteral("forest");
    case GradientPreset::purple:
        return QStringLiteral("purple");
    case GradientPreset::midnight:
        return QStringLiteral("midnight");
    case GradientPreset::aurora:
        return QStringLiteral("aurora");
    case GradientPreset::custom:
        return QStringLiteral("custom");
    }
    return {};
}

QString displayName(GradientPreset preset) {
    QString name = rawValue(preset);
    name[0] = name[0].toUpper();
    return name;
}

std::optional<GradientPreset> gradientPresetFromRawValue(const QString& raw) {
    for (GradientPreset preset : allGradientPresets) {
        if (rawValue(preset) == raw)
            return preset;
    }
    return std::nullopt;
}

GradientSettings gradientSettings(GradientPreset preset) {
    switch (preset) {
    case GradientPreset::sunset:
        return {{rgb(0.95, 0.4, 0.2), rgb(0.85, 0.2, 0.4), rgb(0.4, 0.1, 0.5)}, 135, preset};
    case GradientPreset::ocean:
        return {{rgb(0.1, 0.6, 0.8), rgb(0.05, 0.3, 0.6), rgb(0.02, 0.15, 0.4)}, 180, preset};
    case GradientPreset::forest:
        return {{rgb(0.2, 0.6, 0.3), rgb(0.1, 0.4, 0.25), rgb(0.05, 0.2, 0.15)}, 160, preset};
    case GradientPreset::purple:
        return {{rgb(0.5, 0.2, 0.8), rgb(0.3, 0.1, 0.6), rgb(0.15, 0.05, 0.35)}, 135, preset};
    case GradientPreset::midnight:
        return {{rgb(0.1, 0.1, 0.2), rgb(0.05, 0.05, 0.15), rgb(0.02, 0.02, 0.08)}, 180, preset};
    case GradientPreset::aurora:
        return {{rgb(0.2, 0.8, 0.6), rgb(0.3, 0.5, 0.8), rgb(0.5, 0.2, 0.7)}, 45, preset};
    case GradientPreset::custom:
        return {{rgb(0.2, 0.2, 0.3), rgb(0.1, 0.1, 0.2)}, 135, preset};
    }
    return {};
}
