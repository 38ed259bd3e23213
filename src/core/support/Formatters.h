#pragma once

#include <QDateTime>
#include <QString>

#include <cstdint>
#include <optional>

// A local date as it appears in file names: "2026-11-21 09.05.03".
QString formattedForFilename(const QDateTime& date);

// Minutes and seconds, zero padded ("00:05", "62:05"); "00:00" for what cannot be shown.
QString formattedDuration(double seconds);

// Bytes available to this user on the volume that holds `path`; absent when it can't be read.
std::optional<int64_t> availableDiskSpace(const QString& path);
