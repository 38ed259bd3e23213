#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

// Screen recording has its own wording; the other permissions share one with the type's name.
TEST(RecordingErrorTest, permissionTexts) {
    const auto screen = RecordingError::permissionDenied(PermissionType::screenRecording);
    const auto mic = RecordingError::permissionDenied(PermissionType::microphone);
    const auto camera = RecordingError::permissionDenied(PermissionType::camera);
    EXPECT_EQ(mic.failureReason(), "Missing Microphone permission");
    EXPECT_EQ(camera.failureReason(), "Missing Camera permission");
    EXPECT_EQ(screen.failureReason(), "Missing Screen Recording permission");
    EXPECT_NE(screen.errorDescription(), mic.errorDescription());
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
