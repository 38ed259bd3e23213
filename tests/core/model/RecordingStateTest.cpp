#include "core/model/RecordingState.h"

#include <gtest/gtest.h>

namespace {
const QDateTime t0 = QDateTime::fromSecsSinceEpoch(1'700'000'000);
}

TEST(RecordingStateTest, predicatesFollowTheCase) {
    const RecordingState recording = RecordingState::recording(t0);
    const RecordingState paused = RecordingState::paused(t0, 3.5);
    EXPECT_TRUE(recording.isRecording() && recording.canPause() && recording.canStop() &&
                recording.isActive());
    EXPECT_FALSE(recording.canResume() || recording.isPaused());
    EXPECT_TRUE(paused.isPaused() && paused.canResume() && paused.canStop() && paused.isActive());
    EXPECT_FALSE(paused.canPause() || paused.isRecording());
    for (const RecordingState& state :
         {RecordingState::idle(), RecordingState::preparing(), RecordingState::ready(),
          RecordingState::finalizing(), RecordingState::completed("/tmp/a.mov"),
          RecordingState::failed(RecordingError::streamInterrupted())}) {
        EXPECT_FALSE(state.isActive() || state.canStop() || state.canPause() || state.canResume())
            << state.displayName().toStdString();
    }
}

// Failures compare by their description, not by their case.
TEST(RecordingStateTest, failuresCompareByDescription) {
    EXPECT_EQ(RecordingState::failed(RecordingError::fileWriteError("disk")),
              RecordingState::failed(RecordingError::fileWriteError("disk")));
    EXPECT_NE(RecordingState::failed(RecordingError::unknown("a")),
              RecordingState::failed(RecordingError::unknown("b")));
    EXPECT_NE(RecordingState::paused(t0, 1.25), RecordingState::paused(t0, 1.5));
}
