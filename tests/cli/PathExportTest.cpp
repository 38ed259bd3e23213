#include "cli/PathExport.h"

#include "cli/AnalyzeCommand.h"
#include "core/metadata/MetadataJson.h"

#include <QFile>
#include <QTemporaryDir>

#include "CommandOutcome.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

// Ten seconds at 1000x500, one fixed zoom at 2x on (0.25, 0.5) from 0.5 to 9.5, the cursor
// moving evenly from (0.1, 0.1) to (0.9, 0.9), and a click at 5 s on its way.
RecordingMetadata recording() {
    RecordingMetadata m{.duration = 10, .resolution = {1000, 500}, .frameRate = 60};
    ZoomSegment::Parameters p;
    p.startTime = 0.5;
    p.endTime = 9.5;
    p.zoomLevel = 2.0;
    p.easeIn = 0.4;
    p.easeOut = 0.4;
    p.focusPoint = Point{0.25, 0.5};
    m.zoomSegments = {ZoomSegment(p)};
    m.cursorPositions = {CursorPosition{.timestamp = 0, .position = {0.1, 0.1}},
                         CursorPosition{.timestamp = 10, .position = {0.9, 0.9}}};
    m.cursorClicks = {CursorClick{.timestamp = 5, .position = {0.5, 0.5}}};
    return m;
}

class PathExportTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(folder.isValid());
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        const std::string text = encodeMetadata(metadata);
        file.write(text.data(), qint64(text.size()));
    }
    QString path() const { return folder.filePath(QStringLiteral("clip.metadata.json")); }
    CommandOutcome run(QStringList arguments) const {
        arguments.prepend(path());
        return runCommandEntry(runAnalyze, arguments);
    }
    QTemporaryDir folder;
    RecordingMetadata metadata = recording();
};

TEST_F(PathExportTest, CameraPathHasOneLinePerFrame) {
    const CommandOutcome outcome = run({QStringLiteral("--camera-path"), QStringLiteral("10")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto rows = lines(outcome.out);
    ASSERT_EQ(rows.size(), 1u + 100u); // header, then 10 s at 10 frames a second
    EXPECT_EQ(rows[0],
              "time,scale,centerX,centerY,tx,ty,strength,activeSegmentID,isConnectedTransition");
    // Before the ease-in (0.1 ... 0.5) nothing is zoomed.
    EXPECT_EQ(rows[1], "0.000000,1.000000,0.500000,0.500000,0.000,0.000,0.000000,,0");
    // Mid-body the spring has come to rest at the target: scale 2, the focus pixel (250, 250)
    // moved to the centre (500, 250), so tx = 500 - 2 * 250 = 0 and ty = 250 - 2 * 250 = -250.
    const std::string id = uuidString(metadata.zoomSegments[0].id);
    EXPECT_EQ(rows[51], "5.000000,2.000000,0.250000,0.500000,0.000,-250.000,1.000000," + id + ",0");
    // During the ease the spring lags behind the target, which is already at full zoom by 0.5.
    const std::string atStart = rows[6];
    EXPECT_EQ(atStart.rfind("0.500000,", 0), 0u);
    EXPECT_LT(std::stod(atStart.substr(9)), 2.0);
}

TEST_F(PathExportTest, CursorPathPassesThroughTheClick) {
    const CommandOutcome outcome = run({QStringLiteral("--cursor-path"), QStringLiteral("4")});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto rows = lines(outcome.out);
    ASSERT_EQ(rows.size(), 1u + 40u);
    EXPECT_EQ(rows[0], "time,x,y,scale,isVisible,motionBlurAmount");
    // At the click: exactly its position, the default scale 1.5 (the shrink starts after the
    // press), visible; the cursor moves at 0.113 a second, below the blur threshold 0.49.
    EXPECT_EQ(rows[21], "5.000000,0.500000,0.500000,1.500000,1,0.000000");
}

// A frame rate that is missing or not a positive number is refused, naming the value.
TEST_F(PathExportTest, BadFrameRateIsNamed) {
    const CommandOutcome missing = run({QStringLiteral("--camera-path")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "❌ --camera-path needs a frame rate, e.g. --camera-path 60\n");
    for (const char* value : {"abc", "0", "nan", "5000"}) {
        const CommandOutcome bad = run({QStringLiteral("--cursor-path"), QString::fromUtf8(value)});
        EXPECT_EQ(bad.status, 2) << value;
        EXPECT_NE(bad.err.find(std::string("--cursor-path: \"") + value + "\" is not a frame rate"),
                  std::string::npos)
            << bad.err;
        EXPECT_TRUE(bad.out.empty());
    }
}

} // namespace
