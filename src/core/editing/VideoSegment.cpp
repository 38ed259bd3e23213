#include "core/editing/VideoSegment.h"

#include <cmath>

namespace {
QString formatted(const MediaTime& time) {
    const double seconds = time.seconds();
    if (!time.isNumeric() || !std::isfinite(seconds) || seconds < 0)
        return QStringLiteral("0:00");
    const auto total = static_cast<long long>(seconds);
    const long long hours = total / 3600, minutes = total / 60 % 60, rest = total % 60;
    if (hours > 0)
        return QStringLiteral("%1:%2:%3")
            .arg(hours)
            .arg(minutes, 2, 10, QLatin1Char('0'))
            .arg(rest, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2").arg(minutes).arg(rest, 2, 10, QLatin1Char('0'));
}
} // namespace

QString VideoSegment::formattedTimeRange() const {
    return formatted(startTime) + QStringLiteral(" - ") + formatted(endTime);
}
