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

// An alert carries the shorthand's title and the context, a blank line, then the description.
TEST_F(ErrorReporterTest, shorthandAlertsJoinContextAndDescription) {
    testing::internal::CaptureStdout();
    ErrorReporter::shared().reportRecordingStartFailure(RecordingError::insufficientDiskSpace());
    ErrorReporter::shared().reportExportFailure(std::runtime_error("codec missing"));
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(alerts.size(), 2u);
    EXPECT_EQ(alerts[0].second, "Failed to start recording\n\n" +
                                    RecordingError::insufficientDiskSpace().errorDescription());
    EXPECT_EQ(alerts[1], std::make_pair(QString("Export Failed"),
                                        QString("Failed to export video\n\ncodec missing")));
}
