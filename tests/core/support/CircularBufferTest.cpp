#include "core/support/CircularBuffer.h"

#include <gtest/gtest.h>

// Filling past capacity overwrites the oldest slot: after 61 appends to 60 slots, the 61st
// value sits in slot 0 and the next write goes to slot 1.
TEST(CircularBufferTest, WrapsOverTheOldestSlot) {
    CircularBuffer<int> buffer(60);
    for (int i = 1; i <= 61; ++i)
        buffer.append(i);
    ASSERT_EQ(buffer.array().size(), 60u);
    EXPECT_EQ(buffer.array()[0], 61);
    EXPECT_EQ(buffer.array()[1], 2);
    EXPECT_EQ(buffer.index(), 1u);
    buffer.clear();
    EXPECT_TRUE(buffer.array().empty());
    EXPECT_EQ(buffer.index(), 0u);
    buffer.append(5);
    EXPECT_EQ(buffer.array(), std::vector<int>{5});
}
