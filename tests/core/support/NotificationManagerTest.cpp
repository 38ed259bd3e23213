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

// Each notification goes out later, not at once, with its title, body and fixed identifier.
TEST(NotificationManagerTest, fixedNotificationsCarryTheirTextsAndIds) {
    Fixture f;
    f.manager.setDeliveryDelay(30);
    f.manager.sendCompletionNotification("/home/u/Recordings/Recording at 2026-01-01 10.00.00.mov");
    EXPECT_TRUE(f.backend->posted.empty());
    f.manager.sendErrorNotification(RecordingError::streamInterrupted());
    f.manager.sendPermissionNotification(PermissionType::microphone);
    f.manager.sendDiskSpaceWarning();
    ASSERT_TRUE(waitUntil([&] { return f.backend->posted.size() == 4; }, 2000ms));

    EXPECT_EQ(f.backend->posted[0],
              (NotificationRequest{"tavelquiston.notification.completed", "Recording Completed",
                                   "File saved to: Recording at 2026-01-01 10.00.00.mov", false,
                                   "/home/u/Recordings/Recording at 2026-01-01 10.00.00.mov"}));
    EXPECT_EQ(f.backend->posted[1].identifier, "tavelquiston.notification.failed");
    EXPECT_EQ(f.backend->posted[1].body,
              "Recording stream was interrupted. The recording has been stopped.");
    EXPECT_EQ(f.backend->posted[2].identifier, "tavelquiston.notification.permission");
    EXPECT_EQ(f.backend->posted[2].body, "tavelquiston needs Microphone permission to continue");
    EXPECT_EQ(
        f.backend->posted[3],
        (NotificationRequest{"tavelquiston.notification.diskspace", "Low Disk Space",
                             "Your disk is running low on space. Recording may fail.", false}));
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

TEST(NotificationManagerTest, failuresArePrinted) {
    Fixture f;
    f.backend->error = "no service";
    testing::internal::CaptureStdout();
    bool granted = true;
    f.manager.requestAuthorization([&](bool g) { granted = g; });
    f.manager.sendDiskSpaceWarning();
    waitUntil([&] { return !f.backend->posted.empty(); }, 2000ms);
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Notification authorization error: no service\nFailed to send notification: no service\n");
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
