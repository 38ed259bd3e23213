#include "core/support/Log.h"

#include <cstdio>
#include <mutex>

void logLine(std::string_view line) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string formatDouble(double value) {
    std::string text = fmt::format("{}", value);
    if (text.find_first_of(".einan") == std::string::npos)
        text += ".0";
    return text;
}
