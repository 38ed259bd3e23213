#include "cli/ComposeCommand.h"

#include "core/metadata/MetadataFile.h"

#include <QColor>
#include <QDir>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "CommandOutcome.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

CommandOutcome run(const QStringList& arguments) {
    return runCommandEntry(runCompose, arguments);
}

bool isColor(const QImage& image, int x, int y, QColor expected, int tolerance = 3) {
    const QColor c = image.pixelColor(x, y);
    return std::abs(c.red() - expected.red()) <= tolerance &&
           std::abs(c.green() - expected.green()) <= tolerance &&
           std::abs(c.blue() - expected.blue()) <= tolerance;
}

class ComposeCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder.isValid());
        QImage screen(320, 180, QImage::Format_RGB32);
        screen.fill(Qt::red);
        ASSERT_TRUE(screen.save(file("screen.png")));
        QImage camera(64, 48, QImage::Format_RGB32);
        camera.fill(Qt::blue);
        ASSERT_TRUE(camera.save(file("camera.png")));
    }
    QString file(const char* name) const { return folder.filePath(QString::fromUtf8(name)); }
    QTemporaryDir folder;
};

TEST_F(ComposeCommandTest, PictureWithBackgroundAndPadding) {
    const CommandOutcome outcome =
        run({file("screen.png"), "--time", "0", "--output", file("out.png"), "--background",
             "color:#00FF00", "--no-cursor"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const QImage out(file("out.png"));
    ASSERT_EQ(out.size(), QSize(320, 180));
    // The default padding 120 is 20 px here: the screen fills 248.9 x 140 from (35.6, 20) with
    // corners of 4.7 px, over the green background.
    EXPECT_TRUE(isColor(out, 2, 2, Qt::green));
    // The frame's corner pixel is cut away; the shadow darkens it a little.
    EXPECT_GT(out.pixelColor(36, 20).green(), 180);
    EXPECT_LT(out.pixelColor(36, 20).red(), 40);
    EXPECT_TRUE(isColor(out, 160, 90, Qt::red));
    EXPECT_TRUE(isColor(out, 40, 90, Qt::red));
}

TEST_F(ComposeCommandTest, AspectWidensTheCanvasAndCameraShows) {
    // 1:1 from 320x180 is 320x320. No background: black, the screen unpadded at the lower left.
    // The circle camera, a quarter of the width (80 px), centred at (160, 160).
    const CommandOutcome outcome =
        run({file("screen.png"), "--output", file("square.png"), "--aspect", "1:1", "--camera",
             file("camera.png"), "--camera-shape", "circle", "--camera-center", "0.5,0.5",
             "--camera-width", "0.25", "--camera-shadow", "0,12"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const QImage out(file("square.png"));
    ASSERT_EQ(out.size(), QSize(320, 320));
    EXPECT_TRUE(isColor(out, 10, 315, Qt::red));
    EXPECT_TRUE(isColor(out, 10, 10, Qt::black));
    EXPECT_TRUE(isColor(out, 160, 160, Qt::blue));
    // Inside the camera's square but outside its circle: what lies beneath.
    EXPECT_TRUE(isColor(out, 122, 122, Qt::black));
}

TEST_F(ComposeCommandTest, BadInputNamesTheValue) {
    const CommandOutcome ratio =
        run({file("screen.png"), "--output", file("x.png"), "--aspect", "2:1"});
    EXPECT_EQ(ratio.status, 2);
    EXPECT_NE(ratio.err.find("\"2:1\""), std::string::npos) << ratio.err;
    const CommandOutcome shape =
        run({file("screen.png"), "--output", file("x.png"), "--camera-shape", "hexagon"});
    EXPECT_EQ(shape.status, 2);
    EXPECT_NE(shape.err.find("\"hexagon\""), std::string::npos) << shape.err;
    const CommandOutcome shadow =
        run({file("screen.png"), "--output", file("x.png"), "--screen-shadow", "0.4"});
    EXPECT_EQ(shadow.status, 2);
    EXPECT_NE(shadow.err.find("--screen-shadow"), std::string::npos) << shadow.err;
    const CommandOutcome missing = run({file("nothing.mov"), "--output", file("x.png")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("nothing.mov"), std::string::npos) << missing.err;
    const CommandOutcome noOutput = run({file("screen.png")});
    EXPECT_EQ(noOutput.status, 2);
    EXPECT_FALSE(QFileInfo::exists(file("x.png")));
}

TEST_F(ComposeCommandTest, VideoFrameAtTheTimeWithTheCursorFromItsMetadata) {
    REQUIRE_TOOL("ffmpeg");
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    // Half a second of dark red, then half a second of dark blue, at 10 frames a second.
    QProcess make;
    make.start(ffmpeg, {"-v", "error", "-f", "lavfi", "-i", "color=c=0x400000:s=320x180:r=10:d=0.5",
                        "-f", "lavfi", "-i", "color=c=0x000040:s=320x180:r=10:d=0.5",
                        "-filter_complex", "[0:v][1:v]concat=n=2:v=1[v]", "-map", "[v]", "-c:v",
                        "libx264", "-pix_fmt", "yuv420p", file("movie.mp4")});
    ASSERT_TRUE(make.waitForFinished(60000));
    ASSERT_EQ(make.exitCode(), 0) << make.readAllStandardError().toStdString();
    RecordingMetadata metadata;
    metadata.duration = 1.0;
    metadata.resolution = {320, 180};
    metadata.cursorPositions = {CursorPosition{QUuid::createUuid(), 0.0, {0.5, 0.5}}};
    writeMetadataFile(metadata, file("movie.metadata.json"));

    ASSERT_EQ(run({file("movie.mp4"), "--time", "0.2", "--output", file("early.png")}).status, 0);
    ASSERT_EQ(run({file("movie.mp4"), "--time", "0.8", "--output", file("late.png"), "--no-cursor"})
                  .status,
              0);
    const QImage early(file("early.png"));
    const QImage late(file("late.png"));
    EXPECT_TRUE(isColor(early, 40, 40, QColor(0x40, 0, 0), 6));
    EXPECT_TRUE(isColor(late, 40, 40, QColor(0, 0, 0x40), 6));
    // The cursor at the centre: its white arrow (8 px frame) just below and right of (160, 90),
    // unless turned off.
    const auto brightNearCentre = [](const QImage& image) {
        int count = 0;
        for (int y = 88; y < 98; ++y) {
            for (int x = 158; x < 166; ++x)
                count += image.pixelColor(x, y).lightness() > 150 ? 1 : 0;
        }
        return count;
    };
    EXPECT_GT(brightNearCentre(early), 3);
    EXPECT_EQ(brightNearCentre(late), 0);
}

} // namespace
