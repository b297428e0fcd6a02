// NamingSvc: keeps the agent's objects bound in the naming service.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <omniORB4/CORBA.h>
#include <omniORB4/Naming.hh>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/kit.h>

#include "corbainterfaces.h"
#include "peer.h"
#include "settings.h"

using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

namespace corba_bundle {

namespace {

using std::chrono::milliseconds;

// A naming service that was restarted may have forgotten us, and does not say so.
constexpr milliseconds kCheckEvery{1000};

// How long another agent may take to show that it is alive.
constexpr milliseconds kAnswerTimeout{500};

// While another agent has the names they are looked at less and less often, down to this.
constexpr milliseconds kLongestPause{10000};

/// "zo/AlarmAgent" is the object "AlarmAgent" in the context "zo".
CosNaming::Name ToName(const std::string& text) {
    std::vector<std::string> ids;
    NS_BUNDLEMGR1::Str2StrVec(text.c_str(), '/', ids);
    CosNaming::Name name;
    name.length(static_cast<CORBA::ULong>(ids.size()));
    for (CORBA::ULong i = 0; i < name.length(); ++i) name[i].id = ids[i].c_str();
    return name;
}

/// @return nil when the name is not bound
CORBA::Object_ptr Resolve(CosNaming::NamingContext_ptr root, const CosNaming::Name& name) {
    try {
        return root->resolve(name);
    } catch (const CosNaming::NamingContext::NotFound&) {
        return CORBA::Object::_nil();
    }
}

/// @return host, port and key of a reference; "" when it has none
std::string AddressOf(CORBA::Object_ptr object) {
    const omniIOR_var ior = object->_PR_getobj()->_getIOR();
    const IOP::TaggedProfileList& profiles = ior->iopProfiles();
    for (CORBA::ULong i = 0; i < profiles.length(); ++i) {
        if (profiles[i].tag != IOP::TAG_INTERNET_IOP) continue;
        IIOP::ProfileBody profile;
        IIOP::unmarshalProfile(profiles[i], profile);
        const CORBA::Octet* const key = profile.object_key.get_buffer();
        return std::string(profile.address.host) + ":" + std::to_string(profile.address.port) + "/" +
               std::string(key, key + profile.object_key.length());
    }
    return "";
}

/// Whether two references say the same. The ORB alone does not tell: it goes by where
/// calls have been forwarded to. The channel's well-known address is one that forwards,
/// so a reference that was called differs from its copy in the naming service.
bool IsSame(CORBA::Object_ptr left, CORBA::Object_ptr right) {
    if (left->_is_equivalent(right)) return true;
    const std::string address = AddressOf(left);
    return !address.empty() && address == AddressOf(right);
}

bool IsBound(CosNaming::NamingContext_ptr root, const CosNaming::Name& name, CORBA::Object_ptr object) {
    const CORBA::Object_var bound = Resolve(root, name);
    return !CORBA::is_nil(bound) && IsSame(bound, object);
}

bool Answers(CORBA::Object_ptr object) {
    omniORB::setClientCallTimeout(object, static_cast<CORBA::ULong>(kAnswerTimeout.count()));
    try {
        return !object->_non_existent();
    } catch (const CORBA::SystemException&) {
        return false;
    }
}

/// Whether the name stands for an object that is alive and not `object`. What a crash
/// has left behind is not.
bool IsTaken(CosNaming::NamingContext_ptr root, const CosNaming::Name& name, CORBA::Object_ptr object) {
    const CORBA::Object_var bound = Resolve(root, name);
    return !CORBA::is_nil(bound) && !IsSame(bound, object) && Answers(bound);
}

void MakeContexts(CosNaming::NamingContext_ptr root, const CosNaming::Name& name) {
    for (CORBA::ULong depth = 1; depth < name.length(); ++depth) {
        CosNaming::Name context(name);
        context.length(depth);
        try {
            const CosNaming::NamingContext_var made = root->bind_new_context(context);
        } catch (const CosNaming::NamingContext::AlreadyBound&) {
            // So much the better.
        }
    }
}

class NamingSvc : public zo::Service {
public:
    NamingSvc() : Service(BUNDLE, NAMING_SERVICE) {}
    ~NamingSvc() override { Stop(); }

    int init(int argc, ACE_TCHAR* argv[]) override;

    void Keep(const std::string& name, CORBA::Object_ptr object);

    // While init is still running, fini does it when that has ended.
    void ExitThreads() override {
        if (m_isReady) Stop();
    }

private:
    using Names = std::map<std::string, CORBA::Object_var>;

    void Stop();
    milliseconds Round();
    void BindAll(CosNaming::NamingContext_ptr root);
    void LeaveToOther();
    CosNaming::NamingContext_ptr Root();
    Names CopyOfNames();
    void UnbindAll();

    zo::Log m_log{NAMING_SERVICE, BUNDLE, NAMING_SERVICE};
    std::string m_address;
    CORBA::ORB_var m_orb;
    std::mutex m_mutex;
    Names m_names;  // guarded by m_mutex
    CORBA::Object_var m_agent;
    std::unique_ptr<Peer> m_peer;
    milliseconds m_pause = kCheckEvery;  // used by the thread only
    bool m_leftToOther = false;          // used by the thread only
    std::set<std::string> m_seen;        // names known to be bound; used by the thread only
    zo::ServiceThread m_thread{m_log};
    std::atomic<bool> m_isReady{false};
};

class PublishedNames : public NameKeeper {
public:
    explicit PublishedNames(NamingSvc& service) : m_service(service) {}
    std::string GetDescription() override { return "names in the naming service"; }
    void* GetImplementation() override { return &m_service; }
    void Keep(const std::string& name, CORBA::Object_ptr object) override { m_service.Keep(name, object); }

private:
    NamingSvc& m_service;
};

int NamingSvc::init(int, ACE_TCHAR*[]) {
    std::string host;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo("NamingService_Host", host) || host.empty()) {
        ZO_ERROR(m_log, "corba_agent.cfg does not say where the naming service runs (NamingService_HostIP)\n");
        return -1;
    }
    m_address = host + ":" + std::to_string(alarms::IntSetting("NamingServicePort", 2809, 1, 65535, m_log));
    m_peer = std::make_unique<Peer>(NAMING_SERVICE, "the naming service at " + m_address);
    try {
        ServiceInterfaceProxy<OrbAccess> orb(ORB_SERVICE, BUNDLE);
        m_orb = CORBA::ORB::_duplicate(orb->Orb());
        m_agent = CORBA::Object::_duplicate(orb->Agent());
        m_names[AGENT_NAME] = CORBA::Object::_duplicate(m_agent);
    } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
        ZO_ERROR(m_log, "there is no ORB; in svc.cfg %s must stand above %s\n", ORB_SERVICE, NAMING_SERVICE);
        return -1;
    }
    m_thread.Start([this] { return Round(); });
    Publish(std::make_unique<PublishedNames>(*this));
    m_isReady = true;
    return 0;
}

void NamingSvc::Keep(const std::string& name, CORBA::Object_ptr object) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_names[name] = CORBA::Object::_duplicate(object);
    }
    m_thread.Wake();
}

void NamingSvc::Stop() {
    RemoveInterface();
    m_thread.Stop();
    if (CORBA::is_nil(m_orb)) return;
    // A naming service that is away is not called again: the stop would have to wait for
    // it once more. The next agent takes the names over.
    if (m_peer->IsAway()) {
        ZO_INFO(m_log, "what is bound stays bound, the naming service is away\n");
    } else {
        UnbindAll();
    }
    m_orb = CORBA::ORB::_nil();
}

/// Two agents that share a naming service must not take the names from each other again
/// and again: the one that came first has them for as long as it answers. The agent's
/// name decides for all: that a channel answers does not mean that anybody feeds it.
milliseconds NamingSvc::Round() {
    try {
        const CosNaming::NamingContext_var root = Root();
        if (IsTaken(root, ToName(AGENT_NAME), m_agent)) {
            LeaveToOther();
        } else {
            BindAll(root);
            m_leftToOther = false;
            m_pause = kCheckEvery;
        }
    } catch (const CORBA::Exception& error) {
        return m_peer->Away(Describe(error));
    }
    m_peer->Here();
    return m_pause;
}

/// Binds whatever is not bound, or not to us. A name that a run before this one has left
/// behind may still be right; who reads the log of this run wants to know of it as well.
void NamingSvc::BindAll(CosNaming::NamingContext_ptr root) {
    for (const auto& [text, object] : CopyOfNames()) {
        if (m_thread.Stopping()) return;
        const CosNaming::Name name = ToName(text);
        if (!IsBound(root, name, object)) {
            MakeContexts(root, name);
            root->rebind(name, object);
            m_seen.erase(text);
        }
        if (!m_seen.insert(text).second) continue;
        ZO_INFO(m_log, "%s is bound at %s\n", text.c_str(), m_address.c_str());
    }
}

/// Reports it once, and has the next look come later each time.
void NamingSvc::LeaveToOther() {
    if (!m_leftToOther) {
        ZO_ERROR(m_log, "%s at %s stands for another agent, which answers; leaving the names to it\n", AGENT_NAME,
                 m_address.c_str());
    }
    m_leftToOther = true;
    m_pause = std::min(m_pause * 2, kLongestPause);
}

CosNaming::NamingContext_ptr NamingSvc::Root() {
    const CORBA::Object_var object = m_orb->string_to_object(("corbaloc::" + m_address + "/NameService").c_str());
    return CosNaming::NamingContext::_unchecked_narrow(object);
}

NamingSvc::Names NamingSvc::CopyOfNames() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_names;
}

/// Takes our names out again, but not those that another agent has taken over.
void NamingSvc::UnbindAll() {
    try {
        const CosNaming::NamingContext_var root = Root();
        // The channel may be the same as that of the agent that has the names.
        if (!IsBound(root, ToName(AGENT_NAME), m_agent)) return;
        for (const auto& [text, object] : CopyOfNames()) {
            const CosNaming::Name name = ToName(text);
            if (!IsBound(root, name, object)) continue;
            root->unbind(name);
            ZO_INFO(m_log, "%s is unbound\n", text.c_str());
        }
    } catch (const CORBA::Exception& error) {
        ZO_INFO(m_log, "cannot unbind from the naming service at %s: %s\n", m_address.c_str(), Describe(error).c_str());
    }
}

}  // namespace

}  // namespace corba_bundle

ZO_SERVICE_FACTORY(corba_bundle::NamingSvc, NamingSvc);
