#pragma once

#include "platform/pulse/PulseHandles.h"

#include <optional>
#include <string>
#include <vector>

// A connection to the sound server (PulseAudio, or PipeWire through pipewire-pulse) with its own
// threaded loop, and the few synchronous questions the recorder asks it.
// Thread: made, asked and destroyed on one thread that is not the loop's; the streams made on it
// call back on the loop's thread.
class PulseConnection final {
public:
    struct Source {
        std::string name;        // the server's name, stable while the device is plugged in
        std::string description; // what a person reads
        int sampleRate = 0;
        int channelCount = 0;
        bool isMonitor = false;
        // Where the hardware behind it sits: "sysfs.path" ("/devices/.../sound/card1", under
        // /sys) and "alsa.card_name"; empty for virtual sources.
        std::string sysfsPath;
        std::string cardName;
        bool operator==(const Source&) const = default;
    };
    struct ServerDefaults {
        std::string sourceName;
        std::string sinkName;
    };

    // Throws std::runtime_error saying why when no server answers; never starts one.
    explicit PulseConnection(const char* clientName);
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    pa_threaded_mainloop* mainloop() const { return m_mainloop.get(); }
    pa_context* context() const { return m_context.get(); }
    bool isConnected() const;

    // These take the loop's lock themselves; an empty answer when the server is gone.
    std::vector<Source> sources();
    std::optional<Source> source(const std::string& name);
    ServerDefaults defaults();

private:
    // Waits, with the lock held, until the operation is done or cancelled.
    void await(pa_operation* operation);

    PaThreadedMainloopPtr m_mainloop;
    PaContextPtr m_context;
};
