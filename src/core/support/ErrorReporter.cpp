#include "core/support/ErrorReporter.h"

#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Log.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMetaObject>
#include <QThread>

#include <syslog.h>

namespace {
void toSystemLog(int priority, const QString& message) {
    static const bool opened = [] {
        openlog("tavelquiston", LOG_PID, LOG_USER);
        return true;
    }();
    (void)opened;
    syslog(priority, "%s", message.toUtf8().constData());
}

// The short function name, as a person reads it in a log ("stopRecording", not its signature).
QString functionName(const char* signature) {
    QString name = QString::fromUtf8(signature);
    const qsizetype paren = name.indexOf(QLatin1Char('('));
    if (paren >= 0)
        name.truncate(paren);
    const qsizetype space = name.lastIndexOf(QLatin1Char(' '));
    if (space >= 0)
        name = name.mid(space + 1);
    return name;
}
} // namespace

void StandardErrorAlertPresenter::showAlert(const QString& title, const QString& message, Style) {
    fmt::print(stderr, "{}: {}\n", title.toStdString(), message.toStdString());
}

bool StandardErrorAlertPresenter::showConfirmation(const QString& title, const QString& message,
                                                   const QString&, const QString& cancelTitle) {
    fmt::print(stderr, "{}: {} ({})\n", title.toStdString(), message.toStdString(),
               cancelTitle.toStdString());
    return false;
}

ErrorReporter::ErrorReporter() : m_presenter(std::make_unique<StandardErrorAlertPresenter>()) {}

ErrorReporter& ErrorReporter::shared() {
    static ErrorReporter reporter;
    return reporter;
}

void ErrorReporter::setAlertPresenter(std::unique_ptr<AlertPresenter> presenter) {
    m_presenter =
        presenter ? std::move(presenter) : std::make_unique<StandardErrorAlertPresenter>();
}

QString ErrorReporter::describe(const std::exception& error) {
    if (const auto* recording = dynamic_cast<const RecordingError*>(&error))
        return recording->localizedDescription();
    return QString::fromUtf8(error.what());
}

QString ErrorReporter::formatMessage(const QString& description, const QString& context,
                                     const std::source_location& location) {
    return QStringLiteral("[%1:%2] %3 - %4: %5")
        .arg(QFileInfo(QString::fromUtf8(location.file_name())).fileName())
        .arg(location.line())
        .arg(functionName(location.function_name()), context, description);
}

void ErrorReporter::report(const std::exception& error, const QString& context,
                           std::source_location location) {
    report(describe(error), context, location);
}

void ErrorReporter::report(const QString& errorDescription, const QString& context,
                           std::source_location location) {
    const QString message = formatMessage(errorDescription, context, location);
    toSystemLog(LOG_ERR, message);
    logLine("❌ ERROR: {}", message.toStdString());
}

void ErrorReporter::reportAndAlert(const std::exception& error, const QString& context,
                                   const QString& title, std::source_location location) {
    report(error, context, location);
    showAlert(title, context + QStringLiteral("\n\n") + describe(error),
              AlertPresenter::Style::warning);
}

void ErrorReporter::warn(const QString& message, std::source_location location) {
    const QString framed = QStringLiteral("[%1:%2] %3 - %4")
                               .arg(QFileInfo(QString::fromUtf8(location.file_name())).fileName())
                               .arg(location.line())
                               .arg(functionName(location.function_name()), message);
    toSystemLog(LOG_WARNING, framed);
    logLine("⚠️ WARNING: {}", framed.toStdString());
}

void ErrorReporter::info(const QString& message) {
    toSystemLog(LOG_INFO, message);
    logLine("ℹ️ INFO: {}", message.toStdString());
}

void ErrorReporter::showAlert(const QString& title, const QString& message,
                              AlertPresenter::Style style) {
    // Alerts belong to the main thread; from anywhere else they are queued there.
    QCoreApplication* app = QCoreApplication::instance();
    if (app && QThread::currentThread() != app->thread()) {
        QMetaObject::invokeMethod(
            app, [this, title, message, style] { m_presenter->showAlert(title, message, style); },
            Qt::QueuedConnection);
        return;
    }
    m_presenter->showAlert(title, message, style);
}

bool ErrorReporter::showConfirmation(const QString& title, const QString& message,
                                     const QString& okTitle, const QString& cancelTitle) {
    return m_presenter->showConfirmation(title, message, okTitle, cancelTitle);
}

void ErrorReporter::reportRecordingStartFailure(const std::exception& error,
                                                std::source_location location) {
    reportAndAlert(error, QStringLiteral("Failed to start recording"),
                   QStringLiteral("Recording Failed"), location);
}

void ErrorReporter::reportRecordingStopFailure(const std::exception& error,
                                               std::source_location location) {
    reportAndAlert(error, QStringLiteral("Failed to stop recording properly"),
                   QStringLiteral("Recording Error"), location);
}

void ErrorReporter::reportExportFailure(const std::exception& error,
                                        std::source_location location) {
    reportAndAlert(error, QStringLiteral("Failed to export video"), QStringLiteral("Export Failed"),
                   location);
}

void ErrorReporter::reportPermissionDenied(PermissionType type) {
    showAlert(
        QStringLiteral("Permission Required"),
        displayName(type) +
            QStringLiteral(" permission is required for this feature. Please grant permission "
                           "in System Settings > Privacy & Security."));
}

void ErrorReporter::reportInsufficientDiskSpace() {
    showAlert(
        QStringLiteral("Insufficient Disk Space"),
        QStringLiteral(
            "There is not enough disk space to continue recording. Please free up at least %1 GB "
            "and try again.")
            .arg(Constants::minimumDiskSpaceGB));
}
