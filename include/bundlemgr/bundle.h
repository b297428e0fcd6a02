/// @file bundle.h
/// What a bundle author derives from: bundles, services and the interfaces through
/// which they find each other.
///
/// A bundle is a shared library `lib<name>.so` with one `BundleObject`; a service is a class
/// derived from `ServiceObjectBase` with a factory (`ZO_SERVICE_FACTORY`), named in the
/// bundle's `svc.cfg`. Most need no more than `zo::ServiceBundle` and `zo::Service` of
/// <bundlemgr/kit.h>, which keep all the rules below. A bundle that overrides `Init` and `Fini`
/// itself does it in this order:
///
///     class MyBundle : public BundleObject {
///         std::string GetName() override { return "my_bundle"; }
///         int GetBundleOrder() override { return 10; }
///         void SetInterface() override {}  // the services publish
///         int Init() override {
///             const int result = LoadAllServiceObjects();
///             return result == 0 ? BundleObject::Init() : result;  // only when all are ready
///         }
///         void Fini() override {
///             UnLoadAllServiceObjects();  // first: nobody starts or finds them any more
///             RemoveInterface();          // what the bundle itself published
///             BundleObject::Fini();
///         }
///     };
///     ZO_BUNDLE(MyBundle);
///
/// Where `LoadAllServiceObjects` fails, the services that are ready stay. A bundle whose
/// initialisation is to be tried again removes them (`RemoveServiceObject`) before it loads
/// again, since a second service of a name ends the process; `zo::ServiceBundle` does so.
///
/// **To stay alive.** A library is unmapped when its service, or at the end its bundle, goes:
/// a thread, a handler or a pointer that is left behind then crashes the process.
///
/// - End your threads in `fini`, in `ExitThreads` and in the destructor, by one operation that
///   may be called repeatedly, also by two threads at once, such as `zo::ServiceThread::Stop`.
///   In the normal stop `BundleMgr::FiniAllBundles` finalises the services first; when
///   `WaitAllBundlesThreadExit` asks for the threads afterwards, a service that is finalised is
///   not called any more: only `fini` is. `ExitThreads` may come while `init` is still running
///   on another thread, and the destructor comes without `fini` when `init` has failed.
/// - All three run while the manager's table and the bundle are held. A thread that is waited for
///   there must not wait for these: it must not load, remove or look up anything for the first
///   time.
/// - Do the first look-up of a `ServiceInterfaceProxy` in `init`: it takes these locks. Later
///   ones take none.
/// - Nothing but `zo::ServiceBundle` calls `SetInterface`. Publish at the end of `init`; other
///   threads find the interface when `init` has returned 0. Withdraw in `fini` and in the
///   destructor, which no other thread calls into:
///
///         int init(int, ACE_TCHAR*[]) override {
///             ...
///             SetInterface();  // yours: m_pInterface = new LampImpl;
///             return 0;
///         }
///         int fini() override { End(); return ServiceObjectBase::fini(); }
///         ~LampSvc() override { End(); }
///         void ExitThreads() override { m_thread.Stop(); }
///         void End() {
///             ExitThreads();
///             RemoveIFBuf("LampSvc", m_pInterface);  // or proxies would hand it out for ever
///             RemoveInterface();                     // deletes it
///         }
///
///   Whoever has fetched the pointer may still be using it: since bundles end in the opposite
///   order of their start, a bundle gets a higher order value than those whose interfaces it
///   uses.
/// - Take event handlers away as <bundlemgr/event.h> says.
#pragma once

#include <exception>
#include <map>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Service_Object.h>
#include <ace/Thread_Mutex.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/detail/interfaceproxybase.h>
#include <bundlemgr/detail/registration.h>
#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

/// Base of every published interface. Concrete interfaces derive from it publicly and
/// add their operations. The publisher owns the object.
class ZO_EXPORT ServiceInterface {
public:
    virtual ~ServiceInterface();

    /// @return a text that identifies the interface
    virtual std::string GetDescription() = 0;

    /// @return the implementing object, or null; what it is, is the interface's business
    virtual void* GetImplementation() = 0;
};

/// Base of classes that are not to be derived from: whoever derives from one must
/// construct this private virtual base itself. Today's compilers do not enforce that.
class ZO_EXPORT FinalClass {
public:
    virtual ~FinalClass();
};

/// The placeholder for an interface; it offers nothing.
class ZO_EXPORT NULLServiceInterface : public ServiceInterface, private virtual FinalClass {
public:
    ~NULLServiceInterface() override;
    /// @return "NULLServiceInterface!"
    std::string GetDescription() override;
    /// @return null
    void* GetImplementation() override;
};

class ServiceObjectBase;

/// Base class of a bundle: one plug-in library and the services it contributes.
///
/// The object belongs to its library, which registers it with the bundle manager
/// while it loads (`ZO_BUNDLE`). The services belong to ACE's service repository.
///
/// Thread safety: the operations on services hold the bundle's recursive lock for
/// their whole run, so a service may call back into its bundle, into other bundles and into
/// the manager on the same thread. Where such a call has to wait for another thread, the
/// lock is let go of meanwhile; user code that waits by itself must not wait there for
/// a thread that needs this bundle. The operations on the state and the interface take no
/// lock.
///
/// To stay alive: a thread that runs code of a plug-in must have ended before the host
/// calls `BundleMgr::Destroy`, which unloads that code; `Fini`, `ExitThreads` and
/// `WaitThreadExit` are the places to see to it.
///
/// The order of the virtual operations is part of the contract with bundles in the
/// field; new ones go to the end.
class ZO_EXPORT BundleObject {
public:
    BundleObject();

    /// Deletes neither services nor the interface.
    virtual ~BundleObject();

    /// @return the bundle's name: the middle of its library's name, and the name of
    ///         its directory under the configuration directory
    virtual std::string GetName() = 0;

    /// @return the bundle's place in the order of initialisation; smaller is earlier
    virtual int GetBundleOrder() = 0;

    /// @return the published interface, or null
    virtual ServiceInterface* GetInterface();

    /// Overridden to create the interface and store it in `m_pInterface`. The body
    /// here only clears the pointer. Nothing in the library but `ServiceBundle::Init` calls it.
    virtual void SetInterface() = 0;

    /// Deletes the published interface, if there is one.
    virtual void RemoveInterface();

    /// Sets `BUNDLE_STATE_INITED`. Overrides call `LoadAllServiceObjects`, and this when that
    /// has succeeded: a bundle in another state than `BUNDLE_STATE_LOADED` is not initialised
    /// again.
    /// @return 0 on success; anything else stops the initialisation of all bundles
    virtual int Init();

    /// Sets `BUNDLE_STATE_FINIED`. Overrides call `UnLoadAllServiceObjects`, then this.
    virtual void Fini();

    /// Asks every service, newest first, to end its threads, and returns when all
    /// have. A service whose `init` is still running on another thread is asked as well, if
    /// `ZO_SERVICE_FACTORY` made it; one that has been removed already, or is being removed
    /// by another thread, is not.
    virtual void WaitThreadExit();

    /// Registers a service; called by the constructor of `ServiceObjectBase`. A null
    /// service, or a second one of a name, fails an ACE assertion and ends the process.
    /// @param serviceName the service's name, not null
    /// @param service     stays ACE's
    virtual void RegisterServiceObject(const char* serviceName, ServiceObjectBase* service);

    /// Finalises and destroys a service, takes it out of the table and posts
    /// `LIGHT_EVENT_SERVICE_REMOVED`. Not for handlers of events whose services may be ending
    /// at the same time: these wait for the handler while the bundle is held. An unknown name is
    /// only reported on the log, at once; so is one that another thread has been removing, when
    /// that is done.
    /// @param serviceName the service's name, not null
    virtual void RemoveServiceObject(const char* serviceName);

    /// @param out receives the services by name; other entries in it stay
    virtual void GetAllServiceObjects(std::map<std::string, ServiceObjectBase*>& out);

    /// @param state see `BundleState`; any value is stored
    void SetState(int state);

    /// @return the state, see `BundleState`
    int GetState() const;

    /// Creates and initialises the services that the bundle's `svc.cfg` names, in
    /// file order. The first one that fails is removed again and ends the loading;
    /// those before it stay. A bundle may call it on a thread of its own; one service
    /// at a time is brought up in the whole process.
    /// @return 0; the result of the failed service; -1 without a configuration
    ///         directory or when the manager is finalising; 1 when this bundle is
    ///         finalised
    int LoadAllServiceObjects();

    /// Finalises and destroys the services, newest first. Their names stay in the
    /// table, but they are not called again. Once the manager is finalising, no loading on
    /// another thread leaves a service behind.
    void UnLoadAllServiceObjects();

    BundleObject(const BundleObject&) = delete;
    BundleObject& operator=(const BundleObject&) = delete;

protected:
    int m_nState;  ///< See `BundleState`; read and written by `GetState` and `SetState`.
    std::map<std::string, ServiceObjectBase*> m_serviceObjectMap;  ///< By name; not owned.
    std::vector<std::string> m_vecServiceNames;                    ///< In order of registration.
    ACE_Recursive_Thread_Mutex m_lock;                             ///< Guards the two tables.
    ServiceInterface* m_pInterface;                                ///< Owned once set; see `RemoveInterface`.

private:
    friend class ServiceTable;
};

/// Base class of every service.
///
/// Created by its factory while the bundle loads its services; registers itself with
/// the bundle; initialised by ACE through `init`; ended by `ExitThreads`, `fini` and
/// the destructor (the latter only when its factory set an exterminator, as
/// `ZO_SERVICE_FACTORY` does). Until its `init` has returned 0, its interface is handed out
/// only on the thread that brings it up, and other threads call nothing but `ExitThreads`.
///
/// A service may restart itself with `fini` and `init`, at a time when nobody searches for its
/// interface. It must not delete itself; `RemoveServiceObject` ends it from outside.
///
/// The order of the virtual operations is part of the contract with services in the
/// field; new ones go to the end.
class ZO_EXPORT ServiceObjectBase : public ACE_Service_Object {
public:
    /// @param bundleName  the bundle to which the service belongs; unknown to the
    ///                    manager, the service is in no bundle's table
    /// @param serviceName the service's own name. Note the order. Neither may be null
    ServiceObjectBase(const char* bundleName, const char* serviceName);

    /// Neither takes the service out of its bundle nor deletes its interface.
    ~ServiceObjectBase() override;

    /// For overrides; the library does not call it.
    virtual void UnRegistSvc();

    /// @return the service's name, valid as long as the service
    virtual const char* GetName() const;

    /// Ends the service's own threads and returns when they have ended. May be called
    /// while `init` runs on another thread, which is how an `init` that waits learns that it
    /// is to give up. Not called any more once the service is finalised, which is earlier in
    /// the normal stop: so `fini` ends the threads, too (see the head of this file).
    virtual void ExitThreads() = 0;

    /// Called by the searches of interface proxies, which hold `_g_actualmutex` and the bundle
    /// meanwhile: overrides must not load or remove services.
    /// @return the published interface, or null
    virtual ServiceInterface* GetInterface();

    /// Overridden to create the interface and store it in `m_pInterface`. Nothing in the
    /// library calls it: a service that publishes does, in its `init`.
    virtual void SetInterface();

    /// Deletes the published interface, if there is one.
    virtual void RemoveInterface();

    /// Called by ACE when the service is removed, before its library is unmapped. Overrides
    /// end the service's threads, withdraw its interface, and call this, which does neither.
    /// @return 0
    int fini() override;

protected:
    ServiceInterface* m_pInterface;  ///< Owned once set; see `RemoveInterface`.
    std::string m_strServiceName;    ///< What the constructor was given.
    std::string m_strBundleName;     ///< What the constructor was given.
};

/// @name Interface registry
/// What the interface proxies have found, by interface name. It owns no interface.
/// @{

/// Serialises the searches of the interface proxies.
ZO_EXPORT extern ACE_Thread_Mutex _g_actualmutex;

/// @param name name of the interface, that is, of the service that publishes it
/// @return the list of interfaces known under `name`, created empty if there was
///         none; valid until the process ends. Reading or appending to it is the
///         caller's, at a time when no other thread looks up or sets that name. Who has an
///         interface replaced by another one at the same address uses `SetIFBuf`
ZO_EXPORT std::vector<ServiceInterface*>* CheckIFBuf(const std::string& name);

/// Replaces the list under `name` by the one interface `iface`.
/// @param name  name of the interface
/// @param iface stays its publisher's; null is stored as it is
ZO_EXPORT void SetIFBuf(const std::string& name, ServiceInterface* iface);

/// Takes an interface out of the list under `name`, before it is deleted: proxies that have
/// found it search again from then on. Throws nothing.
/// @param name  name of the interface
/// @param iface the one to take out; null, and one that is not in the list, change nothing
ZO_EXPORT void RemoveIFBuf(const std::string& name, const ServiceInterface* iface);
/// @}

/// Base of the exceptions of this library. A thrower may leave details in the streams.
class ZO_EXPORT ProcessException : public std::exception {
public:
    ProcessException();
    /// Moves the unread text of the other's streams over.
    /// @param other the source, whose streams are read to their end
    ProcessException(ProcessException& other);
    ~ProcessException() override;

    /// Whatever the thrower has to say.
    /// @{
    std::stringstream m_stream1;
    std::stringstream m_stream2;
    std::stringstream m_stream3;
    std::stringstream m_stream4;
    /// @}
};

/// No service publishes the interface that was asked for.
class ZO_EXPORT InterfaceNotExistException : public ProcessException {
public:
    InterfaceNotExistException();
    InterfaceNotExistException(InterfaceNotExistException& other);
    ~InterfaceNotExistException() override;
};

/// Finds a service's published interface by the service's name, and keeps what it
/// found in the interface registry.
///
///     ServiceInterfaceProxy<AlarmTable> alarms("AlarmSvc");
///     alarms->Raise(alarm);
///
/// The first look-up that finds the interface searches the bundles, under `_g_actualmutex` and
/// the bundles' locks: do it in `init`, not on a thread that is waited for while its service
/// ends. Later ones take neither. While a search fails, each look-up searches again.
///
/// Thread safety: one proxy may be used by any number of threads. The result stays the
/// publisher's; the registry keeps it even after the publisher is gone, until
/// `SetIFBuf` replaces it.
template <class Interface>
class ServiceInterfaceProxy : private InterfaceProxyBase {
public:
    /// @param interfaceName name of the publishing service
    /// @param bundleName    the bundle to search; empty: every configured bundle, the
    ///                      last configured first
    explicit ServiceInterfaceProxy(const std::string& interfaceName, const std::string& bundleName = "")
        : InterfaceProxyBase(interfaceName, bundleName, typeid(Interface)) {}

    /// Looks at the interface itself only when it is asked for the first time as an
    /// `Interface`; after that the pointer is handed out as it was, even when the publisher
    /// has deleted it since.
    /// @param all if given, receives everything known under the name
    /// @return the first interface known under the name; null when that is what `SetIFBuf`
    ///         or the holder of the list (`CheckIFBuf`) has put there
    /// @throws InterfaceNotExistException when there is none or it is not an
    ///         `Interface`; `*all` is then untouched
    Interface* GetInterface(std::vector<ServiceInterface*>* all = nullptr) {
        return static_cast<Interface*>(Find(&Cast, all));
    }

    /// @return `GetInterface()`, which must not be null
    Interface* operator->() { return GetInterface(); }

    /// @return the null interface that all proxies of this type share; never deleted
    static ServiceInterface* GetNullInterface() { return NullInterface(typeid(Interface)); }

private:
    static void* Cast(ServiceInterface* iface) { return dynamic_cast<Interface*>(iface); }
};

}  // namespace NS_BUNDLEMGR1

/// Creates the one bundle of a library while the library loads and registers it with
/// the manager. Stands once, at global scope, in one of the library's sources.
/// @param Class class derived from `BundleObject`, default-constructible
#define ZO_BUNDLE(Class)                                               \
    static ::NS_BUNDLEMGR1::BundleRegistration s_zoBundleRegistration( \
        []() -> ::NS_BUNDLEMGR1::BundleObject* { return new Class; })

/// Defines the factory `_make_<svc>` of a service, with an exterminator, so that the
/// service's destructor runs when ACE removes it. Stands at global scope.
/// @param Class class derived from `ServiceObjectBase`, default-constructible
/// @param svc   the service's name as in `svc.cfg`
#define ZO_SERVICE_FACTORY(Class, svc)                                                                           \
    extern "C" ZO_PLUGIN_EXPORT ACE_Service_Object* _make_##svc(ACE_Service_Object_Exterminator*);               \
    extern "C" ZO_PLUGIN_EXPORT ACE_Service_Object* _make_##svc(ACE_Service_Object_Exterminator* exterminator) { \
        if (exterminator != nullptr) *exterminator = &::NS_BUNDLEMGR1::DestroyService;                           \
        return ::NS_BUNDLEMGR1::MakeService(#svc, []() -> ACE_Service_Object* { return new Class; });            \
    }                                                                                                            \
    static_assert(true, "a semicolon follows")
