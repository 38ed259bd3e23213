#include "app/StartupRecovery.h"

#include "core/support/NotificationManager.h"
#include "media/MediaWriter.h"
#include "support/TaskRunner.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

namespace {
struct PostedNotifications : NotificationBackend {
    std::vector<NotificationRequest>* posted;
    explicit PostedNotifications(std::vector<NotificationRequest>* list) : posted(list) {}
    void requestAuthorization(Completion completion) override { completion(std::nullopt); }
    void post(const NotificationRequest& request, Completion completion) override {
        posted->push_back(request);
        completion(std::nullopt);
    }
};

// A movie whose writer stopped without finishing, as a killed run leaves it.
void leaveUnfinishedMovie(const std::filesystem::path& path) {
    WriterConfiguration configuration;
    configuration.outputURL = path;
    configuration.videoSettings = WriterConfiguration::VideoSettings{};
    configuration.videoSettings->width = 64;
    configuration.videoSettings->height = 48;
    configuration.videoSettings->frameRate = 30;
    MediaWriter writer;
    writer.configure(configuration);
    writer.startWriting();
    writer.startSession(MediaTime::zero());
    for (int i = 0; i < 60; ++i) {
        VideoFrame frame =
            VideoFrame::allocate(64, 48, MediaTime::make(i, 30), MediaTime::make(1, 30));
        std::fill_n(frame.mutableBytes(), size_t(frame.bytesPerRow()) * 48, uint8_t(i));
        while (!writer.appendVideoBuffer(frame))
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    writer.abandon();
}
} // namespace

// At start the program saves what a killed run left and tells the user, once: the second start
// finds nothing and says nothing.
TEST(StartupRecoveryTest, SavesWhatAKilledRunLeftAndTellsOnce) {
    std::vector<NotificationRequest> posted;
    NotificationManager::setSharedBackend(std::make_unique<PostedNotifications>(&posted));
    NotificationManager::shared().setDeliveryDelay(0);
    QTemporaryDir folder;
    leaveUnfinishedMovie((folder.path() + "/Recording at one.mov").toStdString());

    QStringList recovered;
    auto first = [&]() -> QCoro::Task<void> {
        recovered = co_await recoverUnfinishedRecordings(folder.path());
    };
    ASSERT_TRUE(runTask(first(), std::chrono::seconds(20)).finished);
    ASSERT_EQ(recovered, QStringList{folder.path() + "/Recording at one (Recovered).mov"});
    EXPECT_TRUE(QFileInfo::exists(recovered.front()));
    waitUntil([&] { return !posted.empty(); }, std::chrono::seconds(2));
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_TRUE(posted.front().body.contains("Recording at one (Recovered).mov"));

    auto second = [&]() -> QCoro::Task<void> {
        recovered = co_await recoverUnfinishedRecordings(folder.path());
    };
    ASSERT_TRUE(runTask(second(), std::chrono::seconds(20)).finished);
    EXPECT_TRUE(recovered.isEmpty());
    processEventsFor(std::chrono::milliseconds(100));
    EXPECT_EQ(posted.size(), 1u);
    NotificationManager::setSharedBackend(nullptr);
}
