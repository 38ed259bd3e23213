#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/TrimmerPlayer.h"

#include "support/ChildProcess.h"
#include "support/MissingTool.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;

namespace {
// A dragged scrubber shows at once a frame that is quick to decode near the pointer (here the
// key frame before it, two seconds apart); resting or letting go puts the exact frame there,
// and no frame from the drag is left on screen after it.
TEST(TrimmerScrubTest, dragShowsANearFrameAndTheExactOneWhenItRests) {
    REQUIRE_TOOL("ffmpeg");
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const QString movie = QDir(folder.path()).filePath(QStringLiteral("Sparse.mp4"));
    ASSERT_EQ(runCommand({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                          "testsrc2=size=320x180:rate=30", "-t", "6", "-c:v", "libx264", "-preset",
                          "ultrafast", "-g", "60", "-pix_fmt", "yuv420p", movie.toStdString()},
                         60s),
              0);
    std::string error;
    auto renderer = PreviewRenderer::open(movie.toStdString(), std::nullopt, error);
    ASSERT_TRUE(renderer) << error;
    TrimmerPlayer player(std::move(renderer), 6.0);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 0.0; }, 20s));
    const auto exactAt = [&](double t) {
        return player.currentFrameStart() <= t + 1e-6 &&
               t < player.currentFrameStart() + 1.0 / 30.0 - 1e-6;
    };

    player.scrub(3.5);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 3.5; }, 10s));
    EXPECT_NEAR(player.currentFrameStart(), 2.0, 1e-3) << "the drag should show the key frame";
    // Resting on the position brings its exact frame.
    ASSERT_TRUE(waitUntil([&] { return exactAt(3.5); }, 10s));

    player.scrub(5.2);
    player.endScrub(5.7);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 5.7; }, 10s));
    EXPECT_TRUE(exactAt(5.7)) << "shown: the frame from " << player.currentFrameStart();
    waitUntil([] { return false; }, 300ms);
    EXPECT_TRUE(exactAt(5.7)) << "a frame from the drag replaced the exact one";

    // Going back a little from there stays exact when the frame is at hand.
    player.scrub(5.65);
    ASSERT_TRUE(waitUntil([&] { return player.currentFrameTime() == 5.65; }, 10s));
    EXPECT_NEAR(player.currentFrameStart(), 5.7 - 0.1, 0.1);
}
} // namespace
