#include "platform/pulse/PulseAudioCaptureEngine.h"

#include "media/AudioBuffer.h"
#include "platform/pulse/AudioDeviceManager.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"
#include "support/PulseAudioSession.h"

#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

using namespace std::chrono_literals;

// Volumes scale every sample without clipping; zero is silence of the same length and time.
TEST(PulseAudioCaptureEngine, VolumeScalesWithoutClipping) {
    AudioBuffer loud = AudioBuffer::allocate(2, 48000, 4, MediaTime::make(7, 1));
    for (int channel = 0; channel < 2; ++channel)
        for (int i = 0; i < 4; ++i)
            loud.mutableChannelData(channel)[i] = 0.75f * float(i % 2 ? -1 : 1);
    const auto doubled = PulseAudioCaptureEngine::adjustVolume(loud, 2.0f);
    ASSERT_TRUE(doubled.has_value());
    EXPECT_FLOAT_EQ(doubled->channelData(1)[0], 1.5f);
    EXPECT_FLOAT_EQ(doubled->channelData(1)[1], -1.5f);
    EXPECT_FLOAT_EQ(loud.channelData(1)[0], 0.75f); // the original is untouched
    const auto silent = PulseAudioCaptureEngine::adjustVolume(loud, 0.0f);
    ASSERT_TRUE(silent.has_value());
    EXPECT_EQ(silent->sampleCount(), 4);
    EXPECT_EQ(silent->presentationTime, MediaTime::make(7, 1));
    EXPECT_FLOAT_EQ(silent->channelData(0)[2], 0.0f);
    EXPECT_FALSE(PulseAudioCaptureEngine::adjustVolume(AudioBuffer(), 2.0f).has_value());
}

// A mono 44.1 kHz microphone arrives as 48 kHz stereo float blocks stamped with the host clock
// at delivery: each block a little before the moment it is handed over, each following the one
// before without a gap, at the rate of real time.
TEST(PulseAudioCaptureEngine, MonoMicrophoneArrivesAsStereoOnTheHostClock) {
    START_PULSEAUDIO(pulse);
    ASSERT_EQ(runCommand({"pactl", "--server=" + pulse.serverAddress(), "load-module",
                          "module-remap-source", "source_name=mono", "channels=1", "rate=44100",
                          "master=" + pulse.monitorSource()},
                         5000ms),
              0);
    const auto microphone = AudioDeviceManager::getDefaultMicrophone();
    ASSERT_TRUE(microphone.has_value());
    EXPECT_EQ(microphone->uniqueID, "mono"); // the monitor is no microphone
    EXPECT_EQ(AudioDeviceManager::getMicrophoneSampleRate(microphone), 44100);

    struct Delivery {
        MediaTime start, end, handedOver;
        int rate, channels;
    };
    std::mutex mutex;
    std::vector<Delivery> deliveries;
    PulseAudioCaptureEngine engine;
    engine.setMicrophoneAudioHandler([&](const AudioBufferHandle& buffer,
                                         const AudioSampleTiming& timing) {
        std::lock_guard lock(mutex);
        deliveries.push_back({timing.presentationTime,
                              buffer->presentationTime + buffer->duration(),
                              MediaTime::hostTimeNow(), timing.sampleRate, timing.channelCount});
    });
    ASSERT_TRUE(engine.setupMicrophoneCapture(std::nullopt, false));
    const MediaTime started = MediaTime::hostTimeNow();
    engine.startCapture();
    ASSERT_TRUE(waitUntil(
        [&] {
            std::lock_guard lock(mutex);
            return deliveries.size() > 100;
        },
        10s));
    engine.stopCapture();
    const MediaTime stopped = MediaTime::hostTimeNow();

    std::lock_guard lock(mutex);
    double covered = 0;
    for (size_t i = 0; i < deliveries.size(); ++i) {
        const Delivery& d = deliveries[i];
        EXPECT_EQ(d.rate, 48000);
        EXPECT_EQ(d.channels, 2);
        EXPECT_LE(d.end.seconds(), d.handedOver.seconds() + 0.001) << i;
        EXPECT_GT(d.end.seconds(), d.handedOver.seconds() - 0.1) << i;
        if (i > 0) {
            EXPECT_NEAR(d.start.seconds(), deliveries[i - 1].end.seconds(), 0.02) << i;
        }
        covered += (d.end - d.start).seconds();
    }
    // The blocks cover the time captured, give or take the stream's start-up.
    const double elapsed = (stopped - started).seconds();
    EXPECT_NEAR(covered, elapsed, 0.15);
}
