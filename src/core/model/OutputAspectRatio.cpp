#include "core/model/OutputAspectRatio.h"

QString rawValue(OutputAspectRatio ratio) {
    switch (ratio) {
    case OutputAspectRatio::original:
        return QStringLiteral("Original");
    case OutputAspectRatio::ratio16x9:
        return QStringLiteral("16:9");
    case OutputAspectRatio::ratio1x1:
        return QStringLiteral("1:1");
    case OutputAspectRatio::ratio4x3:
        return QStringLiteral("4:3");
    case OutputAspectRatio::ratio9x16:
        return QStringLiteral("9:16");
    case OutputAspectRatio::ratio3x4:
        return QStringLiteral("3:4");
    case OutputAspectRatio::ratio4x5:
        return QStringLiteral("4:5");
    }
    return {};
}

std::optional<OutputAspectRatio> outputAspectRatioFromRawValue(const QString& raw) {
    for (OutputAspectRatio candidate : allOutputAspectRatios) {
        if (rawValue(candidate) == raw)
            return candidate;
    }
    return std::nullopt;
}

std::optional<double> ratio(OutputAspectRatio value) {
    switch (value) {
    case OutputAspectRatio::original:
        return std::nullopt;
    case OutputAspectRatio::ratio16x9:
        return 16.0 / 9.0;
    case OutputAspectRatio::ratio1x1:
        return 1.0;
    case OutputAspectRatio::ratio4x3:
        return 4.0 / 3.0;
    case OutputAspectRatio::ratio9x16:
        return 9.0 / 16.0;
    case OutputAspectRatio::ratio3x4:
        return 3.0 / 4.0;
    case OutputAspectRatio::ratio4x5:
        return 4.0 / 5.0;
    }
    return std::nullopt;
}

Size outputSize(OutputAspectRatio value, Size size) {
    const std::optional<double> r = ratio(value);
    if (!r || size.height <= 0.0)
        return size;
    if (size.width / size.height < *r)
        return {size.height * *r, size.height};
    return {size.width, size.width / *r};
}
