// What all test programs of the event manager need: handlers, parameters, its log.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ace/OS_NS_sys_time.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/event.h>
#include <bundlemgr/log.h>

#include "support/environment.h"
#include "support/tempdir.h"

namespace test {

/// A handler that does what it is told to.
class Handler : public NS_BUNDLEMGR1::LightEventHandler {
public:
    using Action = std::function<void(int, NS_BUNDLEMGR1::LightEventParam*)>;

    explicit Handler(Action action) : m_action(std::move(action)) {}
    void HandleLightEvent(int eventId, NS_BUNDLEMGR1::LightEventParam* param) override { m_action(eventId, param); }

private:
    const Action m_action;
};

/// Sees whether there is an event manager without making one.
class Peek : public NS_BUNDLEMGR1::LightEventMgr {
public:
    static bool IsThere() { return m_pInstance.load() != nullptr; }
};

/// A list that handlers append to and tests read.
template <class Entry>
class Record {
public:
    void Add(Entry entry) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_entries.push_back(std::move(entry));
    }
    std::vector<Entry> Get() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_entries;
    }
    std::size_t Size() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_entries.size();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
};

/// A parameter that counts how often it was deleted.
class CountedParam : public NS_BUNDLEMGR1::LightEventParam {
public:
    CountedParam(bool autoDelete, std::atomic<int>& deletions) : LightEventParam(autoDelete), m_deletions(deletions) {}
    ~CountedParam() override { ++m_deletions; }

private:
    std::atomic<int>& m_deletions;
};

/// The log of one test: a directory of its own, and no singleton left behind.
class EventTest : public testing::Test {
protected:
    EventTest() : m_env("_APP_LOG_DIR", m_dir.Path()) {}
    ~EventTest() override {
        NS_BUNDLEMGR1::LightEventMgr::Destroy();
        NS_BUNDLEMGR1::BundleMgr::Destroy();
        NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
    }

    static NS_BUNDLEMGR1::LightEventMgr& Mgr() { return *NS_BUNDLEMGR1::LightEventMgr::Instance(); }

    /// @return the records written so far, with each time stamp replaced by "TIME"
    std::string Log() const {
        std::string log;
        const std::string dir = m_dir / "Develop/nbi/Agent_CORBA";
        if (!std::filesystem::exists(dir)) return log;
        for (const auto& file : std::filesystem::directory_iterator(dir)) log += ReadFile(file.path().string());

        // The stamp is the text between a record's number and its thread.
        std::size_t from = 0;
        for (std::size_t end; (end = log.find(", Thread ", from)) != std::string::npos;) {
            const std::size_t start = log.rfind('\n', end) + 1;
            log.replace(start, end - start, "TIME");
            from = start + std::string("TIME, Thread ").size();
        }
        return log;
    }

    /// A proxy outlives its manager; kept in sight of the leak checker.
    static NS_BUNDLEMGR1::LogProxy* ProxyNamed(const char* name) {
        static auto* const kept = new Record<NS_BUNDLEMGR1::LogProxy*>;
        NS_BUNDLEMGR1::LogProxy* const proxy =
            NS_BUNDLEMGR1::BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy(name);
        kept->Add(proxy);
        return proxy;
    }

    /// Looks under the queue's lock.
    static bool IsClosed(NS_BUNDLEMGR1::LightEventMgr& mgr) {
        ACE_Message_Block* head = nullptr;
        ACE_Time_Value now = ACE_OS::gettimeofday();
        return mgr.msg_queue()->peek_dequeue_head(head, &now) == -1 && errno == ESHUTDOWN;
    }

    static std::string ThisThread() { return "Thread " + std::to_string(static_cast<int>(pthread_self())); }

    TempDir m_dir;
    ScopedEnv m_env;
};

}  // namespace test
