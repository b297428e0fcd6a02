#include <bundlemgr/base.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <utility>

#include <json/json.h>
#include <pthread.h>

#include "src/base/basefacade/corbaconfigaccess.h"
#include "src/corelog/corelog.h"
#include "src/platform/openfile.h"
#include "src/platform/staticobjectlock.h"

namespace NS_BUNDLEMGR1 {

bool g_isUnloadingCorba = false;

std::atomic<CorbaConfigItems*> CorbaConfigItems::m_pInstance{nullptr};

namespace {

constexpr char kAccessListItem[] = "acl";

CoreLog g_log("basefacade");

// Keeps the instance alive while PeekStrItem looks into it. Destroy takes it after
// the static-object lock; whoever holds it takes nothing but an object's own mutex.
detail::Mutex g_peekMutex;
CorbaConfigItems* g_pKeptOverFork ZO_GUARDED_BY(g_peekMutex) = nullptr;

const struct ForkHandlers {
    ForkHandlers() {
        pthread_atfork(&CorbaConfigAccess::BeforeFork, &CorbaConfigAccess::AfterFork, &CorbaConfigAccess::AfterFork);
    }
} g_forkHandlers;

using Json::Value;

bool ReadWholeFile(const std::string& path, std::string& content) {
    const InputStream file = OpenForReading(path);
    if (file == nullptr) return false;
    char piece[65536];
    for (std::size_t n = 0; (n = std::fread(piece, 1, sizeof piece, file.get())) > 0;) content.append(piece, n);
    return std::ferror(file.get()) == 0;
}

bool ParseJson(const std::string& document, Value& root) {
    // Newer versions of the library deprecate this reader in favour of one that takes
    // other documents: this one ignores what follows the root, and files in the field
    // rely on that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::Reader reader;
#pragma GCC diagnostic pop
    // Comments are allowed but not kept: nobody reads them, and keeping them takes
    // quadratic time where many follow one value.
    const bool keepComments = false;
    return reader.parse(document.data(), document.data() + document.size(), root, keepComments);
}

// A string stands in a document as it is, unless there are escapes in it. Asked first,
// because parsing takes up to fifty times the document's size in memory.
bool MayHoldString(const std::string& document, const std::string& text) {
    return document.find('\\') != std::string::npos || document.find('"' + text + '"') != std::string::npos;
}

// The library's look-ups throw on a value of another kind.
const Value& Member(const Value& value, const char* name) {
    return value.isObject() ? value[name] : Value::nullSingleton();
}

bool HasAddress(const Value& node, const std::string& address) {
    const Value& addresses = Member(node, "IPAddresses");
    if (!addresses.isArray()) return false;
    for (const Value& element : addresses) {
        const Value& ip = Member(element, "IP");
        if (ip.isString() && ip.asString() == address) return true;
    }
    return false;
}

bool AnyNodeHasAddress(const Value& root, const std::string& address) {
    const Value& nodes = Member(root, "nodeList");
    if (!nodes.isObject()) return false;
    for (const Value& node : nodes) {
        if (HasAddress(node, address)) return true;
    }
    return false;
}

bool IsInNodeList(const std::string& file, const std::string& address) {
    try {
        std::string document;
        Value root;
        return ReadWholeFile(file, document) && MayHoldString(document, address) && ParseJson(document, root) &&
               AnyNodeHasAddress(root, address);
    } catch (const std::exception&) {
        // Too deeply nested, or too large for the memory at hand.
        return false;
    }
}

void MoveToEnd(std::vector<NameValueStru>& from, std::vector<NameValueStru>& to) {
    to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

std::string HostPart(const std::string& address) {
    return address.substr(0, address.find(':'));
}

// Appends the pieces of one access list, or nothing when one of them is empty. Unlike
// in Str2StrVec, a trailing separator is followed by an empty piece.
void AppendAddresses(const std::string& list, std::vector<NameValueStru>& out) {
    std::vector<NameValueStru> pieces;
    std::size_t begin = !list.empty() && list.front() == ',' ? 1 : 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = list.find(',', begin);
        std::string piece = Trim(list.substr(begin, end == std::string::npos ? end : end - begin));
        if (piece.empty()) return;
        pieces.push_back({std::string(), std::move(piece)});
    }
    MoveToEnd(pieces, out);
}

}  // namespace

void InitCorbaData() {}

CorbaConfigItems::CorbaConfigItems() : m_bLvsMode(false) {}

CorbaConfigItems::~CorbaConfigItems() = default;

CorbaConfigItems* CorbaConfigItems::Instance() {
    return InstanceOrMake(m_pInstance, [] { return new CorbaConfigItems; });
}

void CorbaConfigItems::Destroy() {
    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance());
    const detail::Guard peekGuard(g_peekMutex);
    delete m_pInstance.exchange(nullptr);
}

bool CorbaConfigAccess::PeekStrItem(const std::string& name, std::string& value) {
    const detail::Guard peekGuard(g_peekMutex);
    CorbaConfigItems* const instance = CorbaConfigItems::m_pInstance.load(std::memory_order_acquire);
    return instance != nullptr && instance->GetStrItemInfo(name, value);
}

// Both mutexes stay held until AfterFork; that of the object only where there is one.
void CorbaConfigAccess::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_peekMutex.acquire();
    g_pKeptOverFork = CorbaConfigItems::m_pInstance.load(std::memory_order_acquire);
    if (g_pKeptOverFork != nullptr) g_pKeptOverFork->m_mutex.acquire();
}

void CorbaConfigAccess::AfterFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    if (g_pKeptOverFork != nullptr) g_pKeptOverFork->m_mutex.release();
    g_peekMutex.release();
}

void CorbaConfigItems::init() {
    GetAllStartItem();
    GetAllHostItem();
    SetHostOrIPaddress();
    GetLvsMode();
}

bool CorbaConfigItems::GetAllStartItem() {
    const char* const shareDir = std::getenv("_APP_SHARE_DIR");
    if (shareDir == nullptr) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "[CorbaConfigItems::GetAllStartItem()]_APP_SHARE_DIR is empty");
        return false;
    }
    std::vector<NameValueStru> entries;
    GetAllCfgFrmFile(entries, std::string(shareDir) + "/conf/corba_start.cfg", true);
    // Threads that log meanwhile look into the items, see PeekStrItem.
    const detail::Guard guard(m_mutex);
    MoveToEnd(entries, m_vecCorbaItems);
    return true;
}

bool CorbaConfigItems::GetAllHostItem() {
    const char* const shareDir = std::getenv("_APP_SHARE_DIR");
    if (shareDir == nullptr) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "[CorbaConfigItems::GetAllHostItem()]_APP_SHARE_DIR is empty");
        return false;
    }
    const std::pair<const char*, std::string*> fields[] = {
        {"CORBAAgent_HostIP", &m_strCorbaAgentHostIP},       {"CORBAAgent_HostName", &m_strCorbaAgentHostName},
        {"NamingService_HostIP", &m_strNamingServiceHostIP}, {"NamingService_HostName", &m_strNamingServiceHostName},
        {"NotifyService_HostIP", &m_strNotifyServiceHostIP}, {"NotifyService_HostName", &m_strNotifyServiceHostName},
    };
    std::vector<NameValueStru> entries;
    GetAllCfgFrmFile(entries, std::string(shareDir) + "/conf/corba_agent.cfg", true);
    for (const NameValueStru& entry : entries) {
        for (const auto& [key, field] : fields) {
            if (entry.name == key) *field = entry.value;
        }
    }
    return true;
}

bool CorbaConfigItems::SetHostOrIPaddress() {
    const auto choose = [this](const char* useIpItem, const std::string& ip, const std::string& hostName) {
        std::string useIp;
        GetStrItemInfo(useIpItem, useIp);
        return useIp == "enable" ? ip : hostName;
    };
    std::vector<NameValueStru> hosts = {
        {"CORBAAgent_Host", choose("CorbaAgentUseIp", m_strCorbaAgentHostIP, m_strCorbaAgentHostName)},
        {"NamingService_Host", choose("NamingServiceUseIp", m_strNamingServiceHostIP, m_strNamingServiceHostName)},
        {"NotifyService_Host", choose("NotifyServiceUseIp", m_strNotifyServiceHostIP, m_strNotifyServiceHostName)},
    };
    const detail::Guard guard(m_mutex);
    MoveToEnd(hosts, m_vecCorbaItems);
    return true;
}

void CorbaConfigItems::GetLvsMode() {
    const char* const appRoot = std::getenv("APP_ROOT");
    const std::string file = std::string(appRoot != nullptr ? appRoot : "") + "/etc/sysconf/nodelist.json";
    m_bLvsMode = !IsInNodeList(file, m_strCorbaAgentHostIP);
}

bool CorbaConfigItems::GetAllCfgFrmFile(std::vector<NameValueStru>& out, const std::string& file, bool keyValue) {
    return NS_BUNDLEMGR1::GetAllCfgFrmFile(out, file, keyValue);
}

bool CorbaConfigItems::GetHfsMode(const std::string& address) {
    const std::string host = HostPart(address);
    return (host == "127.0.0.1" || host == m_strCorbaAgentHostIP) && m_bLvsMode;
}

bool CorbaConfigItems::GetIntItemInfo(const std::string& name, int& value) {
    const detail::Guard guard(m_mutex);
    for (const NameValueStru& item : m_vecCorbaItems) {
        if (item.name == name && Str2Int(item.value, value)) return true;
    }
    return false;
}

bool CorbaConfigItems::GetStrItemInfo(const std::string& name, std::string& value) {
    const detail::Guard guard(m_mutex);
    return GetValByKey(value, name, m_vecCorbaItems);
}

bool CorbaConfigItems::SetStrItemInfo(const std::string& name, const std::string& value) {
    // The caller keeps other readers away, but not threads that log, see PeekStrItem.
    const detail::Guard guard(m_mutex);
    for (NameValueStru& item : m_vecCorbaItems) {
        if (item.name == name) item.value = value;
    }
    return true;
}

void CorbaConfigItems::GetHostIP(std::string& address) {
    address = m_strCorbaAgentHostIP;
}

bool CorbaConfigItems::GetCorbaConfigItems(std::vector<NameValueStru>& out) {
    const detail::Guard guard(m_mutex);
    out = m_vecCorbaItems;
    return true;
}

bool CorbaConfigItems::GetIPAddressList(std::vector<NameValueStru>& out) {
    const detail::Guard guard(m_mutex);
    for (const NameValueStru& item : m_vecCorbaItems) {
        if (item.name == kAccessListItem) AppendAddresses(item.value, out);
    }
    return true;
}

}  // namespace NS_BUNDLEMGR1
