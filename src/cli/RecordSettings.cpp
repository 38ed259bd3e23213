#include "cli/RecordSettings.h"

#include "core/settings/UserDefaults.h"

#include <QDir>

RecordRequest recordRequestFromSettings(const UserDefaults& defaults) {
    RecordRequest request;
    // The same mappings as the recording selectors make (RecordingConfigurationBuilder), read
    // key by key so that an absent key keeps the command's default and nothing is created.
    const QString folder = defaults.stringValue("outputDirectory", QString());
    if (!folder.isEmpty())
        request.outputDirectory = QDir::cleanPath(folder);
    if (defaults.contains("frameRate"))
        request.frameRate = defaults.integerValue("frameRate", 60);
    if (defaults.contains("resolution")) {
        const int resolution = defaults.integerValue("resolution", 1);
        request.resolution = resolution == 2   ? ResolutionMode::high
                             : resolution == 1 ? ResolutionMode::normal
                                               : ResolutionMode::low;
    }
    if (defaults.contains("videoQuality")) {
        const double quality = defaults.doubleValue("videoQuality", 1.0);
        request.quality = quality == 1.0   ? VideoQuality::high
                          : quality == 0.7 ? VideoQuality::medium
                                           : VideoQuality::low;
    }
    // "videoEncoder", as the selectors read it; the settings pane's "encoder" stays apart.
    if (defaults.contains("videoEncoder"))
        request.codec = defaults.stringValue("videoEncoder", QString()) == QLatin1String("h265")
                            ? VideoEncoder::h265
                            : VideoEncoder::h264;
    if (defaults.contains("outputFormat"))
        request.format = defaults.stringValue("outputFormat", QString()) == QLatin1String("mov")
                             ? OutputFormat::mov
                             : OutputFormat::mp4;
    if (defaults.contains("showCursor"))
        request.showCursor = defaults.boolValue("showCursor");
    if (defaults.contains("countdown"))
        request.countdown = std::max(0, defaults.integerValue("countdown", 0));
    return request;
}
