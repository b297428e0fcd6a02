// What a record says of its source.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>

#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

/// Bundle, service and file of a record in one text, as they stand in the log file. A copy, out of
/// reach of those who change the names, that takes no memory from elsewhere while they are short.
class RecordSource {
public:
    // What it holds before `Take` is nobody's concern, and clearing it would take its time.
    RecordSource() {}  // NOLINT(modernize-use-equals-default,cppcoreguidelines-pro-type-member-init)
    RecordSource(const RecordSource&) = delete;
    RecordSource& operator=(const RecordSource&) = delete;

    /// @return the text, valid as long as this; empty where there is no memory for it
    std::string_view Take(std::string_view bundle, std::string_view service, std::string_view file) {
        const std::size_t size = SizeOf(bundle, service, file);
        char* at = m_place;
        if (size > sizeof m_place) {
            m_large.reset(new (std::nothrow) char[size]);
            if (m_large == nullptr) return {};
            at = m_large.get();
        }
        Put(bundle, service, file, at);
        return {at, size};
    }

    /// @return number of bytes of the text
    static std::size_t SizeOf(std::string_view bundle, std::string_view service, std::string_view file) {
        return bundle.size() + kService.size() + service.size() + kFile.size() + file.size();
    }

    /// @param at has room for the text
    static void Put(std::string_view bundle, std::string_view service, std::string_view file, char* at) {
        CopyText(file, CopyText(kFile, CopyText(service, CopyText(kService, CopyText(bundle, at)))));
    }

private:
    static constexpr std::string_view kService = ", Service = ";
    static constexpr std::string_view kFile = " \nfilename = ";

    char m_place[512];
    std::unique_ptr<char[]> m_large;
};

}  // namespace NS_BUNDLEMGR1
