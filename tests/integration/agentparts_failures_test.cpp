// Parts of the agent when the system refuses them a thread or memory.
//
// This program's own pthread_create and operator new come before those of the libraries.
// They pass every call on until a test tells them to fail.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/log.h>

#include "refusallog.h"
#include "servicelog.h"
#include "servicethread.h"
#include "support/environment.h"
#include "support/replacednew.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace {

std::atomic<bool> g_noThreads{false};
thread_local bool t_noMemory = false;

}  // namespace

bool test::RefusesMemory() noexcept {
    return t_noMemory;
}

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*body)(void*), void* argument) {
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    return g_noThreads ? EAGAIN : next(thread, attributes, body, argument);
}

namespace {

using alarms::ServiceLog;
using alarms::ServiceThread;
using std::chrono::milliseconds;
using test::WaitFor;

class AgentPartFailures : public testing::Test {
protected:
    AgentPartFailures() : m_logDir("_APP_LOG_DIR", m_dir.Path()) {}
    ~AgentPartFailures() override {
        NS_BUNDLEMGR1::BundleMgr::Destroy();
        NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
    }

    const test::TempDir m_dir;
    const test::ScopedEnv m_logDir;
};

TEST_F(AgentPartFailures, AServiceThreadThatCannotBeMadeLeavesNothingToStop) {
    ServiceLog log("bundle", "Svc", "parts");
    ServiceThread thread(log);
    g_noThreads = true;
    EXPECT_THROW(thread.Start([] { return milliseconds(0); }), std::system_error);
    g_noThreads = false;
    thread.Stop();
    thread.Stop();
}

TEST_F(AgentPartFailures, AServiceThreadSurvivesAnExceptionForWhoseRecordThereIsNoMemory) {
    ServiceLog log("bundle", "Svc", "parts");
    ServiceThread thread(log);
    std::atomic<int> rounds{0};
    thread.Start([&rounds]() -> milliseconds {
        t_noMemory = ++rounds == 1;
        if (t_noMemory) throw std::bad_alloc();
        return std::chrono::hours(1);
    });
    EXPECT_TRUE(WaitFor([&rounds] { return rounds == 2; }));
    thread.Stop();
}

TEST_F(AgentPartFailures, AServiceThreadSurvivesWhateverIsThrown) {
    ServiceLog log("bundle", "Svc", "parts");
    ServiceThread thread(log);
    std::atomic<int> rounds{0};
    thread.Start([&rounds]() -> milliseconds {
        if (++rounds == 1) throw 1;  // NOLINT(hicpp-exception-baseclass): that is the case
        return std::chrono::hours(1);
    });
    EXPECT_TRUE(WaitFor([&rounds] { return rounds == 2; }));
    thread.Stop();
}

TEST(AgentRefusalLogFailures, WithoutMemoryARefusalIsNotTold) {
    alarms::RefusalLog refusals;
    const std::string address = "192.0.2.1";
    t_noMemory = true;
    const bool told = refusals.ShouldTell(address, {});
    t_noMemory = false;
    EXPECT_FALSE(told);
    EXPECT_TRUE(refusals.ShouldTell(address, {}));
}

}  // namespace
