#pragma once

#include <QString>

#include <array>
#include <optional>

// Where a video's metadata document lies beside it, in the order a reader looks:
// - ".metadata.json" in the video's folder: the document of a recording package;
// - "<name>.metadata.json", the video's name with "metadata.json" for its extension: the older
//   layout;
// - ".<name>.metadata.json", hidden beside the video: where a recording saved as a single file
//   gets its document, so that a file viewer shows the video alone.
//
// Thread: any.
struct MetadataLocations {
    QString package;
    QString sibling;
    QString hiddenSibling;

    std::array<QString, 3> inReadingOrder() const { return {package, sibling, hiddenSibling}; }
};

MetadataLocations metadataLocations(const QString& videoPath);

// The document inside a recording package's folder.
QString packageMetadataPath(const QString& packageFolder);

// The first of the locations that holds a file, or none.
std::optional<QString> locateMetadataFile(const QString& videoPath);
