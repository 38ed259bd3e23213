#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// A whole file as text; empty when it cannot be read.
inline std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The non-empty lines of a text.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            result.push_back(line);
    return result;
}
