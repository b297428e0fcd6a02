// Proxies on many threads, and the locks that they take.
#include <atomic>
#include <chrono>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>

#include "serviceinterfacetest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::AdderProxy;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Interfaces;
using test::NamedInterface;
using test::ProxyTest;
using test::TestService;
using testing::ElementsAre;

TEST_F(ProxyTest, OnceFoundNothingIsLocked) {
    Publish("first", "Sums", &m_adder);
    AdderProxy proxy("Sums");
    proxy.GetInterface();
    const ACE_Guard<ACE_Thread_Mutex> guard(_g_actualmutex);
    const ACE_Guard<ACE_Recursive_Thread_Mutex> bundle(m_first.m_lock);
    EXPECT_TRUE(CanBeDoneElsewhere([&proxy] {
        Interfaces all;
        proxy.GetInterface();
        proxy.GetInterface(&all);
        AdderProxy("Sums", "first").GetInterface();
    }));
}

TEST_F(ProxyTest, ASearchTakesTheProxiesMutexAndThenTheBundles) {
    Publish("first", "Sums", &m_adder);
    auto guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    const Elsewhere searching([] { AdderProxy("Sums").GetInterface(); });
    EXPECT_FALSE(searching.Finishes(std::chrono::milliseconds(20)));
    EXPECT_TRUE(CanBeDoneElsewhere([this] { test::FindInterface(m_first, "Sums"); }));
    guard.reset();
    EXPECT_TRUE(searching.Finishes());
}

TEST_F(ProxyTest, WhoeverComesSecondSearchesNoMore) {
    int calls = 0;
    const TestService::Action onGetInterface = [&calls] { ++calls; };
    Publish("first", "Sums", &m_adder).onGetInterface = &onGetInterface;
    std::atomic<int> ready{0};
    auto guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    {
        std::list<Elsewhere> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([this, &ready] {
                AdderProxy proxy("Sums");
                ++ready;
                EXPECT_EQ(&m_adder, proxy.GetInterface());
            });
        }
        EXPECT_TRUE(test::WaitFor([&ready] { return ready == 4; }));
        guard.reset();
    }
    EXPECT_EQ(1, calls);
    EXPECT_THAT(*CheckIFBuf("Sums"), ElementsAre(&m_adder));
}

TEST_F(ProxyTest, AnExceptionFromAServiceLeavesNothingLocked) {
    const TestService::Action onGetInterface = [] { throw std::runtime_error("no interface today"); };
    Publish("first", "Sums", &m_adder).onGetInterface = &onGetInterface;
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), std::runtime_error);
    m_services.back()->onGetInterface = nullptr;
    EXPECT_TRUE(CanBeDoneElsewhere([this] { EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface()); }));
}

// Look-ups, first searches and replacements at once, for a while.
TEST_F(ProxyTest, ThreadsLookUpWhileOthersSetAndSearch) {
    constexpr int kNames = 40;
    constexpr int kReaders = 8;
    std::vector<std::string> names;
    for (int i = 0; i < kNames; ++i) names.push_back("s" + std::to_string(i));
    for (const std::string& name : names) Publish("second", name.c_str(), &m_adder);

    std::atomic<int> running{kReaders};
    std::list<Elsewhere> threads;
    for (int reader = 0; reader < kReaders; ++reader) {
        threads.emplace_back([&, reader] {
            std::mt19937 random(static_cast<unsigned>(reader));
            for (int round = 0; round < 2000; ++round) {
                AdderProxy proxy(names[random() % names.size()]);
                Interfaces all;
                const int sum = proxy.GetInterface(round % 3 == 0 ? &all : nullptr)->Add(1);
                EXPECT_TRUE(sum == 11 || sum == 21);
            }
            --running;
        });
    }
    threads.emplace_back([&] {
        std::mt19937 random(99);
        while (running > 0) {
            const std::string& name = names[random() % names.size()];
            SetIFBuf(name, random() % 2 == 0 ? &m_adder : &m_other);
            CheckIFBuf("more" + std::to_string(random() % 1000));
        }
    });
    threads.emplace_back([&] {
        while (running > 0) {
            EXPECT_THROW(AdderProxy("nobody").GetInterface(), InterfaceNotExistException);
        }
    });
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

TEST_F(ProxyTest, AServiceMayBeRemovedWhileOthersSearchForIt) {
    std::atomic<bool> over{false};
    std::list<Elsewhere> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&over] {
            while (!over) {
                try {
                    ServiceInterfaceProxy<NamedInterface>("long").GetInterface();
                } catch (const InterfaceNotExistException&) {
                }
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        {
            // A service is in its bundle's table before it is complete.
            const ACE_Guard<ACE_Recursive_Thread_Mutex> bundle(m_first.m_lock);
            auto* const service = new TestService(m_trace, "first", "long");
            service->m_pInterface = &m_adder;
            test::Install("long", service, round % 2 == 0 ? nullptr : &test::Exterminate);
        }
        m_first.RemoveServiceObject("long");
    }
    over = true;
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
