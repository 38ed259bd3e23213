#include "core/metadata/MetadataLocation.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {
void touch(const QString& path) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
}
} // namespace

// Where a single-file recording writes its document is where a reader finds it; beside it, the
// package's document wins over the older named layout, which wins over the hidden one.
TEST(MetadataLocationTest, FindsWhatTheRecorderWroteAndPrefersThePackageDocument) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString video = dir.filePath(QStringLiteral("Recording at 10.30.45.mov"));
    touch(video);
    EXPECT_FALSE(locateMetadataFile(video).has_value());

    const QString written = metadataLocations(video).hiddenSibling;
    touch(written);
    EXPECT_EQ(locateMetadataFile(video), written);
    // Another video in the same folder does not take this one's document.
    EXPECT_FALSE(locateMetadataFile(dir.filePath(QStringLiteral("Other.mov"))).has_value());

    const QString named = dir.filePath(QStringLiteral("Recording at 10.30.45.metadata.json"));
    touch(named);
    EXPECT_EQ(locateMetadataFile(video), named);

    const QString package = packageMetadataPath(dir.path());
    touch(package);
    EXPECT_EQ(locateMetadataFile(video), package);
}
