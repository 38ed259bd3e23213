#pragma once

#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A private PipeWire daemon with WirePlumber, in a runtime folder of its own, on the D-Bus
// session this process points at (start a DBusSession first). While it lives,
// PIPEWIRE_RUNTIME_DIR points at it, so PipeWire clients of this process and its children use
// it. Video source nodes are GStreamer test pictures of known colours.
class PipeWireSession {
public:
    static std::string missingTool();

    PipeWireSession();
    ~PipeWireSession();

    bool isReady() const { return m_ready; }
    const std::string& error() const { return m_error; }
    const std::string& runtimeDir() const { return m_runtimeDir; }
    int daemonPid() const { return m_pipewire.pid(); }
    std::string socketPath() const { return m_runtimeDir + "/pipewire-0"; }

    // Starts a live BGRx source node of `pattern` (a videotestsrc pattern: "red", "blue",
    // "ball", ...) at `frameRate`; its node id once PipeWire lists it (within 5 s), else absent.
    std::optional<uint32_t> startVideoSource(const std::string& name, const std::string& pattern,
                                             int width, int height, int frameRate = 30);
    // Starts a source program of the tests' own that makes a node named `name`; its node id
    // once PipeWire lists it (within 5 s), else absent.
    std::optional<uint32_t> startSourceProgram(const std::string& name,
                                               const std::vector<std::string>& argv);
    // Ends the source started under that name, as a producer that goes away.
    void stopVideoSource(const std::string& name);

private:
    std::optional<uint32_t> findNode(const std::string& name);

    bool m_ready = false;
    std::string m_error;
    std::string m_runtimeDir;
    ChildProcess m_pipewire;
    ChildProcess m_wireplumber;
    std::vector<std::pair<std::string, std::unique_ptr<ChildProcess>>> m_sources;
    std::unique_ptr<ScopedEnvironment> m_runtimeVariable;
};

#define REQUIRE_PIPEWIRE()                                                                         \
    do {                                                                                           \
        const std::string missing = PipeWireSession::missingTool();                                \
        if (!missing.empty()) {                                                                    \
            if (std::getenv("CI") && std::string(std::getenv("CI")) == "true")                     \
                FAIL() << "'" << missing << "' is not installed";                                  \
            GTEST_SKIP() << "'" << missing << "' is not installed; run scripts/install-deps.sh";   \
        }                                                                                          \
    } while (0)

// Starts a PipeWire daemon named `name` for the current test, or skips the test (fails it under
// CI) when a tool is missing; fails it when the daemon does not come up.
#define START_PIPEWIRE(name)                                                                       \
    REQUIRE_PIPEWIRE();                                                                            \
    PipeWireSession name;                                                                          \
    ASSERT_TRUE(name.isReady()) << name.error()
