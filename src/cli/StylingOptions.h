#pragma once

#include "core/metadata/BackgroundSettings.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <QStringList>

#include <string>
#include <utility>

// A bad value on the command line: the message names the option and the value, and the run
// ends with status 2.
struct BadInput {
    std::string message;
    // A wrong file or value in the right place needs no reminder of how the command is used.
    bool showUsage = true;
};

double parseNumber(const QString& option, const QString& text);
std::pair<double, double> parseNumberPair(const QString& option, const QString& text);
// "gradient:<preset>" or "color:#RRGGBB".
BackgroundSettings parseBackground(const QString& text);

// The look options that `compose` and `export` share: background, padding, corners, shadows,
// camera shape and placement, aspect ratio, vertical stack. Reads the option at `index` (and
// its value, moving `index` past it) into `settings`; false when it is not one of them.
// Throws BadInput.
bool parseStylingOption(const QStringList& arguments, qsizetype& index,
                        RoundedCameraCompositorSettings& settings);

// The usage text of those options.
inline constexpr std::string_view stylingUsage =
    "[--aspect Original|16:9|1:1|4:3|9:16|3:4|4:5] "
    "[--background gradient:<preset>|color:#RRGGBB] [--padding N] [--corner-radius N] "
    "[--screen-shadow OPACITY,RADIUS] [--camera-shadow OPACITY,RADIUS] "
    "[--camera-shape squircle|circle|roundedRect|rectangle] "
    "[--camera-center X,Y] [--camera-width F] [--camera-shrink F] [--vertical-stack]";
