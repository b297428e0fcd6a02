/// @file kit.h
/// What bundles and services are made of as a rule: bases with the right order of beginning and
/// end, a log call that keeps text and position together, a thread and an event subscription
/// that end with their service. A bundle with a service that does something every second:
///
///     class ClockBundle : public zo::ServiceBundle {
///     public:
///         ClockBundle() : ServiceBundle("clock_bundle", 10) {}
///     };
///
///     class ClockSvc : public zo::Service {
///     public:
///         ClockSvc() : Service("clock_bundle", "ClockSvc") {}
///         int init(int, ACE_TCHAR*[]) override {
///             m_thread.Start([this] { return Tick(); });
///             ZO_INFO(m_log, "%s is up\n", GetName());
///             return 0;
///         }
///         void ExitThreads() override { m_thread.Stop(); }
///
///     private:
///         std::chrono::milliseconds Tick();
///
///         zo::Log m_log{"Clock", "clock_bundle", "ClockSvc"};
///         zo::ServiceThread m_thread{m_log};  // the last member: the first that goes
///     };
///
///     ZO_BUNDLE(ClockBundle);
///     ZO_SERVICE_FACTORY(ClockSvc, ClockSvc);
///
/// A service's thread must have ended before its code is unmapped, and the end comes from
/// several places. In the normal stop the services are finalised first, and `ExitThreads` is
/// then no longer called on them; a service that is asked while its `init` still runs sees
/// `ExitThreads` alone; one whose `init` failed sees the destructor alone. So a thread is ended
/// in `fini`, in `ExitThreads` and in the destructor, by one operation that may come any
/// number of times. `Service` calls `ExitThreads` from `fini`, and `ServiceThread` and
/// `EventSubscription` end in their destructors.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <bundlemgr/bundle.h>
#include <bundlemgr/detail/sourcename.h>
#include <bundlemgr/event.h>
#include <bundlemgr/export.h>
#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

/// A way to the log, for `ZO_INFO` and its like.
///
///     zo::Log log("Hello", "hello_bundle", "HelloSvc");
///     ZO_INFO(log, "%s is up\n", name);
///
/// Bundle and service names belong to the proxy of that name: give them only where the name
/// is used for this service alone.
///
/// Asks for its proxy with the first record, which creates the bundle manager if there is
/// none. May be a static object, and be used by static constructors and destructors. Throws
/// nothing: without memory for the proxy, the format is printed on standard output, as by a
/// `DefaultLogProxy`.
///
/// Thread safety: may be used by any number of threads.
class ZO_EXPORT Log {
public:
    /// @param name    name of the log proxy
    /// @param bundle  bundle name of its records; null: the proxy's name is not
    ///                changed
    /// @param service service name of its records; null: as before. All of them must live as
    ///                long as the object, as literals do
    constexpr explicit Log(const char* name, const char* bundle = nullptr, const char* service = nullptr) noexcept
        : m_name(name), m_bundle(bundle), m_service(service) {}
    /// @param other the one whose names it takes over
    Log(const Log& other) noexcept;
    Log& operator=(const Log&) = delete;

    /// Writes a record; see `LogProxy::VPrintfAt`. As a rule through `ZO_INFO` and its like.
    /// @param file   bare name of the source file; null counts as empty
    /// @param line   line in it
    /// @param level  severity, see `LogLevel`
    /// @param format printf-style format, followed by its arguments
    void Print(const char* file, unsigned long line, int level, const char* format, ...) const
        __attribute__((format(printf, 5, 6)));

    /// @return the proxy that it writes to, owned by the library and valid until the process
    ///         ends; where there is none, a `DefaultLogProxy`
    LogProxy* Proxy() const;

private:
    LogProxy* FetchProxy() const;

    const char* const m_name;
    const char* const m_bundle;
    const char* const m_service;
    mutable std::atomic<LogProxy*> m_proxy{nullptr};
};

/// Calls a function with the parameter of each event of one kind, for as long as it is open.
///
///     m_alarms.Open(EVENT_ALARM, [this](LightEventParam* param) { ... });  // in init
///     m_alarms.Close();                                                    // in ExitThreads
///
/// When `Close` has returned, the function is neither running nor called again, and its code
/// may be unmapped; for the code of parameters that are posted see `LightEventParam`. That
/// holds also while the event manager is destroyed, when there is none any more, and in a
/// forked child.
///
/// The function may close its own subscription, reopen or destroy it: that returns at once, and
/// the call that is under way goes on to its end. Whoever else closes it waits for that call;
/// two functions that close each other's subscription at once, on two workers, wait for ever.
///
/// An exception from the function ends the handling of the event, as one from any handler.
///
/// An event manager that is destroyed forgets the subscription: call `Open` again for a new one.
///
/// Thread safety: everything may be called from any thread, `Close` by several at once, `Open` by
/// one at a time. A thread that closes or destroys one must not be cancelled meanwhile
/// (`pthread_cancel`), and must hold no lock that the function may wait for. In a service's `fini` these are the
/// locks of the bundle manager and of the bundle: the function must not load or remove a service,
/// nor look up a bundle, nor an interface for the first time.
class ZO_EXPORT EventSubscription {
public:
    /// Is given what the poster gave, which may be null.
    using Function = std::function<void(LightEventParam*)>;

    /// @throws std::bad_alloc
    EventSubscription();
    /// Closes it.
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    /// Closes it and begins to call another function.
    /// @param eventId  identifier of the events
    /// @param function is called on the thread that handles the event
    /// @throws std::bad_alloc: then it is either closed or unchanged
    void Open(int eventId, Function function);

    /// Ends it; does nothing when it is not open.
    void Close();

private:
    class Gate;

    const std::shared_ptr<Gate> m_gate;
};

/// A thread that works in rounds with a pause after each, and that can be ended at any time.
///
///     zo::ServiceThread m_thread{m_log};            // the last member
///     m_thread.Start([this] { return Round(); });   // in init
///     m_thread.Stop();                              // in ExitThreads
///
/// The function does one round of work and returns how long to pause before the next, measured
/// by the steady clock. An exception from it is logged, and the next round follows after a
/// second. A long round looks at `Stopping` now and then.
///
/// The thread is waited for exactly once, wherever its end comes from and from how many
/// threads at once. `Stop` called by the function itself returns at once; the thread then ends
/// after that round, and whoever stops it from another thread waits. The function may even
/// destroy this object, and the log with it; then nobody can wait for the thread. Two threads
/// that stop each other wait for ever, as does a thread that is stopped by what it waits for.
///
/// A forked child has no such thread; there it may be stopped, and started. A round that forks
/// goes on to its end in the child, and is the last there.
///
/// Thread safety: everything may be called from any thread. A thread that stops or destroys one
/// must not be cancelled meanwhile (`pthread_cancel`), and must hold no lock that the function
/// may wait for. In a service's `fini` these are the locks of the bundle manager and
/// of the bundle: the function must not load or remove a service, nor look up a bundle, nor an
/// interface for the first time.
class ZO_EXPORT ServiceThread {
public:
    /// Does one round. @return the pause before the next one
    using Round = std::function<std::chrono::milliseconds()>;

    /// @param log receives the reports; copied
    explicit ServiceThread(const Log& log);
    /// Stops it.
    ~ServiceThread();
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

    /// Begins, also once more after `Stop`. A thread that has not ended yet is asked to, and the
    /// first round waits until it has.
    /// @param round the work
    /// @throws std::system_error when the system has no thread to give, std::bad_alloc when
    ///         there is no memory for one. Nothing has changed then
    void Start(Round round);

    /// Ends the pause, asks the round that is under way to end, and returns when the thread has
    /// ended; called by the thread itself, it returns at once. Without a thread it does nothing.
    void Stop();

    /// Ends the pause; during a round, the pause after it.
    void Wake();

    /// @return whether the thread has been asked to end, the calling one if it is one of
    ///         this object. False before the first start
    bool Stopping() const;

private:
    class Run;

    std::shared_ptr<Run> Latest() const;
    void ForgetForeign();

    const Log m_log;
    std::shared_ptr<Run> m_run;  // the latest one
};

/// Base of a service: its `fini` ends its threads and withdraws its interface.
///
/// Nothing in the library publishes a service's interface by itself. A service makes it in its
/// `init`, as late as it can, and with `Publish`:
///
///     int init(int, ACE_TCHAR*[]) override {
///         m_table = Publish(std::make_unique<AlarmTableImpl>());
///         return 0;
///     }
///
/// Others find it by the service's name, when `init` has returned 0 (`ServiceInterfaceProxy`).
/// What they have found they keep, so the interface is withdrawn before it is deleted: whoever
/// asks from then on finds none (`InterfaceNotExistException`), until another one is published
/// under that name. Those who have it in use must have ended by then; they are the bundles with
/// the greater order values, and the later services.
class ZO_EXPORT Service : public ServiceObjectBase {
public:
    /// @param bundleName  the bundle to which the service belongs
    /// @param serviceName the service's own name. Note the order. Neither may be null
    Service(const char* bundleName, const char* serviceName);

    /// Withdraws the interface. Threads are ended by the derived class, whose members are gone
    /// already; `ServiceThread` and `EventSubscription` do so by themselves.
    ~Service() override;

    /// Calls `ExitThreads`, then withdraws the interface. Overrides call it.
    /// @return 0
    int fini() override;

    /// Overridden to end threads and subscriptions; it is called by `fini`, too, and must do
    /// nothing when they have ended. The one here does nothing, for services that have none.
    void ExitThreads() override;

    /// Withdraws and deletes the published interface, if there is one.
    void RemoveInterface() override;

protected:
    /// Publishes an interface in place of the former one.
    /// @param iface the interface, owned by the service from now on
    /// @return the interface, valid until it is withdrawn
    template <class Interface>
    Interface* Publish(std::unique_ptr<Interface> iface) {
        Interface* const published = iface.get();
        Own(std::move(iface));
        return published;
    }

private:
    void Own(std::unique_ptr<ServiceInterface> iface);
};

/// Base of a bundle with services. One that publishes an interface of its own overrides
/// `SetInterface`:
///
///     void SetInterface() override { m_pInterface = new Greeting; }
///
/// The order is: publish the interface, load the services, and only when all are ready,
/// `BUNDLE_STATE_INITED`. After an `Init` that failed the services that were ready stay so; the
/// next `InitAllBundles` removes them and initialises the bundle once more. The end comes in
/// reverse.
class ZO_EXPORT ServiceBundle : public BundleObject {
public:
    /// @param name  the bundle's name: the middle of its library's name
    /// @param order its place in the order of initialisation; smaller is earlier
    ServiceBundle(std::string name, int order);
    ~ServiceBundle() override;

    /// @return the name that the constructor was given
    std::string GetName() override;
    /// @return the order that the constructor was given
    int GetBundleOrder() override;
    /// Publishes nothing.
    void SetInterface() override;
    /// @return 0, or the result of `LoadAllServiceObjects`
    int Init() override;
    /// Ends the services, newest first, withdraws the bundle's interface, and sets
    /// `BUNDLE_STATE_FINIED`.
    void Fini() override;

private:
    void TakeBack();

    const std::string m_strName;
    const int m_nOrder;
    bool m_isBegun = false;  // there was an Init before
};

}  // namespace NS_BUNDLEMGR1

/// The kit by a shorter name.
namespace zo {

using NS_BUNDLEMGR1::EventSubscription;
using NS_BUNDLEMGR1::Log;
using NS_BUNDLEMGR1::Service;
using NS_BUNDLEMGR1::ServiceBundle;
using NS_BUNDLEMGR1::ServiceThread;

}  // namespace zo

/// Writes a record with the bare name of the source file and the line where this stands. The
/// name is found while compiling.
/// @param log   a `zo::Log`
/// @param level severity, see `LogLevel`
/// @param ...   printf-style format, a literal, and its arguments
#define ZO_LOG(log, level, ...)                                                                                      \
    do {                                                                                                             \
        constexpr ::NS_BUNDLEMGR1::detail::SourceName<::NS_BUNDLEMGR1::detail::SourceNameLength(__FILE__)> zoSource( \
            __FILE__);                                                                                               \
        (log).Print(zoSource.text, __LINE__, level, __VA_ARGS__);                                                    \
    } while (false)

/// @name Records by level
/// `ZO_INFO(log, "%s is up\n", name);`
/// @param log a `zo::Log`
/// @param ... printf-style format, a literal, and its arguments
/// @{
#define ZO_CRITICAL(log, ...) ZO_LOG(log, ::NS_BUNDLEMGR1::LOG_LEVEL_CRITICAL, __VA_ARGS__)
#define ZO_ERROR(log, ...) ZO_LOG(log, ::NS_BUNDLEMGR1::LOG_LEVEL_ERROR, __VA_ARGS__)
#define ZO_LEVEL2(log, ...) ZO_LOG(log, ::NS_BUNDLEMGR1::LOG_LEVEL_2, __VA_ARGS__)
#define ZO_INFO(log, ...) ZO_LOG(log, ::NS_BUNDLEMGR1::LOG_LEVEL_INFO, __VA_ARGS__)
/// @}
