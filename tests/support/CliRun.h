#pragma once

#include "support/ChildProcess.h"

#include <QJsonObject>
#include <QTemporaryDir>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

// One run of tavelquiston-cli, its standard output and error in files of a folder of its own, so
// that a test can read them while it runs and after it ends. Every wait has a bound.
class CliRun {
public:
    // Variables set on top of ours.
    using Environment = std::map<std::string, std::string>;

    explicit CliRun(const std::vector<std::string>& arguments, Environment environment = {},
                    std::vector<std::string> unset = {});

    std::string output() const;
    std::string errors() const;
    // The non-empty lines of the output.
    std::vector<std::string> outputLines() const;
    // The non-empty output line `fromEnd` lines before the last; empty when there is none.
    std::string printedLine(size_t fromEnd = 0) const;
    // The last output line that ends in `suffix`: the file the command wrote.
    std::string writtenFile(const std::string& suffix) const;

    bool waitForOutput(const std::string& text,
                       std::chrono::milliseconds bound = std::chrono::seconds(10));
    bool waitForErrors(const std::string& text,
                       std::chrono::milliseconds bound = std::chrono::seconds(10));
    // Until the first frame is in the file: the recording has started.
    bool waitForFirstFrame(std::chrono::milliseconds bound = std::chrono::seconds(20));
    std::optional<int> waitForExit(std::chrono::milliseconds bound) {
        return process.waitForExit(bound);
    }
    void signal(int number) const;
    // Kills the run without warning `after` from now, as a crash or power cut would, and reaps
    // it; the seconds from now to the kill.
    double killAfter(std::chrono::milliseconds after);
    // Pauses a recording (SIGUSR1) and resumes it `length` after it said it paused; false when
    // it never said so.
    bool pauseFor(std::chrono::milliseconds length);

    QTemporaryDir logs;
    ChildProcess process;

protected:
    CliRun() = default;
    void start(const std::vector<std::string>& arguments, Environment environment,
               std::vector<std::string> unset);
};

// `tavelquiston-cli record --output FOLDER ...` into a temporary folder of its own. It prints
// the movie (or the package folder) and then its metadata file as its last two lines.
class RecordRun : public CliRun {
public:
    explicit RecordRun(const std::vector<std::string>& arguments, Environment environment = {});

    std::string folderPath() const { return folder.path().toStdString(); }
    std::string moviePath() const { return printedLine(1); }
    std::string metadataPath() const { return printedLine(0); }
    // A separate-layers recording prints its package folder where others print the movie.
    QString packagePath() const { return QString::fromStdString(printedLine(1)); }
    QJsonObject metadata() const;

    QTemporaryDir folder;
};

// `first` followed by `rest`: the arguments of runs that share their leading ones.
std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& rest);

// `environment` with the built-in test camera standing in for a real one.
inline CliRun::Environment withTestCamera(CliRun::Environment environment) {
    environment["TAVELQUISTON_TEST_CAMERA"] = "1";
    return environment;
}

// Windows go to the test's X server, not offscreen.
inline const CliRun::Environment::value_type realWindows{"QT_QPA_PLATFORM", "xcb"};

// A JSON file's top object; empty when the file cannot be read or holds no object.
QJsonObject readJsonObject(const std::string& path);
