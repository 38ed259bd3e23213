#include "core/support/ScreenRecordingPermission.h"

#include "core/model/RecordingError.h"
#include "support/TaskRunner.h"

#include <gtest/gtest.h>

namespace {
struct FakeAccess : ScreenCaptureAccess {
    bool granted = false;
    bool grantOnRequest = false;
    bool registrationFails = false;
    int requests = 0;
    bool preflight() override { return granted; }
    void request() override {
        ++requests;
        granted = grantOnRequest;
    }
    void registerWithCaptureService() override {
        if (registrationFails)
            throw RecordingError::captureDeviceUnavailable();
    }
};

class ScreenRecordingPermissionTest : public ::testing::Test {
protected:
    void SetUp() override {
        access = new FakeAccess;
        ScreenRecordingPermission::setAccess(std::unique_ptr<ScreenCaptureAccess>(access));
        ScreenRecordingPermission::setSettingsOpener(
            [this](const QString& url) { opened.push_back(url); });
    }
    void TearDown() override {
        ScreenRecordingPermission::setAccess(nullptr);
        ScreenRecordingPermission::setSettingsOpener({});
    }
    // Runs the check; the error kind it threw, if any.
    std::optional<RecordingError::Kind> check(bool prompt) {
        const TaskOutcome outcome = runTask(ScreenRecordingPermission::ensureAuthorized(prompt));
        EXPECT_TRUE(outcome.finished);
        if (!outcome.error)
            return std::nullopt;
        try {
            std::rethrow_exception(outcome.error);
        } catch (const RecordingError& error) {
            return error.kind();
        }
    }
    FakeAccess* access = nullptr;
    std::vector<QString> opened;
};
} // namespace

TEST_F(ScreenRecordingPermissionTest, grantedReturnsAtOnce) {
    access->granted = true;
    EXPECT_EQ(check(false), std::nullopt);
    EXPECT_EQ(access->requests, 0);
}

// Without a prompt a missing permission fails at once, asking nothing and opening nothing.
TEST_F(ScreenRecordingPermissionTest, noPromptFailsWithoutAsking) {
    EXPECT_EQ(check(false), RecordingError::Kind::permissionDenied);
    EXPECT_EQ(access->requests, 0);
    EXPECT_TRUE(opened.empty());
}

// With a prompt: ask, register (a failure is only a warning), check again; still missing opens
// the settings page and fails.
TEST_F(ScreenRecordingPermissionTest, promptAsksThenOpensSettings) {
    access->registrationFails = true;
    testing::internal::CaptureStdout();
    EXPECT_EQ(check(true), RecordingError::Kind::permissionDenied);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(access->requests, 1);
    EXPECT_EQ(opened, std::vector<QString>{ScreenRecordingPermission::settingsURL});

    access->grantOnRequest = true;
    opened.clear();
    EXPECT_EQ(check(true), std::nullopt);
    EXPECT_TRUE(opened.empty());
}
