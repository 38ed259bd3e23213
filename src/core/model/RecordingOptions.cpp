#include "core/model/RecordingOptions.h"

namespace {
template <typename Enum, typename Raw, size_t N>
std::optional<Enum> fromRaw(const std::array<Enum, N>& all, const Raw& raw) {
    for (Enum value : all) {
        if (rawValue(value) == raw)
            return value;
    }
    return std::nullopt;
}
} // namespace

int rawValue(ResolutionMode mode) {
    return static_cast<int>(mode);
}

QString displayName(ResolutionMode mode) {
    switch (mode) {
    case ResolutionMode::low:
        return QStringLiteral("Low (0.5x)");
    case ResolutionMode::normal:
        return QStringLiteral("Normal (1x)");
    case ResolutionMode::high:
        return QStringLiteral("High (Native)");
    }
    return {};
}

double multiplier(ResolutionMode mode) {
    switch (mode) {
    case ResolutionMode::low:
        return 0.5;
    case ResolutionMode::normal:
        return 1.0;
    case ResolutionMode::high:
        return 2.0;
    }
    return 1.0;
}

std::optional<ResolutionMode> resolutionModeFromRawValue(int raw) {
    return fromRaw(allResolutionModes, raw);
}

double rawValue(VideoQuality quality) {
    switch (quality) {
    case VideoQuality::low:
        return 0.3;
    case VideoQuality::medium:
        return 0.7;
    case VideoQuality::high:
        return 1.0;
    }
    return 1.0;
}

QString displayName(VideoQuality quality) {
    switch (quality) {
    case VideoQuality::low:
        return QStringLiteral("Low");
    case VideoQuality::medium:
        return QStringLiteral("Medium");
    case VideoQuality::high:
        return QStringLiteral("High");
    }
    return {};
}

std::optional<VideoQuality> videoQualityFromRawValue(double raw) {
    return fromRaw(allVideoQualities, raw);
}

QString rawValue(VideoEncoder encoder) {
    return encoder == VideoEncoder::h264 ? QStringLiteral("h264") : QStringLiteral("h265");
}

QString displayName(VideoEncoder encoder) {
    return encoder == VideoEncoder::h264 ? QStringLiteral("H.264") : QStringLiteral("H.265 (HEVC)");
}

std::optional<VideoEncoder> videoEncoderFromRawValue(const QString& raw) {
    return fromRaw(allVideoEncoders, raw);
}

QString rawValue(OutputFormat format) {
    return format == OutputFormat::mov ? QStringLiteral("mov") : QStringLiteral("mp4");
}

QString displayName(OutputFormat format) {
    return rawValue(format).toUpper();
}

std::optional<OutputFormat> outputFormatFromRawValue(const QString& raw) {
    return fromRaw(allOutputFormats, raw);
}

QString rawValue(BackgroundType type) {
    static const char* const names[] = {"wallpaper", "clear", "black", "white", "gray",  "yellow",
                                        "orange",    "green", "blue",  "red",   "custom"};
    return QString::fromLatin1(names[static_cast<int>(type)]);
}

QString displayName(BackgroundType type) {
    const QString raw = rawValue(type);
    return raw.left(1).toUpper() + raw.mid(1);
}

std::optional<BackgroundType> backgroundTypeFromRawValue(const QString& raw) {
    return fromRaw(allBackgroundTypes, raw);
}
