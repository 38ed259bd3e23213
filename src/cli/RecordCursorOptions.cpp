#include "cli/RecordCursorOptions.h"

#include "cli/RecordCommand.h"
#include "core/model/RecordingConfiguration.h"
#include "core/settings/UserDefaults.h"

#include <QColor>

#include <fmt/format.h>

namespace {

double parseNumber(const QString& option, const QString& value, double minimum, double maximum) {
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || !(number >= minimum && number <= maximum))
        throw CliUsageError(fmt::format("{} needs a number from {} to {}, not \"{}\"",
                                        option.toStdString(), minimum, maximum,
                                        value.toStdString()));
    return number;
}

bool parseSwitch(const QString& option, const QString& value) {
    if (value == QLatin1String("on"))
        return true;
    if (value == QLatin1String("off"))
        return false;
    throw CliUsageError(
        fmt::format("{} must be on or off, not \"{}\"", option.toStdString(), value.toStdString()));
}

} // namespace

bool RecordCursorOptions::parse(const QString& option, const std::function<QString()>& value) {
    if (option == QLatin1String("--click-to-zoom")) {
        clickToZoom = true;
    } else if (option == QLatin1String("--zoom-level")) {
        zoomLevel = parseNumber(option, value(), 1.0, 3.0);
    } else if (option == QLatin1String("--zoom-duration")) {
        zoomDuration = parseNumber(option, value(), 0.05, 10.0);
    } else if (option == QLatin1String("--click-threshold")) {
        clickThreshold = parseNumber(option, value(), 0.0, 10.0);
    } else if (option == QLatin1String("--smart-zoom")) {
        smartZoom = parseSwitch(option, value());
    } else if (option == QLatin1String("--highlight")) {
        highlight = true;
    } else if (option == QLatin1String("--magnifier")) {
        magnifier = true;
    } else if (option == QLatin1String("--cursor-style")) {
        const QString name = value();
        cursorStyle = cursorStyleFromRawValue(name);
        if (!cursorStyle)
            throw CliUsageError(
                fmt::format("--cursor-style must be one of circle|arrow|pointer|custom, not \"{}\"",
                            name.toStdString()));
    } else if (option == QLatin1String("--cursor-size")) {
        cursorSize = parseNumber(option, value(), 4.0, 512.0);
    } else if (option == QLatin1String("--ripple")) {
        ripple = parseSwitch(option, value());
    } else if (option == QLatin1String("--ripple-color")) {
        const QString name = value();
        const QColor color = QColor::fromString(name);
        if (!color.isValid())
            throw CliUsageError(
                fmt::format("--ripple-color needs a colour such as #3080ff or red, not \"{}\"",
                            name.toStdString()));
        rippleColor = CodableColor{color.redF(), color.greenF(), color.blueF(), 0.5};
    } else {
        return false;
    }
    return true;
}

void RecordCursorOptions::apply(RecordingConfiguration& configuration) const {
    configuration.highlightCursor = highlight || cursorStyle.has_value();
    if (!clickToZoom)
        return;
    StudioRecordingConfiguration studio =
        configuration.studioConfig.value_or(StudioRecordingConfiguration{});
    studio.enableClickToZoom = true;
    studio.zoomLevel = zoomLevel;
    studio.zoomDuration = zoomDuration;
    studio.clickThreshold = clickThreshold;
    configuration.studioConfig = studio;
}

bool RecordCursorOptions::overridesDefaults() const {
    return smartZoom || cursorStyle || cursorSize || ripple || rippleColor;
}

void RecordCursorOptions::writeDefaults(UserDefaults& defaults) const {
    if (smartZoom)
        defaults.set("enableSmartAutoClickZoom", *smartZoom);
    if (cursorStyle || cursorSize || ripple || rippleColor)
        defaults.set("enableCustomCursor", true);
    if (cursorStyle)
        defaults.set("cursorStyle", rawValue(*cursorStyle));
    if (cursorSize)
        defaults.set("cursorSize", *cursorSize);
    if (ripple)
        defaults.set("enableCursorRippleEffect", *ripple);
    if (rippleColor) {
        defaults.set("cursorRippleColorRed", rippleColor->red);
        defaults.set("cursorRippleColorGreen", rippleColor->green);
        defaults.set("cursorRippleColorBlue", rippleColor->blue);
    }
}
