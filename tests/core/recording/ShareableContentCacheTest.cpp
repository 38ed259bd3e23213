#include "core/recording/ShareableContentCache.h"
#include "CoordinatorHarness.h"
#include "core/recording/RecordingStartupTrace.h"

using testing::ElementsAre;

namespace {
class ShareableContentCacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        ScreenRecordingPermission::setAccess(std::make_unique<FakeScreenCaptureAccess>(true));
        trace.begin(QStringLiteral("test"));
    }
    void TearDown() override {
        // No fetch may outlive the fakes it calls.
        QThreadPool::globalInstance()->waitForDone();
        ScreenRecordingPermission::setAccess(nullptr);
    }

    std::shared_ptr<TaskProbe<SCShareableContent>> load(bool force = false, bool prompt = false) {
        return launch(cache.loadShareableContent(force, prompt));
    }
    std::vector<std::string> marks() const {
        std::vector<std::string> names;
        for (const auto& event : trace.profiler()->events())
            names.push_back(event.name.toStdString());
        return names;
    }

    CallLog log;
    FakeRecordingEngineFactory factory{log};
    FakeRecordingClock clock;
    RecordingStartupTrace trace{clock, QString()};
    ShareableContentCache cache{factory, clock, trace};
};
} // namespace

// Two callers at once share one fetch; the second waits for the first.
TEST_F(ShareableContentCacheTest, ConcurrentCallersShareOneFetch) {
    factory.holdFetches = true;
    auto first = load();
    auto second = load();
    EXPECT_TRUE(cache.isLoading());
    factory.release();
    ASSERT_TRUE(settle(first, clock));
    ASSERT_TRUE(settle(second, clock));
    EXPECT_EQ(factory.fetchCount(), 1);
    EXPECT_EQ(*second->value, factory.content);
    EXPECT_FALSE(cache.isLoading());
    EXPECT_THAT(marks(),
                ElementsAre("shareableContent.load.begin", "shareableContent.awaitInFlight.begin",
                            "shareableContent.load.end", "shareableContent.awaitInFlight.end"));
    EXPECT_EQ(trace.profiler()->shareableContentLoads(), 1);
}

// The cache lives 300 s: at 299 s it answers, at 300 s it fetches again; force always fetches.
TEST_F(ShareableContentCacheTest, CacheLivesFiveMinutes) {
    ASSERT_TRUE(settle(load(), clock));
    clock.advance(299.0);
    ASSERT_TRUE(settle(load(), clock));
    EXPECT_EQ(factory.fetchCount(), 1);
    ASSERT_TRUE(settle(load(true), clock));
    EXPECT_EQ(factory.fetchCount(), 2); // forced, and now fresh again
    clock.advance(300.0);
    ASSERT_TRUE(settle(load(), clock));
    EXPECT_EQ(factory.fetchCount(), 3);
    EXPECT_EQ(cache.cachedShareableContentUpdatedAt(), clock.now());
}

// A fetch that fails fails its own caller; a caller that was waiting on it tries on its own.
TEST_F(ShareableContentCacheTest, FailedFetchDoesNotFailTheWaiter) {
    factory.holdFetches = true;
    factory.failingFetches = 1;
    auto first = load();
    auto second = load();
    factory.release();
    ASSERT_TRUE(settle(first, clock));
    ASSERT_TRUE(settle(second, clock));
    EXPECT_EQ(first->errorText(), "An unknown error occurred: no content");
    EXPECT_FALSE(second->error);
    EXPECT_EQ(*second->value, factory.content);
    EXPECT_EQ(factory.fetchCount(), 2);
    EXPECT_THAT(marks(), testing::IsSupersetOf({"shareableContent.load.failed",
                                                "shareableContent.awaitInFlight.failed",
                                                "shareableContent.load.end"}));
    EXPECT_FALSE(cache.isLoading());
}

// Asking with a prompt checks the permission first; without it nothing is fetched.
TEST_F(ShareableContentCacheTest, PermissionComesFirst) {
    ScreenRecordingPermission::setAccess(std::make_unique<FakeScreenCaptureAccess>(false));
    testing::internal::CaptureStdout();
    auto denied = load(false, true);
    ASSERT_TRUE(settle(denied, clock));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(denied->errorText(), RecordingError::permissionDenied(PermissionType::screenRecording)
                                       .localizedDescription()
                                       .toStdString());
    cache.prewarmShareableContent(); // not granted: warming asks nobody
    drainEvents(clock);
    EXPECT_EQ(factory.fetchCount(), 0);

    ScreenRecordingPermission::setAccess(std::make_unique<FakeScreenCaptureAccess>(true));
    cache.prewarmShareableContent();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!cache.cachedShareableContent() && std::chrono::steady_clock::now() < deadline) {
        drainEvents(clock);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(cache.cachedShareableContent(), factory.content);
}
