#include "core/support/SleepPreventer.h"

#include <gtest/gtest.h>

namespace {
struct FakeBackend : PowerAssertionBackend {
    std::vector<QString> created;
    std::vector<uint32_t> released;
    std::optional<QString> createError;
    QString releaseError;
    Result createAssertion(const QString& reason) override {
        if (createError)
            return *createError;
        created.push_back(reason);
        return uint32_t(41 + created.size());
    }
    QString releaseAssertion(uint32_t id) override {
        released.push_back(id);
        return releaseError;
    }
};

struct Fixture {
    FakeBackend* backend = new FakeBackend;
    SleepPreventer preventer{std::unique_ptr<PowerAssertionBackend>(backend)};
};
} // namespace

// A second request keeps the first assertion and its reason; release gives that one back, and
// without an assertion there is nothing to release.
TEST(SleepPreventerTest, secondRequestKeepsTheFirstAssertion) {
    Fixture f;
    f.preventer.allowSleep();
    EXPECT_TRUE(f.backend->released.empty());
    f.preventer.preventSleep("Screen recording in progress");
    f.preventer.preventSleep("Another reason");
    f.preventer.allowSleep();
    EXPECT_EQ(f.backend->created, std::vector<QString>{"Screen recording in progress"});
    EXPECT_EQ(f.backend->released, std::vector<uint32_t>{42});
    EXPECT_FALSE(f.preventer.isPreventingSleep());
    EXPECT_EQ(f.preventer.assertionID(), 0u);
}

// A failure on either side leaves the flags consistent.
TEST(SleepPreventerTest, failuresLeaveNoAssertion) {
    Fixture f;
    f.backend->createError = "org.freedesktop.DBus.Error.ServiceUnknown";
    f.preventer.preventSleep("r");
    EXPECT_FALSE(f.preventer.isPreventingSleep());

    f.backend->createError.reset();
    f.backend->releaseError = "9";
    f.preventer.preventSleep("r");
    f.preventer.allowSleep();
    EXPECT_FALSE(f.preventer.isPreventingSleep());
}

// Destroying the preventer releases what it holds.
TEST(SleepPreventerTest, destructorReleases) {
    struct Counting : FakeBackend {
        int* releases;
        explicit Counting(int* releases) : releases(releases) {}
        QString releaseAssertion(uint32_t id) override {
            ++*releases;
            return FakeBackend::releaseAssertion(id);
        }
    };
    int releases = 0;
    {
        SleepPreventer preventer{std::make_unique<Counting>(&releases)};
        preventer.preventSleep("r");
    }
    EXPECT_EQ(releases, 1);
}
