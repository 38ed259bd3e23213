#include "core/metadata/MetadataLocation.h"

#include <QDir>
#include <QFileInfo>

std::optional<QString> locateMetadataFile(const QString& videoPath) {
    const QFileInfo video(videoPath);
    const QDir folder = video.absoluteDir();
    const QString hidden = folder.filePath(QStringLiteral(".metadata.json"));
    if (QFileInfo(hidden).isFile())
        return hidden;
    const QString named =
        folder.filePath(video.completeBaseName() + QStringLiteral(".metadata.json"));
    if (QFileInfo(named).isFile())
        return named;
    return std::nullopt;
}
