// Bundles and services for tests, which need no library of their own.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <ace/DLL.h>
#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>
#include <ace/Static_Object_Lock.h>

#include <bundlemgr/bundle.h>

#include <bundlemgr/event.h>
#include "src/bundle/servicetable.h"

#include "support/environment.h"
#include "support/namedinterface.h"
#include "unit/log/logtest.h"

namespace test {

/// What happened, in order.
using Trace = std::vector<std::string>;

/// The interface that a service of the bundle publishes, of whatever type.
inline NS_BUNDLEMGR1::ServiceInterface* FindInterface(NS_BUNDLEMGR1::BundleObject& bundle, const std::string& service) {
    NS_BUNDLEMGR1::ServiceInterface* published = nullptr;
    NS_BUNDLEMGR1::ServiceTable::FindInterface(
        bundle, service, [](NS_BUNDLEMGR1::ServiceInterface* iface) -> void* { return iface; },
        [&published](NS_BUNDLEMGR1::ServiceInterface* iface, void*) { published = iface; });
    return published;
}

class TestBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    explicit TestBundle(std::string name = "bundle") : m_name(std::move(name)) {}

    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return 0; }
    void SetInterface() override { BundleObject::SetInterface(); }
    void RemoveServiceObject(const char* serviceName) override {
        if (onRemove) onRemove(serviceName);
        BundleObject::RemoveServiceObject(serviceName);
    }

    using BundleObject::m_lock;
    using BundleObject::m_pInterface;
    using BundleObject::m_serviceObjectMap;
    using BundleObject::m_vecServiceNames;

    std::function<void(const std::string&)> onRemove;

private:
    const std::string m_name;
};

/// A service that notes what is asked of it. The names are short, since one that is freed
/// without its destructor must not own memory.
class TestService : public NS_BUNDLEMGR1::ServiceObjectBase {
public:
    TestService(Trace& trace, const char* bundleName, const char* serviceName)
        : ServiceObjectBase(bundleName, serviceName), m_trace(trace) {}
    ~TestService() override { Note("dtor"); }

    int init(int, ACE_TCHAR*[]) override { return initResult; }
    void ExitThreads() override {
        Note("exit");
        if (onExit != nullptr) (*onExit)();
    }
    int fini() override {
        Note("fini");
        if (onFini != nullptr) (*onFini)();
        return callsBaseFini ? ServiceObjectBase::fini() : 0;
    }
    NS_BUNDLEMGR1::ServiceInterface* GetInterface() override {
        if (onGetInterface != nullptr) (*onGetInterface)();
        return ServiceObjectBase::GetInterface();
    }

    using ServiceObjectBase::m_pInterface;

    using Action = std::function<void()>;
    const Action* onExit = nullptr;
    const Action* onFini = nullptr;
    const Action* onGetInterface = nullptr;
    int initResult = 0;
    bool callsBaseFini = true;

private:
    void Note(const char* what) { m_trace.push_back(std::string(what) + " " + GetName()); }

    Trace& m_trace;
};

inline void Exterminate(void* service) {
    delete static_cast<ACE_Service_Object*>(service);
}

/// Initialises a service and files it in ACE's repository, as the configurator does.
/// @param gobbler destroys the service; null: its memory is freed without its destructor
/// @param library where it comes from; none: it is a static service
inline void Install(const std::string& name, ACE_Service_Object* service,
                    ACE_Service_Object_Exterminator gobbler = &Exterminate, const ACE_DLL& library = ACE_DLL()) {
    auto* const type = new ACE_Service_Object_Type(
        service, name.c_str(), ACE_Service_Type::DELETE_OBJ | ACE_Service_Type::DELETE_THIS, gobbler);
    type->init(0, nullptr);
    ACE_Service_Repository::instance()->insert(new ACE_Service_Type(name.c_str(), type, library, true));
}

/// Finalises and destroys all services before what they refer to goes.
inline void EmptyRepository() {
    ACE_Service_Repository& repository = *ACE_Service_Repository::instance();
    repository.fini();
    repository.close();
}

inline bool IsInRepository(const std::string& name) {
    return ACE_Service_Repository::instance()->find(name.c_str(), nullptr, false) == 0;
}

/// One bundle, "bundle", that the manager knows, and its services.
class BundleTest : public LogTest {
protected:
    BundleTest() : m_noServer("KORU_SERVER_PATH") { NS_BUNDLEMGR1::BundleMgr::Instance()->RegisterBundle(&m_bundle); }
    ~BundleTest() override {
        EmptyRepository();
        NS_BUNDLEMGR1::LightEventMgr::Destroy();
    }

    /// A service of the bundle that is in nobody's repository.
    std::unique_ptr<TestService> Make(const char* name) {
        return std::make_unique<TestService>(m_trace, "bundle", name);
    }

    /// A service of the bundle in ACE's repository, which owns it.
    TestService& Add(const char* name, ACE_Service_Object_Exterminator gobbler = &Exterminate) {
        auto* const service = new TestService(m_trace, "bundle", name);
        Install(name, service, gobbler);
        return *service;
    }

    /// The records that the source file of that name wrote: "<line> <level> <text>".
    Trace Reported(const std::string& file) const {
        Trace reported;
        for (const LogRecord& record : ParseLog(Log())) {
            if (record.file != file) continue;
            reported.push_back(std::to_string(record.line) + " " + std::to_string(record.level) + " " + record.text);
        }
        return reported;
    }

    /// Takes the events that wait and notes them: "<id>".
    std::vector<int> TakeEvents() {
        std::vector<int> ids;
        NS_BUNDLEMGR1::LightEventMgr& events = *NS_BUNDLEMGR1::LightEventMgr::Instance();
        EventNote note(ids);
        events.RegisterHandler(NS_BUNDLEMGR1::LIGHT_EVENT_SERVICE_REMOVED, &note);
        while (!events.msg_queue()->is_empty()) events.process_msg();
        events.UnRegisterHandler(NS_BUNDLEMGR1::LIGHT_EVENT_SERVICE_REMOVED, &note);
        return ids;
    }

    ScopedEnv m_noServer;
    Trace m_trace;
    TestBundle m_bundle;

private:
    class EventNote : public NS_BUNDLEMGR1::LightEventHandler {
    public:
        explicit EventNote(std::vector<int>& ids) : m_ids(ids) {}
        void HandleLightEvent(int eventId, NS_BUNDLEMGR1::LightEventParam* param) override {
            EXPECT_EQ(nullptr, param);
            m_ids.push_back(eventId);
        }

    private:
        std::vector<int>& m_ids;
    };
};

}  // namespace test
