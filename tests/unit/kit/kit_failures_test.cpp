// The kit when the system refuses it a thread or memory, and the clock that it waits on.
//
// This program's own functions come before those of the libraries. They pass every call on
// until a test tells them to fail.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <bundlemgr/kit.h>

#include "support/capture.h"
#include "support/replacednew.h"
#include "support/wait.h"
#include "unit/log/logtest.h"

namespace {

std::function<void()> g_onRefusal;  // what happens while a thread is refused, once
std::atomic<bool> g_noThreads{false};
std::atomic<clockid_t> g_waitedOn{-1};
thread_local int t_failingAllocation = 0;  // 1: the next one

}  // namespace

bool test::RefusesMemory() noexcept {
    return t_failingAllocation > 0 && --t_failingAllocation == 0;
}

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*body)(void*), void* argument) {
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    if (g_onRefusal != nullptr) {
        std::exchange(g_onRefusal, nullptr)();
        return EAGAIN;
    }
    return g_noThreads ? EAGAIN : next(thread, attributes, body, argument);
}

extern "C" __attribute__((visibility("default"))) int pthread_cond_clockwait(pthread_cond_t* condition,
                                                                             pthread_mutex_t* mutex, clockid_t clock,
                                                                             const timespec* end) {
    using Function = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    g_waitedOn = clock;
    return next(condition, mutex, clock, end);
}

namespace {

using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LightEventParam;
using std::chrono::hours;
using std::chrono::milliseconds;
using test::StdoutOf;
using test::WaitFor;

constexpr int kEvent = 7;
const zo::Log g_log("Failures", "bundle", "Svc");

class KitFailures : public test::LogTest {
protected:
    ~KitFailures() override { LightEventMgr::Destroy(); }

    static zo::ServiceThread::Round Counting(std::atomic<int>& rounds) {
        return [&rounds]() -> milliseconds {
            ++rounds;
            return hours(1);
        };
    }
};

TEST_F(KitFailures, AThreadEndsAllThatCameBeforeItAlsoBeforeOneThatCouldNotBeMade) {
    std::atomic<int> firsts{0};
    std::atomic<int> lasts{0};
    const auto counting = [](std::atomic<int>& rounds) {
        return [&rounds]() -> milliseconds {
            ++rounds;
            return milliseconds(1);
        };
    };
    zo::ServiceThread thread(g_log);
    thread.Start(counting(firsts));
    ASSERT_TRUE(WaitFor([&] { return firsts > 0; }));
    // Another thread's Start comes between the refusal and its being noticed.
    g_onRefusal = [&] { thread.Start(counting(lasts)); };
    EXPECT_THROW(thread.Start([] { return hours(1); }), std::system_error);

    ASSERT_TRUE(WaitFor([&] { return lasts > 0; }));
    const int firstsThen = firsts;
    ASSERT_TRUE(WaitFor([&] { return lasts > 20; }));
    EXPECT_EQ(firstsThen, firsts);
    thread.Stop();
}

TEST_F(KitFailures, AThreadThatCannotBeMadeLeavesNothingToStopAndMayStartLater) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    g_noThreads = true;
    EXPECT_THROW(thread.Start(Counting(rounds)), std::system_error);
    g_noThreads = false;
    thread.Stop();
    EXPECT_EQ(0, rounds);
    thread.Start(Counting(rounds));
    EXPECT_TRUE(WaitFor([&] { return rounds == 1; }));
    thread.Stop();
}

TEST_F(KitFailures, AThreadThatCannotBeReplacedGoesOn) {
    std::atomic<int> rounds{0};
    std::atomic<int> others{0};
    zo::ServiceThread thread(g_log);
    thread.Start(Counting(rounds));
    EXPECT_TRUE(WaitFor([&] { return rounds == 1; }));
    g_noThreads = true;
    EXPECT_THROW(thread.Start(Counting(others)), std::system_error);
    g_noThreads = false;
    EXPECT_FALSE(thread.Stopping());
    thread.Wake();
    EXPECT_TRUE(WaitFor([&] { return rounds == 2; }));
    thread.Stop();
    EXPECT_EQ(0, others);
}

TEST_F(KitFailures, WithoutMemoryForAThreadNothingIsStarted) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    for (const int failing : {1, 2}) {
        const zo::ServiceThread::Round round = Counting(rounds);
        zo::ServiceThread::Round moved = round;
        t_failingAllocation = failing;
        EXPECT_THROW(thread.Start(std::move(moved)), std::bad_alloc) << failing;
        t_failingAllocation = 0;
        thread.Stop();
    }
    EXPECT_EQ(0, rounds);
}

TEST_F(KitFailures, AnExceptionForWhoseRecordThereIsNoMemoryEndsNoThread) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    StdoutOf([&] {
        thread.Start([&]() -> milliseconds {
            if (++rounds > 1) return hours(1);
            t_failingAllocation = 2;  // after the one for the exception itself
            throw std::bad_alloc();
        });
        EXPECT_TRUE(WaitFor([&] { return rounds == 2; }));
        thread.Stop();
    });
}

TEST_F(KitFailures, PausesAreMeasuredOnAClockThatNobodySets) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Start([&] {
        ++rounds;
        return milliseconds(1);
    });
    EXPECT_TRUE(WaitFor([&] { return rounds >= 3; }));
    thread.Stop();
    EXPECT_EQ(CLOCK_MONOTONIC, g_waitedOn);
}

TEST_F(KitFailures, WithoutMemoryToOpenASubscriptionIsClosedOrAsItWas) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    int former = 0;
    int latter = 0;
    const auto handle = [&mgr] {
        mgr.Push_Msg(kEvent, nullptr, 0);
        mgr.process_msg();
    };
    zo::EventSubscription subscription;
    for (const int failing : {1, 2}) {
        subscription.Open(kEvent, [&](LightEventParam*) { ++former; });
        former = 0;
        t_failingAllocation = failing;
        EXPECT_THROW(subscription.Open(kEvent, [&](LightEventParam*) { ++latter; }), std::bad_alloc);
        t_failingAllocation = 0;
        handle();
        EXPECT_EQ(failing == 1 ? 1 : 0, former) << failing;
        EXPECT_EQ(0, latter);
    }
    subscription.Open(kEvent, [&](LightEventParam*) { ++latter; });
    handle();
    EXPECT_EQ(1, latter);
}

class Named : public NS_BUNDLEMGR1::ServiceInterface {
public:
    std::string GetDescription() override { return "named"; }
    void* GetImplementation() override { return this; }
};

class PublishingService : public zo::Service {
public:
    PublishingService() : Service("bundle", "a name that is too long for the string object itself") {}
    using Service::m_pInterface;
    using Service::Publish;
};

TEST_F(KitFailures, WithoutMemoryAnInterfaceIsWithdrawnAllTheSame) {
    using NS_BUNDLEMGR1::CheckIFBuf;
    StdoutOf([] {
        auto service = std::make_unique<PublishingService>();
        service->Publish(std::make_unique<Named>());
        const std::vector<NS_BUNDLEMGR1::ServiceInterface*>& known = *CheckIFBuf(service->GetName());
        NS_BUNDLEMGR1::SetIFBuf(service->GetName(), service->GetInterface());
        t_failingAllocation = 1;
        service.reset();
        t_failingAllocation = 0;
        EXPECT_THAT(known, testing::IsEmpty());
    });
}

TEST_F(KitFailures, WithoutMemoryToWithdrawWhatNobodyKnowsItIsDeletedAllTheSame) {
    StdoutOf([] {
        PublishingService service;
        service.m_pInterface = new Named;
        t_failingAllocation = 1;
        service.RemoveInterface();
        t_failingAllocation = 0;
        EXPECT_EQ(nullptr, service.GetInterface());
    });
}

TEST_F(KitFailures, WithoutMemoryForItsProxyALogPrintsTheFormatAndThrowsNothing) {
    NS_BUNDLEMGR1::BundleMgr::Instance();
    const zo::Log log("a name that is too long for the string object itself");
    EXPECT_EQ("%d up\n", StdoutOf([&] {
                  t_failingAllocation = 1;
                  ZO_INFO(log, "%d up\n", 4);
                  t_failingAllocation = 0;
              }));
    EXPECT_EQ("4 up\n", StdoutOf([&] { ZO_INFO(log, "%d up\n", 4); }));
}

TEST_F(KitFailures, ARecordThatIsWrittenAtOnceNeedsNoMemory) {
    const zo::Log log("Hello");
    StdoutOf([&] { ZO_INFO(log, "first"); });
    const unsigned long long before = NS_BUNDLEMGR1::GetLogLoss().records;
    const std::string text(100, 'x');
    StdoutOf([&] {
        t_failingAllocation = 1;
        ZO_INFO(log, "%s", text.c_str());
        EXPECT_EQ(1, t_failingAllocation) << "it was asked for";
        t_failingAllocation = 0;
    });
    EXPECT_EQ(before, NS_BUNDLEMGR1::GetLogLoss().records);
}

}  // namespace
