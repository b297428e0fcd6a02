#include "bundlemgr/event.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <new>

#include <ace/Guard_T.h>
#include <ace/Malloc_Base.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>
#include <ace/Thread_Manager.h>

#include "event/lightinternalmessage.h"
#include "log/logproxy.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("lighteventhandlermgr");

// The position that operators know this failure by.
constexpr unsigned long kActivateFailedLine = 73;

// Claimed by the one Destroy that is under way. No mutex: Destroy waits for the worker
// before it takes the static-object lock, which its caller may hold already.
std::atomic<bool> g_isDestroying{false};

class DestroyClaim {
public:
    DestroyClaim() : m_isMine(!g_isDestroying.exchange(true)) {}
    ~DestroyClaim() {
        if (m_isMine) g_isDestroying.store(false);
    }
    DestroyClaim(const DestroyClaim&) = delete;
    DestroyClaim& operator=(const DestroyClaim&) = delete;

    bool IsMine() const { return m_isMine; }

private:
    const bool m_isMine;
};

// The event manager whose worker the current thread is.
thread_local const LightEventMgr* t_workerOf = nullptr;

// Marks the current thread as the worker, also when the thread is ended by unwinding.
class WorkerScope {
public:
    explicit WorkerScope(const LightEventMgr* mgr) : m_outer(t_workerOf) { t_workerOf = mgr; }
    ~WorkerScope() { t_workerOf = m_outer; }
    WorkerScope(const WorkerScope&) = delete;
    WorkerScope& operator=(const WorkerScope&) = delete;

private:
    const LightEventMgr* const m_outer;
};

struct Release {
    void operator()(LightInternalMessage* message) const { message->release(); }
};

struct DeleteParamAndRelease {
    void operator()(LightInternalMessage* message) const {
        message->DeleteParam();
        message->release();
    }
};

}  // namespace

std::atomic<LightEventMgr*> LightEventMgr::m_pInstance{nullptr};

LightEventParam::~LightEventParam() = default;

LightEventHandler::~LightEventHandler() = default;

LightEventMgr* LightEventMgr::Instance() {
    LightEventMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;

    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance(), m_pInstance.load());
    if (m_pInstance.load() == nullptr) m_pInstance.store(new LightEventMgr, std::memory_order_release);
    return m_pInstance.load();
}

void LightEventMgr::Destroy() {
    LightEventMgr* const running = m_pInstance.load(std::memory_order_acquire);
    if (running == nullptr) return;
    if (running == t_workerOf) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR,
                    "[LightEventMgr::Destroy] Called from a handler: the worker is stopped, nothing is deleted.\n");
        running->ExitThreads();
        return;
    }

    const DestroyClaim claim;
    if (!claim.IsMine()) return;
    LightEventMgr* const doomed = m_pInstance.load(std::memory_order_acquire);
    if (doomed == nullptr) return;
    doomed->ExitThreads();

    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance());
    delete doomed;
    m_pInstance.store(nullptr, std::memory_order_release);
}

// Everything that posting and waiting need from ACE under its static-object lock is
// created here, since an event may be posted under a lock that comes later in order.
LightEventMgr::LightEventMgr()
    : ACE_Task<ACE_MT_SYNCH>(ACE_Thread_Manager::instance()), m_bExit(false), m_bStarted(false) {
    ACE_Allocator::instance();
}

LightEventMgr::~LightEventMgr() {
    ExitThreads();
}

int LightEventMgr::Init() {
    // Before a handler needs it: the host may wait for the worker while it holds
    // the static-object lock, under which the log is created.
    g_log.Prepare();

    m_bStarted.store(true);
    // An answer of 1 says that the worker runs already.
    const int result = activate(THR_NEW_LWP | THR_JOINABLE, 1, 0, ACE_DEFAULT_THREAD_PRIORITY, -1);
    if (result != -1) return 1;
    g_log.Print(kActivateFailedLine, LOG_LEVEL_ERROR, "[LightEventMgr::Init] Failed to activate svc,errCode is %d",
                result);
    return 0;
}

void LightEventMgr::Fini() {
    ExitThreads();
    ACE_Write_Guard<ACE_RW_Mutex> guard(m_handlerLock);
    m_mapHandlers.clear();
}

void LightEventMgr::ExitThreads() {
    // In this order: the worker that the closing wakes must see the flag.
    m_bExit.store(true);
    msg_queue()->close();
    if (t_workerOf == this) return;

    // Two threads that wait at once would both join the worker. Nobody to wait for, no
    // look at ACE's thread manager: the host may have finalised ACE already.
    ACE_Guard<ACE_Thread_Mutex> onlyOne(m_waitMutex);
    if (!m_bStarted.load()) return;
    wait();
    m_bStarted.store(false);
}

int LightEventMgr::RegisterHandler(const int& eventId, LightEventHandler* handler) {
    ACE_Write_Guard<ACE_RW_Mutex> guard(m_handlerLock);
    m_mapHandlers[eventId].push_back(handler);
    return 0;
}

int LightEventMgr::UnRegisterHandler(const int& eventId, LightEventHandler* handler) {
    ACE_Write_Guard<ACE_RW_Mutex> guard(m_handlerLock);
    const auto entry = m_mapHandlers.find(eventId);
    if (entry == m_mapHandlers.end()) return 0;

    std::list<LightEventHandler*>& handlers = entry->second;
    const auto first = std::find(handlers.begin(), handlers.end(), handler);
    if (first != handlers.end()) handlers.erase(first);
    return 0;
}

std::list<LightEventHandler*> LightEventMgr::find(const int& eventId) {
    ACE_Read_Guard<ACE_RW_Mutex> guard(m_handlerLock);
    const auto entry = m_mapHandlers.find(eventId);
    return entry != m_mapHandlers.end() ? entry->second : std::list<LightEventHandler*>();
}

int LightEventMgr::Push_Msg(const int& eventId, LightEventParam* param, int extra) {
    std::unique_ptr<LightInternalMessage, Release> message(new (std::nothrow)
                                                               LightInternalMessage(eventId, extra, param));
    // Out of memory: the event is lost. The queue would not survive a block that got
    // no data block.
    if (message == nullptr || message->data_block() == nullptr) return 0;

    const bool refused = msg_queue()->enqueue_tail(message.get()) == -1 && errno == ESHUTDOWN;
    if (!refused) static_cast<void>(message.release());
    return 0;
}

int LightEventMgr::svc() {
    const WorkerScope scope(this);
    try {
        while (!m_bExit.load()) process_msg();
    } catch (...) {
        // A handler has ended its thread. ACE would take the worker off its books at
        // the thread's very end, with its own two locks in the wrong order.
        if (thr_mgr()->at_exit(this, nullptr, nullptr) == 0) cleanup(this, nullptr);
        throw;
    }
    return 0;
}

void LightEventMgr::process_msg() {
    ACE_Message_Block* block = nullptr;
    msg_queue()->dequeue_head(block);
    if (block == nullptr) return;

    const std::unique_ptr<LightInternalMessage, DeleteParamAndRelease> message(
        dynamic_cast<LightInternalMessage*>(block));
    if (message == nullptr) {
        block->release();  // Not an event: the task's queue is within everybody's reach.
        return;
    }
    Dispatch(message->m_nEventId, message->m_pParam);
}

void LightEventMgr::Dispatch(int eventId, LightEventParam* param) {
    try {
        for (LightEventHandler* const handler : find(eventId)) {
            if (handler != nullptr) handler->HandleLightEvent(eventId, param);
        }
    } catch (...) {
        // A handler ended its thread: no exception, and the process would not survive
        // swallowing it.
        if (std::current_exception() == nullptr) throw;
        // An exception ends this event; the next one is not its concern.
    }
}

int LightEventMgr::open(void*) {
    return 0;
}

int LightEventMgr::close(u_long) {
    return 0;
}

}  // namespace NS_BUNDLEMGR1
