#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

// One line to standard output per event, flushed at once so that lines from several threads
// never interleave and nothing is lost when the process ends abruptly. Thread-safe.
void logLine(std::string_view line);

// A double as a log line shows it: the shortest text that reads back as the same value, and
// always with a decimal point ("2.0", "0.5", "1e-07").
std::string formatDouble(double value);

template <typename... Args>
void logLine(fmt::format_string<Args...> format, Args&&... args) {
    logLine(std::string_view(fmt::format(format, std::forward<Args>(args)...)));
}
