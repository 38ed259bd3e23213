#include "core/support/Formatters.h"

#include <QFile>

#include <sys/statvfs.h>

#include <cmath>

QString formattedForFilename(const QDateTime& date) {
    // The unpadded full year of the date pattern "y-MM-dd HH.mm.ss".
    const QDate day = date.date();
    const QTime time = date.time();
    return QString::asprintf("%d-%02d-%02d %02d.%02d.%02d", day.year(), day.month(), day.day(),
                             time.hour(), time.minute(), time.second());
}

QString formattedDuration(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0 || seconds > 1e12)
        return QStringLiteral("00:00");
    // Whole seconds, rounded to the nearest; hours are folded into minutes.
    const auto total = static_cast<int64_t>(std::llround(seconds));
    return QString::asprintf("%02lld:%02lld", static_cast<long long>(total / 60),
                             static_cast<long long>(total % 60));
}

std::optional<int64_t> availableDiskSpace(const QString& path) {
    struct statvfs info {};
    if (statvfs(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return static_cast<int64_t>(info.f_bavail) * static_cast<int64_t>(info.f_frsize);
}
