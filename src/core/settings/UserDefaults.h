#pragma once

#include "core/model/StudioRecordingConfiguration.h"

#include <QSettings>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>
#include <string_view>

// The persisted defaults, on QSettings in the XDG config folder. The plain reads follow the
// rules of a key-value store without a schema: a missing or unreadable bool is false, a missing
// or unreadable number is 0. Readers that need another default say so at their call.
//
// Thread: any, but one object is not shared between threads without a lock of the caller.
class UserDefaults {
public:
    // The application's settings ("tavelquiston/tavelquiston.ini" in the XDG config folder).
    UserDefaults();
    // Settings in a file of one's own, for tests and tools.
    explicit UserDefaults(const QString& iniFilePath);
    ~UserDefaults();

    static UserDefaults& standard();

    bool contains(std::string_view key) const;
    bool isBool(std::string_view key) const;
    bool boolValue(std::string_view key) const;
    double doubleValue(std::string_view key) const;
    int integerValue(std::string_view key) const;
    std::optional<QString> stringValue(std::string_view key) const;

    bool boolValue(std::string_view key, bool fallback) const;
    double doubleValue(std::string_view key, double fallback) const;
    int integerValue(std::string_view key, int fallback) const;
    QString stringValue(std::string_view key, const QString& fallback) const;

    void set(std::string_view key, const QVariant& value);
    void remove(std::string_view key);
    void sync();

    // "trimAfterRecord"; absent is false.
    bool trimAfterRecord() const { return boolValue("trimAfterRecord"); }

    // The "studio…" family, each with its own fallback.
    bool studioAlphaChannel() const { return boolValue("studioAlphaChannel"); }
    bool studioSeparateLayers() const { return boolValue("studioSeparateLayers"); }
    bool studioClickToZoom() const { return boolValue("studioClickToZoom"); }
    double studioZoomLevel() const { return positiveOr("studioZoomLevel", 2.0); }
    double studioZoomDuration() const { return positiveOr("studioZoomDuration", 0.5); }
    double studioClickThreshold() const { return positiveOr("studioClickThreshold", 0.5); }
    QString studioCursorStyle() const {
        return stringValue("studioCursorStyle", QStringLiteral("circle"));
    }
    double studioCursorSize() const { return positiveOr("studioCursorSize", 24.0); }
    bool studioCursorAnimations() const { return boolOrTrue("studioCursorAnimations"); }
    bool studioScaleAnimation() const { return boolOrTrue("studioScaleAnimation"); }
    bool studioRippleEffect() const { return boolOrTrue("studioRippleEffect"); }
    // "enableSmartAutoClickZoom": true when absent or not a bool.
    bool enableSmartAutoClickZoom() const { return boolOrTrue("enableSmartAutoClickZoom"); }

    // A full studio configuration from the settings keys, with every fallback applied. The
    // recording path does not use this; it uses RecordingConfiguration::loadStudioConfiguration.
    StudioRecordingConfiguration loadStudioConfiguration() const;

private:
    QVariant value(std::string_view key) const;
    double positiveOr(std::string_view key, double fallback) const;
    bool boolOrTrue(std::string_view key) const;

    std::unique_ptr<QSettings> m_settings;
};
