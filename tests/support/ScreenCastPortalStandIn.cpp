#include "support/ScreenCastPortalStandIn.h"
#include "support/TextFiles.h"

#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;

ScreenCastPortalStandIn::ScreenCastPortalStandIn(const std::string& program,
                                                 const Options& options) {
    char dir[] = "/tmp/tq-portal-XXXXXX";
    if (!::mkdtemp(dir)) {
        m_error = "cannot make a folder";
        return;
    }
    m_folder = dir;
    std::vector<std::string> argv{program,
                                  "--node",
                                  std::to_string(options.node),
                                  "--width",
                                  std::to_string(options.width),
                                  "--height",
                                  std::to_string(options.height),
                                  "--pipewire-socket",
                                  options.pipewireSocket,
                                  "--cursor-modes",
                                  std::to_string(options.cursorModes),
                                  "--log",
                                  m_folder + "/calls.log"};
    if (options.refuse)
        argv.push_back("--refuse");
    if (options.shareWindow)
        argv.push_back("--share-window");
    if (!options.requiredToken.empty())
        argv.insert(argv.end(), {"--require-token", options.requiredToken});
    if (options.closeAfterMs >= 0)
        argv.insert(argv.end(), {"--close-after-ms", std::to_string(options.closeAfterMs)});
    ChildProcess::Options processOptions;
    processOptions.stdoutPath = m_folder + "/out";
    processOptions.stderrPath = m_folder + "/err";
    processOptions.quiet = false;
    m_process = ChildProcess(argv, processOptions);
    const auto deadline = std::chrono::steady_clock::now() + 5000ms;
    while (std::chrono::steady_clock::now() < deadline) {
        if (readText(m_folder + "/out").find("ready") != std::string::npos) {
            m_ready = true;
            return;
        }
        if (!m_process.isRunning())
            break;
        std::this_thread::sleep_for(20ms);
    }
    m_error = "the stand-in portal did not start: " + readText(m_folder + "/err");
}

ScreenCastPortalStandIn::~ScreenCastPortalStandIn() {
    m_process.stop();
    std::error_code ignored;
    if (!m_folder.empty())
        std::filesystem::remove_all(m_folder, ignored);
}

std::vector<std::string> ScreenCastPortalStandIn::calls() const {
    std::vector<std::string> lines;
    std::istringstream in(readText(m_folder + "/calls.log"));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}
