#pragma once

#include "support/ChildProcess.h"

#include <cstdint>
#include <string>
#include <vector>

// The stand-in ScreenCast portal (tests/support/standin) on the D-Bus session this process
// points at, sharing one node of a test PipeWire daemon. Stopped with the object.
class ScreenCastPortalStandIn {
public:
    struct Options {
        uint32_t node = 0;
        int width = 0;
        int height = 0;
        std::string pipewireSocket;
        bool refuse = false;       // the user says no
        bool shareWindow = false;  // the user picks a window, not a monitor
        std::string requiredToken; // nobody to ask: only this restore token starts a session
        int closeAfterMs = -1;     // the desktop ends the session this long after Start
        uint32_t cursorModes = 7;
    };

    // `program` is the stand-in's path (the test's build knows it).
    ScreenCastPortalStandIn(const std::string& program, const Options& options);
    ~ScreenCastPortalStandIn();

    bool isReady() const { return m_ready; }
    const std::string& error() const { return m_error; }
    // The calls it answered, one line each ("SelectSources types=1 cursor_mode=4 ...").
    std::vector<std::string> calls() const;

private:
    bool m_ready = false;
    std::string m_error;
    std::string m_folder;
    ChildProcess m_process;
};
