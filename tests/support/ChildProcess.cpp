#include "support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace {
std::vector<std::string> mergedEnvironment(const ChildProcess::Options& options) {
    std::map<std::string, std::string> env;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text(*entry);
        const auto eq = text.find('=');
        if (eq != std::string::npos)
            env[text.substr(0, eq)] = text.substr(eq + 1);
    }
    for (const auto& name : options.unsetEnvironment)
        env.erase(name);
    for (const auto& [name, value] : options.environment)
        env[name] = value;
    std::vector<std::string> result;
    for (const auto& [name, value] : env)
        result.push_back(name + "=" + value);
    return result;
}

// The exit status of a child that has ended (128 + the signal number when a signal ended it),
// collected without waiting; absent while it runs. A child that is not ours to wait for any more
// counts as ended, with status -1.
std::optional<int> reapIfEnded(pid_t pid) {
    int status = 0;
    const pid_t result = ::waitpid(pid, &status, WNOHANG);
    if (result == pid)
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (result < 0 && errno == ECHILD)
        return -1;
    return std::nullopt;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& s : strings)
        result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}
} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argvIn, const Options& options) {
    std::vector<std::string> argv = argvIn;
    std::vector<std::string> env = mergedEnvironment(options);
    std::vector<char*> argvPointers = pointers(argv);
    std::vector<char*> envPointers = pointers(env);
    const std::optional<std::string> program =
        argv.empty() ? std::nullopt : findExecutable(argv[0]);
    if (!program)
        return;

    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const int out = options.stdoutPath ? ::open(options.stdoutPath->c_str(),
                                                O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)
                                       : devNull;
    const int err = options.stderrPath ? ::open(options.stderrPath->c_str(),
                                                O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)
                                       : -1;
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid == 0) {
        // Only async-signal-safe calls between fork and exec. The child dies with the thread
        // that started it, so a test that crashes or is killed by its time limit leaves no
        // service behind; a parent already gone before prctl took effect is caught by the check.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        ::setpgid(0, 0);
        ::dup2(devNull, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        if (err >= 0)
            ::dup2(err, STDERR_FILENO);
        else if (options.quiet)
            ::dup2(devNull, STDERR_FILENO);
        if (options.inheritedFd) {
            const int flags = ::fcntl(*options.inheritedFd, F_GETFD);
            ::fcntl(*options.inheritedFd, F_SETFD, flags & ~FD_CLOEXEC);
        }
        ::execve(program->c_str(), argvPointers.data(), envPointers.data());
        ::_exit(127);
    }
    if (m_pid > 0)
        ::setpgid(m_pid, m_pid); // also from this side, so the group exists before any stop()
    if (out != devNull && out >= 0)
        ::close(out);
    if (err >= 0)
        ::close(err);
    ::close(devNull);
}

ChildProcess::~ChildProcess() {
    stop();
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_pid(other.m_pid), m_status(other.m_status) {
    other.m_pid = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
        stop();
        m_pid = other.m_pid;
        m_status = other.m_status;
        other.m_pid = -1;
    }
    return *this;
}

void ChildProcess::signalGroup(int signal) {
    // Until the child's setpgid has run, the group does not exist yet.
    if (::kill(-m_pid, signal) != 0)
        ::kill(m_pid, signal);
}

bool ChildProcess::isRunning() {
    if (m_pid <= 0 || m_status)
        return false;
    m_status = reapIfEnded(m_pid);
    return !m_status;
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (isRunning()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return m_status;
}

void dieWithParent() {
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent may have gone before the request took effect.
    if (::getppid() != parent)
        ::_exit(127);
}

std::optional<int> waitForChild(int pid, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (auto status = reapIfEnded(pid))
            return status;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ::kill(pid, SIGKILL);
    int ignored = 0;
    ::waitpid(pid, &ignored, 0); // SIGKILL cannot be caught: this returns
    return std::nullopt;
}

void ChildProcess::stop(std::chrono::milliseconds grace) {
    if (!isRunning()) {
        m_pid = -1;
        return;
    }
    // The whole process group, so that a daemon's helpers go too; the child leads its group.
    signalGroup(SIGTERM);
    if (!waitForExit(grace)) {
        signalGroup(SIGKILL);
        waitForExit(std::chrono::milliseconds(2000));
    }
    // Helpers that outlived their leader's SIGTERM.
    ::kill(-m_pid, SIGKILL);
    m_pid = -1;
}

std::optional<int> runCommand(const std::vector<std::string>& argv,
                              std::chrono::milliseconds timeout,
                              const ChildProcess::Options& options) {
    ChildProcess process(argv, options);
    if (process.pid() <= 0)
        return std::nullopt;
    auto status = process.waitForExit(timeout);
    process.stop();
    return status;
}

std::optional<std::string> commandOutput(const std::vector<std::string>& argv,
                                         std::chrono::milliseconds timeout,
                                         const ChildProcess::Options& optionsIn) {
    char path[] = "/tmp/tq-command-XXXXXX";
    const int fd = ::mkstemp(path);
    if (fd < 0)
        return std::nullopt;
    ::close(fd);
    ChildProcess::Options options = optionsIn;
    options.stdoutPath = path;
    const auto status = runCommand(argv, timeout, options);
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    ::unlink(path);
    if (!status || *status != 0)
        return std::nullopt;
    return text.str();
}

std::optional<std::string> findExecutable(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return ::access(name.c_str(), X_OK) == 0 ? std::optional(name) : std::nullopt;
    const char* path = std::getenv("PATH");
    std::stringstream dirs(path ? path : "/usr/local/bin:/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        const std::string candidate = dir + "/" + name;
        struct stat info {};
        if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
            ::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return std::nullopt;
}
