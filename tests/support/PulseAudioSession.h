#pragma once

#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"

#include <memory>
#include <string>
#include <vector>

// A private PulseAudio daemon with one null sink, in a runtime folder of its own. While it
// lives, PULSE_SERVER points at it, so any client of this process (and its children) uses it.
class PulseAudioSession {
public:
    static constexpr const char* sinkName = "tavelquiston_test";

    static std::string missingTool();

    PulseAudioSession();
    ~PulseAudioSession();

    bool isReady() const { return m_ready; }
    const std::string& error() const { return m_error; }
    const std::string& serverAddress() const { return m_server; }
    std::string monitorSource() const { return std::string(sinkName) + ".monitor"; }

    // Plays a sine tone into the null sink (48 kHz stereo); returns once it has been played.
    bool playTone(double frequency, double seconds, double amplitude = 0.5);
    // Starts a tone in the background (into `sink`) and returns at once; stopped with the
    // session.
    bool startTone(double frequency, double seconds, double amplitude = 0.5,
                   const std::string& sink = sinkName);
    // The sound card of an attached device, as far as the sound server shows it: a null sink
    // `sink` to play into and a real (non-monitor) source `source` over its monitor, described
    // as `description`.
    bool addDeviceSound(const std::string& sink, const std::string& source,
                        const std::string& description);
    // Records the sink's monitor until `seconds` of sound have arrived (or, should the daemon
    // stall, ten seconds more have passed): interleaved 16-bit stereo samples at 48 kHz.
    std::vector<int16_t> recordMonitor(double seconds);

private:
    std::string writeTone(double frequency, double seconds, double amplitude);

    bool m_ready = false;
    std::string m_error;
    std::string m_runtimeDir;
    std::string m_server;
    ChildProcess m_daemon;
    std::vector<std::unique_ptr<ChildProcess>> m_players;
    std::vector<std::string> m_files;
    std::unique_ptr<ScopedEnvironment> m_serverVariable;
};

#define REQUIRE_PULSEAUDIO() REQUIRE_NOTHING_MISSING(PulseAudioSession::missingTool())

// Starts a sound server named `name` for the current test, or skips the test (fails it under CI)
// when a tool is missing; fails it when the server does not come up.
#define START_PULSEAUDIO(name)                                                                     \
    REQUIRE_PULSEAUDIO();                                                                          \
    PulseAudioSession name;                                                                        \
    ASSERT_TRUE(name.isReady()) << name.error()
