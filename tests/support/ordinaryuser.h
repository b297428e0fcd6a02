// Permissions bind everybody but root, and tests are often run by root.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace test {

/// For its life a root process is the user nobody, who owns `directory` and what is
/// in it; another user's process stays what it is.
class AsOrdinaryUser {
public:
    explicit AsOrdinaryUser(const std::string& directory) : m_isRoot(geteuid() == 0) {
        if (!m_isRoot) return;
        Give(directory);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) Give(entry.path().string());
        if (seteuid(kNobody) != 0) throw std::runtime_error("seteuid failed");
    }
    ~AsOrdinaryUser() {
        if (m_isRoot && seteuid(0) != 0) std::abort();
    }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

private:
    static constexpr uid_t kNobody = 65534;

    static void Give(const std::string& path) {
        if (lchown(path.c_str(), kNobody, static_cast<gid_t>(-1)) != 0) throw std::runtime_error("lchown " + path);
    }

    const bool m_isRoot;
};

}  // namespace test
