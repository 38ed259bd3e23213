#pragma once

#include "core/metadata/CodableColor.h"
#include "core/model/CursorStyle.h"

#include <QString>

#include <functional>
#include <optional>

struct RecordingConfiguration;
class UserDefaults;

// The pointer and click-to-zoom options of `record`: click-to-zoom with its level, duration
// and click threshold, the smart decision, the highlight, magnifier and the drawn cursor.
struct RecordCursorOptions {
    bool clickToZoom = false;
    double zoomLevel = 2.0;
    double zoomDuration = 0.5;
    double clickThreshold = 0.5;
    std::optional<bool> smartZoom;
    bool highlight = false;
    bool magnifier = false;
    std::optional<CursorStyle> cursorStyle;
    std::optional<double> cursorSize;
    std::optional<bool> ripple;
    std::optional<CodableColor> rippleColor;

    static constexpr const char* usage =
        "[--click-to-zoom] [--zoom-level X] [--zoom-duration SECONDS] "
        "[--click-threshold SECONDS] [--smart-zoom on|off] [--highlight] [--magnifier] "
        "[--cursor-style circle|arrow|pointer|custom] [--cursor-size PX] [--ripple on|off] "
        "[--ripple-color COLOR]";

    // Takes `option` when it is one of these; `value` reads its argument. Throws CliUsageError
    // naming the option and the value.
    bool parse(const QString& option, const std::function<QString()>& value);
    void apply(RecordingConfiguration& configuration) const;
    // Whether the recording needs settings of its own besides the person's saved ones.
    bool overridesDefaults() const;
    void writeDefaults(UserDefaults& defaults) const;
};
