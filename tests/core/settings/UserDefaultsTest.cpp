#include "core/settings/UserDefaults.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

class UserDefaultsTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    UserDefaults defaults{dir.filePath("settings.ini")};
};

// Values survive a round trip through the settings file with their types readable again.
TEST_F(UserDefaultsTest, valuesSurviveTheFile) {
    defaults.set("showCursor", true);
    defaults.set("zoomLevel", 2.25);
    defaults.set("frameRate", 30);
    defaults.set("outputFormat", "mp4");
    defaults.sync();
    UserDefaults reread(dir.filePath("settings.ini"));
    EXPECT_TRUE(reread.isBool("showCursor"));
    EXPECT_TRUE(reread.boolValue("showCursor"));
    EXPECT_EQ(reread.doubleValue("zoomLevel"), 2.25);
    EXPECT_EQ(reread.integerValue("frameRate"), 30);
    EXPECT_EQ(reread.stringValue("outputFormat"), QString("mp4"));
    EXPECT_FALSE(reread.isBool("zoomLevel"));
}

// The studio accessors apply their own fallbacks to missing, zero and negative values.
TEST_F(UserDefaultsTest, studioAccessorFallbacks) {
    defaults.set("studioZoomLevel", 0.0);
    defaults.set("studioZoomDuration", -1.0);
    defaults.set("studioCursorSize", 30.0);
    defaults.set("studioScaleAnimation", "yes"); // not a bool: counts as absent
    defaults.set("studioCursorAnimations", false);
    EXPECT_EQ(defaults.studioZoomLevel(), 2.0);
    EXPECT_EQ(defaults.studioZoomDuration(), 0.5);
    EXPECT_EQ(defaults.studioCursorSize(), 30.0);
    EXPECT_TRUE(defaults.studioScaleAnimation());
    EXPECT_FALSE(defaults.studioCursorAnimations());
}

// Smart click zoom is on unless a real bool says otherwise.
TEST_F(UserDefaultsTest, smartAutoClickZoomDefaultsOn) {
    EXPECT_TRUE(defaults.enableSmartAutoClickZoom());
    defaults.set("enableSmartAutoClickZoom", 0);
    EXPECT_TRUE(defaults.enableSmartAutoClickZoom());
    defaults.set("enableSmartAutoClickZoom", false);
    EXPECT_FALSE(defaults.enableSmartAutoClickZoom());
}

// The full loader falls back per field, and an unknown style becomes the first one.
TEST_F(UserDefaultsTest, loadStudioConfigurationFallsBackPerField) {
    defaults.set("enableClickToZoom", true);
    defaults.set("zoomLevel", 0.0);
    defaults.set("zoomDuration", 0.8);
    defaults.set("studioCursorStyle", "sparkles");
    const StudioRecordingConfiguration config = defaults.loadStudioConfiguration();
    EXPECT_TRUE(config.enableClickToZoom);
    EXPECT_EQ(config.zoomLevel, 2.0);
    EXPECT_EQ(config.zoomDuration, 0.8);
    EXPECT_EQ(config.cursorStyle, CursorStyle::circle);
}
