#include "accesslist.h"

#include <vector>

#include <arpa/inet.h>

#include "bundlemgr/base.h"

namespace alarms {

namespace {

constexpr char kLoopback[] = "127.0.0.1";

// Each once, however often it stands there.
std::set<std::string> Entries() {
    std::vector<NS_BUNDLEMGR1::NameValueStru> items;
    NS_BUNDLEMGR1::CorbaConfigItems::Instance()->GetIPAddressList(items);
    std::set<std::string> entries;
    for (const NS_BUNDLEMGR1::NameValueStru& item : items) entries.insert(item.value);
    return entries;
}

bool IsAddress(const std::string& entry) {
    in_addr ignored{};
    return inet_pton(AF_INET, entry.c_str(), &ignored) == 1;
}

}  // namespace

AccessList::AccessList(ServiceLog& log) : m_addresses(Entries()) {
    if (m_addresses.empty()) m_addresses.insert(kLoopback);
    for (auto entry = m_addresses.begin(); entry != m_addresses.end();) {
        if (IsAddress(*entry)) {
            ++entry;
            continue;
        }
        log.Error(__LINE__, "corba_start.cfg: '%s' in acl is not an IPv4 address; entry skipped", entry->c_str());
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
