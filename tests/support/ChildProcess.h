#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

// A service started for a test and always stopped by its PID: SIGTERM, a bounded wait, then
// SIGKILL. Nothing it starts outlives the test.
class ChildProcess {
public:
    struct Options {
        std::map<std::string, std::string> environment; // set on top of ours
        std::vector<std::string> unsetEnvironment;
        std::optional<int> inheritedFd;        // kept open across exec
        std::optional<std::string> stdoutPath; // else /dev/null
        std::optional<std::string> stderrPath; // else /dev/null when quiet
        bool quiet = true;                     // standard error to /dev/null
    };

    ChildProcess() = default;
    ChildProcess(const std::vector<std::string>& argv, const Options& options);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;

    int pid() const { return m_pid; }
    bool isRunning();
    // Waits for the process to end by itself; its exit status, or absent on timeout.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);
    void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

private:
    int m_pid = -1;
    std::optional<int> m_status;
};

// Runs a command to its end within `timeout`; its exit status, or absent when it had to be killed.
std::optional<int> runCommand(const std::vector<std::string>& argv,
                              std::chrono::milliseconds timeout,
                              const ChildProcess::Options& options = {});
// Like runCommand, and gives back what it printed on standard output.
std::optional<std::string> commandOutput(const std::vector<std::string>& argv,
                                         std::chrono::milliseconds timeout,
                                         const ChildProcess::Options& options = {});

// The absolute path of a program on PATH, or absent.
std::optional<std::string> findExecutable(const std::string& name);

// Skips the current test with a clear message when a tool is not installed.
#define REQUIRE_TOOL(name)                                                                         \
    do {                                                                                           \
        if (!findExecutable(name))                                                                 \
            GTEST_SKIP() << "'" << (name)                                                          \
                         << "' is not installed; run scripts/install-deps.sh to test this";        \
    } while (0)
