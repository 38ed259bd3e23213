#include "core/metadata/EasingFunction.h"

QString rawValue(EasingFunction easing) {
    switch (easing) {
    case EasingFunction::linear:
        return QStringLiteral("linear");
    case EasingFunction::easeInOut:
        return QStringLiteral("easeInOut");
    case EasingFunction::easeIn:
        return QStringLiteral("easeIn");
    case EasingFunction::easeOut:
        return QStringLiteral("easeOut");
    }
    return {};
}

std::optional<EasingFunction> easingFunctionFromRawValue(const QString& raw) {
    for (EasingFunction easing : allEasingFunctions) {
        if (rawValue(easing) == raw)
            return easing;
    }
    return std::nullopt;
}
