#include "cli/RecordSettings.h"
#include "core/settings/UserDefaults.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

// What the application's settings store is what a command-line recording uses, and the
// options given still win over it.
TEST(RecordSettingsTest, StoredSettingsBecomeTheCommandsDefaults) {
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("settings.ini"));
    defaults.set("outputDirectory", folder.path() + "/videos/");
    defaults.set("frameRate", 30);
    defaults.set("resolution", 2);
    defaults.set("videoQuality", 0.7);
    defaults.set("videoEncoder", "h265");
    defaults.set("outputFormat", "mp4");
    defaults.set("showCursor", true);
    defaults.set("countdown", 3);
    defaults.sync();

    const UserDefaults reread(folder.filePath("settings.ini"));
    const RecordRequest request =
        parseRecordRequest({"--fps", "24"}, recordRequestFromSettings(reread));
    EXPECT_EQ(request.outputDirectory, folder.path() + "/videos");
    EXPECT_EQ(request.frameRate, 24);
    EXPECT_EQ(request.resolution, ResolutionMode::high);
    EXPECT_EQ(request.quality, VideoQuality::medium);
    EXPECT_EQ(request.codec, VideoEncoder::h265);
    EXPECT_EQ(request.format, OutputFormat::mp4);
    EXPECT_TRUE(request.showCursor);
    EXPECT_EQ(request.countdown, 3);
}

// Nothing stored: the command's own defaults, the current folder for output.
TEST(RecordSettingsTest, EmptySettingsKeepTheCommandsDefaults) {
    QTemporaryDir folder;
    const UserDefaults defaults(folder.filePath("settings.ini"));
    const RecordRequest request = parseRecordRequest({}, recordRequestFromSettings(defaults));
    const RecordRequest plain = parseRecordRequest({});
    EXPECT_EQ(request.frameRate, plain.frameRate);
    EXPECT_EQ(request.codec, plain.codec);
    EXPECT_EQ(request.format, plain.format);
    EXPECT_EQ(request.countdown, 0);
    EXPECT_EQ(request.outputDirectory, plain.outputDirectory);
}
