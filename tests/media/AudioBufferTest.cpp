#include "media/AudioBuffer.h"

#include <gtest/gtest.h>

TEST(AudioBuffer, DurationIsExactAndNewTimingSharesSamples) {
    AudioBuffer buffer = AudioBuffer::allocate(2, 48000, 441, MediaTime::make(10, 1));
    ASSERT_FALSE(buffer.isNull());
    buffer.mutableChannelData(1)[440] = 0.5f;
    EXPECT_EQ(buffer.duration(), MediaTime::make(441, 48000));
    AudioBuffer moved = buffer.withPresentationTime(MediaTime::make(3, 1));
    EXPECT_EQ(moved.channelData(1), buffer.channelData(1));
    EXPECT_EQ(moved.channelData(1)[440], 0.5f);
    EXPECT_EQ(moved.presentationTime, MediaTime::make(3, 1));
    EXPECT_EQ(moved.channelData(2), nullptr); // only two channels
}

TEST(AudioBuffer, PoolGivesSeparatePlanesAndRefusesOversizedBlocks) {
    AudioBufferPool pool(2, 48000, 1024);
    AudioBuffer buffer = pool.makeBuffer(480, MediaTime::zero());
    ASSERT_FALSE(buffer.isNull());
    EXPECT_EQ(buffer.sampleCount(), 480);
    EXPECT_EQ(buffer.channelCount(), 2);
    EXPECT_NE(buffer.channelData(0), buffer.channelData(1));
    // Filling both planes fully must not overlap: each plane keeps its own values.
    std::fill_n(buffer.mutableChannelData(0), 480, 1.0f);
    std::fill_n(buffer.mutableChannelData(1), 480, -1.0f);
    EXPECT_EQ(buffer.channelData(0)[479], 1.0f);
    EXPECT_TRUE(pool.makeBuffer(1025, MediaTime::zero()).isNull());
}
