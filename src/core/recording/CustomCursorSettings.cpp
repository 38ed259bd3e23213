#include "core/recording/CustomCursorSettings.h"

#include "core/settings/UserDefaults.h"

std::optional<CustomCursorSettings>
CustomCursorSettings::fromDefaults(const UserDefaults& defaults) {
    if (!defaults.boolValue("enableCustomCursor", false))
        return std::nullopt;
    CustomCursorSettings settings;
    if (const auto stored = defaults.stringValue("cursorStyle"))
        settings.style = cursorStyleFromRawValue(*stored).value_or(allCursorStyles.front());
    settings.size = defaults.doubleValue("cursorSize", 24.0);
    if (settings.size <= 0)
        settings.size = 24.0;
    settings.scaleAnimation = defaults.boolValue("enableCursorScaleAnimation", true);
    settings.rippleEffect = defaults.boolValue("enableCursorRippleEffect", true);
    settings.rippleColor = {defaults.doubleValue("cursorRippleColorRed", 0.0),
                            defaults.doubleValue("cursorRippleColorGreen", 0.5),
                            defaults.doubleValue("cursorRippleColorBlue", 1.0), 0.5};
    return settings;
}
