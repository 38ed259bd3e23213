#include "app/trimmer/PlayableRanges.h"
#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/TrimmerAudioOutput.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "app/trimmer/TrimmerVolumeControl.h"
#include "app/trimmer/TrimmerWindow.h"

#include "support/ChildProcess.h"
#include "support/MissingTool.h"
#include "support/PulseAudioSession.h"

#include <QApplication>
#include <QAudioDevice>
#include <QDir>
#include <QPushButton>
#include <QSlider>
#include <QTemporaryDir>

#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <vector>

using namespace std::chrono_literals;

namespace {
using Clock = std::chrono::steady_clock;

double rms(const std::vector<int16_t>& samples) {
    double sum = 0;
    for (int16_t s : samples)
        sum += double(s) * s;
    return samples.empty() ? 0.0 : std::sqrt(sum / double(samples.size()));
}

class TrimmerAudioTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(folder.isValid()); }

    // Four seconds of a moving picture at 30 frames a second, with a loud tone unless `silent`.
    QString makeRecording(bool withSound = true) {
        const QString movie = QDir(folder.path()).filePath(QStringLiteral("Take.mp4"));
        std::vector<std::string> command = {
            "ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=30"};
        if (withSound) {
            for (const char* part :
                 {"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000,volume=8", "-c:a",
                  "aac"})
                command.push_back(part);
        }
        for (const char* part :
             {"-t", "4", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"})
            command.push_back(part);
        command.push_back(movie.toStdString());
        EXPECT_EQ(runCommand(command, 60s), 0) << "ffmpeg could not make the test recording";
        return movie;
    }

    std::unique_ptr<TrimmerWindow> openWindow(const QString& path) {
        QString error;
        auto window = TrimmerWindow::open(path, error);
        EXPECT_TRUE(window) << error.toStdString();
        if (window) {
            EXPECT_TRUE(waitUntil([&] { return !window->player().currentFrame().isNull(); }, 20s));
        }
        return window;
    }

    // The playhead against the sound the sink has taken, sampled while playing for `span`:
    // the playhead is never ahead of the sound taken, and never behind it by more than the
    // sink's buffer can hold. Returns the positions seen.
    std::vector<double> followSound(TrimmerPlayer& player, std::chrono::milliseconds span) {
        const PlayableRanges& ranges = player.playableRanges();
        std::vector<double> seen;
        const auto end = Clock::now() + span;
        while (Clock::now() < end && player.isPlaying()) {
            QApplication::processEvents(QEventLoop::AllEvents, 5);
            TrimmerAudioOutput* audio = player.audioOutput();
            if (!audio || !player.isFollowingAudio())
                continue;
            const std::optional<double> taken = audio->consumedPosition();
            const std::optional<double> heard = audio->position();
            if (!taken || !heard)
                continue;
            // The two readings are a moment apart; a removed part between them is no lag.
            double removed = 0.0;
            for (double t = *heard; t < *taken; t = ranges.resolve(ranges.keptEnd(t))) {
                const double kept = ranges.keptEnd(t);
                removed += std::min(ranges.resolve(kept), *taken) - std::min(kept, *taken);
                if (kept >= ranges.duration())
                    break;
            }
            const double lag = *taken - *heard - removed;
            EXPECT_LE(lag, 0.5 * player.rate()) << "the clock lags the sound taken at " << *heard;
            EXPECT_GE(lag, -0.1) << "the clock runs ahead of the sound taken at " << *heard;
            seen.push_back(player.position());
        }
        return seen;
    }

    QTemporaryDir folder;
};

// While the recording's sound plays, the playhead is the sound's own clock: it moves at the
// speed of the sound, stays within the sink's buffer of the samples the sink took, the frame on
// screen keeps up with it, and the tone really reaches the speakers (here the null sink's
// monitor). Muted, the speakers fall silent while the picture plays on.
TEST_F(TrimmerAudioTest, picturePlaysByTheSoundItHears) {
    REQUIRE_TOOL("ffmpeg");
    START_PULSEAUDIO(pulse);
    auto window = openWindow(makeRecording());
    ASSERT_TRUE(window);
    TrimmerPlayer& player = window->player();
    ASSERT_TRUE(player.hasAudio());

    player.play();
    ASSERT_TRUE(player.isFollowingAudio()) << "a sound device exists, yet the picture does not "
                                              "follow the sound";
    auto monitor = std::async(std::launch::async, [&] { return pulse.recordMonitor(0.6); });
    const auto started = Clock::now();
    const double startedAt = player.position();
    std::vector<double> seen = followSound(player, 1200ms);
    ASSERT_TRUE(waitUntil([&] { return monitor.wait_for(0s) == std::future_status::ready; }, 15s));
    const double wall = std::chrono::duration<double>(Clock::now() - started).count();
    const double moved = player.position() - startedAt;
    EXPECT_GT(moved, wall - 0.35) << "the playhead fell behind the time that passed";
    EXPECT_LT(moved, wall + 0.1) << "the playhead ran ahead of the time that passed";
    ASSERT_GT(seen.size(), 20u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << "the clock went back";
    // The frame on screen is the one at the playhead, give or take a few frames of decoding.
    EXPECT_NEAR(player.currentFrameTime(), player.position(), 0.25);
    EXPECT_GT(rms(monitor.get()), 3000.0) << "the tone never reached the sound device";

    player.setMuted(true);
    waitUntil([] { return false; }, 400ms); // what the sink held before the mute plays out
    auto muted = std::async(std::launch::async, [&] { return pulse.recordMonitor(0.4); });
    const double beforeMute = player.position();
    ASSERT_TRUE(waitUntil([&] { return muted.wait_for(0s) == std::future_status::ready; }, 15s));
    EXPECT_LT(rms(muted.get()), 300.0) << "muted sound was still heard";
    EXPECT_GT(player.position(), beforeMute + 0.2) << "muting stopped the picture";

    player.pause();
    const double pausedAt = player.position();
    EXPECT_FALSE(player.audioOutput()->isPlaying());
    waitUntil([] { return false; }, 200ms);
    EXPECT_DOUBLE_EQ(player.position(), pausedAt);
}

// Faster playback, a removed part, a seek while playing and a loop keep the picture on the
// sound: the playhead never enters the removed part, runs at twice the speed, lands where a
// seek sends it, and starts again from the beginning at the end.
TEST_F(TrimmerAudioTest, speedCutsSeeksAndLoopsKeepPictureAndSoundTogether) {
    REQUIRE_TOOL("ffmpeg");
    START_PULSEAUDIO(pulse);
    auto window = openWindow(makeRecording());
    ASSERT_TRUE(window);
    VideoTrimmerViewModel& session = window->session();
    ASSERT_TRUE(session.splitSegment(1.0));
    ASSERT_TRUE(session.splitSegment(2.0));
    session.toggleSegment(session.segments()[1].id);
    TrimmerPlayer& player = window->player();
    player.setCutSegments(session.segments());

    player.seek(0.5);
    player.setRate(2.0);
    player.play();
    ASSERT_TRUE(player.isFollowingAudio());
    const auto started = Clock::now();
    std::vector<double> seen = followSound(player, 900ms);
    const double wall = std::chrono::duration<double>(Clock::now() - started).count();
    ASSERT_FALSE(seen.empty());
    for (double t : seen)
        EXPECT_FALSE(t > 1.01 && t < 1.99) << "the removed part played at " << t;
    // 0.5 s played before the cut, the rest after it, at twice the speed.
    const double played = (player.position() - 2.0) + 0.5;
    EXPECT_GT(played, 2 * wall - 0.7);
    EXPECT_LT(played, 2 * wall + 0.15);

    // At half speed the sound is stretched, and the picture with it.
    player.setRate(0.5);
    EXPECT_TRUE(player.isFollowingAudio());
    const double slowFrom = player.position();
    const auto slowStarted = Clock::now();
    followSound(player, 800ms);
    const double slowWall = std::chrono::duration<double>(Clock::now() - slowStarted).count();
    EXPECT_GT(player.position() - slowFrom, 0.5 * slowWall - 0.3);
    EXPECT_LT(player.position() - slowFrom, 0.5 * slowWall + 0.1);

    player.setRate(1.0);
    player.seek(3.0);
    EXPECT_TRUE(player.isFollowingAudio());
    waitUntil([] { return false; }, 300ms);
    EXPECT_GE(player.position(), 3.0);
    EXPECT_LT(player.position(), 3.35);
    EXPECT_NEAR(player.currentFrameTime(), player.position(), 0.25);

    player.setLooping(true);
    double lowest = 10.0;
    double highest = 0.0;
    ASSERT_TRUE(waitUntil(
        [&] {
            highest = std::max(highest, player.position());
            lowest = std::min(lowest, player.position());
            return highest > 3.8 && player.position() > 0.1 && player.position() < 0.9;
        },
        5s))
        << "the loop did not start again from the beginning";
    EXPECT_TRUE(player.isPlaying());
    EXPECT_TRUE(player.isFollowingAudio());

    // Without the loop, playback ends at the end with the sound.
    player.setLooping(false);
    player.seek(3.6);
    ASSERT_TRUE(waitUntil([&] { return !player.isPlaying(); }, 5s));
    EXPECT_DOUBLE_EQ(player.position(), player.duration());
}

// With no sound device the recording still plays, by the steady clock, and a recording
// without sound plays the same way.
TEST_F(TrimmerAudioTest, playsWithoutASoundDeviceOrASoundTrack) {
    REQUIRE_TOOL("ffmpeg");
    for (const bool withSound : {true, false}) {
        SCOPED_TRACE(withSound ? "no sound device" : "no sound track");
        const QString movie = makeRecording(withSound);
        std::string error;
        auto renderer = PreviewRenderer::open(movie.toStdString(), std::nullopt, error);
        ASSERT_TRUE(renderer) << error;
        TrimmerPlayer player(std::move(renderer), 4.0);
        player.openAudio(movie.toStdString(), QAudioDevice());
        EXPECT_EQ(player.hasAudio(), withSound);
        int frames = 0;
        std::vector<double> starts;
        QObject::connect(&player, &TrimmerPlayer::frameShown, [&] {
            ++frames;
            if (player.isPlaying())
                starts.push_back(player.currentFrameStart());
        });
        ASSERT_TRUE(waitUntil([&] { return frames > 0; }, 20s));
        const auto started = Clock::now();
        player.play();
        EXPECT_FALSE(player.isFollowingAudio());
        waitUntil([] { return false; }, 600ms);
        const double wall = std::chrono::duration<double>(Clock::now() - started).count();
        EXPECT_TRUE(player.isPlaying());
        EXPECT_GT(player.position(), wall - 0.15);
        EXPECT_LE(player.position(), wall + 0.1);
        // A loaded machine may decode slowly, but the picture moves on while the clock runs.
        EXPECT_TRUE(waitUntil([&] { return starts.size() >= 5; }, 2500ms))
            << "playback showed " << starts.size() << " frames";
        // Frames made ahead of their time come in order, each once.
        for (size_t i = 1; i < starts.size(); ++i)
            EXPECT_GT(starts[i], starts[i - 1]) << "frame " << i << " of the playback";
        // A second start finds the device still missing and goes on the same way.
        player.pause();
        player.play();
        EXPECT_FALSE(player.isFollowingAudio());
        EXPECT_TRUE(player.isPlaying());
        player.pause();

        // The steady clock, too, passes over a removed part and loops.
        VideoSegment kept, removed, rest;
        kept.endTime = MediaTime::fromSeconds(1.0, 600);
        removed.startTime = kept.endTime;
        removed.endTime = MediaTime::fromSeconds(2.0, 600);
        removed.isMarkedForDeletion = true;
        rest.startTime = removed.endTime;
        rest.endTime = MediaTime::fromSeconds(4.0, 600);
        player.setCutSegments({kept, removed, rest});
        player.setLooping(true);
        player.seek(0.8);
        player.play();
        bool passedTheEnd = false;
        bool insideRemoved = false;
        ASSERT_TRUE(waitUntil(
            [&] {
                const double t = player.position();
                insideRemoved = insideRemoved || (t > 1.01 && t < 1.99);
                passedTheEnd = passedTheEnd || t > 3.8;
                return passedTheEnd && t < 0.9;
            },
            8s))
            << "the steady clock did not loop";
        EXPECT_FALSE(insideRemoved);
        EXPECT_TRUE(player.isPlaying());
        player.pause();
    }
}
// The volume control sets the player's volume and mute, shows what the player has (also when
// a key changed it), and is off for a recording without sound.
TEST_F(TrimmerAudioTest, volumeControlDrivesThePlayer) {
    REQUIRE_TOOL("ffmpeg");
    for (const bool withSound : {true, false}) {
        const QString movie = makeRecording(withSound);
        std::string error;
        auto renderer = PreviewRenderer::open(movie.toStdString(), std::nullopt, error);
        ASSERT_TRUE(renderer) << error;
        TrimmerPlayer player(std::move(renderer), 4.0);
        player.openAudio(movie.toStdString(), QAudioDevice());
        TrimmerVolumeControl control(player);
        EXPECT_EQ(control.isEnabled(), withSound);
        if (!withSound)
            continue;
        control.slider().setValue(40);
        EXPECT_DOUBLE_EQ(player.volume(), 0.4);
        EXPECT_DOUBLE_EQ(player.audioOutput()->volume(), 0.4);
        control.muteButton().click();
        EXPECT_TRUE(player.isMuted());
        EXPECT_TRUE(player.audioOutput()->isMuted());
        EXPECT_EQ(control.slider().value(), 40) << "muting keeps the volume to come back to";
        control.slider().setValue(60);
        EXPECT_FALSE(player.isMuted()) << "raising the volume should make the sound heard";
        player.setMuted(true);
        EXPECT_TRUE(control.muteButton().isChecked());
        player.setVolume(2.0);
        EXPECT_DOUBLE_EQ(player.volume(), 1.0);
        EXPECT_EQ(control.slider().value(), 100);
    }
}
} // namespace
