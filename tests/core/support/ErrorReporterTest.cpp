#include "core/support/ErrorReporter.h"

#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

namespace {
struct RecordingPresenter : AlertPresenter {
    std::vector<std::pair<QString, QString>>* alerts;
    explicit RecordingPresenter(std::vector<std::pair<QString, QString>>* alerts)
        : alerts(alerts) {}
    void showAlert(const QString& title, const QString& message, Style) override {
        alerts->emplace_back(title, message);
    }
    bool showConfirmation(const QString&, const QString&, const QString&, const QString&) override {
        return true;
    }
};

class ErrorReporterTest : public ::testing::Test {
protected:
    void SetUp() override {
        ErrorReporter::shared().setAlertPresenter(std::make_unique<RecordingPresenter>(&alerts));
    }
    void TearDown() override { ErrorReporter::shared().setAlertPresenter(nullptr); }
    std::vector<std::pair<QString, QString>> alerts;
};
} // namespace

// The line names the file, line and function, then the context and the description.
TEST_F(ErrorReporterTest, reportLineShape) {
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    ErrorReporter::shared().report(RecordingError::streamInterrupted(), "Capture failed");
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string expected = "❌ ERROR: [ErrorReporterTest.cpp:" + std::to_string(line) + "] ";
    EXPECT_EQ(out.rfind(expected, 0), 0u) << out;
    EXPECT_NE(out.find(" - Capture failed: Recording stream was interrupted. The recording has "
                       "been stopped.\n"),
              std::string::npos)
        << out;
}

TEST_F(ErrorReporterTest, warnAndInfo) {
    testing::internal::CaptureStdout();
    ErrorReporter::shared().warn("low space");
    ErrorReporter::shared().info("hello");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("⚠️ WARNING: [ErrorReporterTest.cpp:", 0), 0u) << out;
    EXPECT_NE(out.find(" - low space\nℹ️ INFO: hello\n"), std::string::npos) << out;
}

// The shorthands alert with their titles; the text is the context, a blank line, the description.
TEST_F(ErrorReporterTest, shorthandAlerts) {
    testing::internal::CaptureStdout();
    ErrorReporter::shared().reportRecordingStartFailure(RecordingError::insufficientDiskSpace());
    ErrorReporter::shared().reportExportFailure(std::runtime_error("codec missing"));
    ErrorReporter::shared().reportPermissionDenied(PermissionType::camera);
    ErrorReporter::shared().reportInsufficientDiskSpace();
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(alerts.size(), 4u);
    EXPECT_EQ(alerts[0].first, "Recording Failed");
    EXPECT_EQ(alerts[0].second,
              "Failed to start recording\n\nInsufficient disk space to continue recording. Please "
              "free up space and try again.");
    EXPECT_EQ(alerts[1], std::make_pair(QString("Export Failed"),
                                        QString("Failed to export video\n\ncodec missing")));
    EXPECT_EQ(alerts[2].second,
              "Camera permission is required for this feature. Please grant permission in System "
              "Settings > Privacy & Security.");
    EXPECT_EQ(alerts[3].second,
              "There is not enough disk space to continue recording. Please free up at least 1 GB "
              "and try again.");
}
