#include "media/VideoFrame.h"

#include "media/FFmpegHandles.h"
#include "media/IdleBufferTrim.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

TEST(VideoFrame, NewTimingSharesThePixels) {
    VideoFrame frame = VideoFrame::allocate(64, 32, MediaTime::make(1, 1), MediaTime::make(1, 60));
    ASSERT_FALSE(frame.isNull());
    frame.mutableBytes()[0] = 42;
    VideoFrame moved =
        frame.withTiming(MediaTime::make(2, 1), MediaTime::make(1, 30), MediaTime::invalid());
    EXPECT_EQ(moved.bytes(), frame.bytes());
    EXPECT_EQ(moved.presentationTime, MediaTime::make(2, 1));
    EXPECT_EQ(frame.presentationTime, MediaTime::make(1, 1)); // the original keeps its timing
    EXPECT_EQ(moved.width(), 64);
    EXPECT_GE(moved.bytesPerRow(), 64 * 4);
    EXPECT_EQ(moved.avFrame()->format, AV_PIX_FMT_BGRA);
}

TEST(VideoFrame, PoolRecyclesBuffersAndFramesMayOutliveIt) {
    VideoFrame survivor;
    {
        VideoFramePool pool(320, 240);
        const uint8_t* first;
        {
            VideoFrame frame = pool.makeFrame(MediaTime::zero(), MediaTime::make(1, 60));
            ASSERT_FALSE(frame.isNull());
            first = frame.bytes();
        }
        // The released buffer comes back for the next frame: no allocation per frame.
        VideoFrame again = pool.makeFrame(MediaTime::zero(), MediaTime::make(1, 60));
        EXPECT_EQ(again.bytes(), first);
        VideoFrame other = pool.makeFrame(MediaTime::zero(), MediaTime::make(1, 60));
        EXPECT_NE(other.bytes(), first);
        EXPECT_EQ(other.bytesPerRow() % 64, 0);
        survivor = other;
    }
    // Writing the whole picture after the pool is gone must stay inside live memory
    // (ASan/valgrind).
    std::fill_n(survivor.mutableBytes(), size_t(survivor.bytesPerRow()) * 240, uint8_t(7));
    EXPECT_EQ(survivor.bytes()[survivor.bytesPerRow() * 239], 7);
}

// After a burst, buffers left unused for a whole window go back to the system but for a few
// spares; a pool in steady use keeps what it uses.
TEST(VideoFrame, PoolGivesBackWhatABurstLeftUnused) {
    using namespace std::chrono_literals;
    constexpr auto window = 40ms;
    VideoFramePool pool(640, 360, window);
    {
        std::vector<VideoFrame> burst;
        for (int i = 0; i < 10; ++i)
            burst.push_back(pool.makeFrame(MediaTime::zero(), MediaTime::make(1, 60)));
        EXPECT_EQ(pool.heldBuffers(), 10u);
    }
    EXPECT_EQ(pool.heldBuffers(), 10u); // returned, not yet known to be surplus
    // Steady use of three frames at a time through two quiet windows.
    for (int round = 0; round < 3; ++round) {
        std::this_thread::sleep_for(window + 10ms);
        std::vector<VideoFrame> inUse;
        for (int i = 0; i < 3; ++i)
            inUse.push_back(pool.makeFrame(MediaTime::zero(), MediaTime::make(1, 60)));
        std::fill_n(inUse.back().mutableBytes(), 640 * 4 * 360, uint8_t(1));
    }
    EXPECT_LE(pool.heldBuffers(), 3u + IdleBufferTrim::spareBuffers);
    EXPECT_GE(pool.heldBuffers(), 3u);
}

TEST(VideoFrame, BadSizesGiveNullFrames) {
    EXPECT_TRUE(VideoFrame::allocate(0, 10, MediaTime::zero(), MediaTime::zero()).isNull());
    VideoFramePool pool(-1, 10);
    EXPECT_TRUE(pool.makeFrame(MediaTime::zero(), MediaTime::zero()).isNull());
}

// The change test samples 16 words on an inner 4 x 4 grid: for 20 x 20 the grid points are x, y
// in {4, 8, 12, 16}. A change elsewhere goes unseen, one on the grid is seen, and black is 0.
TEST(VideoFrame, QuickChecksumSamplesTheInnerGrid) {
    VideoFrame frame = VideoFrame::allocate(20, 20, MediaTime::zero(), MediaTime::invalid());
    for (int y = 0; y < 20; ++y)
        std::memset(frame.mutableBytes() + y * frame.bytesPerRow(), 0, 80);
    const auto set = [&](int x, int y, uint32_t value) {
        std::memcpy(frame.mutableBytes() + y * frame.bytesPerRow() + x * 4, &value, 4);
    };
    EXPECT_EQ(quickFrameChecksum(frame), 0u);
    EXPECT_EQ(quickFrameChecksum(VideoFrame()), 0u);
    set(5, 5, 0xffffffff);
    set(0, 0, 0x12345678);
    EXPECT_EQ(quickFrameChecksum(frame), 0u);
    set(16, 16, 1); // the last grid point: added, then rotated left by 5
    EXPECT_EQ(quickFrameChecksum(frame), 32u);
}
