// What the tests of the event manager's operations have in common.
#pragma once

#include <atomic>
#include <climits>

#include <gtest/gtest.h>

#include "eventtest.h"
#include "support/wait.h"

namespace test {

/// The singleton's constructor is for it and for derived managers.
class OwnMgr : public NS_BUNDLEMGR1::LightEventMgr {
public:
    OwnMgr() = default;

    // Its worker is ended before its own part goes, as a derived class should.
    ~OwnMgr() override { ExitThreads(); }
};

class LightEventMgrTest : public EventTest {
protected:
    /// Dispatches what was posted before on this thread.
    void DispatchAll() {
        while (Mgr().msg_queue()->message_count() > 0) Mgr().process_msg();
    }

    /// The worker has nothing left to do once an event posted last has arrived.
    void WaitUntilDispatched() {
        constexpr int kLast = INT_MIN;
        std::atomic<bool> arrived{false};
        Handler handler([&](int, NS_BUNDLEMGR1::LightEventParam*) { arrived = true; });
        Mgr().RegisterHandler(kLast, &handler);
        Mgr().Push_Msg(kLast, nullptr, 0);
        ASSERT_TRUE(WaitFor([&] { return arrived.load(); }));
        Mgr().UnRegisterHandler(kLast, &handler);
    }

    bool QueueIsClosed() { return IsClosed(Mgr()); }
};

}  // namespace test
