#pragma once

#include "FakeRecordingClock.h"
#include "FakeRecordingEngines.h"
#include "TaskDriver.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/settings/UserDefaults.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/NotificationManager.h"
#include "core/support/ScreenRecordingPermission.h"
#include "core/support/SleepPreventer.h"
#include "core/support/SystemEventMonitor.h"
#include "core/support/TimerManager.h"

#include <QTemporaryDir>
#include <QThreadPool>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// A screen-capture permission the test decides.
class FakeScreenCaptureAccess final : public ScreenCaptureAccess {
public:
    explicit FakeScreenCaptureAccess(bool granted) : m_granted(granted) {}
    bool preflight() override { return m_granted; }
    void request() override {}
    void registerWithCaptureService() override {}

private:
    bool m_granted;
};

class FakePowerBackend final : public PowerAssertionBackend, public FakePart {
public:
    explicit FakePowerBackend(CallLog& log) : FakePart(log, "sleep") {}
    Result createAssertion(const QString& reason) override {
        call("prevent", text(reason));
        return uint32_t(7);
    }
    QString releaseAssertion(uint32_t) override {
        call("allow");
        return {};
    }
};

class SilentNotificationBackend final : public NotificationBackend {
public:
    explicit SilentNotificationBackend(std::vector<QString>* titles) : m_titles(titles) {}
    void requestAuthorization(Completion completion) override { completion(std::nullopt); }
    void post(const NotificationRequest& request, Completion completion) override {
        m_titles->push_back(request.title);
        completion(std::nullopt);
    }

private:
    std::vector<QString>* m_titles;
};

// Hands its handler to the test, which plays the desktop's events through it.
class FakeSystemEvents final : public SystemEventMonitor {
public:
    Handler handler;
    void install(Handler h) override { handler = std::move(h); }
    void remove() override { handler = nullptr; }
};

// A coordinator wired to fakes, on a fake clock, with settings and output in a temporary folder.
class CoordinatorHarness : public ::testing::Test {
protected:
    static constexpr int64_t oneGiB = 1'073'741'824;

    void SetUp() override {
        ASSERT_TRUE(folder.isValid());
        ScreenRecordingPermission::setAccess(std::make_unique<FakeScreenCaptureAccess>(true));
        defaults = std::make_unique<UserDefaults>(folder.filePath("settings.ini"));
        // Delivered at the next turn of the event loop, which TearDown gives them: a delayed
        // delivery would reach this fixture's manager after it is gone.
        notifications.setDeliveryDelay(0);
        makeCoordinator();
    }
    void TearDown() override {
        // No preparation or fetch may outlive the fakes it calls.
        QThreadPool::globalInstance()->waitForDone();
        coordinator.reset();
        // Lets the coroutines still waiting on the fake clock see that their owner is gone and
        // end, so nothing is left suspended.
        clock.advance(1.0);
        drainEvents(clock);
        ScreenRecordingPermission::setAccess(nullptr);
    }

    void makeCoordinator() {
        RecordingServices services;
        services.engines = &factory;
        services.clock = &clock;
        services.defaults = defaults.get();
        services.sleepPreventer = &sleepPreventer;
        services.shortcuts = &shortcuts;
        services.notifications = &notifications;
        services.statusBar = &statusBar;
        services.panel = &panel;
        services.resultOpener = &opener;
        services.cursorHider = &hider;
        services.systemEvents = &systemEvents;
        services.availableDiskSpace = [this](const QString&) { return freeSpace; };
        services.startupLogDirectory = folder.filePath("logs");
        coordinator = std::make_unique<RecordingCoordinator>(std::move(services));
    }

    QString outputFolder() const { return folder.filePath("out"); }
    RecordingConfiguration screenConfiguration() const {
        return RecordingConfiguration(
            RecordingMode::screen(SCDisplay{1, Rect(0, 0, 1920, 1080), 1.0}), outputFolder());
    }

    // Separate layers with camera and microphone: every engine takes part.
    RecordingConfiguration fullConfiguration() const {
        RecordingConfiguration configuration = screenConfiguration();
        configuration.recordCamera = true;
        configuration.recordMicrophone = true;
        configuration.microphoneDevice = QStringLiteral("default");
        configuration.studioConfig = StudioRecordingConfiguration{};
        configuration.studioConfig->enableSeparateLayers = true;
        return configuration;
    }

    // Runs an operation of the coordinator to its end; returns its error text, empty on success.
    std::string run(QCoro::Task<void> task) {
        auto probe = launch(std::move(task));
        EXPECT_TRUE(settle(probe, clock)) << "the operation never finished";
        return probe->errorText();
    }
    template <typename F>
    std::string runSync(F&& operation) {
        try {
            operation();
        } catch (const std::exception& error) {
            return describeError(error);
        }
        return {};
    }

    void prepare(RecordingConfiguration configuration) {
        const RecordingMode mode = configuration.mode;
        ASSERT_EQ(run(coordinator->prepareRecording(mode, std::move(configuration))), "");
    }
    void prepareAndStart(RecordingConfiguration configuration) {
        prepare(std::move(configuration));
        ASSERT_EQ(run(coordinator->startRecording()), "");
    }

    QTemporaryDir folder;
    CallLog log;
    FakeRecordingEngineFactory factory{log};
    FakeRecordingClock clock;
    FakeStatusBar statusBar{log};
    FakePanel panel{log};
    FakeResultOpener opener{log};
    FakeCursorHider hider{log};
    std::unique_ptr<UserDefaults> defaults;
    SleepPreventer sleepPreventer{std::make_unique<FakePowerBackend>(log)};
    KeyboardShortcutHandler shortcuts;
    std::vector<QString> notificationTitles;
    NotificationManager notifications{
        std::make_unique<SilentNotificationBackend>(&notificationTitles)};
    FakeSystemEvents systemEvents;
    std::optional<int64_t> freeSpace = 10 * oneGiB;
    std::unique_ptr<RecordingCoordinator> coordinator;
};
