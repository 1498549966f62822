// EnvironmentVariable - gives a variable of the environment another value for the duration of a test.
//
// Threads: none that looks at the environment may run meanwhile.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class EnvironmentVariable {
public:
    // Null: not set.
    EnvironmentVariable(const char* name, const char* value) : m_Name(name) {
        if (const char* const old = std::getenv(name))
            m_Old = old;
        Set(value);
    }
    ~EnvironmentVariable() { Set(m_Old ? m_Old->c_str() : nullptr); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

    void Set(const char* value) {
        if (value)
            setenv(m_Name.c_str(), value, 1);
        else
            unsetenv(m_Name.c_str());
    }

private:
    const std::string m_Name;
    std::optional<std::string> m_Old;
};
