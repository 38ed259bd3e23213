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

// ".metadata.json" in the folder wins; "<name>.metadata.json" is the older layout.
TEST(MetadataLocationTest, PrefersTheHiddenFileThenTheNamedOne) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString video = dir.filePath(QStringLiteral("Recording at 10.30.45.mov"));
    touch(video);
    EXPECT_FALSE(locateMetadataFile(video).has_value());

    const QString named = dir.filePath(QStringLiteral("Recording at 10.30.45.metadata.json"));
    touch(named);
    EXPECT_EQ(locateMetadataFile(video), named);

    const QString hidden = dir.filePath(QStringLiteral(".metadata.json"));
    touch(hidden);
    EXPECT_EQ(locateMetadataFile(video), hidden);
}
