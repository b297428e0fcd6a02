// One run of the agent after the other, with a naming and an event service that stay.
#include <gtest/gtest.h>

#include <csignal>
#include <list>
#include <memory>
#include <string>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/agent.h"
#include "support/wait.h"

namespace test {
namespace {

class AgentCorbaRunsTest : public AgentCorbaTest {
protected:
    void SetUp() override {
        AgentCorbaTest::SetUp();
        if (!IsSkipped()) m_client = std::make_unique<Client>(m_naming->Port());
    }

    /// A run on an installation root of its own, so that its log and its feed are its own.
    struct Run {
        explicit Run(const AgentCorbaRunsTest& test) { test.Configure(root); }

        bool Start() {
            agent = std::make_unique<Agent>(root);
            return agent->WaitUntilReady() && root.WaitForLog("zo/AlarmAgent is bound at ") &&
                   root.WaitForLog("zo/AlarmChannel is bound at ");
        }

        /// Begins an orderly stop, and waits until all of it but the pause at its end is done.
        bool BeginStop() const {
            agent->Process().Signal(SIGTERM);
            return root.WaitForLog("the ORB has ended");
        }

        AgentRoot root;
        std::unique_ptr<Agent> agent;
    };

    bool IsBound(const char* name) const { return !CORBA::is_nil(CORBA::Object_var(m_client->Resolve(name))); }

    /// Has the agent look at all its names once more: this one it finds gone.
    void HaveNamesChecked() const {
        m_client->UnbindAgent();
        EXPECT_TRUE(m_client->WaitForName("zo/AlarmAgent"));
    }

    /// Whether a change of this run reaches one who subscribes now.
    void ExpectAWorkingChannel(const Run& run) const {
        const PortableServer::Servant_var<Consumer> consumer(new Consumer);  // the client's ORB has it, too
        const CosEventChannelAdmin::ProxyPushSupplier_var supplier = m_client->Subscribe(*consumer.in());
        ASSERT_FALSE(CORBA::is_nil(supplier)) << run.root.Log();
        run.root.Append("var/alarms.feed", "event=raise;id=7;object=NE-7;severity=minor\n");
        EXPECT_TRUE(consumer->WaitForCount(1)) << run.root.Log();
        supplier->disconnect_push_supplier();
    }
};

TEST_F(AgentCorbaRunsTest, EachOfFiveBindsTheChannelOnceAndTakesItsNamesAway) {
    constexpr int kKilled = 3;
    std::list<Run> runs;
    for (int number = 1; number <= 5; ++number) {
        SCOPED_TRACE("run " + std::to_string(number));
        Run& run = runs.emplace_back(*this);
        ASSERT_TRUE(run.Start()) << run.root.Log();
        ASSERT_NO_FATAL_FAILURE(ExpectAWorkingChannel(run));
        for (int i = 0; i < 2; ++i) HaveNamesChecked();
        EXPECT_EQ(Count(run.root.Log(), "zo/AlarmChannel is bound at "), 1u) << run.root.Log();
        if (number == kKilled) {
            run.agent.reset();
            EXPECT_TRUE(IsBound("zo/AlarmChannel"));
            continue;
        }
        ASSERT_TRUE(run.BeginStop());
        EXPECT_FALSE(IsBound("zo/AlarmAgent"));
        EXPECT_FALSE(IsBound("zo/AlarmChannel")) << run.root.Log();
        EXPECT_EQ(Count(run.root.Log(), "zo/AlarmChannel is unbound"), 1u);
    }
    for (Run& run : runs) {
        if (run.agent == nullptr) continue;
        EXPECT_EQ(run.agent->Process().Wait(), 0) << run.agent->Err();
    }
}

}  // namespace
}  // namespace test
