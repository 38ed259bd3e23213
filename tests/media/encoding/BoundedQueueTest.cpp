#include "media/encoding/BoundedQueue.h"

#include <gtest/gtest.h>

#include <thread>

TEST(BoundedQueue, RefusesWhenFullOrClosedAndDrainsAfterClose) {
    BoundedQueue<int> queue(2);
    EXPECT_TRUE(queue.tryPush(1));
    EXPECT_TRUE(queue.tryPush(2));
    EXPECT_FALSE(queue.tryPush(3)); // full: refused at once, never waits
    EXPECT_EQ(queue.pop(), 1);
    EXPECT_TRUE(queue.tryPush(4));
    queue.close();
    EXPECT_FALSE(queue.tryPush(5));
    EXPECT_EQ(queue.pop(), 2);
    EXPECT_EQ(queue.pop(), 4);
    EXPECT_EQ(queue.pop(), std::nullopt);
}

TEST(BoundedQueue, AWaitingConsumerWakesForAnItemAndForTheClose) {
    BoundedQueue<int> queue(4);
    std::vector<int> received;
    std::thread consumer([&] {
        while (auto item = queue.pop())
            received.push_back(*item);
    });
    for (int i = 0; i < 100; ++i) {
        while (!queue.tryPush(i))
            std::this_thread::yield();
    }
    queue.close();
    consumer.join();
    ASSERT_EQ(received.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(received[size_t(i)], i);
}
