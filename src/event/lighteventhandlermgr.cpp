#include <bundlemgr/event.h>

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <type_traits>

#include <ace/Malloc_Base.h>
#include <ace/Object_Manager.h>
#include <ace/Thread_Manager.h>

#include "src/corelog/corelog.h"
#include "src/event/eventqueue.h"
#include "src/event/handlercalls.h"
#include "src/platform/staticobjectlock.h"
#include "src/platform/usegate.h"
#include "src/platform/waituntil.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("lighteventhandlermgr");

// Operators' log filters know this failure by its line.
constexpr unsigned long kActivateFailedLine = 73;

// Turns away calls of a manager that is gone.
UseGate g_gate;

// Managers that Destroy has ended and Instance will use again. They are not deleted:
// whoever has a pointer to one may still look at it, as sanitizers do before each call.
std::atomic<LightEventMgr*> g_pShelf{nullptr};

// Each Destroy that ends a manager has a number, and they are over in this order. So one
// comparison tells whether all of them are that had begun by a certain time. There is no
// mutex: a caller may hold the static-object lock, which the mutex's holder would need.
std::atomic<unsigned long> g_nDestroysBegun{0};  // changed under the static-object lock
std::atomic<unsigned long> g_nDestroysOver{0};

void WaitForDestroys(unsigned long number) {
    WaitUntil([number] { return g_nDestroysOver.load() >= number; });
}

// The event manager whose worker the current thread is.
thread_local LightEventMgr* t_workerOf = nullptr;
// The same for a worker that nobody can join, until ACE has finished with the manager.
thread_local const LightEventMgr* t_detachedFrom = nullptr;
// Whether the current thread carries out a Destroy.
thread_local bool t_isDestroying = false;

// Sets a variable of the thread, also when the thread is ended by unwinding.
template <class Value>
class ThreadScope {
public:
    ThreadScope(Value& variable, Value value) : m_variable(variable), m_outer(variable) { m_variable = value; }
    ~ThreadScope() { m_variable = m_outer; }
    ThreadScope(const ThreadScope&) = delete;
    ThreadScope& operator=(const ThreadScope&) = delete;

private:
    Value& m_variable;
    const Value m_outer;
};

// The parameter of an event that is being dispatched.
class Param {
public:
    explicit Param(const PostedEvent& event) : m_pParam(event.param), m_isDeleted(event.isParamDeleted) {}
    ~Param() {
        if (m_isDeleted) delete m_pParam;
    }
    Param(const Param&) = delete;
    Param& operator=(const Param&) = delete;

    LightEventParam* Get() const { return m_pParam; }

private:
    LightEventParam* const m_pParam;
    const bool m_isDeleted;
};

// Ends the calls of an event, also when the thread is ended by unwinding.
class Ending {
public:
    explicit Ending(HandlerCalls& calls) : m_calls(calls) {}
    ~Ending() { m_calls.End(); }
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;

private:
    HandlerCalls& m_calls;
};

bool IsThisThreadDetached() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return false;
    int state = PTHREAD_CREATE_JOINABLE;
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    return state == PTHREAD_CREATE_DETACHED;
}

// In a child of fork ACE's own thread manager lists threads that are not there, and may be
// locked by one of them.
ACE_Thread_Manager* g_pThreadsOfChild = nullptr;

ACE_Thread_Manager* Threads() {
    return g_pThreadsOfChild != nullptr ? g_pThreadsOfChild : ACE_Thread_Manager::instance();
}

// What a child of fork can neither use nor delete; kept in sight of leak checkers.
struct Abandoned {
    const void* object;
    const Abandoned* next;
};
const Abandoned* g_pAbandoned = nullptr;

void Abandon(const void* object) {
    const auto* const abandoned = new (std::nothrow) Abandoned{object, g_pAbandoned};
    if (abandoned != nullptr) g_pAbandoned = abandoned;
}

}  // namespace

std::atomic<LightEventMgr*> LightEventMgr::m_pInstance{nullptr};

// Registered while the library loads, and so before the program's own handlers: these run
// while no lock of the event manager is held, and may use it.
[[maybe_unused]] const int LightEventMgr::s_nForkHandlers =
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);

LightEventParam::~LightEventParam() = default;

LightEventHandler::~LightEventHandler() = default;

// Counts calls that may take long, such as waiting for an event. The gate alone is for short ones: closing it for one
// manager waits for those inside all others, too.
class LightEventMgr::Stay {
public:
    explicit Stay(LightEventMgr* mgr) {
        const UseGate::Use use(g_gate, mgr);
        if (!use) return;
        mgr->m_nStaying.fetch_add(1);
        m_pMgr = mgr;
    }
    ~Stay() {
        if (m_pMgr != nullptr) m_pMgr->m_nStaying.fetch_sub(1);
    }
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

    explicit operator bool() const { return m_pMgr != nullptr; }

private:
    LightEventMgr* m_pMgr = nullptr;
};

// An event off the queue and those who are to get it: all that dispatching needs, so that a
// handler may end the manager. A worker uses one for all its events.
struct LightEventMgr::Event {
    bool isThere = false;
    PostedEvent posted{};
    EventQueue::Reader* reader = nullptr;
    HandlerCalls calls;
};

// What a worker has out of the queue.
class LightEventMgr::Reading {
public:
    explicit Reading(LightEventMgr* mgr) : m_pMgr(mgr) {}
    ~Reading() { m_reader.Leave(m_pMgr->msg_queue()); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    EventQueue::Reader* Reader() { return &m_reader; }

private:
    LightEventMgr* const m_pMgr;
    EventQueue::Reader m_reader;
};

// ---- the one instance ----------------------------------------------------------------

LightEventMgr* LightEventMgr::Instance() {
    LightEventMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    // A handler that only wants to unregister must not bring a new manager to life.
    if (t_workerOf != nullptr && t_workerOf->IsSingleton()) return t_workerOf;
    return InstanceOrMake(m_pInstance, Make);
}

void LightEventMgr::Destroy() {
    if (t_workerOf != nullptr && t_workerOf->IsSingleton()) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR,
                    "[LightEventMgr::Destroy] Called from a handler: the worker is stopped, nothing is deleted.\n");
        t_workerOf->ExitThreads();
        return;
    }
    if (t_isDestroying) return;  // by a destructor that it runs
    if (m_pInstance.load() == nullptr && g_nDestroysOver.load() == g_nDestroysBegun.load()) return;

    unsigned long number = 0;
    LightEventMgr* doomed = nullptr;
    {
        ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance());
        doomed = m_pInstance.load();
        if (doomed != nullptr) {
            doomed->m_bUnpublished.store(true);
            HandlerCalls::TablesChanged();
            g_nDestroysBegun.fetch_add(1);
            m_pInstance.store(nullptr);
        }
        number = g_nDestroysBegun.load();
    }
    if (doomed == nullptr) {
        WaitForDestroys(number);
        return;
    }
    // Without the lock: a handler that is waited for may need it.
    const ThreadScope<bool> scope(t_isDestroying, true);
    doomed->EndUse();
    if (doomed->m_bFromShelf) {
        doomed->Shelve();
    } else {
        delete doomed;
    }
    WaitForDestroys(number - 1);
    g_nDestroysOver.store(number);
}

// Whether it is, or was until its Destroy began, the one instance.
bool LightEventMgr::IsSingleton() const {
    return m_pInstance.load() == this || m_bUnpublished.load();
}

// Called under the static-object lock, so that two threads do not take the same one off the shelf.
LightEventMgr* LightEventMgr::Make() {
    LightEventMgr* mgr = g_pShelf.load();
    while (mgr != nullptr && !g_pShelf.compare_exchange_weak(mgr, mgr->m_pNextOnShelf)) {
    }
    if (mgr == nullptr) {
        mgr = new LightEventMgr;
        mgr->m_bFromShelf = true;
        return mgr;
    }
    try {
        mgr->TakeOffShelf();
    } catch (...) {
        mgr->Shelve();
        throw;
    }
    return mgr;
}

void LightEventMgr::Shelve() {
    ForgetHandlers();
    msg_queue(nullptr);  // deletes it
    m_pNextOnShelf = g_pShelf.load();
    while (!g_pShelf.compare_exchange_weak(m_pNextOnShelf, this)) {
    }
}

void LightEventMgr::TakeOffShelf() {
    thr_mgr(Threads());
    grp_id_ = -1;
    MakeQueue();
    m_bExit.store(false);
    m_bUnpublished.store(false);
    g_gate.Open(this);
}

// Everything that posting and waiting need from ACE under its static-object lock is
// created here, since an event may be posted under a lock that comes after it.
LightEventMgr::LightEventMgr() : ACE_Task<ACE_MT_SYNCH>(Threads()), m_bExit(false) {
    ACE_Allocator::instance();
    msg_queue(nullptr);  // deletes ACE's
    MakeQueue();
    g_gate.Open(this);
}

LightEventMgr::~LightEventMgr() {
    // For a host that deletes the one instance itself.
    if (m_pInstance.load() == this) m_bUnpublished.store(true);
    HandlerCalls::TablesChanged();
    LightEventMgr* expected = this;
    m_pInstance.compare_exchange_strong(expected, nullptr);
    EndUse();
}

// In this order: those who wait for an event wake up, newcomers are turned away, everybody
// has left, and a worker that one of them has started meanwhile ends, too.
void LightEventMgr::EndUse() {
    CloseQueue();
    g_gate.Close(this);
    if (t_workerOf == this) return;
    WaitUntil([this] { return m_nStaying.load() == 0; });
    JoinWorkers();
}

// ---- start and stop ------------------------------------------------------------------

int LightEventMgr::Init() {
    int result = -1;
    {
        const Stay stay(this);
        if (!stay) return 0;
        // An answer of 1 says that the worker runs already.
        if (msg_queue() != nullptr) {
            result = activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1);
        }
    }
    if (result != -1) return 1;
    g_log.Print(kActivateFailedLine, LOG_LEVEL_ERROR, "[LightEventMgr::Init] Failed to activate svc,errCode is %d",
                result);
    return 0;
}

void LightEventMgr::ExitThreads() {
    const Stay stay(this);
    Stop(static_cast<bool>(stay));
}

void LightEventMgr::Fini() {
    const Stay stay(this);
    if (Stop(static_cast<bool>(stay))) ForgetHandlers();
}

// Whether the manager is there; a worker keeps it alive.
bool LightEventMgr::Stop(bool isInside) {
    const bool isWorker = t_workerOf == this;
    if (!isInside && !isWorker) {
        // Its workers may still be running if it is being destroyed just now.
        if (t_workerOf == nullptr && !t_isDestroying) WaitForDestroys(g_nDestroysBegun.load());
        return false;
    }
    CloseQueue();
    if (!isWorker) JoinWorkers();
    return true;
}

// In this order: the worker that the closing wakes must see the flag.
void LightEventMgr::CloseQueue() {
    m_bExit.store(true);
    if (msg_queue() != nullptr) msg_queue()->close();
}

// One thread at a time, since two would both join the same worker. Where there is none, ACE's
// thread manager is not asked: the host may have finalised ACE already.
void LightEventMgr::JoinWorkers() {
    const detail::Guard onlyOne(m_waitMutex);
    for (unsigned long starts = m_nStarts.load(); HasThreads() || starts != m_nJoined; starts = m_nStarts.load()) {
        const bool isAceThere = ACE_Object_Manager::shutting_down() == 0;
        if (isAceThere && wait() == -1 && errno == EDEADLK) return;  // a worker with a body of its own
        // Those whom ACE cannot join.
        WaitUntil([this] { return !HasThreads() && m_nDetached.load() == 0; });
        m_nJoined = starts;
    }
}

// ACE's count goes below zero when it could start some of several threads only.
bool LightEventMgr::HasThreads() const {
    return static_cast<std::make_signed_t<std::size_t>>(thr_count()) > 0;
}

int LightEventMgr::svc() {
    // Counted first, as a thread that is to be joined, even if it is turned away.
    m_nStarts.fetch_add(1);
    if (IsThisThreadDetached()) {
        t_detachedFrom = this;
        m_nDetached.fetch_add(1);
    }
    const Stay stay(this);
    if (!stay) return 0;
    const ThreadScope<LightEventMgr*> scope(t_workerOf, this);
    try {
        Reading reading(this);
        Event event;
        event.reader = reading.Reader();
        while (!m_bExit.load() && msg_queue() != nullptr) {
            Fetch(event);
            Dispatch(event);
        }
    } catch (...) {
        // A handler has ended its thread. ACE would take the worker off its books at
        // the thread's very end, with its own two locks in the wrong order.
        if (thr_mgr()->at_exit(this, nullptr, nullptr) == 0) cleanup(this, nullptr);
        throw;
    }
    return 0;
}

int LightEventMgr::open(void*) {
    return 0;
}

int LightEventMgr::close(u_long) {
    if (t_detachedFrom == this) {
        t_detachedFrom = nullptr;
        m_nDetached.fetch_sub(1);
    }
    return 0;
}

// ---- handlers and events -------------------------------------------------------------

void LightEventMgr::ForgetHandlers() {
    const detail::Guard guard(m_handlerLock);
    m_mapHandlers.clear();
    HandlerCalls::TablesChanged();
}

int LightEventMgr::RegisterHandler(const int& eventId, LightEventHandler* handler) {
    const UseGate::Use use(g_gate, this);
    if (!use) return 0;
    const detail::Guard guard(m_handlerLock);
    m_mapHandlers[eventId].push_back(handler);
    HandlerCalls::TablesChanged();
    return 0;
}

int LightEventMgr::UnRegisterHandler(const int& eventId, LightEventHandler* handler) {
    const UseGate::Use use(g_gate, this);
    if (!use) return 0;
    const detail::Guard guard(m_handlerLock);
    const auto entry = m_mapHandlers.find(eventId);
    if (entry == m_mapHandlers.end()) return 0;

    std::list<LightEventHandler*>& handlers = entry->second;
    const auto first = std::find(handlers.begin(), handlers.end(), handler);
    if (first == handlers.end()) return 0;
    handlers.erase(first);
    HandlerCalls::TablesChanged();
    return 0;
}

void LightEventMgr::RemoveHandler(const LightEventHandler* handler) {
    LightEventMgr* const instance = m_pInstance.load();
    if (instance != nullptr) instance->Forget(handler);
    HandlerCalls::Withdraw(handler);
}

void LightEventMgr::Forget(const LightEventHandler* handler) {
    const UseGate::Use use(g_gate, this);
    if (!use) return;
    const detail::Guard guard(m_handlerLock);
    for (auto& entry : m_mapHandlers) {
        entry.second.remove_if([handler](const LightEventHandler* registered) { return registered == handler; });
    }
    HandlerCalls::TablesChanged();
}

std::list<LightEventHandler*> LightEventMgr::find(const int& eventId) {
    const UseGate::Use use(g_gate, this);
    if (!use) return {};
    const detail::ReadGuard guard(m_handlerLock);
    const auto entry = m_mapHandlers.find(eventId);
    return entry != m_mapHandlers.end() ? entry->second : std::list<LightEventHandler*>();
}

int LightEventMgr::Push_Msg(const int& eventId, LightEventParam* param, int extra) {
    const UseGate::Use use(g_gate, this);
    if (!use || msg_queue() == nullptr) return 0;
    EventQueue::Post(*msg_queue(), {eventId, extra, param, param != nullptr && param->m_bAutoDelete});
    return 0;
}

void LightEventMgr::process_msg() {
    Event event;
    {
        const Stay stay(this);
        if (stay) Fetch(event);
    }
    Dispatch(event);
}

// Waits for the next event; there is none when the queue is closed.
void LightEventMgr::Fetch(Event& event) {
    ACE_Message_Queue<ACE_MT_SYNCH>* const queue = msg_queue();
    event.isThere = queue != nullptr && EventQueue::Take(*queue, event.reader, event.posted);
    if (!event.isThere) return;
    event.calls.Begin(event.posted.eventId, [this, &event](auto call) {
        // Who withdraws a handler takes it out of the table of the one instance only.
        if (m_bUnpublished.load()) return;
        const detail::ReadGuard guard(m_handlerLock);
        const auto entry = m_mapHandlers.find(event.posted.eventId);
        if (entry == m_mapHandlers.end()) return;
        for (LightEventHandler* const handler : entry->second) call(handler);
    });
}

// Touches no manager: a handler may have destroyed it.
void LightEventMgr::Dispatch(Event& event) {
    if (!event.isThere) return;
    HandlerCalls& calls = event.calls;
    // In this order: the last handler counts as called until the parameter is gone, whose code may
    // be in the same library.
    const Ending ending(calls);
    const Param param(event.posted);
    try {
        for (LightEventHandler* handler = calls.Current(); handler != nullptr; handler = calls.Next()) {
            handler->HandleLightEvent(event.posted.eventId, param.Get());
        }
    } catch (...) {
        // A handler ended its thread: no exception, and the process would not survive
        // swallowing it.
        if (std::current_exception() == nullptr) throw;
        // An exception ends this event; the next one is not its concern.
    }
}

// ---- fork ----------------------------------------------------------------------------

namespace {

// Between the handlers before and after a fork, which leave the gate locked.
template <class Action>
void ForEachManager(Action action) ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.ForEachOpen([&action](const void* open) ZO_NO_THREAD_SAFETY_ANALYSIS {
        action(*static_cast<LightEventMgr*>(const_cast<void*>(open)));
    });
}

}  // namespace

// No handler table is in the middle of a change when the child is made: the locks taken here
// stay held until one of the two functions below. All others are made anew in the child,
// since they may be held for long, like that of the static objects.
void LightEventMgr::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.BeforeFork();
    HandlerCalls::BeforeFork();
    ForEachManager([](LightEventMgr& mgr) ZO_ACQUIRE_SHARED(mgr.m_handlerLock) { mgr.m_handlerLock.acquire_read(); });
}

void LightEventMgr::AfterForkInParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    ForEachManager([](LightEventMgr& mgr) ZO_RELEASE(mgr.m_handlerLock) { mgr.m_handlerLock.release(); });
    HandlerCalls::AfterForkInParent();
    g_gate.AfterForkInParent();
}

void LightEventMgr::AfterForkInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    bool any = false;
    ForEachManager([&any](LightEventMgr&) { any = true; });
    if (any) {
        FreeStaticObjectLockInChild();
        Abandon(g_pThreadsOfChild);
        g_pThreadsOfChild = new (std::nothrow) ACE_Thread_Manager;
    }
    g_nDestroysOver.store(g_nDestroysBegun.load());
    ForEachManager([](LightEventMgr& mgr) ZO_RELEASE(mgr.m_handlerLock) {
        mgr.m_handlerLock.release();  // for tools that note what this thread holds
        mgr.StartAnewInChild();
    });
    HandlerCalls::AfterForkInChild();
    g_gate.AfterForkInChild();
}

// Only the thread that forked is left, perhaps a worker in a handler. Nobody will let go of
// a lock nor leave the queue's condition variables, so they are not even destroyed.
void LightEventMgr::StartAnewInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    const bool isWorker = t_workerOf == this;
    new (&m_handlerLock) detail::RWMutex;
    new (&m_waitMutex) detail::ThreadMutex;
    new (&lock_) ACE_Thread_Mutex;
    Abandon(msg_queue());
    MakeQueue();
    if (m_bExit.load()) CloseQueue();
    m_nStaying.store(isWorker ? 1 : 0);
    m_nDetached.store(t_detachedFrom == this ? 1 : 0);
    m_nJoined = m_nStarts.load();
    thr_count_ = isWorker ? 1 : 0;
    if (!isWorker) thr_mgr(g_pThreadsOfChild);
}

void LightEventMgr::MakeQueue() {
    msg_queue_ = new (std::nothrow) EventQueue;
    delete_msg_queue_ = msg_queue_ != nullptr;
}

}  // namespace NS_BUNDLEMGR1
