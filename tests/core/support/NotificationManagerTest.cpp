#include "core/support/NotificationManager.h"

#include "core/model/RecordingError.h"
#include "support/EventLoop.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {
struct FakeBackend : NotificationBackend {
    std::vector<NotificationRequest> posted;
    std::optional<QString> error;
    void requestAuthorization(Completion completion) override { completion(error); }
    void post(const NotificationRequest& request, Completion completion) override {
        posted.push_back(request);
        completion(error);
    }
};

struct Fixture {
    FakeBackend* backend = new FakeBackend;
    NotificationManager manager{std::unique_ptr<NotificationBackend>(backend)};
    Fixture() { manager.setDeliveryDelay(0); }
};
} // namespace

// Each notification goes out later, not at once; the completion names the file it saved.
TEST(NotificationManagerTest, notificationsAreDeliveredLater) {
    Fixture f;
    f.manager.setDeliveryDelay(30);
    f.manager.sendCompletionNotification("/home/u/Recordings/Recording at 2026-01-01 10.00.00.mov");
    EXPECT_TRUE(f.backend->posted.empty());
    f.manager.sendErrorNotification(RecordingError::streamInterrupted());
    f.manager.sendPermissionNotification(PermissionType::microphone);
    f.manager.sendDiskSpaceWarning();
    ASSERT_TRUE(waitUntil([&] { return f.backend->posted.size() == 4; }, 2000ms));
    EXPECT_EQ(f.backend->posted[0].body, "File saved to: Recording at 2026-01-01 10.00.00.mov");
    EXPECT_EQ(f.backend->posted[0].fileURL,
              "/home/u/Recordings/Recording at 2026-01-01 10.00.00.mov");
}

// A free notification gets a fresh identifier each time, and its sound flag.
TEST(NotificationManagerTest, freeNotificationsGetUniqueIds) {
    Fixture f;
    f.manager.sendNotification("T", "B", true);
    f.manager.sendNotification("T", "B", false);
    ASSERT_TRUE(waitUntil([&] { return f.backend->posted.size() == 2; }, 2000ms));
    EXPECT_TRUE(f.backend->posted[0].identifier.startsWith("tavelquiston.notification."));
    EXPECT_NE(f.backend->posted[0].identifier, f.backend->posted[1].identifier);
    EXPECT_TRUE(f.backend->posted[0].sound);
    EXPECT_FALSE(f.backend->posted[1].sound);
}

TEST(NotificationManagerTest, aRefusedAuthorizationIsNotAuthorized) {
    Fixture f;
    f.backend->error = "no service";
    testing::internal::CaptureStdout();
    bool granted = true;
    f.manager.requestAuthorization([&](bool g) { granted = g; });
    f.manager.sendDiskSpaceWarning();
    waitUntil([&] { return !f.backend->posted.empty(); }, 2000ms);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(granted);
    EXPECT_FALSE(f.manager.isAuthorized());
}

// A manager that goes away with a notification still pending neither crashes nor delivers.
TEST(NotificationManagerTest, pendingDeliveryOutlivesTheManager) {
    {
        Fixture f;
        f.manager.setDeliveryDelay(10);
        f.manager.sendDiskSpaceWarning();
    }
    processEventsFor(50ms);
    SUCCEED();
}
