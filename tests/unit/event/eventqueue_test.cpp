// The event manager's queue as others see it, who know it as the queue of a task.
#include <malloc.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <ace/Notification_Strategy.h>
#include <ace/OS_NS_sys_time.h>

#include "lighteventhandlermgrtest.h"
#include "src/event/eventqueue.h"
#include "src/event/lightinternalmessage.h"
#include "support/elsewhere.h"
#include "support/longcall.h"

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryIsCounted = false;  // a sanitizer has an allocator of its own
#else
constexpr bool kMemoryIsCounted = true;
#endif

// How often this thread has let others go first.
thread_local int t_yields = 0;

// This program's own, before the C library's.
extern "C" __attribute__((visibility("default"))) int sched_yield() {
    ++t_yields;
    return static_cast<int>(syscall(SYS_sched_yield));
}

namespace NS_BUNDLEMGR1 {
namespace {

using std::chrono::milliseconds;
using test::CountedParam;
using test::Elsewhere;
using test::Handler;
using test::LongCall;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kEvent = 5;
constexpr milliseconds kAWhile(50);  // in which what must not happen would

static_assert(sizeof(PostedEvent) == 24);

// A block of somebody else's.
ACE_Message_Block* Foreign(const char* text, unsigned long priority = 0) {
    auto* const block = new ACE_Message_Block(16);
    block->copy(text);
    block->msg_priority(priority);
    return block;
}

class EventQueueTest : public test::LightEventMgrTest {
protected:
    using Queue = ACE_Message_Queue<ACE_MT_SYNCH>;

    static Queue& TheQueue() { return *Mgr().msg_queue(); }
    static void Post(int eventId) { Mgr().Push_Msg(eventId, nullptr, 0); }

    // The number of an event, or the text of a foreign block.
    static std::string NameOf(const ACE_Message_Block* block) {
        const auto* const event = dynamic_cast<const LightInternalMessage*>(block);
        return event != nullptr ? std::to_string(event->m_nEventId) : block->rd_ptr();
    }
    static std::string NameOfTaken(ACE_Message_Block* block) {
        const std::string name = NameOf(block);
        block->release();
        return name;
    }
    // What is in the queue, from head to tail; takes it all out.
    static std::vector<std::string> Drain() {
        std::vector<std::string> names;
        while (!TheQueue().is_empty()) {
            ACE_Message_Block* block = nullptr;
            TheQueue().dequeue_head(block);
            names.push_back(NameOfTaken(block));
        }
        return names;
    }
    static ACE_Time_Value Now() { return ACE_OS::gettimeofday(); }
};

// ---- order ---------------------------------------------------------------------------

TEST_F(EventQueueTest, EventsAndForeignBlocksComeOutInTheOrderInWhichTheyWentIn) {
    Post(1);
    Mgr().putq(Foreign("a"));
    Post(2);
    Post(3);
    Mgr().putq(Foreign("b"));
    Mgr().putq(Foreign("c"));
    Post(4);
    EXPECT_EQ(7U, TheQueue().message_count());
    EXPECT_THAT(Drain(), ElementsAre("1", "a", "2", "3", "b", "c", "4"));
}

TEST_F(EventQueueTest, AnEventIsTakenOutAsABlockThatLeavesItsParameterAlone) {
    std::atomic<int> deletions{0};
    CountedParam param(true, deletions);
    Mgr().Push_Msg(7, &param, 8);

    ACE_Message_Block* block = nullptr;
    EXPECT_EQ(0, Mgr().getq(block));

    const auto* const event = dynamic_cast<LightInternalMessage*>(block);
    ASSERT_NE(nullptr, event);
    EXPECT_EQ(7, event->m_nEventId);
    EXPECT_EQ(8, event->m_nExtra);
    EXPECT_EQ(&param, event->m_pParam);
    EXPECT_TRUE(event->m_bAutoDelete);
    EXPECT_EQ(nullptr, block->next());
    block->release();
    EXPECT_EQ(0, deletions);
}

TEST_F(EventQueueTest, AnEventThatWasTakenOutMayBePutBack) {
    Record<int> calls;
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    for (const int id : {1, 2, 3}) Mgr().RegisterHandler(id, &noting);
    for (const int id : {1, 2, 3}) Post(id);
    ACE_Message_Block* block = nullptr;
    EXPECT_EQ(2, Mgr().getq(block));
    EXPECT_EQ(3, Mgr().ungetq(block));
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(1, 2, 3));
}

TEST_F(EventQueueTest, APeekShowsTheOldestEventAndLeavesItThere) {
    Record<int> calls;
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    for (const int id : {1, 2, 3}) Mgr().RegisterHandler(id, &noting);
    Post(1);
    Post(2);
    ACE_Message_Block* head = nullptr;
    EXPECT_EQ(2, TheQueue().peek_dequeue_head(head));
    EXPECT_EQ("1", NameOf(head));
    Post(3);
    EXPECT_EQ(3U, TheQueue().message_count());
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(1, 2, 3));
}

TEST_F(EventQueueTest, ABlockMayBePutBeforeTheEvents) {
    Post(1);
    Post(2);
    EXPECT_EQ(3, TheQueue().enqueue_head(Foreign("first")));
    EXPECT_THAT(Drain(), ElementsAre("first", "1", "2"));
}

TEST_F(EventQueueTest, ABlockFindsItsPlaceByItsPriorityAmongEvents) {
    Post(1);
    Post(2);
    EXPECT_EQ(3, TheQueue().enqueue_prio(Foreign("equal", 0)));
    EXPECT_EQ(4, TheQueue().enqueue_prio(Foreign("higher", 1)));
    Post(3);
    EXPECT_THAT(Drain(), ElementsAre("higher", "1", "2", "equal", "3"));
}

TEST_F(EventQueueTest, EventsMayBeTakenFromTheTailAndByPriority) {
    ACE_Message_Block* block = nullptr;
    Mgr().putq(Foreign("urgent", 9));
    for (const int id : {1, 2, 3}) Post(id);
    EXPECT_EQ(3, TheQueue().dequeue_tail(block));
    EXPECT_EQ("3", NameOfTaken(block));
    EXPECT_EQ(2, TheQueue().dequeue_prio(block));
    EXPECT_EQ("1", NameOfTaken(block));
    EXPECT_EQ(1, TheQueue().dequeue_deadline(block));
    EXPECT_EQ("urgent", NameOfTaken(block));
    EXPECT_THAT(Drain(), ElementsAre("2"));
}

TEST_F(EventQueueTest, WhoTakesEventsWhileTheWorkerIsBusyGetsTheNextOnes) {
    constexpr int kEvents = 400;
    constexpr int kTakenElsewhere = 300;
    std::vector<int> seen;  // by one thread at a time
    LongCall first;
    Handler noting([&](int eventId, LightEventParam*) {
        if (eventId == 0) first.Stay();
        seen.push_back(eventId);
    });
    for (int i = 0; i < kEvents; ++i) {
        Mgr().RegisterHandler(i, &noting);
        Post(i);
    }
    ASSERT_EQ(1, Mgr().Init());
    ASSERT_TRUE(first.AwaitInside());
    EXPECT_EQ(std::size_t(kEvents - 1), TheQueue().message_count());

    for (int i = 0; i < kTakenElsewhere; ++i) Mgr().process_msg();
    EXPECT_EQ(std::size_t(kEvents - 1 - kTakenElsewhere), TheQueue().message_count());
    ACE_Message_Block* block = nullptr;
    Mgr().getq(block);
    EXPECT_EQ(std::to_string(kTakenElsewhere + 1), NameOfTaken(block));
    first.Release();
    WaitUntilDispatched();

    std::vector<int> expected;
    for (int i = 1; i <= kTakenElsewhere; ++i) expected.push_back(i);
    expected.push_back(0);
    for (int i = kTakenElsewhere + 2; i < kEvents; ++i) expected.push_back(i);
    EXPECT_EQ(expected, seen);
}

// A block that says when it has been taken out and released.
class NotingBlock : public ACE_Message_Block {
public:
    explicit NotingBlock(std::function<void()> note) : m_note(std::move(note)) {}
    ~NotingBlock() override { m_note(); }

private:
    const std::function<void()> m_note;
};

// A worker that is in the handler of event 1, and notes the numbers of the later ones.
class BusyWorker {
public:
    BusyWorker() {
        Mgr().RegisterHandler(1, &m_blocking);
        for (const int id : {2, 3, 4}) Mgr().RegisterHandler(id, &m_noting);
        Mgr().Push_Msg(1, nullptr, 0);
        EXPECT_EQ(1, Mgr().Init());
        EXPECT_TRUE(m_call.AwaitInside());
    }
    ~BusyWorker() { Mgr().ExitThreads(); }
    BusyWorker(const BusyWorker&) = delete;
    BusyWorker& operator=(const BusyWorker&) = delete;

    void GoOn() { m_call.Release(); }

    Record<std::string> m_seen;

private:
    static LightEventMgr& Mgr() { return *LightEventMgr::Instance(); }

    LongCall m_call;
    Handler m_blocking{[this](int, LightEventParam*) { m_call.Stay(); }};
    Handler m_noting{[this](int eventId, LightEventParam*) { m_seen.Add(std::to_string(eventId)); }};
};

TEST_F(EventQueueTest, TheWorkerTakesEventsThatWerePostedMeanwhileWithoutTheLock) {
    BusyWorker worker;
    for (const int id : {2, 3, 4}) Post(id);
    {
        const ACE_Guard<ACE_Thread_Mutex> guard(TheQueue().lock());
        worker.GoOn();
        EXPECT_TRUE(WaitFor([&] { return worker.m_seen.Size() == 3; }));
    }
    EXPECT_THAT(worker.m_seen.Get(), ElementsAre("2", "3", "4"));
}

TEST_F(EventQueueTest, ABlockBetweenEventsThatTheWorkerMayTakeWithoutTheLockKeepsItsPlace) {
    BusyWorker worker;
    Post(2);
    Mgr().putq(new NotingBlock([&] { worker.m_seen.Add("block"); }));
    Post(3);
    Post(4);
    worker.GoOn();
    WaitUntilDispatched();
    EXPECT_THAT(worker.m_seen.Get(), ElementsAre("2", "block", "3", "4"));
}

TEST_F(EventQueueTest, ABlockPutBeforeTheFirstOfThemIsTakenBeforeThem) {
    BusyWorker worker;
    TheQueue().enqueue_head(new NotingBlock([&] { worker.m_seen.Add("block"); }));
    for (const int id : {2, 3}) Post(id);
    worker.GoOn();
    WaitUntilDispatched();
    EXPECT_THAT(worker.m_seen.Get(), ElementsAre("block", "2", "3"));
}

TEST_F(EventQueueTest, EventsPostedToADeactivatedQueuesWorkerStayUntilItIsActivated) {
    BusyWorker worker;
    for (const int id : {2, 3}) Post(id);
    TheQueue().deactivate();
    worker.GoOn();
    EXPECT_FALSE(WaitFor([&] { return worker.m_seen.Size() > 0; }, kAWhile));
    TheQueue().activate();
    WaitUntilDispatched();
    EXPECT_THAT(worker.m_seen.Get(), ElementsAre("2", "3"));
}

// ---- what it tells about itself -------------------------------------------------------

TEST_F(EventQueueTest, EventsCountAsBlocksOfNoBytes) {
    EXPECT_TRUE(TheQueue().is_empty());
    for (int i = 0; i < 300; ++i) Post(1);
    EXPECT_EQ(300U, TheQueue().message_count());
    EXPECT_EQ(0U, TheQueue().message_bytes());
    EXPECT_EQ(0U, TheQueue().message_length());
    EXPECT_FALSE(TheQueue().is_empty());
    EXPECT_FALSE(TheQueue().is_full());
    EXPECT_EQ(ACE_Message_Queue_Base::ACTIVATED, TheQueue().state());

    Mgr().putq(Foreign("12345"));
    EXPECT_EQ(301U, TheQueue().message_count());
    EXPECT_EQ(16U, TheQueue().message_bytes());
    EXPECT_EQ(6U, TheQueue().message_length());
    DispatchAll();
    EXPECT_TRUE(TheQueue().is_empty());
    EXPECT_EQ(0U, TheQueue().message_bytes());
}

TEST_F(EventQueueTest, AnEventTakesTwentyFiveBytesWhileItWaits) {
    if (!kMemoryIsCounted) GTEST_SKIP() << "memory is not counted";
    constexpr std::size_t kEvents = 100000;
    Post(1);
    const auto used = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const std::size_t before = used();
    for (std::size_t i = 0; i < kEvents; ++i) Post(1);
    EXPECT_LE(used() - before, 25 * kEvents);

    TheQueue().flush();
    constexpr std::size_t kKept = 30000;
    EXPECT_LE(used(), before + kKept);
}

// ---- ends ----------------------------------------------------------------------------

TEST_F(EventQueueTest, FlushDropsEventsAndBlocksAndTheirParametersStay) {
    std::atomic<int> deletions{0};
    CountedParam param(true, deletions);
    for (int i = 0; i < 200; ++i) Mgr().Push_Msg(1, &param, 0);
    Mgr().putq(Foreign("a"));
    for (int i = 0; i < 200; ++i) Mgr().Push_Msg(1, &param, 0);

    EXPECT_EQ(401, TheQueue().flush());

    EXPECT_EQ(0U, TheQueue().message_count());
    EXPECT_TRUE(TheQueue().is_empty());
    EXPECT_EQ(0, TheQueue().flush());
    Post(2);
    EXPECT_THAT(Drain(), ElementsAre("2"));
    EXPECT_EQ(0, deletions);
}

TEST_F(EventQueueTest, WhatTheWorkerHasNotBegunIsFlushed) {
    Record<int> calls;
    LongCall first;
    Handler blocking([&](int, LightEventParam*) { first.Stay(); });
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &blocking);
    for (const int id : {2, 3}) Mgr().RegisterHandler(id, &noting);
    Post(1);
    for (int i = 0; i < 50; ++i) Post(2);
    ASSERT_EQ(1, Mgr().Init());
    ASSERT_TRUE(first.AwaitInside());

    EXPECT_EQ(50, TheQueue().flush());
    Post(3);
    first.Release();
    WaitUntilDispatched();
    EXPECT_THAT(calls.Get(), ElementsAre(3));
}

TEST_F(EventQueueTest, AfterCloseItRefusesEventsUntilItIsActivated) {
    for (int i = 0; i < 3; ++i) Post(1);
    EXPECT_EQ(3, TheQueue().close());
    EXPECT_EQ(ACE_Message_Queue_Base::DEACTIVATED, TheQueue().state());
    errno = 0;
    Post(1);
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_EQ(0U, TheQueue().message_count());

    EXPECT_EQ(ACE_Message_Queue_Base::DEACTIVATED, TheQueue().activate());
    Post(2);
    EXPECT_THAT(Drain(), ElementsAre("2"));
}

TEST_F(EventQueueTest, ADeactivatedQueueKeepsItsEvents) {
    Record<int> calls;
    LongCall first;
    Handler blocking([&](int, LightEventParam*) { first.Stay(); });
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &blocking);
    Mgr().RegisterHandler(2, &noting);
    Post(1);
    Post(2);
    Post(2);
    ASSERT_EQ(1, Mgr().Init());
    ASSERT_TRUE(first.AwaitInside());

    EXPECT_EQ(ACE_Message_Queue_Base::ACTIVATED, TheQueue().deactivate());
    first.Release();
    Mgr().process_msg();
    ACE_Message_Block* block = nullptr;
    EXPECT_EQ(-1, Mgr().getq(block));
    EXPECT_EQ(ESHUTDOWN, errno);
    EXPECT_FALSE(WaitFor([&] { return calls.Size() > 0; }, kAWhile));
    EXPECT_EQ(2U, TheQueue().message_count());
    EXPECT_FALSE(TheQueue().is_empty());

    TheQueue().activate();
    WaitUntilDispatched();
    EXPECT_THAT(calls.Get(), ElementsAre(2, 2));
}

TEST_F(EventQueueTest, OpenedAgainItIsEmptyAndActive) {
    Post(1);
    TheQueue().close();
    EXPECT_EQ(0, TheQueue().open(100, 50, nullptr));
    EXPECT_EQ(100U, TheQueue().high_water_mark());
    EXPECT_EQ(50U, TheQueue().low_water_mark());
    Post(2);
    EXPECT_EQ(0, TheQueue().open());
    EXPECT_TRUE(TheQueue().is_empty());
    Post(3);
    EXPECT_THAT(Drain(), ElementsAre("3"));
}

TEST_F(EventQueueTest, ItMayBeOpenedUnderItsLock) {
    Post(1);
    TheQueue().lock().acquire();
    const bool isDone = test::CanBeDoneElsewhere([] { TheQueue().open(100, 50, nullptr); });
    TheQueue().lock().release();
    EXPECT_TRUE(isDone);
    EXPECT_TRUE(TheQueue().is_empty());
    EXPECT_EQ(100U, TheQueue().high_water_mark());
}

// ---- waiting -------------------------------------------------------------------------

TEST_F(EventQueueTest, WhoWaitsForABlockIsGivenAnEvent) {
    constexpr int kWaiting = 3;
    Record<std::string> taken;
    std::vector<std::unique_ptr<Elsewhere>> takers;
    for (int i = 0; i < kWaiting; ++i) {
        takers.push_back(std::make_unique<Elsewhere>([&] {
            ACE_Message_Block* block = nullptr;
            ASSERT_NE(-1, Mgr().getq(block));
            taken.Add(NameOfTaken(block));
        }));
    }
    for (int i = 0; i < kWaiting; ++i) Post(1);
    for (const auto& taker : takers) EXPECT_TRUE(taker->Finishes());
    EXPECT_THAT(taken.Get(), ElementsAre("1", "1", "1"));
}

TEST_F(EventQueueTest, AWaitEndsAtItsTime) {
    ACE_Message_Block* block = nullptr;
    ACE_Time_Value now = Now();
    EXPECT_EQ(-1, Mgr().getq(block, &now));
    EXPECT_EQ(EWOULDBLOCK, errno);
    ACE_Time_Value soon = Now() + ACE_Time_Value(0, 1000);
    EXPECT_EQ(-1, TheQueue().peek_dequeue_head(block, &soon));
    EXPECT_EQ(EWOULDBLOCK, errno);

    // And the next event wakes those who still wait.
    Elsewhere taker([] {
        ACE_Message_Block* taken = nullptr;
        EXPECT_EQ(0, Mgr().getq(taken));
        taken->release();
    });
    Post(1);
    EXPECT_TRUE(taker.Finishes());
}

TEST_F(EventQueueTest, APulseWakesThoseWhoWaitAndNothingElse) {
    std::atomic<int> result{0};
    const Elsewhere taker([&] {
        ACE_Message_Block* block = nullptr;
        result = Mgr().getq(block);
    });
    EXPECT_TRUE(WaitFor([&] {
        TheQueue().pulse();
        return taker.Finishes(milliseconds(0));
    }));
    EXPECT_EQ(-1, result);
    EXPECT_EQ(ACE_Message_Queue_Base::PULSED, TheQueue().state());
    Post(1);
    EXPECT_THAT(Drain(), ElementsAre("1"));
}

TEST_F(EventQueueTest, APosterWaitsWhileForeignBlocksFillTheQueue) {
    Mgr().putq(new ACE_Message_Block(20000));
    EXPECT_TRUE(TheQueue().is_full());
    const Elsewhere poster([] { Post(1); });
    EXPECT_FALSE(poster.Finishes(kAWhile));
    Mgr().process_msg();
    EXPECT_TRUE(poster.Finishes());
    EXPECT_THAT(Drain(), ElementsAre("1"));
}

// Threads that post while foreign blocks fill the queue.
class WaitingPosters {
public:
    WaitingPosters() {
        for (int i = 0; i < kPosters; ++i) {
            m_posters.push_back(
                std::make_unique<Elsewhere>([] { LightEventMgr::Instance()->Push_Msg(kEvent, nullptr, 0); }));
        }
        EXPECT_FALSE(m_posters.front()->Finishes(kAWhile));
        EXPECT_EQ(0, CountFinished(milliseconds(0)));
    }

    void ExpectAllFinish() const { EXPECT_EQ(kPosters, CountFinished(test::kDeadline)); }

private:
    static constexpr int kPosters = 3;

    int CountFinished(milliseconds deadline) const {
        int finished = 0;
        for (const auto& poster : m_posters) finished += poster->Finishes(deadline) ? 1 : 0;
        return finished;
    }

    std::vector<std::unique_ptr<Elsewhere>> m_posters;
};

TEST_F(EventQueueTest, AllPostersThatWaitForRoomGoOnWhenABlockIsTaken) {
    Mgr().putq(new ACE_Message_Block(20000));
    const WaitingPosters posters;
    Mgr().process_msg();
    posters.ExpectAllFinish();
    EXPECT_EQ(3U, TheQueue().message_count());
}

TEST_F(EventQueueTest, AllPostersThatWaitForRoomGoOnWhenItIsFlushed) {
    Mgr().putq(new ACE_Message_Block(20000));
    const WaitingPosters posters;
    EXPECT_EQ(1, TheQueue().flush());
    posters.ExpectAllFinish();
    EXPECT_EQ(3U, TheQueue().message_count());
}

TEST_F(EventQueueTest, AllPostersThatWaitForRoomGoOnWhenItMayHoldMore) {
    Mgr().putq(new ACE_Message_Block(20000));
    const WaitingPosters posters;
    TheQueue().high_water_mark(30000);
    posters.ExpectAllFinish();
}

TEST_F(EventQueueTest, AllPostersThatWaitForRoomGoOnWhenItNeedNotBeAsEmpty) {
    Mgr().putq(Foreign("a"));
    TheQueue().low_water_mark(0);
    Mgr().putq(new ACE_Message_Block(20000));
    const WaitingPosters posters;
    ACE_Message_Block* block = nullptr;
    TheQueue().dequeue_tail(block);
    block->release();
    TheQueue().low_water_mark(100);
    posters.ExpectAllFinish();
}

TEST_F(EventQueueTest, AllPostersThatWaitForRoomGoOnWhenItIsSaidToHoldLess) {
    Mgr().putq(new ACE_Message_Block(20000));
    const WaitingPosters posters;
    TheQueue().message_bytes(100);
    posters.ExpectAllFinish();
    TheQueue().message_bytes(20000);
}

TEST_F(EventQueueTest, WhoPostsWhileTheLockIsTakenWaitsForItAndKeepsErrno) {
    TheQueue().lock().acquire();
    std::atomic<int> error{-1};
    const Elsewhere poster([&] {
        errno = 0;
        Post(1);
        error = errno;
    });
    EXPECT_FALSE(poster.Finishes(kAWhile));
    TheQueue().lock().release();
    EXPECT_TRUE(poster.Finishes());
    EXPECT_EQ(0, error);
    EXPECT_THAT(Drain(), ElementsAre("1"));
}

class CountingStrategy : public ACE_Notification_Strategy {
public:
    CountingStrategy() : ACE_Notification_Strategy(nullptr, 0) {}
    int notify() override { return notify(nullptr, 0); }
    int notify(ACE_Event_Handler*, ACE_Reactor_Mask) override {
        EXPECT_FALSE(TheQueueIsLocked());
        return ++m_notes;
    }

    int m_notes = 0;

private:
    static bool TheQueueIsLocked() { return LightEventMgr::Instance()->msg_queue()->message_count() == 0; }
};

TEST_F(EventQueueTest, ItsStrategyIsToldOfEachEvent) {
    CountingStrategy strategy;
    TheQueue().notification_strategy(&strategy);
    Post(1);
    Post(2);
    Mgr().putq(Foreign("a"));
    EXPECT_EQ(3, strategy.m_notes);
    TheQueue().notification_strategy(nullptr);
    EXPECT_EQ(nullptr, TheQueue().notification_strategy());
    Post(3);
    EXPECT_EQ(3, strategy.m_notes);
}

TEST_F(EventQueueTest, ATaskMayBeGivenAnotherQueue) {
    Record<int> calls;
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    for (const int id : {1, 2}) Mgr().RegisterHandler(id, &noting);
    Queue other;
    std::atomic<int> deletions{0};
    Mgr().msg_queue(&other);
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    EXPECT_EQ(1U, other.message_count());
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(2, new CountedParam(true, deletions), 0);
    WaitUntilDispatched();
    EXPECT_THAT(calls.Get(), ElementsAre(1, 2));
    EXPECT_EQ(2, deletions);
    Mgr().Fini();

    CountedParam refused(true, deletions);
    Mgr().Push_Msg(1, &refused, 0);
    EXPECT_EQ(0U, other.message_count());
    EXPECT_EQ(2, deletions);
    LightEventMgr::Destroy();
}

// ---- pauses --------------------------------------------------------------------------

// Handles so many events of one number, and tells how often the worker yielded between the first
// and the last one.
class YieldCount {
public:
    YieldCount(int eventId, Handler::Action action)
        : m_handler([this, action](int id, LightEventParam* param) {
              if (m_handled == 0) m_before = t_yields;
              action(id, param);
              if (++m_handled == kEvents) m_yields = t_yields - m_before;
          }) {
        LightEventMgr::Instance()->RegisterHandler(eventId, &m_handler);
    }
    ~YieldCount() { LightEventMgr::RemoveHandler(&m_handler); }

    static constexpr int kEvents = 100;

    int Await() const {
        EXPECT_TRUE(WaitFor([this] { return m_yields >= 0; }));
        return m_yields;
    }

private:
    int m_handled = 0;
    int m_before = 0;
    std::atomic<int> m_yields{-1};
    Handler m_handler;
};

TEST_F(EventQueueTest, TheWorkerDoesNotPauseWhileBlocksWait) {
    const YieldCount count(kEvent, [](int, LightEventParam*) {});
    for (int i = 0; i < YieldCount::kEvents; ++i) Post(kEvent);
    ACE_Message_Block* head = nullptr;
    EXPECT_EQ(YieldCount::kEvents, TheQueue().peek_dequeue_head(head));
    ASSERT_EQ(1, Mgr().Init());
    EXPECT_EQ(0, count.Await());
    Mgr().ExitThreads();
}

TEST_F(EventQueueTest, TheWorkerDoesNotPauseWhenOneBlockWaits) {
    const YieldCount count(kEvent, [](int, LightEventParam*) {
        Post(kEvent);
        ACE_Message_Block* head = nullptr;
        TheQueue().peek_dequeue_head(head);
    });
    Post(kEvent);
    ASSERT_EQ(1, Mgr().Init());
    EXPECT_EQ(0, count.Await());
    Mgr().ExitThreads();
}

// ---- many at once --------------------------------------------------------------------

TEST_F(EventQueueTest, EachOfManyEventsIsHandledTakenOrFlushedOnce) {
    constexpr int kPosters = 3;
    constexpr int kEvents = 4000;
    std::vector<std::atomic<int>> handled(kPosters * kEvents);
    std::atomic<int> others{0};
    Handler counting([&](int eventId, LightEventParam*) { ++handled[std::size_t(eventId)]; });
    for (int i = 0; i < kPosters * kEvents; ++i) Mgr().RegisterHandler(i, &counting);
    ASSERT_EQ(0, Mgr().activate(THR_NEW_LWP | THR_JOINABLE, 2));
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        while (!isOver) {
            ACE_Message_Block* block = nullptr;
            ACE_Time_Value now = Now();
            if (Mgr().getq(block, &now) == -1) continue;
            block->release();
            ++others;
        }
    });
    threads.emplace_back([&] {
        while (!isOver) {
            others += TheQueue().flush();
            TheQueue().pulse();
            TheQueue().activate();
        }
    });
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([=] {
            for (int i = 0; i < kEvents; ++i) Post(poster * kEvents + i);
        });
    }
    for (std::thread& thread : posters) thread.join();
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(WaitFor([] { return TheQueue().is_empty(); }));
    Mgr().ExitThreads();

    int sum = others;
    for (const std::atomic<int>& count : handled) {
        ASSERT_LE(count, 1);
        sum += count;
    }
    EXPECT_EQ(kPosters * kEvents, sum);
}

// Posts events and puts blocks in, in turn, and hears of them from the worker, in whose hands they
// must come in the same order. It is never far ahead, so that the queue is nearly empty.
class OrderedPoster {
public:
    explicit OrderedPoster(int items) : m_items(items), m_params(std::size_t(items), Param(*this)) {
        for (int i = 0; i < items; ++i) m_params[std::size_t(i)].m_number = i;
    }

    class Param : public LightEventParam {
    public:
        explicit Param(OrderedPoster& poster) : m_poster(poster) {}

        OrderedPoster& m_poster;
        int m_number = 0;
    };

    void PostAll() {
        for (int i = 0; i < m_items; ++i) {
            while (i - m_seen > kAhead) std::this_thread::yield();
            if (i % kBlocksEvery == 0) {
                LightEventMgr::Instance()->putq(new NotingBlock([this, i] { See(i); }));
            } else {
                LightEventMgr::Instance()->Push_Msg(kEvent, &m_params[std::size_t(i)], 0);
            }
        }
    }
    void See(int number) {
        if (number != m_seen) ++m_misplaced;
        ++m_seen;
    }

    std::atomic<int> m_seen{0};
    std::atomic<int> m_misplaced{0};

private:
    static constexpr int kAhead = 4;
    static constexpr int kBlocksEvery = 3;

    const int m_items;
    std::vector<Param> m_params;
};

TEST_F(EventQueueTest, WhatEachThreadPostsAndPutsInStaysInItsOrder) {
    constexpr int kItems = 35000;
    Handler seeing([](int, LightEventParam* param) {
        const auto* const item = static_cast<OrderedPoster::Param*>(param);
        item->m_poster.See(item->m_number);
    });
    Mgr().RegisterHandler(kEvent, &seeing);
    ASSERT_EQ(1, Mgr().Init());
    std::vector<std::unique_ptr<OrderedPoster>> posters;
    for (int i = 0; i < 3; ++i) posters.push_back(std::make_unique<OrderedPoster>(kItems));

    std::vector<std::thread> threads;
    for (const auto& poster : posters) threads.emplace_back([&poster] { poster->PostAll(); });
    for (std::thread& thread : threads) thread.join();
    WaitUntilDispatched();
    Mgr().ExitThreads();

    for (const auto& poster : posters) {
        EXPECT_EQ(kItems, poster->m_seen);
        EXPECT_EQ(0, poster->m_misplaced);
    }
}

TEST_F(EventQueueTest, AWorkerThatEndsGivesBackWhatItUsed) {
    Handler ending([](int, LightEventParam*) { pthread_exit(nullptr); });
    Mgr().RegisterHandler(1, &ending);
    Record<int> calls;
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(2, &noting);
    for (int i = 0; i < 3; ++i) {
        Post(1);
        for (int k = 0; k < 200; ++k) Post(3);
        ASSERT_EQ(1, Mgr().Init());
        ASSERT_TRUE(WaitFor([] { return Mgr().thr_count() == 0; }));
        DispatchAll();
    }
    Post(2);
    Mgr().process_msg();
    EXPECT_THAT(calls.Get(), ElementsAre(2));
}

TEST(EventQueueReaderTest, LeavesAQueueOfAnotherKindAloneThatGotThePlaceOfItsOwn) {
    using Queue = EventQueue::Base;
    alignas(EventQueue) unsigned char place[sizeof(EventQueue)];
    EventQueue::Reader reader;
    auto* const queue = new (place) EventQueue;
    for (int i = 0; i < 2; ++i) EventQueue::Post(*queue, PostedEvent{kEvent, 0, nullptr, false});
    PostedEvent event{};
    EXPECT_TRUE(EventQueue::Take(*queue, &reader, event));
    queue->~EventQueue();

    std::fill(std::begin(place), std::end(place), '#');
    auto* const other = new (place) Queue;
    reader.Leave(other);
    other->~Queue();
    EXPECT_EQ(std::string(sizeof place - sizeof(Queue), '#'),
              std::string(std::begin(place) + sizeof(Queue), std::end(place)));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
