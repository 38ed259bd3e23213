#include "cli/StylingOptions.h"

#include <QColor>

#include <fmt/format.h>

#include <cmath>
#include <optional>

double parseNumber(const QString& option, const QString& text) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        throw BadInput{
            fmt::format("{}: \"{}\" is not a number", option.toStdString(), text.toStdString())};
    return value;
}

std::pair<double, double> parseNumberPair(const QString& option, const QString& text) {
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 2)
        throw BadInput{fmt::format("{}: \"{}\" is not two numbers separated by a comma",
                                   option.toStdString(), text.toStdString())};
    return {parseNumber(option, parts[0]), parseNumber(option, parts[1])};
}

BackgroundSettings parseBackground(const QString& text) {
    BackgroundSettings settings;
    if (text.startsWith(QLatin1String("gradient:"))) {
        const std::optional<GradientPreset> preset = gradientPresetFromRawValue(text.mid(9));
        if (!preset || *preset == GradientPreset::custom)
            throw BadInput{
                fmt::format("--background: unknown gradient \"{}\"", text.mid(9).toStdString())};
        settings.type = StudioBackgroundType::gradient;
        settings.gradient = gradientSettings(*preset);
        return settings;
    }
    const QColor color(text.mid(6));
    if (!text.startsWith(QLatin1String("color:#")) || text.size() != 13 || !color.isValid())
        throw BadInput{
            fmt::format("--background: \"{}\" is neither gradient:<preset> nor color:#RRGGBB",
                        text.toStdString())};
    settings.type = StudioBackgroundType::solidColor;
    settings.color = CodableColor{color.redF(), color.greenF(), color.blueF(), 1.0};
    return settings;
}

bool parseStylingOption(const QStringList& arguments, qsizetype& i,
                        RoundedCameraCompositorSettings& settings) {
    const QString& argument = arguments[i];
    const auto value = [&]() -> QString {
        if (i + 1 >= arguments.size())
            throw BadInput{fmt::format("{} needs a value", argument.toStdString())};
        return arguments[++i];
    };
    if (argument == QLatin1String("--aspect")) {
        const QString text = value();
        const std::optional<OutputAspectRatio> aspect = outputAspectRatioFromRawValue(text);
        if (!aspect)
            throw BadInput{fmt::format("--aspect: unknown ratio \"{}\"", text.toStdString())};
        settings.outputAspectRatio = *aspect;
    } else if (argument == QLatin1String("--background")) {
        settings.backgroundSettings = parseBackground(value());
        settings.backgroundEnabled = true;
    } else if (argument == QLatin1String("--padding")) {
        settings.videoPadding = parseNumber(argument, value());
    } else if (argument == QLatin1String("--corner-radius")) {
        settings.videoCornerRadius = parseNumber(argument, value());
    } else if (argument == QLatin1String("--screen-shadow")) {
        std::tie(settings.screenShadowOpacity, settings.screenShadowRadius) =
            parseNumberPair(argument, value());
    } else if (argument == QLatin1String("--camera-shadow")) {
        std::tie(settings.cameraShadowOpacity, settings.cameraShadowRadius) =
            parseNumberPair(argument, value());
    } else if (argument == QLatin1String("--camera-shape")) {
        const QString text = value();
        const std::optional<CameraShape> shape = cameraShapeFromRawValue(text);
        if (!shape)
            throw BadInput{fmt::format("--camera-shape: unknown shape \"{}\"", text.toStdString())};
        settings.cameraSettings.shape = *shape;
    } else if (argument == QLatin1String("--camera-center")) {
        const auto [x, y] = parseNumberPair(argument, value());
        settings.cameraSettings.centerNormalized = {x, y};
    } else if (argument == QLatin1String("--camera-width")) {
        settings.cameraSettings.widthFraction = parseNumber(argument, value());
    } else if (argument == QLatin1String("--camera-shrink")) {
        settings.cameraSettings.shrinkFactor = parseNumber(argument, value());
    } else if (argument == QLatin1String("--vertical-stack")) {
        settings.verticalStack = true;
    } else {
        return false;
    }
    return true;
}
