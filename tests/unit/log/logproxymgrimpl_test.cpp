#include "src/log/logproxymgrimpl.h"

#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "logtest.h"
#include "src/log/logproxyimpl.h"
#include "support/capture.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

class LogProxyMgrImplTest : public test::LogTest {
protected:
    LogProxyMgrImpl m_mgr;
};

TEST_F(LogProxyMgrImplTest, OneNameGivesOneProxy) {
    LogProxy* const proxy = m_mgr.GetLogProxy("X");
    EXPECT_EQ(proxy, m_mgr.GetLogProxy("X"));
    EXPECT_EQ(proxy, m_mgr.GetLogProxy(std::string("X").c_str()));
}

TEST_F(LogProxyMgrImplTest, NamesAreComparedExactly) {
    LogProxy* const proxy = m_mgr.GetLogProxy("X");
    EXPECT_NE(proxy, m_mgr.GetLogProxy("x"));
    EXPECT_NE(proxy, m_mgr.GetLogProxy("X "));
    EXPECT_NE(proxy, m_mgr.GetLogProxy(""));
}

TEST_F(LogProxyMgrImplTest, ProxiesHaveTheirNames) {
    EXPECT_EQ("Alarm", m_mgr.GetLogProxy("Alarm")->GetName());
    EXPECT_EQ("", m_mgr.GetLogProxy("")->GetName());
    EXPECT_NE(nullptr, dynamic_cast<LogProxyImpl*>(m_mgr.GetLogProxy("Alarm")));
}

TEST_F(LogProxyMgrImplTest, AFreshProxyHasAllLevelsEnabled) {
    LogProxy* const proxy = m_mgr.GetLogProxy("X");
    for (const int level : {0, 1, 2, 3}) EXPECT_TRUE(proxy->IsLevelEnabled(level)) << level;
    EXPECT_FALSE(proxy->IsLevelEnabled(4));
}

TEST_F(LogProxyMgrImplTest, ANullNameThrows) {
    try {
        m_mgr.GetLogProxy(nullptr);
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("basic_string::_M_construct null not valid", error.what());
    }
    EXPECT_NE(nullptr, m_mgr.GetLogProxy("X"));  // nothing is left locked
}

TEST_F(LogProxyMgrImplTest, ProxiesOutliveTheManager) {
    auto manager = std::make_unique<LogProxyMgrImpl>();
    LogProxy* const proxy = manager->GetLogProxy("X");
    manager.reset();
    EXPECT_EQ("X", proxy->GetName());
    test::StdoutOf([&] { proxy->Write(1, "text"); });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), testing::ElementsAre("text"));
}

TEST_F(LogProxyMgrImplTest, ManagersShareNoProxies) {
    LogProxyMgrImpl other;
    EXPECT_NE(m_mgr.GetLogProxy("X"), other.GetLogProxy("X"));
}

TEST_F(LogProxyMgrImplTest, TheBundleManagerHasOne) {
    LogProxyMgr* const manager = BundleMgr::Instance()->GetLogProxyMgr();
    EXPECT_NE(nullptr, dynamic_cast<LogProxyMgrImpl*>(manager));
    EXPECT_EQ(manager, BundleMgr::Instance()->GetLogProxyMgr());
}

TEST_F(LogProxyMgrImplTest, ANewBundleManagerHasNewProxies) {
    LogProxy* const before = BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("X");
    BundleMgr::Destroy();
    EXPECT_NE(before, BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("X"));
    EXPECT_EQ("X", before->GetName());
}

TEST_F(LogProxyMgrImplTest, WhoFetchedAManagerMayAskItWhileTheBundleManagerEnds) {
    constexpr int kThreads = 3;
    constexpr int kEnds = 300;
    std::atomic<LogProxyMgr*> fetched{BundleMgr::Instance()->GetLogProxyMgr()};
    std::atomic<bool> stop{false};
    std::atomic<long> asked{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            while (!stop) {
                EXPECT_EQ("X", fetched.load()->GetLogProxy("X")->GetName());
                ++asked;
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < kEnds; ++i) {
        const long before = asked;
        EXPECT_TRUE(test::WaitFor([&] { return asked > before; }));
        BundleMgr::Destroy();
        fetched = BundleMgr::Instance()->GetLogProxyMgr();
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
}

TEST_F(LogProxyMgrImplTest, ThreadsThatAskAtOnceGetTheSameProxies) {
    constexpr int kThreads = 8;
    constexpr int kNames = 200;
    std::atomic<int> waiting{kThreads};
    std::vector<std::vector<LogProxy*>> found(kThreads);
    std::vector<std::thread> threads;
    for (std::vector<LogProxy*>& mine : found) {
        threads.emplace_back([&] {
            --waiting;
            test::WaitFor([&] { return waiting == 0; });
            for (int i = 0; i < kNames; ++i) mine.push_back(m_mgr.GetLogProxy(std::to_string(i).c_str()));
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<LogProxy*>& mine : found) EXPECT_EQ(found[0], mine);
    EXPECT_EQ(static_cast<std::size_t>(kNames), std::set<LogProxy*>(found[0].begin(), found[0].end()).size());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
