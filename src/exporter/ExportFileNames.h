#pragma once

#include <QDateTime>
#include <QString>

// Where an export of `source` goes: beside it, named after it. `date` is the moment of the
// export; the extension is the source's, lower case, except for the styled export (always mp4).
enum class ExportKind { edited, trimmed, merged };
QString exportOutputPath(ExportKind kind, const QString& source, const QDateTime& date);
// The file of cut segment `number` (from 1).
QString segmentOutputPath(const QString& source, int number);
