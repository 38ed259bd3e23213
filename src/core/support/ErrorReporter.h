#pragma once

#include "core/model/PermissionType.h"
#include "core/support/AlertPresenter.h"

#include <QString>

#include <exception>
#include <memory>
#include <source_location>

// Reports errors in one shape: a line on standard output, the system log, and optionally an
// alert. Thread: report, warn and info from any thread; alerts are shown on the main thread.
class ErrorReporter {
public:
    static ErrorReporter& shared();

    // The presenter that shows alerts; standard error until the app installs its own.
    void setAlertPresenter(std::unique_ptr<AlertPresenter> presenter);

    void report(const std::exception& error, const QString& context,
                std::source_location location = std::source_location::current());
    void report(const QString& errorDescription, const QString& context,
                std::source_location location = std::source_location::current());
    void reportAndAlert(const std::exception& error, const QString& context,
                        const QString& title = QStringLiteral("Error"),
                        std::source_location location = std::source_location::current());
    void warn(const QString& message,
              std::source_location location = std::source_location::current());
    void info(const QString& message);

    void showAlert(const QString& title, const QString& message,
                   AlertPresenter::Style style = AlertPresenter::Style::warning);
    bool showConfirmation(const QString& title, const QString& message,
                          const QString& okTitle = QStringLiteral("OK"),
                          const QString& cancelTitle = QStringLiteral("Cancel"));

    void
    reportRecordingStartFailure(const std::exception& error,
                                std::source_location location = std::source_location::current());
    void
    reportRecordingStopFailure(const std::exception& error,
                               std::source_location location = std::source_location::current());
    void reportExportFailure(const std::exception& error,
                             std::source_location location = std::source_location::current());
    void reportPermissionDenied(PermissionType type);
    void reportInsufficientDiskSpace();

    // The message of a report: "[file:line] function - context: description".
    static QString formatMessage(const QString& description, const QString& context,
                                 const std::source_location& location);

private:
    ErrorReporter();
    static QString describe(const std::exception& error);

    std::unique_ptr<AlertPresenter> m_presenter;
};
