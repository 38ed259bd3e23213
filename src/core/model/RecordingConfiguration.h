#pragma once

#include "core/model/RecordingMode.h"
#include "core/model/RecordingOptions.h"
#include "core/model/StudioRecordingConfiguration.h"

#include <QString>

#include <optional>

class UserDefaults;

// How one recording is made; built anew for each recording.
struct RecordingConfiguration {
    RecordingConfiguration(RecordingMode mode, QString outputDirectory)
        : mode(std::move(mode)), outputDirectory(std::move(outputDirectory)) {}

    RecordingMode mode;
    ResolutionMode resolution = ResolutionMode::normal;
    int frameRate = 60;
    VideoQuality videoQuality = VideoQuality::high;
    VideoEncoder encoder = VideoEncoder::h265;
    OutputFormat outputFormat = OutputFormat::mov;
    bool showCursor = false;
    bool highlightCursor = false;
    bool recordSystemAudio = true;
    bool recordMicrophone = false;
    std::optional<QString> microphoneDevice;
    bool enableAEC = false;
    bool separateAudioTracks = false;
    float systemAudioVolume = 1.0f; // gains, unclipped
    float microphoneVolume = 1.0f;
    QString audioEncoder = QStringLiteral("aac"); // "aac", "alac", "flac" or "opus"
    bool recordCamera = false;
    std::optional<QString> cameraDevice;
    BackgroundType backgroundColor = BackgroundType::wallpaper;
    int countdown = 0;
    int autoStopMinutes = 0;
    bool preventSleep = true;
    QString outputDirectory; // a local folder path
    std::optional<StudioRecordingConfiguration> studioConfig;

    // Fills `studioConfig` from the persisted click-to-zoom, layer and alpha settings; absent when
    // none of the three features is on.
    void loadStudioConfiguration(const UserDefaults& defaults);

    bool operator==(const RecordingConfiguration&) const = default;
};
