// Which locks a bundle holds, and what nobody waits for under them.
#include <chrono>
#include <list>

#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "src/lifetime/tablelock.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleObjectTest;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Install;
using test::TestService;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;

// The log and the event manager are created under the static-object lock; not by a thread
// that holds a bundle, since one that holds these two in the other order may wait for it.
TEST_F(BundleObjectTest, TheFirstRecordAndTheFirstEventAreNotMadeUnderTheLock) {
    using Operation = std::function<void()>;
    Add("a");
    Add("b");
    const TestService::Action removeB = [this] { m_bundle.RemoveServiceObject("b"); };
    Add("b2").onFini = &removeB;
    const std::vector<Operation> operations = {
        [this] { m_bundle.RemoveServiceObject("unknown"); }, [this] { m_bundle.RemoveServiceObject("a"); },
        [this] { m_bundle.WaitThreadExit(); }, [this] { m_bundle.UnLoadAllServiceObjects(); }};
    for (const Operation& operation : operations) {
        LogProxyDebugInfoBufMgr::Destroy();
        LightEventMgr::Destroy();
        auto staticLock = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(*ACE_Static_Object_Lock::instance());
        const Elsewhere operating(operation);
        EXPECT_FALSE(operating.Finishes(std::chrono::milliseconds(50)));  // it waits for the log
        AllServices();                                                    // this thread holds the static-object lock
        staticLock.reset();
        EXPECT_TRUE(operating.Finishes());
    }
}

// The configurator holds its repository's lock while it calls a factory, whose service
// locks the bundle in order to register.
TEST_F(BundleObjectTest, NobodyWaitsForTheRepositoryUnderTheLock) {
    using Operation = std::function<void()>;
    Add("a");
    Add("b");
    const std::vector<Operation> operations = {[this] { m_bundle.RemoveServiceObject("a"); },
                                               [this] { m_bundle.UnLoadAllServiceObjects(); }};
    for (const Operation& operation : operations) {
        auto repository =
            std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(ACE_Service_Repository::instance()->lock());
        const Elsewhere operating(operation);
        EXPECT_FALSE(operating.Finishes(std::chrono::milliseconds(50)));
        AllServices();  // this thread holds the repository
        repository.reset();
        EXPECT_TRUE(operating.Finishes());
    }
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a", "fini b", "dtor b"));
}

// Another thread may hold the manager's table and wait for the bundle.
TEST_F(BundleObjectTest, AServiceThatIsEndedFindsItsBundleWithoutTheTable) {
    BundleObject* found = nullptr;
    const TestService::Action ask = [&found] { found = BundleMgr::Instance()->GetBundle("bundle"); };
    Add("unloaded").onFini = &ask;
    Add("removed").onFini = &ask;
    Add("waited").onExit = &ask;
    Add("asked").onGetInterface = &ask;
    const std::vector<std::function<void()>> operations = {
        [this] { test::FindInterface(m_bundle, "asked"); }, [this] { m_bundle.WaitThreadExit(); },
        [this] { m_bundle.RemoveServiceObject("removed"); }, [this] { m_bundle.UnLoadAllServiceObjects(); }};
    auto table = std::make_unique<TableLock::Guard>();
    for (const std::function<void()>& operation : operations) {
        EXPECT_TRUE(CanBeDoneElsewhere(operation));
        EXPECT_EQ(&m_bundle, std::exchange(found, nullptr));
    }
    const Elsewhere stranger(ask);
    EXPECT_FALSE(stranger.Finishes(std::chrono::milliseconds(20)));
    table.reset();
    EXPECT_TRUE(stranger.Finishes());
}

TEST_F(BundleObjectTest, ServicesComeAndGoOnManyThreadsWithoutADeadlock) {
    std::list<Elsewhere> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            Trace trace;
            const std::string name = "s" + std::to_string(thread);
            for (int round = 0; round < 50; ++round) {
                {
                    // As in a factory.
                    const ACE_Guard<ACE_Recursive_Thread_Mutex> repository(ACE_Service_Repository::instance()->lock());
                    Install(name, new TestService(trace, "bundle", name.c_str()));
                }
                m_bundle.RemoveServiceObject(name.c_str());
            }
            EXPECT_EQ(100U, trace.size());
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
    EXPECT_THAT(AllServices(), IsEmpty());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
