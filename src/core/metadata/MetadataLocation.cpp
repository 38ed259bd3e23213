#include "core/metadata/MetadataLocation.h"

#include <QDir>
#include <QFileInfo>

MetadataLocations metadataLocations(const QString& videoPath) {
    const QFileInfo video(videoPath);
    const QDir folder = video.absoluteDir();
    const QString suffix = QStringLiteral(".metadata.json");
    return {.package = packageMetadataPath(folder.path()),
            .sibling = folder.filePath(video.completeBaseName() + suffix),
            .hiddenSibling = folder.filePath(QLatin1Char('.') + video.completeBaseName() + suffix)};
}

QString packageMetadataPath(const QString& packageFolder) {
    return QDir(packageFolder).filePath(QStringLiteral(".metadata.json"));
}

std::optional<QString> locateMetadataFile(const QString& videoPath) {
    for (const QString& candidate : metadataLocations(videoPath).inReadingOrder()) {
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}
