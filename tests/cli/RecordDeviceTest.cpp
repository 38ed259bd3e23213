#include "media/DecodedAudio.h"
#include "media/MovieProbe.h"
#include "media/VideoFrameGrabber.h"
#include "support/CliRun.h"
#include "support/PulseAudioSession.h"
#include "support/XvfbSession.h"

#include <QString>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <thread>

using namespace std::chrono_literals;

namespace {

// One `record --mode device` run of the test camera as the attached device. It prints the movie
// last, after the log.
struct DeviceRecording : RecordRun {
    explicit DeviceRecording(const std::vector<std::string>& extra, Environment environment = {})
        : RecordRun(joined({"--mode", "device", "--device", "Test Camera"}, extra),
                    withTestCamera(std::move(environment))) {}
    std::string moviePath() const { return printedLine(0); }
};

// What `list devices` prints with the test camera attached.
std::string listedDevices() {
    CliRun list({"list", "devices"}, withTestCamera({}));
    EXPECT_EQ(list.waitForExit(20s), 0) << list.errors();
    return list.output();
}

// The test picture is colourful; a black or grey frame would mean nothing was captured.
double lumaSpread(const GrabbedVideoFrame& frame) {
    double low = 255, high = 0;
    for (size_t i = 0; i + 3 < frame.bgra.size(); i += 4) {
        const double luma =
            0.0722 * frame.bgra[i] + 0.7152 * frame.bgra[i + 1] + 0.2126 * frame.bgra[i + 2];
        low = std::min(low, luma);
        high = std::max(high, luma);
    }
    return high - low;
}

} // namespace

// Three seconds of the device: the coordinator's finish path prints the movie, which holds
// three seconds of the device's picture from its first frame on.
TEST(RecordDeviceTest, RecordsTheDevicePictureToAMovieAndFinishes) {
    DeviceRecording recording({"--duration", "3"});
    ASSERT_EQ(recording.waitForExit(40s), 0) << recording.errors();
    const std::string movie = recording.moviePath();
    ASSERT_FALSE(movie.empty()) << recording.errors();
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_EQ(video->width, 1280);
    EXPECT_EQ(video->height, 720);
    EXPECT_NEAR(video->endSeconds, 3.0, 0.25);
    ASSERT_FALSE(video->packetTimes.empty());

    std::string error;
    const auto first = grabVideoFrame(QString::fromStdString(movie), 0.0, &error);
    ASSERT_TRUE(first) << error;
    EXPECT_NEAR(first->time, 0.0, 0.05);
    EXPECT_GT(lumaSpread(*first), 100.0);
}

// A device pulled out after 1.5 s: the failure path is reached (status 1) and the part recorded
// until then is a finished, playable movie of about that length.
TEST(RecordDeviceTest, DeviceThatVanishesLeavesAFinishedPartialMovie) {
    DeviceRecording recording({"--duration", "8"},
                              {{"TAVELQUISTON_TEST_CAMERA_UNPLUG_AFTER", "1.5"}});
    ASSERT_EQ(recording.waitForExit(40s), 1) << recording.errors();
    const std::string movie = recording.moviePath();
    ASSERT_FALSE(movie.empty()) << recording.errors();
    const auto video = probeVideo(movie);
    ASSERT_TRUE(video) << movie;
    EXPECT_NEAR(video->endSeconds, 1.5, 0.3);
    std::string error;
    EXPECT_TRUE(grabVideoFrame(QString::fromStdString(movie), 1.0, &error)) << error;
}

// A name no device has is bad input, and so is a device's option on another mode; `list
// devices` names the test device as a capture source.
TEST(RecordDeviceTest, UnknownDeviceIsBadInputAndListShowsTheTestDevice) {
    EXPECT_EQ(
        runCommand(
            {TAVELQUISTON_CLI_PATH, "record", "--mode", "device", "--device", "No Such Card"}, 20s),
        2);
    EXPECT_EQ(runCommand({TAVELQUISTON_CLI_PATH, "record", "--mode", "screen", "--device-audio",
                          "none", "--duration", "1"},
                         20s),
              2);
    const std::string listed = listedDevices();
    EXPECT_NE(listed.find("Test Camera"), std::string::npos) << listed;
}

// With --preview a window titled after the device is on the screen while it records, and the
// recording still finishes.
TEST(RecordDeviceTest, PreviewWindowShowsWhileRecording) {
    XvfbSession::Options desktop;
    desktop.width = 1280;
    desktop.height = 720;
    START_XVFB(session, desktop);
    REQUIRE_TOOL("xwininfo");

    // The preview is a real window on the test's X server.
    DeviceRecording recording({"--duration", "3", "--preview"}, {realWindows});
    bool shown = false;
    for (int attempt = 0; attempt < 25 && !shown; ++attempt) {
        std::this_thread::sleep_for(100ms);
        const auto tree = commandOutput({"xwininfo", "-root", "-tree"}, 5s);
        shown = tree && tree->find("Test Camera — Preview") != std::string::npos;
    }
    EXPECT_TRUE(shown);
    ASSERT_EQ(recording.waitForExit(40s), 0) << recording.errors();
    EXPECT_TRUE(probeMovie(recording.moviePath()));
}

namespace {
// The sound card of the test device on the test's sound server: a source described as the device
// is, fed with a steady tone.
constexpr double deviceTone = 660.0;

// Where the picture ends: the last frame's time plus its length at the test device's 30 frames a
// second (the file's packets leave their durations to the track's timing).
double pictureEnd(const ProbedStream& video) {
    return video.packetTimes.empty()
               ? 0.0
               : *std::max_element(video.packetTimes.begin(), video.packetTimes.end()) + 1.0 / 30;
}

bool giveTheTestDeviceASound(PulseAudioSession& sound) {
    return sound.addDeviceSound("tq_device", "tq_device_sound", "Test Camera") &&
           sound.startTone(deviceTone, 30.0, 0.5, "tq_device");
}
} // namespace

// The device's own sound is found, listed with it and recorded into the same movie: the tone at
// its pitch from the start to the end of the picture, the two tracks ending within a frame.
TEST(RecordDeviceTest, RecordsTheDeviceSoundWithThePicture) {
    REQUIRE_PULSEAUDIO();
    PulseAudioSession sound;
    ASSERT_TRUE(sound.isReady()) << sound.error();
    ASSERT_TRUE(giveTheTestDeviceASound(sound));

    const std::string listed = listedDevices();
    EXPECT_NE(listed.find("sound: Test Camera (tq_device_sound)"), std::string::npos) << listed;

    DeviceRecording recording({"--duration", "3"});
    ASSERT_EQ(recording.waitForExit(40s), 0) << recording.errors();
    const std::string movie = recording.moviePath();
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed && probed->first(AVMEDIA_TYPE_VIDEO) && probed->first(AVMEDIA_TYPE_AUDIO))
        << movie;
    const double videoEnd = pictureEnd(*probed->first(AVMEDIA_TYPE_VIDEO));
    EXPECT_NEAR(videoEnd, 3.0, 0.25);
    EXPECT_NEAR(probed->first(AVMEDIA_TYPE_AUDIO)->endSeconds, videoEnd, 1.0 / 30);

    const auto decoded = decodeAudio(movie);
    ASSERT_TRUE(decoded);
    EXPECT_NEAR(decoded->seconds(), videoEnd, 1.0 / 30);
    // Sound from the first picture on: the tone is there in the first tenth of a second already.
    EXPECT_GT(decoded->level(0, 0.0, 0.1), 0.2);
    EXPECT_NEAR(decoded->toneFrequency(0, 0.1, videoEnd - 0.1), deviceTone, 2.0);
    EXPECT_NEAR(decoded->level(1, 0.5, 2.5), 0.5 / std::sqrt(2.0), 0.05);
}

// "none" records the picture alone although the device has a sound; a source that does not
// exist is bad input naming it.
TEST(RecordDeviceTest, DeviceAudioOptionOverridesTheMatch) {
    REQUIRE_PULSEAUDIO();
    PulseAudioSession sound;
    ASSERT_TRUE(sound.isReady()) << sound.error();
    ASSERT_TRUE(giveTheTestDeviceASound(sound));

    DeviceRecording silent({"--duration", "2", "--device-audio", "none"});
    ASSERT_EQ(silent.waitForExit(40s), 0) << silent.errors();
    const auto probed = probeMovie(silent.moviePath());
    ASSERT_TRUE(probed && probed->first(AVMEDIA_TYPE_VIDEO));
    EXPECT_NEAR(probed->first(AVMEDIA_TYPE_VIDEO)->endSeconds, 2.0, 0.25);
    const ProbedStream* audio = probed->first(AVMEDIA_TYPE_AUDIO);
    EXPECT_TRUE(!audio || audio->packetTimes.empty());

    // The monitor of the main sink hears nothing of the device's tone: chosen by name, it is
    // what is recorded.
    DeviceRecording chosen({"--duration", "2", "--device-audio", sound.monitorSource()});
    ASSERT_EQ(chosen.waitForExit(40s), 0) << chosen.errors();
    const auto decoded = decodeAudio(chosen.moviePath());
    ASSERT_TRUE(decoded);
    EXPECT_NEAR(decoded->seconds(), 2.0, 0.25);
    EXPECT_LT(decoded->level(0, 0.2, 1.8), 0.01);

    DeviceRecording wrong({"--duration", "2", "--device-audio", "no_such_source"});
    ASSERT_EQ(wrong.waitForExit(40s), 2);
    EXPECT_NE(wrong.errors().find("no_such_source"), std::string::npos) << wrong.errors();
}
