#include "exporter/ExportFileNames.h"

#include <QFileInfo>

namespace {
QString stemOf(const QString& source) {
    const QFileInfo info(source);
    const QString suffix = info.suffix();
    return suffix.isEmpty() ? source : source.left(source.size() - suffix.size() - 1);
}
} // namespace

QString exportOutputPath(ExportKind kind, const QString& source, const QDateTime& date) {
    const QString stamp = date.toString(QStringLiteral("yyyy-MM-dd HH.mm.ss"));
    const QString extension = QFileInfo(source).suffix().toLower();
    switch (kind) {
    case ExportKind::edited:
        return stemOf(source) + QStringLiteral(" (Edited ") + stamp + QStringLiteral(").mp4");
    case ExportKind::trimmed:
        return stemOf(source) + QStringLiteral(" (Cropped in ") + stamp + QStringLiteral(").") +
               extension;
    case ExportKind::merged:
        return stemOf(source) + QStringLiteral(" (Merged ") + stamp + QStringLiteral(").") +
               extension;
    }
    return {};
}

QString segmentOutputPath(const QString& source, int number) {
    return stemOf(source) + QStringLiteral(" - Part ") + QString::number(number) +
           QStringLiteral(".") + QFileInfo(source).suffix().toLower();
}
