#pragma once

#include <cstdlib>
#include <optional>
#include <string>

// Sets an environment variable of this process while it lives, then restores the old value.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value)
        : m_name(std::move(name)) {
        if (const char* old = std::getenv(m_name.c_str()))
            m_old = old;
        if (value)
            ::setenv(m_name.c_str(), value->c_str(), 1);
        else
            ::unsetenv(m_name.c_str());
    }
    ~ScopedEnvironment() {
        if (m_old)
            ::setenv(m_name.c_str(), m_old->c_str(), 1);
        else
            ::unsetenv(m_name.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_old;
};
