#include "core/recording/RecordingValidator.h"
#include "core/model/RecordingError.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
std::string failureOf(const std::function<void()>& check) {
    try {
        check();
    } catch (const RecordingError& error) {
        return error.localizedDescription().toStdString();
    }
    return {};
}

class RecordingValidatorTest : public ::testing::Test {
protected:
    RecordingConfiguration configuration() const {
        return RecordingConfiguration(RecordingMode::systemAudio(), folder.path());
    }
    QTemporaryDir folder;
    std::optional<int64_t> free = 0;
    RecordingValidator validator{[this](const QString&) { return free; }};
};
} // namespace

// The checks run in order and each names what is wrong.
TEST_F(RecordingValidatorTest, ConfigurationChecksInOrder) {
    RecordingConfiguration config = configuration();
    config.frameRate = 25;
    config.outputDirectory = "relative/folder";
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }),
              "Invalid recording configuration: Invalid frame rate: 25");
    config.frameRate = 144;
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }),
              "Invalid recording configuration: Output directory must be a file URL");
    config.outputDirectory = "https://example.org/recordings";
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }),
              "Invalid recording configuration: Output directory must be a file URL");
    config.outputDirectory = folder.path();
    config.recordMicrophone = true;
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }),
              "Invalid recording configuration: Microphone device not specified");
    config.microphoneDevice = QStringLiteral("USB Mic");
    config.enableAEC = true;
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }),
              "Invalid recording configuration: AEC only works with default microphone");
    config.microphoneDevice = QStringLiteral("default");
    EXPECT_EQ(failureOf([&] { validator.validateConfiguration(config); }), "");
}

// Exactly 1 GiB (1,073,741,824 bytes) free is enough.
TEST_F(RecordingValidatorTest, DiskSpaceBoundary) {
    free = 1'073'741'824;
    EXPECT_EQ(failureOf([&] { validator.checkDiskSpace(folder.path()); }), "");
    free = 1'073'741'823;
    EXPECT_EQ(failureOf([&] { validator.checkDiskSpace(folder.path()); }),
              RecordingError::insufficientDiskSpace().localizedDescription().toStdString());
    free.reset();
    EXPECT_EQ(failureOf([&] { validator.checkDiskSpace(folder.path()); }),
              "Invalid recording configuration: Cannot determine available disk space");
}

// A missing folder is made; a file in its place, or a folder that can't be made, fails.
TEST_F(RecordingValidatorTest, OutputDirectoryIsMadeOrRefused) {
    const QString nested = folder.filePath("a/b/c");
    EXPECT_EQ(failureOf([&] { validator.validateOutputDirectory(nested); }), "");
    EXPECT_TRUE(QFileInfo(nested).isDir());

    QFile file(folder.filePath("plain"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    EXPECT_EQ(failureOf([&] { validator.validateOutputDirectory(file.fileName()); }),
              RecordingError::outputDirectoryNotWritable().localizedDescription().toStdString());
    EXPECT_EQ(failureOf([&] { validator.validateOutputDirectory(file.fileName() + "/below"); }),
              "Failed to write recording file: Could not create the folder " +
                  (file.fileName() + "/below").toStdString());
}

// A folder still to be made is measured on the volume that will hold it.
TEST_F(RecordingValidatorTest, SpaceOfAMissingFolderIsItsParentsVolume) {
    const auto missing = RecordingValidator::availableSpaceOnVolumeOf(folder.filePath("not/yet"));
    ASSERT_TRUE(missing.has_value());
    EXPECT_GT(*missing, 0);
    EXPECT_FALSE(QFileInfo::exists(folder.filePath("not")));
}
