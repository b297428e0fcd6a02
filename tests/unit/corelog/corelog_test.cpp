#include "src/corelog/corelog.h"

#include <cstdarg>
#include <deque>
#include <thread>
#include <type_traits>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>
#include <gmock/gmock.h>

#include "support/capture.h"
#include "unit/log/logtest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::StdoutOf;
using testing::ElementsAre;

// A manager that hands out the log proxy manager that it is given.
class BundleMgrStub : public BundleMgr {
public:
    explicit BundleMgrStub(LogProxyMgr* logProxyMgr = nullptr) : m_logProxyMgr(logProxyMgr) { m_pInstance = this; }
    ~BundleMgrStub() override { m_pInstance = nullptr; }

    LogProxyMgr* GetLogProxyMgr() override { return m_logProxyMgr; }

    void RegisterBundle(BundleObject*) override {}
    int InitAllBundles() override { return 0; }
    void WaitAllBundlesThreadExit() override {}
    void FiniAllBundles() override {}
    BundleObject* GetBundle(const std::string&) override { return nullptr; }
    BundleObject* LoadBundle(const std::string&) override { return nullptr; }
    int LoadAllBundles() override { return 0; }
    void GetBundlesInReverseOrder(std::list<BundleObject*>&) override {}
    ServiceInterface* GetBundleInterface(const std::string&) override { return nullptr; }
    void SetIntSetting(const int&) override {}
    int GetIntSetting() override { return 0; }
    int GetMgrPhase() override { return 0; }
    void SetMgrPhase(const int&) override {}

private:
    LogProxyMgr* const m_logProxyMgr;
};

// Has no proxy of any name.
class EmptyLogProxyMgr : public LogProxyMgr {
public:
    LogProxy* GetLogProxy(const char* name) override {
        m_asked = name;
        return nullptr;
    }

    std::string m_asked;
};

// What somebody else made, who may look at the format itself.
class ForeignProxy : public DefaultLogProxy {
public:
    void SetPosition(const char* file, unsigned long line) override {
        m_calls.push_back(std::string(file) + ":" + std::to_string(line));
    }
    void Printf(int, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        va_list args;
        va_start(args, format);
        m_calls.push_back(std::string(format) + "|" + va_arg(args, const char*));
        va_end(args);
    }
    void VPrintfAt(const char*, unsigned long, int, const char*, va_list) override
        __attribute__((format(printf, 5, 0))) {
        m_calls.emplace_back("VPrintfAt");
    }

    std::vector<std::string> m_calls;
};

class ForeignLogProxyMgr : public LogProxyMgr {
public:
    LogProxy* GetLogProxy(const char*) override { return &m_proxy; }

    ForeignProxy m_proxy;
};

class CoreLogTest : public test::LogTest {
protected:
    // Never destroyed, like those of the library: a default proxy is kept for good.
    static CoreLog& NewCoreLog(const char* sourceFile) {
        static auto* const logs = new std::deque<CoreLog>;
        return logs->emplace_back(sourceFile);
    }

    CoreLog& m_log = NewCoreLog("thesource");
};

TEST_F(CoreLogTest, AProxyOfOthersIsToldThePositionAndGetsTheFormatAsItStands) {
    static ForeignLogProxyMgr proxies;
    const BundleMgrStub manager(&proxies);
    m_log.Print(7, LOG_LEVEL_INFO, "%s is up\n", "it");
    EXPECT_THAT(proxies.m_proxy.m_calls, ElementsAre("thesource:7", "%s is up\n|it"));
}

TEST_F(CoreLogTest, NeedsNoInitialisation) {
    EXPECT_TRUE(std::is_trivially_destructible_v<CoreLog>);
}

TEST_F(CoreLogTest, TakesTheCoreProxyOfTheManager) {
    LogProxy* const proxy = m_log.Proxy();
    EXPECT_EQ(BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("BundleMgrCore"), proxy);
    EXPECT_EQ("BundleMgrCore", proxy->GetName());
    EXPECT_EQ(proxy, m_log.Proxy());
}

TEST_F(CoreLogTest, NamesBundleAndServiceAndItsSource) {
    StdoutOf([&] { m_log.Print(4711, LOG_LEVEL_ERROR, "%s: %d\n", "count", 3); });
    const std::vector<test::LogRecord> records = test::ParseLog(Log());
    ASSERT_EQ(1U, records.size());
    test::LogRecord expected = records[0];
    expected.level = 1;
    expected.bundle = "BundleMgr";
    expected.service = "Core";
    expected.file = "thesource";
    expected.line = 4711;
    expected.text = "count: 3\n";
    EXPECT_EQ(expected.Bytes(), Log());
}

TEST_F(CoreLogTest, EchoesItsText) {
    EXPECT_EQ("count: 3\n", StdoutOf([&] { m_log.Print(4711, LOG_LEVEL_ERROR, "%s: %d\n", "count", 3); }));
}

TEST_F(CoreLogTest, KeepsItsProxyBeyondTheManager) {
    LogProxy* const proxy = m_log.Proxy();
    BundleMgr::Destroy();
    EXPECT_EQ(proxy, m_log.Proxy());
    StdoutOf([&] { m_log.Print(1, LOG_LEVEL_ERROR, "late"); });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), ElementsAre("late"));
}

TEST_F(CoreLogTest, WithoutLogProxyManagerPrintsTheRawFormat) {
    const BundleMgrStub manager;
    EXPECT_EQ("Loading... %s\n", StdoutOf([&] { m_log.Print(1, LOG_LEVEL_INFO, "Loading... %s\n", "zo_x"); }));
    EXPECT_EQ("DefaultLogProxy", m_log.Proxy()->GetName());
    EXPECT_FALSE(std::filesystem::exists(LogDir()));
}

TEST_F(CoreLogTest, KeepsTheDefaultProxyThoughAManagerAppears) {
    LogProxy* fallback = nullptr;
    {
        const BundleMgrStub manager;
        fallback = m_log.Proxy();
    }
    BundleMgr::Instance();
    EXPECT_EQ(fallback, m_log.Proxy());
    EXPECT_EQ("raw %d", StdoutOf([&] { m_log.Print(1, LOG_LEVEL_INFO, "raw %d", 1); }));

    CoreLog& another = NewCoreLog("another");  // each source file has a cache of its own
    EXPECT_EQ("BundleMgrCore", another.Proxy()->GetName());
}

TEST_F(CoreLogTest, WithoutProxyFallsBackAsWell) {
    EmptyLogProxyMgr withoutProxy;
    const BundleMgrStub manager(&withoutProxy);
    EXPECT_EQ("DefaultLogProxy", m_log.Proxy()->GetName());
    EXPECT_EQ("BundleMgrCore", withoutProxy.m_asked);
}

TEST_F(CoreLogTest, PreparingLeavesTheDirectoryToTheFirstRecord) {
    const test::ScopedEnv early("_APP_LOG_DIR", m_dir / "early");
    m_log.Prepare();
    {
        const test::ScopedEnv late("_APP_LOG_DIR", m_dir.Path());
        StdoutOf([&] { m_log.Print(1, LOG_LEVEL_INFO, "first"); });
    }
    StdoutOf([&] { m_log.Print(2, LOG_LEVEL_INFO, "second"); });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), ElementsAre("first", "second"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "early"));
}

TEST_F(CoreLogTest, PreparingLeavesNoTrace) {
    m_log.Prepare();
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_FALSE(std::filesystem::exists(LogDir()));
}

TEST_F(CoreLogTest, PreparedItNeedsNoStaticObjectLock) {
    m_log.Prepare();
    StdoutOf([&] {
        // Held here, as by a manager that is being destroyed; the record would wait.
        const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        std::thread([&] { m_log.Print(1, LOG_LEVEL_INFO, "first"); }).join();
    });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), ElementsAre("first"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
