#pragma once

#include "support/MissingTool.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

// A service started for a test, in a process group of its own, and always stopped with that group:
// SIGTERM, a bounded wait, then SIGKILL. It also dies when the thread that started it ends (a
// test that crashes or times out), so start services from the test's own thread. Nothing it
// starts outlives the test.
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
    void signalGroup(int signal);

    int m_pid = -1;
    std::optional<int> m_status;
};

// How long a fixture waits for a service it started to answer: generous, because the machine may
// be busy with other tests; a service that starts quickly costs no more.
inline constexpr std::chrono::seconds serviceStartBound{20};

// Runs a command to its end within `timeout`; its exit status, or absent when it had to be killed.
std::optional<int> runCommand(const std::vector<std::string>& argv,
                              std::chrono::milliseconds timeout,
                              const ChildProcess::Options& options = {});
// Like runCommand, and gives back what it printed on standard output.
std::optional<std::string> commandOutput(const std::vector<std::string>& argv,
                                         std::chrono::milliseconds timeout,
                                         const ChildProcess::Options& options = {});

// For a test's own fork(): called first thing in the child, it makes the child die with the
// thread that forked it, so that a crashed or timed-out test leaves nothing running.
void dieWithParent();
// Reaps a forked child within `timeout`: its exit status (128 + the signal number when a signal
// ended it), or absent when it had to be killed.
std::optional<int> waitForChild(int pid, std::chrono::milliseconds timeout);

// The absolute path of a program on PATH, or absent.
std::optional<std::string> findExecutable(const std::string& name);

// Skips the current test (fails it under CI) when a program is not installed.
#define REQUIRE_TOOL(name) REQUIRE_NOTHING_MISSING(findExecutable(name) ? std::string() : (name))
