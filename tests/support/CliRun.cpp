#include "support/CliRun.h"

#include "support/EventLoop.h"
#include "support/TextFiles.h"

#include <QFile>
#include <QJsonDocument>

#include <csignal>
#include <thread>

CliRun::CliRun(const std::vector<std::string>& arguments, Environment environment,
               std::vector<std::string> unset) {
    start(arguments, std::move(environment), std::move(unset));
}

void CliRun::start(const std::vector<std::string>& arguments, Environment environment,
                   std::vector<std::string> unset) {
    ChildProcess::Options options;
    options.environment = std::move(environment);
    options.unsetEnvironment = std::move(unset);
    options.stdoutPath = logs.filePath("stdout.txt").toStdString();
    options.stderrPath = logs.filePath("stderr.txt").toStdString();
    process = ChildProcess(joined({TAVELQUISTON_CLI_PATH}, arguments), options);
}

std::string CliRun::output() const {
    return readText(logs.filePath("stdout.txt").toStdString());
}

std::string CliRun::errors() const {
    return readText(logs.filePath("stderr.txt").toStdString());
}

std::vector<std::string> CliRun::outputLines() const {
    return linesOf(output());
}

std::string CliRun::printedLine(size_t fromEnd) const {
    const std::vector<std::string> lines = outputLines();
    return fromEnd < lines.size() ? lines[lines.size() - 1 - fromEnd] : std::string();
}

std::string CliRun::writtenFile(const std::string& suffix) const {
    std::string found;
    for (const std::string& line : outputLines())
        if (line.ends_with(suffix))
            found = line;
    return found;
}

bool CliRun::waitForOutput(const std::string& text, std::chrono::milliseconds bound) {
    return waitUntil([&] { return output().find(text) != std::string::npos; }, bound);
}

bool CliRun::waitForErrors(const std::string& text, std::chrono::milliseconds bound) {
    return waitUntil([&] { return errors().find(text) != std::string::npos; }, bound);
}

bool CliRun::waitForFirstFrame(std::chrono::milliseconds bound) {
    return waitForOutput("Successfully appended video frame #1", bound);
}

void CliRun::signal(int number) const {
    ::kill(process.pid(), number);
}

double CliRun::killAfter(std::chrono::milliseconds after) {
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(after);
    signal(SIGKILL);
    const auto killed = std::chrono::steady_clock::now();
    process.waitForExit(std::chrono::seconds(5));
    return std::chrono::duration<double>(killed - start).count();
}

bool CliRun::pauseFor(std::chrono::milliseconds length) {
    signal(SIGUSR1);
    if (!waitForErrors("Paused", std::chrono::seconds(5)))
        return false;
    std::this_thread::sleep_for(length);
    signal(SIGUSR1);
    return true;
}

RecordRun::RecordRun(const std::vector<std::string>& arguments, Environment environment) {
    start(joined({"record", "--output", folderPath()}, arguments), std::move(environment), {});
}

QJsonObject RecordRun::metadata() const {
    return readJsonObject(metadataPath());
}

QJsonObject readJsonObject(const std::string& path) {
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}
