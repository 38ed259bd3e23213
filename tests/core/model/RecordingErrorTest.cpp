#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

// Thrown and caught as a standard exception, it keeps its kind, and what() carries the payload.
TEST(RecordingErrorTest, throwsAsStandardExceptionWithItsPayload) {
    try {
        throw RecordingError::fileWriteError("No space left on device");
    } catch (const std::exception& error) {
        const auto* recording = dynamic_cast<const RecordingError*>(&error);
        ASSERT_NE(recording, nullptr);
        EXPECT_EQ(recording->kind(), RecordingError::Kind::fileWriteError);
        EXPECT_EQ(QString::fromUtf8(error.what()), recording->errorDescription());
        EXPECT_NE(std::string(error.what()).find("No space left on device"), std::string::npos);
    }
}
