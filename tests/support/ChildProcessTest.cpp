#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

using namespace std::chrono_literals;

namespace {
// Gone, or a zombie that nobody reaps (in a container the first process may never reap).
bool processEnded(int pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(stat, text))
        return true;
    const auto close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] == 'Z';
}
} // namespace

// A test that crashes (here a forked stand-in that aborts) takes the service it started with it.
TEST(ChildProcessTest, ServiceDiesWithACrashedTest) {
    REQUIRE_TOOL("sleep");
    int pidPipe[2];
    ASSERT_EQ(::pipe(pidPipe), 0);
    const pid_t test = ::fork();
    if (test == 0) {
        ::close(pidPipe[0]);
        ChildProcess service({"sleep", "600"}, {});
        const int pid = service.pid();
        if (::write(pidPipe[1], &pid, sizeof pid) != sizeof pid)
            ::_exit(1);
        ::abort(); // no destructor runs
    }
    ::close(pidPipe[1]);
    int service = -1;
    const bool reported = ::read(pidPipe[0], &service, sizeof service) == sizeof service;
    ::close(pidPipe[0]);
    waitForChild(test, 20s);
    ASSERT_TRUE(reported && service > 0);

    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!processEnded(service) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(10ms);
    const bool ended = processEnded(service);
    if (!ended)
        ::kill(service, SIGKILL);
    EXPECT_TRUE(ended) << "the service outlived the test that started it";
}
