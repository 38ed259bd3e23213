#pragma once

#include <QString>

#include <array>
#include <optional>

// The enumerations of a recording configuration, with the raw values kept in settings.

enum class ResolutionMode { low, normal, high };
inline constexpr std::array allResolutionModes{ResolutionMode::low, ResolutionMode::normal,
                                               ResolutionMode::high};
int rawValue(ResolutionMode mode);
QString displayName(ResolutionMode mode);
double multiplier(ResolutionMode mode);
std::optional<ResolutionMode> resolutionModeFromRawValue(int raw);

enum class VideoQuality { low, medium, high };
inline constexpr std::array allVideoQualities{VideoQuality::low, VideoQuality::medium,
                                              VideoQuality::high};
double rawValue(VideoQuality quality);
QString displayName(VideoQuality quality);
std::optional<VideoQuality> videoQualityFromRawValue(double raw);

enum class VideoEncoder { h264, h265 };
inline constexpr std::array allVideoEncoders{VideoEncoder::h264, VideoEncoder::h265};
QString rawValue(VideoEncoder encoder);
QString displayName(VideoEncoder encoder);
std::optional<VideoEncoder> videoEncoderFromRawValue(const QString& raw);

enum class OutputFormat { mov, mp4 };
inline constexpr std::array allOutputFormats{OutputFormat::mov, OutputFormat::mp4};
QString rawValue(OutputFormat format);
QString displayName(OutputFormat format);
std::optional<OutputFormat> outputFormatFromRawValue(const QString& raw);

enum class BackgroundType {
    wallpaper,
    clear,
    black,
    white,
    gray,
    yellow,
    orange,
    green,
    blue,
    red,
    custom
};
inline constexpr std::array allBackgroundTypes{
    BackgroundType::wallpaper, BackgroundType::clear, BackgroundType::black,
    BackgroundType::white,     BackgroundType::gray,  BackgroundType::yellow,
    BackgroundType::orange,    BackgroundType::green, BackgroundType::blue,
    BackgroundType::red,       BackgroundType::custom};
QString rawValue(BackgroundType type);
QString displayName(BackgroundType type);
std::optional<BackgroundType> backgroundTypeFromRawValue(const QString& raw);
