#include "cli/RecordCommand.h"

#include "cli/CommandOutcome.h"
#include "cli/ListCommand.h"
#include "media/DecodedAudio.h"
#include "media/FlashesAndClicks.h"
#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/CliRun.h"
#include "support/EventLoop.h"
#include "support/FlashAndClickScene.h"
#include "support/PulseAudioSession.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QDir>
#include <QJsonObject>
#include <QTemporaryDir>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr double tone = 440.0;

// A mono 44.1 kHz microphone that hears what the null sink plays: a remapped monitor.
std::optional<std::string> addMonoMicrophone(const PulseAudioSession& pulse, const char* name) {
    const auto module = commandOutput(
        {"pactl", "--server=" + pulse.serverAddress(), "load-module", "module-remap-source",
         std::string("source_name=") + name, "master=" + pulse.monitorSource(), "channels=1",
         "rate=44100", std::string("source_properties=device.description=") + name},
        5000ms);
    if (!module || module->empty())
        return std::nullopt;
    return module->substr(0, module->find('\n'));
}

} // namespace

// A tone played into the sink during a screen recording with --system-audio is in the movie:
// one audio stream, 48 kHz stereo, at the tone's pitch in both channels, as long as the picture.
TEST(AudioRecordingTest, SystemAudioToneIsInTheMovie) {
    START_XVFB(session, XvfbSession::desktop());
    START_PULSEAUDIO(pulse);
    ScreenAnimation animation;
    ASSERT_TRUE(pulse.startTone(tone, 8.0, 0.4));

    RecordRun recording({"--fps", "30", "--duration", "2.5", "--system-audio"});
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const std::string movie = recording.writtenFile(".mov");
    const auto probed = probeMovie(movie);
    ASSERT_TRUE(probed.has_value()) << movie;
    int audioStreams = 0;
    for (const ProbedStream& stream : probed->streams)
        audioStreams += stream.type == AVMEDIA_TYPE_AUDIO;
    EXPECT_EQ(audioStreams, 1);
    const ProbedStream* video = probed->first(AVMEDIA_TYPE_VIDEO);
    const ProbedStream* audio = probed->first(AVMEDIA_TYPE_AUDIO);
    ASSERT_NE(video, nullptr);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->codec, "aac");
    EXPECT_EQ(audio->sampleRate, 48000);
    EXPECT_EQ(audio->channels, 2);

    // The sound lasts until the last frame has been shown for its time, within a frame.
    const auto decoded = decodeAudio(movie);
    ASSERT_TRUE(decoded.has_value());
    const double end = decoded->seconds();
    const double lastFrame =
        *std::max_element(video->packetTimes.begin(), video->packetTimes.end());
    EXPECT_NEAR(end, lastFrame + 1.0 / 30, 1.0 / 30);
    ASSERT_GT(end, 2.0);
    for (int channel = 0; channel < 2; ++channel) {
        EXPECT_NEAR(decoded->toneFrequency(channel, 0.5, end - 0.3), tone, 2.0) << channel;
        EXPECT_GT(decoded->level(channel, 0.5, end - 0.3), 0.15) << channel;
    }
}

// Audio only, both sources: the package holds "sys." and "mic." files at 48 kHz stereo in the
// chosen encoder and "info.json"; the mono 44.1 kHz microphone keeps its pitch.
TEST(AudioRecordingTest, AudioPackageHoldsBothSourcesAtTheirPitch) {
    START_PULSEAUDIO(pulse);
    ASSERT_TRUE(addMonoMicrophone(pulse, "monomic").has_value());
    ASSERT_TRUE(pulse.startTone(tone, 8.0, 0.4));

    RecordRun recording({"--mode", "audio", "--duration", "2", "--system-audio", "--microphone",
                         "monomic", "--mic-volume", "0.5", "--audio-format", "flac"});
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const QString package = QString::fromStdString(recording.printedLine());
    EXPECT_TRUE(package.endsWith(".vxa")) << package.toStdString();
    EXPECT_TRUE(QFileInfo(package).fileName().startsWith("Audio Recording "));

    const auto system = decodeAudio((package + "/sys.m4a").toStdString());
    const auto microphone = decodeAudio((package + "/mic.m4a").toStdString());
    ASSERT_TRUE(system && microphone);
    for (const DecodedAudio* audio : {&*system, &*microphone}) {
        EXPECT_EQ(audio->sampleRate, 48000);
        ASSERT_EQ(audio->channels.size(), 2u);
        EXPECT_NEAR(audio->seconds(), 2.0, 0.3);
        for (int channel = 0; channel < 2; ++channel)
            EXPECT_NEAR(audio->toneFrequency(channel, 0.3, audio->seconds() - 0.2), tone, 2.0);
    }
    const auto probed = probeMovie((package + "/mic.m4a").toStdString());
    ASSERT_TRUE(probed.has_value());
    EXPECT_EQ(probed->first(AVMEDIA_TYPE_AUDIO)->codec, "flac");
    // Half the volume halves the level; the mono source is spread over both channels equally.
    const double end = microphone->seconds() - 0.2;
    EXPECT_NEAR(microphone->level(0, 0.3, end), microphone->level(1, 0.3, end), 0.01);
    EXPECT_LT(microphone->level(0, 0.3, end), 0.75 * system->level(0, 0.3, end));

    const QJsonObject json = readJsonObject((package + "/info.json").toStdString());
    EXPECT_EQ(json.value("encoder").toString(), "flac");
    EXPECT_DOUBLE_EQ(json.value("micVol").toDouble(), 0.5);
    EXPECT_DOUBLE_EQ(json.value("sysVol").toDouble(), 1.0);
}

// With the microphone off the package has no "mic." file and is still reported.
TEST(AudioRecordingTest, AudioPackageWithoutMicrophone) {
    START_PULSEAUDIO(pulse);
    ASSERT_TRUE(pulse.startTone(tone, 6.0, 0.4));

    RecordRun recording({"--mode", "audio", "--duration", "1.5", "--system-audio"});
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const QString package = QString::fromStdString(recording.printedLine());
    ASSERT_TRUE(package.endsWith(".vxa")) << recording.output();
    EXPECT_TRUE(QFileInfo::exists(package + "/sys.m4a"));
    EXPECT_TRUE(QFileInfo::exists(package + "/info.json"));
    EXPECT_FALSE(QFileInfo::exists(package + "/mic.m4a"));
}

// A microphone that is not there is refused before anything is recorded, naming it and the
// ones that are; `list microphones` shows microphones only, the default marked.
TEST(AudioRecordingTest, MissingMicrophoneIsNamed) {
    START_PULSEAUDIO(pulse);
    ASSERT_TRUE(addMonoMicrophone(pulse, "monomic").has_value());

    QTemporaryDir folder;
    const CommandOutcome refused =
        runCommandEntry(runRecord, {"--mode", "audio", "--microphone", "nosuchmic", "--output",
                                    folder.path(), "--duration", "1"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("nosuchmic"), std::string::npos) << refused.err;
    EXPECT_NE(refused.err.find("monomic"), std::string::npos) << refused.err;
    EXPECT_TRUE(QDir(folder.path()).isEmpty());

    const CommandOutcome listed = runCommandEntry(runList, {"microphones"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_NE(listed.out.find("monomic\tmonomic\t44100 Hz\t1 ch\tdefault"), std::string::npos)
        << listed.out;
    EXPECT_EQ(listed.out.find(".monitor"), std::string::npos) << listed.out;
}

// A microphone unplugged mid-recording: the recording goes on, the file is valid and as long as
// the recording, silent from the moment the device went.
TEST(AudioRecordingTest, VanishedMicrophoneLeavesSilence) {
    START_PULSEAUDIO(pulse);
    const auto module = addMonoMicrophone(pulse, "usbmic");
    ASSERT_TRUE(module.has_value());
    ASSERT_TRUE(pulse.startTone(tone, 8.0, 0.4));

    RecordRun recording({"--mode", "audio", "--duration", "3", "--microphone", "usbmic"});
    ASSERT_TRUE(waitUntil(
        [&] {
            return recording.output().find("appended") != std::string::npos ||
                   recording.errors().find("Recording;") != std::string::npos;
        },
        10s));
    std::this_thread::sleep_for(1s);
    ASSERT_EQ(runCommand({"pactl", "--server=" + pulse.serverAddress(), "unload-module", *module},
                         5000ms),
              0);
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const QString package = QString::fromStdString(recording.printedLine());
    const auto microphone = decodeAudio((package + "/mic.m4a").toStdString());
    ASSERT_TRUE(microphone.has_value()) << package.toStdString();
    EXPECT_NEAR(microphone->seconds(), 3.0, 0.3);
    EXPECT_GT(microphone->level(0, 0.2, 0.8), 0.1);
    EXPECT_LT(microphone->level(0, 2.2, microphone->seconds() - 0.1), 0.001);
}

// Picture and sound stay together across a pause: the offset between each flash and its click
// in the file stays the same within one frame, before and after the pause alike.
TEST(AudioRecordingTest, PictureAndSoundStayAlignedAcrossAPause) {
    START_XVFB(session, XvfbSession::desktop());
    START_PULSEAUDIO(pulse);
    FlashAndClickScene scene(PulseAudioSession::sinkName);

    RecordRun recording({"--fps", "30", "--duration", "6", "--system-audio"});
    ASSERT_TRUE(recording.waitForFirstFrame(10s)) << recording.errors();
    std::this_thread::sleep_for(2500ms);
    ASSERT_TRUE(recording.pauseFor(1300ms)) << recording.errors();
    ASSERT_EQ(recording.waitForExit(30s), 0) << recording.errors();
    const std::string movie = recording.writtenFile(".mov");

    const FlashesAndClicks events = findFlashesAndClicks(movie);
    const std::vector<double> offsets = events.offsets();
    std::string listed;
    for (double offset : offsets)
        listed += fmt::format(" {:+.1f}", offset * 1000);
    // About six flashes in six recorded seconds; one may fall into the pause's edges.
    ASSERT_GE(offsets.size(), 4u) << events.flashes.size() << " flashes, " << events.clicks.size()
                                  << " clicks";
    // The click reaches the sink some tens of milliseconds after its flash is drawn (the player's
    // buffers), and a flash is seen at the next capture tick: the offset is not zero, but it
    // must stay the same, within one frame, before and after the pause.
    const auto [low, high] = std::minmax_element(offsets.begin(), offsets.end());
    EXPECT_LT(*high - *low, 1.0 / 30) << "offsets in ms:" << listed;
    EXPECT_LT(std::max(std::fabs(*low), std::fabs(*high)), 2.0 / 30) << "offsets in ms:" << listed;
    // Both sides of the pause are there: flashes a second apart except across it.
    EXPECT_GT(events.flashes.back() - events.flashes.front(), 3.5);
}

// With --aec the default microphone is cleaned of what the speakers play: a microphone that
// hears only the system audio (its echo) is recorded much quieter than without.
TEST(AudioRecordingTest, EchoCancellationQuietsTheEcho) {
    START_PULSEAUDIO(pulse);
    ASSERT_TRUE(addMonoMicrophone(pulse, "echomic").has_value());
    ASSERT_TRUE(pulse.startTone(tone, 20.0, 0.4));

    auto micLevel = [](const std::vector<std::string>& extra) {
        RecordRun recording(joined({"--mode", "audio", "--duration", "4", "--microphone"}, extra));
        EXPECT_EQ(recording.waitForExit(30s), 0) << recording.errors();
        const auto microphone = decodeAudio(
            (QString::fromStdString(recording.printedLine()) + "/mic.m4a").toStdString());
        EXPECT_TRUE(microphone.has_value());
        // After the canceller's first second of learning.
        return microphone ? microphone->level(0, 1.5, 3.8) : 0.0;
    };
    const double plain = micLevel({});
    const double cancelled = micLevel({"--aec"});
    ASSERT_GT(plain, 0.1);
    // At least 6 dB quieter.
    EXPECT_LT(cancelled, plain / 2) << plain << " " << cancelled;
}
