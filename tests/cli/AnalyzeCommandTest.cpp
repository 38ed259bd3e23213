#include "cli/AnalyzeCommand.h"

#include "core/metadata/MetadataJson.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "CommandOutcome.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

CommandOutcome run(const QStringList& arguments) {
    return runCommandEntry(runAnalyze, arguments);
}

void write(const QString& path, const std::string& text) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.data(), qint64(text.size()));
}

// Three right clicks far apart in time and place: three clusters, three automatic segments.
RecordingMetadata recording() {
    RecordingMetadata m{.duration = 30, .resolution = {1920, 1080}, .frameRate = 30};
    m.cursorClicks = {
        CursorClick{.timestamp = 5, .position = {0.1, 0.1}, .clickType = ClickType::rightClick},
        CursorClick{.timestamp = 15, .position = {0.5, 0.5}, .clickType = ClickType::rightClick},
        CursorClick{.timestamp = 25, .position = {0.9, 0.9}, .clickType = ClickType::rightClick}};
    return m;
}

class AnalyzeCommandTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }
    QString file(const char* name) const { return folder.filePath(QString::fromUtf8(name)); }
    QTemporaryDir folder;
};

} // namespace

TEST_F(AnalyzeCommandTest, PrintsTheMigratedDocumentAndExplainsItsClusters) {
    write(file("clip.mov"), "not a movie");
    const RecordingMetadata original = recording();
    write(file("clip.metadata.json"), encodeMetadata(original));
    const CommandOutcome outcome = run({file("clip.mov"), QStringLiteral("--explain")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const RecordingMetadata printed = decodeMetadata(outcome.out);
    ASSERT_EQ(printed.zoomSegments.size(), 3u);
    EXPECT_EQ(printed.zoomSegments[1].mode, ZoomSegmentMode::auto_);
    EXPECT_EQ(printed.cursorClicks, original.cursorClicks);
    // The output is the saved form, byte for byte.
    EXPECT_EQ(outcome.out, encodeMetadata(printed) + "\n");
    // One explanation per cluster: 15 - 0 = 15 is the middle one's span, at (0.5, 0.5).
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 3);
    EXPECT_NE(
        outcome.err.find(
            "15.00s - 15.00s  focus (0.500, 0.500)  rightClick  confidence 1.15  right click"),
        std::string::npos)
        << outcome.err;
}

TEST_F(AnalyzeCommandTest, ReadsAMetadataFileOrAPackageFolderDirectly) {
    write(file(".metadata.json"), encodeMetadata(recording()));
    const CommandOutcome direct = run({file(".metadata.json")});
    EXPECT_EQ(direct.status, 0) << direct.err;
    EXPECT_TRUE(direct.err.empty());
    const CommandOutcome package = run({folder.path()});
    EXPECT_EQ(package.status, 0) << package.err;
    EXPECT_EQ(decodeMetadata(package.out).zoomSegments.size(), 3u);
}

// Every bad input is one line naming the file and the problem, and status 2.
TEST_F(AnalyzeCommandTest, BadInputIsNamedAndRefused) {
    const CommandOutcome missing = run({file("gone.json")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "❌ " + file("gone.json").toStdString() + ": no such file\n");

    write(file("lonely.mov"), "x");
    const CommandOutcome noMetadata = run({file("lonely.mov")});
    EXPECT_EQ(noMetadata.status, 2);
    EXPECT_NE(noMetadata.err.find("lonely.mov: no metadata beside it"), std::string::npos);

    write(file("broken.json"), "{\"duration\": 1,");
    const CommandOutcome broken = run({file("broken.json")});
    EXPECT_EQ(broken.status, 2);
    EXPECT_NE(broken.err.find("broken.json: not valid JSON"), std::string::npos) << broken.err;

    std::string text = encodeMetadata(recording());
    text.replace(text.find("\"rightClick\""), 12, "\"middleClick\"");
    write(file("wrong.json"), text);
    const CommandOutcome wrong = run({file("wrong.json")});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_NE(
        wrong.err.find("wrong.json: cursorClicks[0].clickType: \"middleClick\" is not a ClickType"),
        std::string::npos)
        << wrong.err;
    EXPECT_TRUE(wrong.out.empty());

    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({file("a.json"), file("b.json")}).status, 2);
    EXPECT_EQ(run({QStringLiteral("--verbose"), file("a.json")}).status, 2);
}
