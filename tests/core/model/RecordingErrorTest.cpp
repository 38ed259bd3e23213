#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

// Screen recording has its own wording; the other permissions share one with the type's name.
TEST(RecordingErrorTest, permissionTexts) {
    const auto screen = RecordingError::permissionDenied(PermissionType::screenRecording);
    EXPECT_EQ(screen.errorDescription(),
              "Screen Recording permission is required. If you just granted it, quit and "
              "reopen tavelquiston so macOS applies the permission.");
    EXPECT_EQ(screen.failureReason(), "Missing Screen Recording permission");
    EXPECT_EQ(screen.recoverySuggestion(),
              "Open System Settings > Privacy & Security > Screen Recording, enable "
              "tavelquiston, then quit and reopen the app.");

    const auto mic = RecordingError::permissionDenied(PermissionType::microphone);
    EXPECT_EQ(mic.errorDescription(),
              "Permission denied for Microphone. Please grant access in System Settings.");
    EXPECT_EQ(mic.failureReason(), "Missing Microphone permission");
    EXPECT_EQ(mic.recoverySuggestion(), "Open System Settings > Privacy & Security > Microphone "
                                        "and grant permission to tavelquiston.");
    EXPECT_EQ(RecordingError::permissionDenied(PermissionType::camera).failureReason(),
              "Missing Camera permission");
    EXPECT_EQ(settingsPath(PermissionType::camera), "Camera");
}

// Payloads are carried into the description, and what() gives the same text for C++ callers.
TEST(RecordingErrorTest, payloadTextsAndWhat) {
    const auto write = RecordingError::fileWriteError("No space left on device");
    EXPECT_EQ(write.errorDescription(), "Failed to write recording file: No space left on device");
    EXPECT_EQ(write.failureReason(), "File write failed");
    EXPECT_STREQ(write.what(), "Failed to write recording file: No space left on device");

    const auto invalid = RecordingError::invalidConfiguration("frame rate 0");
    EXPECT_EQ(invalid.errorDescription(), "Invalid recording configuration: frame rate 0");
    EXPECT_EQ(invalid.failureReason(), "Invalid configuration");

    const auto unknown = RecordingError::unknown("boom");
    EXPECT_EQ(unknown.localizedDescription(), "An unknown error occurred: boom");
    EXPECT_EQ(unknown.recoverySuggestion(), "Try restarting the application or your computer.");
}

TEST(RecordingErrorTest, fixedTexts) {
    EXPECT_EQ(RecordingError::captureDeviceUnavailable().errorDescription(),
              "The selected capture device is unavailable. Please select a different device.");
    EXPECT_EQ(RecordingError::encoderInitializationFailed().recoverySuggestion(),
              "Try using a different encoder (H.265 instead of H.264) or lower resolution.");
    EXPECT_EQ(RecordingError::streamInterrupted().recoverySuggestion(),
              "The partial recording has been saved. Try starting a new recording.");
    EXPECT_EQ(RecordingError::insufficientDiskSpace().errorDescription(),
              "Insufficient disk space to continue recording. Please free up space and try again.");
    EXPECT_EQ(RecordingError::insufficientDiskSpace().recoverySuggestion(),
              "Free up at least 1GB of disk space before starting a new recording.");
    EXPECT_EQ(RecordingError::outputDirectoryNotWritable().failureReason(),
              "Output directory not writable");
    EXPECT_EQ(RecordingError::outputDirectoryNotWritable().recoverySuggestion(),
              "Select a different output directory in Settings.");
}

// Thrown and caught as a standard exception, it keeps its kind.
TEST(RecordingErrorTest, throwsAsStandardException) {
    try {
        throw RecordingError::streamInterrupted();
    } catch (const std::exception& error) {
        const auto* recording = dynamic_cast<const RecordingError*>(&error);
        ASSERT_NE(recording, nullptr);
        EXPECT_EQ(recording->kind(), RecordingError::Kind::streamInterrupted);
    }
}
