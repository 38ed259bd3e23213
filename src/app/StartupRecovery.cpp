#include "app/StartupRecovery.h"

#include "core/async/DetachedTask.h"

#include "core/support/Log.h"
#include "core/support/NotificationManager.h"
#include "media/RecordingSalvage.h"
#include "media/layers/RecordingPackageSalvage.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace {
QStringList salvageAll(const QString& folder) {
    QStringList recovered;
    for (const auto& movie : findUnfinishedRecordings(folder.toStdString())) {
        try {
            recovered << QString::fromStdString(salvageRecording(movie).movie.string());
        } catch (const std::exception& error) {
            logLine("❌ Could not recover {}", error.what());
        }
    }
    for (const auto& package : findUnfinishedPackages(folder.toStdString())) {
        try {
            recovered << QString::fromStdString(salvageRecordingPackage(package).string());
        } catch (const std::exception& error) {
            logLine("❌ Could not recover {}", error.what());
        }
    }
    return recovered;
}
} // namespace

QCoro::Task<QStringList> recoverUnfinishedRecordings(QString folder) {
    QCoro::Task<QStringList> salvaging =
        runDetached<QStringList>([folder] { return salvageAll(folder); });
    const QStringList recovered = co_await salvaging;
    if (recovered.isEmpty())
        co_return recovered;
    QStringList names;
    for (const QString& path : recovered)
        names << QFileInfo(path).fileName();
    NotificationManager::shared().sendNotification(
        QCoreApplication::translate("StartupRecovery", "Recordings Recovered"),
        QCoreApplication::translate("StartupRecovery",
                                    "A recording that was cut short is saved as %1 in %2.")
            .arg(names.join(QStringLiteral(", ")), folder),
        false);
    co_return recovered;
}
