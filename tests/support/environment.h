// Sets or unsets an environment variable for the life of a test.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace test {

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : m_name(name), m_old(Read(name)) {
        setenv(name, value.c_str(), 1);
    }
    explicit ScopedEnv(const char* name) : m_name(name), m_old(Read(name)) { unsetenv(name); }
    ~ScopedEnv() {
        if (m_old) {
            setenv(m_name.c_str(), m_old->c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    static std::optional<std::string> Read(const char* name) {
        const char* const value = std::getenv(name);
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    }

    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace test
