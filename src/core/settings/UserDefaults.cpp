#include "core/settings/UserDefaults.h"

#include "core/model/CursorStyle.h"

namespace {
QString keyString(std::string_view key) {
    return QString::fromUtf8(key.data(), qsizetype(key.size()));
}

// The INI backend gives back strings; a bool is one that was stored as a bool.
std::optional<bool> asBool(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == QLatin1String("true"))
            return true;
        if (text == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}
} // namespace

UserDefaults::UserDefaults()
    : m_settings(std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope,
                                             QStringLiteral("tavelquiston"),
                                             QStringLiteral("tavelquiston"))) {}

UserDefaults::UserDefaults(const QString& iniFilePath)
    : m_settings(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat)) {}

UserDefaults::~UserDefaults() = default;

UserDefaults& UserDefaults::standard() {
    static UserDefaults defaults;
    return defaults;
}

QVariant UserDefaults::value(std::string_view key) const {
    return m_settings->value(keyString(key));
}

bool UserDefaults::contains(std::string_view key) const {
    return m_settings->contains(keyString(key));
}

bool UserDefaults::isBool(std::string_view key) const {
    return asBool(value(key)).has_value();
}

bool UserDefaults::boolValue(std::string_view key) const {
    return boolValue(key, false);
}

bool UserDefaults::boolValue(std::string_view key, bool fallback) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    if (auto b = asBool(stored))
        return *b;
    // A number stored where a bool is read counts as true when it is not zero.
    bool ok = false;
    const double number = stored.toDouble(&ok);
    return ok ? number != 0.0 : fallback;
}

double UserDefaults::doubleValue(std::string_view key) const {
    return doubleValue(key, 0.0);
}

double UserDefaults::doubleValue(std::string_view key, double fallback) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    if (auto b = asBool(stored))
        return *b ? 1.0 : 0.0;
    bool ok = false;
    const double number = stored.toDouble(&ok);
    return ok ? number : 0.0;
}

int UserDefaults::integerValue(std::string_view key) const {
    return integerValue(key, 0);
}

int UserDefaults::integerValue(std::string_view key, int fallback) const {
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    if (auto b = asBool(stored))
        return *b ? 1 : 0;
    bool ok = false;
    const double number = stored.toDouble(&ok);
    return ok ? int(number) : 0;
}

std::optional<QString> UserDefaults::stringValue(std::string_view key) const {
    const QVariant stored = value(key);
    if (!stored.isValid() || stored.typeId() == QMetaType::QStringList)
        return std::nullopt;
    return stored.toString();
}

QString UserDefaults::stringValue(std::string_view key, const QString& fallback) const {
    return stringValue(key).value_or(fallback);
}

void UserDefaults::set(std::string_view key, const QVariant& value) {
    m_settings->setValue(keyString(key), value);
}

void UserDefaults::remove(std::string_view key) {
    m_settings->remove(keyString(key));
}

void UserDefaults::sync() {
    m_settings->sync();
}

double UserDefaults::positiveOr(std::string_view key, double fallback) const {
    const double stored = doubleValue(key);
    return stored > 0.0 ? stored : fallback;
}

bool UserDefaults::boolOrTrue(std::string_view key) const {
    return asBool(value(key)).value_or(true);
}

StudioRecordingConfiguration UserDefaults::loadStudioConfiguration() const {
    StudioRecordingConfiguration config;
    config.enableAlphaChannel = boolValue("enableAlphaChannel");
    config.enableSeparateLayers = boolValue("enableSeparateLayers");
    config.enableClickToZoom = boolValue("enableClickToZoom");
    config.zoomLevel = positiveOr("zoomLevel", config.zoomLevel);
    config.zoomDuration = positiveOr("zoomDuration", config.zoomDuration);
    config.clickThreshold = positiveOr("clickThreshold", config.clickThreshold);
    config.cursorStyle = cursorStyleFromRawValue(studioCursorStyle()).value_or(CursorStyle::circle);
    config.cursorSize = studioCursorSize();
    config.enableCursorAnimations = studioCursorAnimations();
    config.enableScaleAnimation = studioScaleAnimation();
    config.enableRippleEffect = studioRippleEffect();
    return config;
}
