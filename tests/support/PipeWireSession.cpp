#include "support/PipeWireSession.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

using namespace std::chrono_literals;

std::string PipeWireSession::missingTool() {
    for (const char* tool : {"pipewire", "wireplumber", "pw-dump", "gst-launch-1.0"}) {
        if (!findExecutable(tool))
            return tool;
    }
    // The GStreamer PipeWire elements come in their own package.
    if (runCommand({"gst-inspect-1.0", "pipewiresink"}, 5000ms) != 0)
        return "gstreamer1.0-pipewire";
    return {};
}

PipeWireSession::PipeWireSession() {
    char dir[] = "/tmp/tq-pipewire-XXXXXX";
    if (!::mkdtemp(dir)) {
        m_error = "cannot make a runtime folder";
        return;
    }
    m_runtimeDir = dir;
    ::chmod(dir, 0700);

    ChildProcess::Options options;
    // Its own runtime folder and home keep this daemon apart from any other; the system bus and
    // realtime warnings it prints are harmless.
    options.environment = {{"XDG_RUNTIME_DIR", m_runtimeDir},
                           {"PIPEWIRE_RUNTIME_DIR", m_runtimeDir},
                           {"HOME", m_runtimeDir},
                           {"XDG_CONFIG_HOME", m_runtimeDir + "/config"},
                           {"XDG_STATE_HOME", m_runtimeDir + "/state"}};
    options.unsetEnvironment = {"DISPLAY", "WAYLAND_DISPLAY", "PIPEWIRE_REMOTE"};
    m_pipewire = ChildProcess({"pipewire"}, options);
    m_runtimeVariable = std::make_unique<ScopedEnvironment>("PIPEWIRE_RUNTIME_DIR", m_runtimeDir);

    auto deadline = std::chrono::steady_clock::now() + 5000ms;
    while (!std::filesystem::exists(socketPath())) {
        if (!m_pipewire.isRunning() || std::chrono::steady_clock::now() > deadline) {
            m_error = "pipewire did not open its socket within 5 s";
            return;
        }
        std::this_thread::sleep_for(20ms);
    }
    m_wireplumber = ChildProcess({"wireplumber"}, options);
    // WirePlumber is ready once it has announced itself as a client of the daemon.
    deadline = std::chrono::steady_clock::now() + 5000ms;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto dump = commandOutput({"pw-dump"}, 3000ms, options);
        if (dump && dump->find("\"WirePlumber\"") != std::string::npos) {
            m_ready = true;
            return;
        }
        if (!m_wireplumber.isRunning())
            break;
        std::this_thread::sleep_for(50ms);
    }
    m_error = "wireplumber did not join pipewire within 5 s";
}

PipeWireSession::~PipeWireSession() {
    m_sources.clear();
    m_wireplumber.stop();
    m_pipewire.stop();
    m_runtimeVariable.reset();
    std::error_code ignored;
    if (!m_runtimeDir.empty())
        std::filesystem::remove_all(m_runtimeDir, ignored);
}

std::optional<uint32_t> PipeWireSession::findNode(const std::string& name) {
    ChildProcess::Options options;
    options.environment = {{"PIPEWIRE_RUNTIME_DIR", m_runtimeDir}};
    const auto dump = commandOutput({"pw-dump"}, 3000ms, options);
    if (!dump)
        return std::nullopt;
    const QJsonArray objects = QJsonDocument::fromJson(QByteArray::fromStdString(*dump)).array();
    for (const QJsonValue& object : objects) {
        const QJsonObject node = object.toObject();
        if (node.value("type").toString() != QLatin1String("PipeWire:Interface:Node"))
            continue;
        const QJsonObject props = node.value("info").toObject().value("props").toObject();
        if (props.value("node.name").toString() == QString::fromStdString(name))
            return uint32_t(node.value("id").toInt());
    }
    return std::nullopt;
}

std::optional<uint32_t> PipeWireSession::startVideoSource(const std::string& name,
                                                          const std::string& pattern, int width,
                                                          int height, int frameRate) {
    const std::string caps = "video/x-raw,format=BGRx,width=" + std::to_string(width) +
                             ",height=" + std::to_string(height) +
                             ",framerate=" + std::to_string(frameRate) + "/1";
    return startSourceProgram(name,
                              {"gst-launch-1.0", "-q", "videotestsrc", "is-live=true",
                               "pattern=" + pattern, "!", caps, "!", "pipewiresink", "mode=provide",
                               "stream-properties=p,media.class=Video/Source,node.name=" + name});
}

std::optional<uint32_t> PipeWireSession::startSourceProgram(const std::string& name,
                                                            const std::vector<std::string>& argv) {
    ChildProcess::Options options;
    options.environment = {{"PIPEWIRE_RUNTIME_DIR", m_runtimeDir},
                           {"XDG_RUNTIME_DIR", m_runtimeDir}};
    m_sources.emplace_back(name, std::make_unique<ChildProcess>(argv, options));
    const auto deadline = std::chrono::steady_clock::now() + 5000ms;
    while (std::chrono::steady_clock::now() < deadline) {
        if (const auto id = findNode(name))
            return id;
        if (!m_sources.back().second->isRunning())
            return std::nullopt;
        std::this_thread::sleep_for(50ms);
    }
    return std::nullopt;
}

void PipeWireSession::stopVideoSource(const std::string& name) {
    for (auto& [sourceName, process] : m_sources) {
        if (sourceName == name)
            process->stop();
    }
}
