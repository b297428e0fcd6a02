// The names of a record, out of reach of those who change them.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace NS_BUNDLEMGR1 {

/// Copies of three names, which take no memory from elsewhere as long as they are short.
class RecordNames {
public:
    // What it holds before `Take` is nobody's concern, and clearing it would take its time.
    RecordNames() {}  // NOLINT(modernize-use-equals-default,cppcoreguidelines-pro-type-member-init)
    RecordNames(const RecordNames&) = delete;
    RecordNames& operator=(const RecordNames&) = delete;

    /// @return false where there is no memory for them
    bool Take(std::string_view bundle, std::string_view service, std::string_view file) {
        const std::size_t size = bundle.size() + service.size() + file.size();
        char* at = m_place;
        if (size > sizeof m_place) {
            m_large.reset(new (std::nothrow) char[size]);
            if (m_large == nullptr) return false;
            at = m_large.get();
        }
        m_bundle = Put(at, bundle);
        m_service = Put(at, service);
        m_file = Put(at, file);
        return true;
    }

    std::string_view Bundle() const { return m_bundle; }
    std::string_view Service() const { return m_service; }
    std::string_view File() const { return m_file; }

private:
    static std::string_view Put(char*& at, std::string_view name) {
        std::memcpy(at, name.data(), name.size());
        at += name.size();
        return {at - name.size(), name.size()};
    }

    char m_place[512];
    std::unique_ptr<char[]> m_large;
    std::string_view m_bundle;
    std::string_view m_service;
    std::string_view m_file;
};

}  // namespace NS_BUNDLEMGR1
