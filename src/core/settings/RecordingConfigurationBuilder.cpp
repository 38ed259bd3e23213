#include "core/settings/RecordingConfigurationBuilder.h"

#include "core/settings/UserDefaults.h"

#include <QDir>
#include <QStandardPaths>

QString RecordingConfigurationBuilder::resolveOutputDirectory(const QString& stored) {
    if (!stored.isEmpty())
        return QDir::cleanPath(stored);
    const QStringList documents =
        QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation);
    if (!documents.isEmpty()) {
        const QString recordings = QDir(documents.first()).filePath(QStringLiteral("Recordings"));
        QDir().mkpath(recordings); // a failure shows as the folder's absence below
        if (QDir(recordings).exists())
            return recordings;
    }
    return QDir::tempPath();
}

RecordingConfiguration RecordingConfigurationBuilder::build(RecordingMode mode, Selector selector,
                                                            int screenAutoStopMinutes) const {
    const UserDefaults& d = m_defaults;
    RecordingConfiguration config(std::move(mode),
                                  resolveOutputDirectory(d.stringValue("outputDirectory", {})));

    switch (d.integerValue("resolution", 1)) {
    case 2:
        config.resolution = ResolutionMode::high;
        break;
    case 1:
        config.resolution = ResolutionMode::normal;
        break;
    default:
        config.resolution = ResolutionMode::low;
        break;
    }

    const double quality = d.doubleValue("videoQuality", 1.0);
    config.videoQuality = quality == 1.0   ? VideoQuality::high
                          : quality == 0.7 ? VideoQuality::medium
                                           : VideoQuality::low;

    config.frameRate = d.integerValue("frameRate", 60);
    config.showCursor = d.boolValue("showCursor", false);

    const QString background = d.stringValue("backgroundColor", QStringLiteral("wallpaper"));
    if (background == QLatin1String("black"))
        config.backgroundColor = BackgroundType::black;
    else if (background == QLatin1String("white"))
        config.backgroundColor = BackgroundType::white;
    else if (background == QLatin1String("gray"))
        config.backgroundColor = BackgroundType::gray;
    else
        config.backgroundColor = BackgroundType::wallpaper;

    // "videoEncoder", not "encoder": the settings pane writes "encoder", and the recording
    // selectors deliberately read their own key so a choice made there does not reach a recording.
    config.encoder = d.stringValue("videoEncoder", QStringLiteral("h265")) == QLatin1String("h265")
                         ? VideoEncoder::h265
                         : VideoEncoder::h264;
    config.outputFormat =
        d.stringValue("outputFormat", QStringLiteral("mov")) == QLatin1String("mov")
            ? OutputFormat::mov
            : OutputFormat::mp4;

    config.recordSystemAudio = d.boolValue("recordSystemAudio", true);
    config.recordMicrophone = d.boolValue("recordMicrophone", false);
    if (config.recordMicrophone)
        config.microphoneDevice = d.stringValue("microphoneDevice", QStringLiteral("default"));
    config.recordCamera = d.boolValue("recordCamera", false);
    if (config.recordCamera)
        config.cameraDevice = d.stringValue("cameraDevice", QStringLiteral("default"));
    config.enableAEC = d.boolValue("enableAEC", false);
    config.separateAudioTracks = false;

    if (selector == Selector::screen) {
        config.highlightCursor = false;
        config.countdown = 0;
        config.autoStopMinutes = screenAutoStopMinutes;
        config.preventSleep = true;
    } else {
        config.highlightCursor = d.boolValue("highlightCursor", false);
        config.countdown = d.integerValue("countdown", 0);
        config.autoStopMinutes = d.integerValue("autoStopMinutes", 0);
        config.preventSleep = d.boolValue("preventSleep", true);
    }

    config.loadStudioConfiguration(d);
    return config;
}
