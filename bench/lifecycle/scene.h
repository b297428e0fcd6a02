// The files that a measured process works on: configuration and log, in a directory of its own.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace lifecycle {

constexpr int kServices = 4;  // of each bundle

/// @return the name of the n-th library of a kind: see part.cpp
inline std::string PartName(const std::string& kind, int number) {
    char digits[16];
    std::snprintf(digits, sizeof(digits), "%03d", number);
    return kind + digits;
}

/// What a process that is measured finds where it looks for its configuration. Removed in the end.
class Scene {
public:
    Scene() {
        std::string pattern = std::filesystem::temp_directory_path() / "zo_lifecycle_XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        m_root = pattern;
        setenv("KORU_SERVER_PATH", m_root.c_str(), 1);
        setenv("_APP_LOG_DIR", (m_root / "log").c_str(), 1);
        setenv("_APP_SHARE_DIR", (m_root / "share").c_str(), 1);
        setenv("APP_ROOT", m_root.c_str(), 1);
        for (const char* const folder : {"nbi", "log", "share"}) std::filesystem::create_directories(m_root / folder);
    }
    ~Scene() {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// Bundles of a kind, with their services in libraries of another or the same one.
    void Configure(const std::string& kind, const std::string& servicesKind, int count) {
        std::ofstream bundles = Write("bundlemgr.cfg");
        for (int number = 0; number < count; ++number) {
            bundles << "Bundle=" << PartName(kind, number) << "\n";
            std::ofstream services = Write(PartName(kind, number) + "/svc.cfg");
            const std::string library = PartName(servicesKind, number);
            for (int k = 0; k < kServices; ++k) services << "service=" << library << ":" << library << "s" << k << "\n";
        }
    }

    /// One bundle, with one service.
    void ConfigureOne(const std::string& bundle, const std::string& library, const std::string& service) {
        Write("bundlemgr.cfg") << "Bundle=" << bundle << "\n";
        Write(bundle + "/svc.cfg") << "service=" << library << ":" << service << "\n";
    }

private:
    std::ofstream Write(const std::string& file) const {
        const std::filesystem::path path = m_root / "etc/oss_cfg/nbi/conf" / file;
        std::filesystem::create_directories(path.parent_path());
        return std::ofstream(path);
    }

    std::filesystem::path m_root;
};

}  // namespace lifecycle
