#include "accesslist.h"

#include <algorithm>
#include <vector>

#include <arpa/inet.h>

#include <bundlemgr/base.h>
#include <bundlemgr/kit.h>

namespace alarms {

namespace {

constexpr char kItem[] = "acl";
constexpr char kLoopback[] = "127.0.0.1";

// As the library takes an item apart: a "," in front of the first entry means nothing.
std::vector<std::string> Entries(const std::string& item) {
    std::vector<std::string> entries;
    std::string::size_type begin = !item.empty() && item.front() == ',' ? 1 : 0;
    for (std::string::size_type end = 0; end != std::string::npos; begin = end + 1) {
        end = item.find(',', begin);
        entries.push_back(NS_BUNDLEMGR1::Trim(item.substr(begin, end == std::string::npos ? end : end - begin)));
    }
    return entries;
}

bool IsAddress(const std::string& entry) {
    in_addr ignored{};
    return inet_pton(AF_INET, entry.c_str(), &ignored) == 1;
}

}  // namespace

// Not asked of the library, which cannot tell an address from the front of a longer one
// (`ConfigLines`).
AccessList::AccessList(const zo::Log& log) {
    const ConfigLines file(StartFile());
    for (const ConfigLine& line : file.Lines()) {
        if (line.name == kItem) Take(line, log);
    }
    if (!m_isConfigured) m_addresses.insert(kLoopback);
    DropWhatIsNoAddress(log);
}

void AccessList::Take(const ConfigLine& item, const zo::Log& log) {
    if (!item.fault.empty()) {
        ZO_ERROR(log, "corba_start.cfg:%lu: acl with %s; item skipped\n", item.number, item.fault.c_str());
        m_isConfigured = true;
        return;
    }
    const std::vector<std::string> entries = Entries(item.value);
    if (std::find(entries.begin(), entries.end(), "") != entries.end()) {
        ZO_ERROR(log, "corba_start.cfg:%lu: acl with an empty entry; item skipped\n", item.number);
        return;
    }
    m_addresses.insert(entries.begin(), entries.end());
    m_isConfigured = true;
}

void AccessList::DropWhatIsNoAddress(const zo::Log& log) {
    for (auto entry = m_addresses.begin(); entry != m_addresses.end();) {
        if (IsAddress(*entry)) {
            ++entry;
            continue;
        }
        ZO_ERROR(log, "corba_start.cfg: '%s' in acl is not an IPv4 address; entry skipped\n", entry->c_str());
        entry = m_addresses.erase(entry);
    }
}

std::string AccessList::Text() const {
    if (m_addresses.empty()) return "nobody";
    std::string text;
    for (const std::string& address : m_addresses) text += (text.empty() ? "" : " ") + address;
    return text;
}

}  // namespace alarms
