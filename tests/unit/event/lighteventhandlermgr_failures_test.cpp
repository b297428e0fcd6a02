// The event manager when the system refuses it a thread, a lock or memory.
//
// This program's own pthread and allocation functions come before the C library's,
// for ACE, too. They pass every call on until a test tells them to fail.
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <utility>

#include <gmock/gmock.h>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "eventtest.h"
#include "support/capture.h"
#include "support/elsewhere.h"
#include "support/replacednew.h"
#include "support/wait.h"

namespace {

// What is to fail, and how often it was asked for meanwhile.
std::atomic<int> g_threadError{0};
std::atomic<int> g_threadsRefused{0};
std::atomic<pthread_mutex_t*> g_brokenMutex{nullptr};
std::atomic<int> g_mutexRefused{0};
thread_local int t_rwlockError = 0;
thread_local int t_rwlocksRefused = 0;
thread_local int t_rwlocksReleased = 0;
// The next allocation to fail on this thread, counted from 1; 0 for none.
thread_local int t_failingAllocation = 0;
// What this thread does in its next allocation.
thread_local void (*t_atNextAllocation)() = nullptr;
// How many signals of condition variables get lost.
std::atomic<int> g_signalsToLose{0};

// The function that would have been called without this program's own.
template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

bool test::RefusesMemory() noexcept {
    void (*const action)() = std::exchange(t_atNextAllocation, nullptr);
    if (action != nullptr) action();
    return t_failingAllocation > 0 && --t_failingAllocation == 0;
}

#define ZO_REPLACES __attribute__((visibility("default")))

extern "C" {

ZO_REPLACES int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                               void* argument) {
    if (g_threadError != 0) {
        ++g_threadsRefused;
        return g_threadError;
    }
    static const auto next =
        Next<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    return next(thread, attributes, body, argument);
}

ZO_REPLACES int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (mutex == g_brokenMutex) {
        ++g_mutexRefused;
        return EINVAL;
    }
    static std::atomic<int (*)(pthread_mutex_t*)> next{nullptr};
    if (next == nullptr) next = Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    return next.load()(mutex);
}

ZO_REPLACES int pthread_cond_signal(pthread_cond_t* condition) {
    if (g_signalsToLose > 0) {
        --g_signalsToLose;
        return 0;
    }
    static const auto next = Next<int (*)(pthread_cond_t*)>("pthread_cond_signal");
    return next(condition);
}

ZO_REPLACES int pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    if (t_rwlockError != 0) {
        ++t_rwlocksRefused;
        return t_rwlockError;
    }
    static const auto next = Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    return next(lock);
}

ZO_REPLACES int pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
    if (t_rwlockError != 0) {
        ++t_rwlocksRefused;
        return t_rwlockError;
    }
    static const auto next = Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    return next(lock);
}

ZO_REPLACES int pthread_rwlock_unlock(pthread_rwlock_t* lock) {
    ++t_rwlocksReleased;
    static const auto next = Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_unlock");
    return next(lock);
}

}  // extern "C"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Elsewhere;
using test::Handler;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::milliseconds kAWhile(50);  // in which what must not happen would

using LightEventMgrFailures = test::EventTest;

// Waits for an event, as a block. Returns what getq did.
int TakeOne() {
    ACE_Message_Block* block = nullptr;
    const int result = LightEventMgr::Instance()->getq(block);
    if (result != -1) block->release();
    return result;
}

// ---- no thread -----------------------------------------------------------------------

TEST_F(LightEventMgrFailures, InitReportsAndLogsThatNoThreadWasToBeHad) {
    Mgr();
    int result = -1;
    const std::string printed = test::StdoutOf([&] {
        g_threadsRefused = 0;
        g_threadError = EAGAIN;
        result = Mgr().Init();
        g_threadError = 0;
    });

    EXPECT_EQ(1, g_threadsRefused);
    EXPECT_EQ(0, result);
    EXPECT_EQ(0U, Mgr().thr_count());
    EXPECT_EQ("[LightEventMgr::Init] Failed to activate svc,errCode is -1", printed);
    EXPECT_EQ("<1>\nTIME, " + ThisThread() +
                  ", Level = 1, Bundle = BundleMgr, Service = Core \n"
                  "filename = lighteventhandlermgr, lineno = 73\n"
                  "[LightEventMgr::Init] Failed to activate svc,errCode is -1\n</1>\n\n",
              Log());
}

TEST_F(LightEventMgrFailures, AfterAFailedInitAnotherMaySucceed) {
    std::atomic<int> calls{0};
    Handler handler([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &handler);
    Mgr().Push_Msg(1, nullptr, 0);
    g_threadError = EAGAIN;
    EXPECT_EQ(0, Mgr().Init());
    EXPECT_EQ(0, Mgr().Init());
    g_threadError = 0;
    EXPECT_EQ(0, calls);

    EXPECT_EQ(1, Mgr().Init());
    EXPECT_TRUE(WaitFor([&] { return calls == 1; }));
    Mgr().Fini();
}

TEST_F(LightEventMgrFailures, AManagerThatNeverGotItsThreadStops) {
    g_threadError = EAGAIN;
    EXPECT_EQ(0, Mgr().Init());
    g_threadError = 0;
    Mgr().Fini();
    LightEventMgr::Destroy();
}

// ---- no lock -------------------------------------------------------------------------

class BrokenStaticObjectLock {
public:
    BrokenStaticObjectLock() {
        g_mutexRefused = 0;
        g_brokenMutex = &ACE_Static_Object_Lock::instance()->lock();
    }
    ~BrokenStaticObjectLock() { g_brokenMutex = nullptr; }
};

TEST_F(LightEventMgrFailures, WithoutTheStaticObjectLockInstanceReturnsTheCurrentPointer) {
    {
        const BrokenStaticObjectLock broken;
        EXPECT_EQ(nullptr, LightEventMgr::Instance());
        EXPECT_EQ(1, g_mutexRefused);
    }
    LightEventMgr* const instance = LightEventMgr::Instance();
    ASSERT_NE(nullptr, instance);

    const BrokenStaticObjectLock broken;
    EXPECT_EQ(instance, LightEventMgr::Instance());
}

TEST_F(LightEventMgrFailures, WithoutTheStaticObjectLockDestroyDeletesNothing) {
    LightEventMgr* const instance = LightEventMgr::Instance();
    {
        const BrokenStaticObjectLock broken;
        LightEventMgr::Destroy();
        EXPECT_EQ(1, g_mutexRefused);
        EXPECT_EQ(instance, LightEventMgr::Instance());
    }
    Handler handler([](int, LightEventParam*) {});
    instance->RegisterHandler(1, &handler);
    LightEventMgr::Destroy();
    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

// Locks of the handler table fail on this thread while one of these lives.
class BrokenHandlerLock {
public:
    explicit BrokenHandlerLock(int error) {
        t_rwlocksReleased = 0;
        t_rwlocksRefused = 0;
        t_rwlockError = error;
        errno = 0;
    }
    ~BrokenHandlerLock() { t_rwlockError = 0; }
};

TEST_F(LightEventMgrFailures, WithoutItsLockTheHandlerTableWorksAndErrnoTells) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {});
    LightEventMgr& mgr = Mgr();
    {
        const BrokenHandlerLock broken(EDEADLK);
        EXPECT_EQ(0, mgr.RegisterHandler(1, &a));
        EXPECT_EQ(EDEADLK, errno);
    }
    {
        const BrokenHandlerLock broken(EDEADLK);
        EXPECT_EQ(0, mgr.RegisterHandler(1, &b));
        EXPECT_EQ(0, mgr.UnRegisterHandler(1, &a));
        EXPECT_EQ(EDEADLK, errno);
        EXPECT_EQ(2, t_rwlocksRefused);
    }
    {
        const BrokenHandlerLock broken(EAGAIN);
        EXPECT_THAT(mgr.find(1), ElementsAre(&b));
        EXPECT_EQ(EAGAIN, errno);
    }
    {
        const BrokenHandlerLock broken(EDEADLK);
        mgr.Fini();
        EXPECT_EQ(EDEADLK, errno);
        // What was not taken is not given back.
        EXPECT_EQ(0, t_rwlocksReleased);
    }
    EXPECT_THAT(mgr.find(1), IsEmpty());
}

TEST_F(LightEventMgrFailures, WithoutItsLockEventsAreDispatched) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &a);
    Mgr().Push_Msg(1, nullptr, 0);
    const BrokenHandlerLock broken(EAGAIN);
    Mgr().process_msg();
    EXPECT_EQ(1, t_rwlocksRefused);
    EXPECT_THAT(calls.Get(), ElementsAre(1));
}

// ---- no signal -----------------------------------------------------------------------

TEST_F(LightEventMgrFailures, WhoMissedASignalIsWokenByLaterEvents) {
    constexpr int kLater = 128;
    Mgr();
    const Elsewhere taker([] { TakeOne(); });
    EXPECT_FALSE(taker.Finishes(kAWhile));
    g_signalsToLose = 1;
    Mgr().Push_Msg(1, nullptr, 0);
    EXPECT_EQ(0, g_signalsToLose);
    EXPECT_FALSE(taker.Finishes(kAWhile));

    for (int i = 0; i < kLater; ++i) Mgr().Push_Msg(1, nullptr, 0);

    EXPECT_TRUE(taker.Finishes());
    Mgr().msg_queue()->pulse();
}

// ---- no memory -----------------------------------------------------------------------

TEST_F(LightEventMgrFailures, AnEventForWhichThereIsNoMemoryIsLost) {
    constexpr std::size_t kMoreThanHaveRoom = 10000;
    std::atomic<int> deletions{0};
    Record<LightEventParam*> seen;
    Handler a([&](int, LightEventParam* got) { seen.Add(got); });
    Mgr().RegisterHandler(1, &a);
    CountedParam lost(true, deletions);
    CountedParam posted(false, deletions);

    // The first events need no memory; one that does is lost, and the next one is not.
    std::size_t waiting = 0;
    t_failingAllocation = 1;
    for (; t_failingAllocation != 0 && waiting < kMoreThanHaveRoom; ++waiting) {
        EXPECT_EQ(waiting, Mgr().msg_queue()->message_count());
        EXPECT_EQ(0, Mgr().Push_Msg(2, waiting == 0 ? nullptr : &lost, 0));
    }
    EXPECT_EQ(0, t_failingAllocation);
    EXPECT_EQ(waiting - 1, Mgr().msg_queue()->message_count());
    Mgr().Push_Msg(1, &posted, 0);
    EXPECT_EQ(waiting, Mgr().msg_queue()->message_count());
    EXPECT_EQ(int(waiting - 1), Mgr().msg_queue()->flush() - 1);

    Mgr().Push_Msg(1, &posted, 0);
    Mgr().process_msg();
    EXPECT_THAT(seen.Get(), ElementsAre(&posted));
    EXPECT_EQ(0, deletions);
}

TEST_F(LightEventMgrFailures, WithoutMemoryForItsBlockAnEventStaysInTheQueue) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    for (const int id : {1, 2}) Mgr().RegisterHandler(id, &a);
    for (const int id : {1, 2}) Mgr().Push_Msg(id, nullptr, 0);
    auto* const foreign = new ACE_Message_Block;

    // The block of the one event and its data block, then those of the other.
    for (int n = 1; n <= 4; ++n) {
        ACE_Message_Block* block = nullptr;
        t_failingAllocation = n;
        EXPECT_EQ(-1, Mgr().getq(block));
        EXPECT_EQ(ENOMEM, errno);
        EXPECT_EQ(0, t_failingAllocation);
        t_failingAllocation = n;
        EXPECT_EQ(-1, Mgr().putq(foreign));
        t_failingAllocation = 0;
        EXPECT_EQ(2U, Mgr().msg_queue()->message_count());
    }
    foreign->release();
    Mgr().process_msg();
    Mgr().process_msg();
    EXPECT_THAT(calls.Get(), ElementsAre(1, 2));
}

TEST_F(LightEventMgrFailures, WhoIsWokenAndGetsNoMemoryWakesTheNextOne) {
    Mgr();
    std::atomic<int> error{0};
    const Elsewhere unlucky([&] {
        t_failingAllocation = 1;
        if (TakeOne() == -1) error = errno;
    });
    EXPECT_FALSE(unlucky.Finishes(kAWhile));
    const Elsewhere next([] { TakeOne(); });
    EXPECT_FALSE(next.Finishes(kAWhile));

    Mgr().Push_Msg(1, nullptr, 0);

    EXPECT_TRUE(unlucky.Finishes());
    EXPECT_TRUE(next.Finishes());
    EXPECT_EQ(ENOMEM, error);
    Mgr().msg_queue()->pulse();
}

// As many events as the queue has room for in itself; the next one needs memory.
constexpr int kOwnRoom = 128;
constexpr int kNobodysEvent = 99;

void FillOwnRoom(LightEventMgr& mgr) {
    for (int i = 0; i < kOwnRoom; ++i) mgr.Push_Msg(kNobodysEvent, nullptr, 0);
}

TEST_F(LightEventMgrFailures, RoomForAnEventIsMadeWithoutTheQueuesLock) {
    static bool isFree;
    isFree = false;
    FillOwnRoom(Mgr());
    t_atNextAllocation = [] {
        isFree = test::CanBeDoneElsewhere([] { LightEventMgr::Instance()->msg_queue()->message_count(); });
    };
    Mgr().Push_Msg(1, nullptr, 0);
    EXPECT_TRUE(isFree);
    EXPECT_EQ(kOwnRoom + 1U, Mgr().msg_queue()->message_count());
}

TEST_F(LightEventMgrFailures, WhileThereIsNoRoomForAnEventAnotherMayBePosted) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    for (const int id : {1, 2, 3}) Mgr().RegisterHandler(id, &a);
    FillOwnRoom(Mgr());
    t_atNextAllocation = [] { LightEventMgr::Instance()->Push_Msg(2, nullptr, 0); };
    Mgr().Push_Msg(1, nullptr, 0);
    Mgr().Push_Msg(3, nullptr, 0);
    for (int i = 0; i < kOwnRoom + 3; ++i) Mgr().process_msg();
    EXPECT_THAT(calls.Get(), ElementsAre(2, 1, 3));
}

TEST_F(LightEventMgrFailures, AQueueThatIsClosedWhileRoomIsMadeRefusesTheEvent) {
    FillOwnRoom(Mgr());
    t_atNextAllocation = [] { LightEventMgr::Instance()->msg_queue()->close(); };
    errno = 0;
    Mgr().Push_Msg(1, nullptr, 0);
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_EQ(0U, Mgr().msg_queue()->message_count());
}

void UseWithoutQueue(LightEventMgr& mgr) {
    Handler handler([](int, LightEventParam*) {});
    LightEventParam param(true);  // would crash if it were deleted
    EXPECT_EQ(0, mgr.Push_Msg(1, &param, 0));
    EXPECT_EQ(0, mgr.RegisterHandler(1, &handler));
    EXPECT_THAT(mgr.find(1), ElementsAre(&handler));
    mgr.process_msg();
    EXPECT_EQ(0, mgr.Init());
    EXPECT_EQ(0, mgr.activate());  // its worker ends by itself
    EXPECT_EQ(0, mgr.svc());
    mgr.ExitThreads();
    mgr.Fini();
}

// One allocation after the other fails while managers are made, until none is left that
// could. Returns how many managers were made without a queue.
template <class Make, class End>
int MakeWithoutMemory(Make make, End end) {
    int withoutQueue = 0;
    bool failed = true;
    for (int n = 1; failed; ++n) {
        LightEventMgr* mgr = nullptr;
        t_failingAllocation = n;
        try {
            mgr = make();
        } catch (const std::bad_alloc&) {
        }
        failed = t_failingAllocation == 0;
        t_failingAllocation = 0;
        if (mgr == nullptr) continue;
        if (mgr->msg_queue() == nullptr) {
            ++withoutQueue;
            UseWithoutQueue(*mgr);
        }
        end(mgr);
    }
    return withoutQueue;
}

class OwnMgr : public LightEventMgr {
public:
    OwnMgr() = default;
};

TEST_F(LightEventMgrFailures, AManagerWithoutMemoryForItsQueueLosesEventsOnly) {
    Mgr();  // what ACE makes once
    LightEventMgr::Destroy();

    EXPECT_EQ(1, MakeWithoutMemory([] { return new OwnMgr; }, [](LightEventMgr* mgr) { delete mgr; }));
    EXPECT_EQ(1, MakeWithoutMemory([] { return LightEventMgr::Instance(); },
                                   [](LightEventMgr*) { LightEventMgr::Destroy(); }));

    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &counting);
    Mgr().Push_Msg(1, nullptr, 0);
    Mgr().process_msg();
    EXPECT_EQ(1, calls);
}

TEST_F(LightEventMgrFailures, WithoutMemoryToDispatchTheParameterIsStillDeleted) {
    constexpr int kHandlers = 9;  // more than an event has room for
    std::atomic<int> deletions{0};
    std::atomic<int> calls{0};
    Handler a([&](int, LightEventParam*) { ++calls; });
    for (int i = 0; i < kHandlers; ++i) Mgr().RegisterHandler(1, &a);
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    t_failingAllocation = 1;
    Mgr().process_msg();
    EXPECT_EQ(0, t_failingAllocation);
    EXPECT_EQ(0, calls);
    EXPECT_EQ(1, deletions);
}

TEST_F(LightEventMgrFailures, AnEventWithoutMemoryToDispatchDoesNotSilenceTheNextOnes) {
    constexpr int kHandlers = 9;  // more than an event has room for
    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Handler failing([](int, LightEventParam*) { t_failingAllocation = 1; });
    Handler ending([](int, LightEventParam*) {
        EXPECT_EQ(0, t_failingAllocation);
        Mgr().ExitThreads();
    });
    for (int i = 0; i < kHandlers; ++i) Mgr().RegisterHandler(1, &counting);
    Mgr().RegisterHandler(2, &failing);
    Mgr().RegisterHandler(3, &ending);
    // The second one reaches nobody.
    for (const int id : {2, 1, 1, 1, 3}) Mgr().Push_Msg(id, nullptr, 0);
    ASSERT_EQ(1, Mgr().Init());
    EXPECT_TRUE(WaitFor([] { return Mgr().thr_count() == 0; }));
    EXPECT_EQ(2 * kHandlers, calls);
}

TEST_F(LightEventMgrFailures, WithoutMemoryToRegisterTheTableStaysUsable) {
    Handler a([](int, LightEventParam*) {});
    LightEventMgr& mgr = Mgr();
    t_failingAllocation = 1;
    EXPECT_THROW(mgr.RegisterHandler(1, &a), std::bad_alloc);
    t_failingAllocation = 2;
    EXPECT_THROW(mgr.RegisterHandler(1, &a), std::bad_alloc);
    t_failingAllocation = 0;

    EXPECT_THAT(mgr.find(1), IsEmpty());
    EXPECT_EQ(0, mgr.RegisterHandler(1, &a));
    EXPECT_THAT(mgr.find(1), ElementsAre(&a));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
