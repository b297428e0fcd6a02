// An event manager whose start and end can be watched.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>

#include "eventtest.h"
#include "support/wait.h"

namespace test {

/// Long enough for a thread that does not wait to prove it.
constexpr std::chrono::milliseconds kAWhile(50);

/// A flag that opens once, and is waited for with a deadline.
class Signal {
public:
    void Give() { m_given = true; }
    bool Given() const { return m_given; }
    bool Wait() const {
        return WaitFor([this] { return Given(); });
    }

private:
    std::atomic<bool> m_given{false};
};

/// A manager whose worker is held up and whose start can be watched.
class SlowMgr : public NS_BUNDLEMGR1::LightEventMgr {
public:
    ~SlowMgr() override {
        ExitThreads();
        if (m_onEnd) m_onEnd();
    }

    int activate(long flags, int threads, int force, long priority, int group, ACE_Task_Base* task,
                 ACE_hthread_t handles[], void* stack[], size_t stackSize[], ACE_thread_t ids[],
                 const char* names[]) override {
        if (m_beforeStart) m_beforeStart();
        return NS_BUNDLEMGR1::LightEventMgr::activate(flags, threads, force, priority, group, task, handles, stack,
                                                      stackSize, ids, names);
    }
    int svc() override {
        if (m_inWorker) m_inWorker();
        return NS_BUNDLEMGR1::LightEventMgr::svc();
    }

    /// Makes it the one event manager.
    void Publish() { m_pInstance = this; }

    std::function<void()> m_beforeStart;
    std::function<void()> m_inWorker;
    std::function<void()> m_onEnd;
};

}  // namespace test
