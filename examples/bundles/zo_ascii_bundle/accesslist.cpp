#include "accesslist.h"

#include <vector>

#include "bundlemgr/base.h"

namespace alarms {

AccessList::AccessList() {
    std::vector<NS_BUNDLEMGR1::NameValueStru> items;
    NS_BUNDLEMGR1::CorbaConfigItems::Instance()->GetIPAddressList(items);
    for (const NS_BUNDLEMGR1::NameValueStru& item : items) m_addresses.insert(item.value);
    if (m_addresses.empty()) m_addresses.insert("127.0.0.1");
}

std::string AccessList::Text() const {
    std::string text;
    for (const std::string& address : m_addresses) text += (text.empty() ? "" : " ") + address;
    return text;
}

}  // namespace alarms
