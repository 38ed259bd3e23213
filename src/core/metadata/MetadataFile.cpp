#include "core/metadata/MetadataFile.h"

#include "core/metadata/MetadataJson.h"

#include <QFile>
#include <QSaveFile>

#include <fmt/format.h>

RecordingMetadata readMetadataFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw MetadataFileError(fmt::format("cannot read {}: {}", path.toStdString(),
                                            file.errorString().toStdString()));
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw MetadataFileError(fmt::format("cannot read {}: {}", path.toStdString(),
                                            file.errorString().toStdString()));
    return decodeMetadata(std::string_view(bytes.constData(), std::size_t(bytes.size())));
}

qint64 writeMetadataFile(const RecordingMetadata& metadata, const QString& path) {
    const std::string text = encodeMetadata(metadata);
    // Written beside it under another name, synced, then renamed over it: a save that fails
    // half-way (a full disk, a crash) leaves the previous document as it was.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw MetadataFileError(fmt::format("cannot write {}: {}", path.toStdString(),
                                            file.errorString().toStdString()));
    const qint64 written = file.write(text.data(), qint64(text.size()));
    // The bytes reach the file only at the flush, and a commit after a failed one (no room
    // on the disk) would still put the empty file in place.
    if (written != qint64(text.size()) || !file.flush() || !file.commit())
        throw MetadataFileError(fmt::format("cannot write {}: {}", path.toStdString(),
                                            file.errorString().toStdString()));
    return written;
}
