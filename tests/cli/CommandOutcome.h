#pragma once

#include <QStringList>

#include <cstdio>
#include <string>

// Runs a command's entry point in this process with its standard output and error captured.
struct CommandOutcome {
    int status = -1;
    std::string out;
    std::string err;
};

inline std::string drainTemporaryFile(FILE* file) {
    std::string text;
    std::rewind(file);
    char buffer[4096];
    while (std::size_t n = std::fread(buffer, 1, sizeof buffer, file))
        text.append(buffer, n);
    std::fclose(file);
    return text;
}

template <typename Entry>
CommandOutcome runCommandEntry(Entry entry, const QStringList& arguments) {
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    const int status = entry(arguments, out, err);
    return {status, drainTemporaryFile(out), drainTemporaryFile(err)};
}
