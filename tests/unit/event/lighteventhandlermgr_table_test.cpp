// Which handlers an event has.
#include <climits>
#include <list>

#include <gmock/gmock.h>

#include "lighteventhandlermgrtest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Handler;
using test::LightEventMgrTest;
using test::Record;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LightEventMgrTest, FindReturnsTheHandlersInRegistrationOrder) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {}), c([](int, LightEventParam*) {});
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &b));
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &a));
    EXPECT_EQ(0, Mgr().RegisterHandler(8, &c));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b, &a));
    EXPECT_THAT(Mgr().find(8), ElementsAre(&c));
    EXPECT_THAT(Mgr().find(9), IsEmpty());
}

TEST_F(LightEventMgrTest, FindReturnsACopy) {
    Handler a([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    std::list<LightEventHandler*> copy = Mgr().find(7);
    copy.clear();
    EXPECT_THAT(Mgr().find(7), ElementsAre(&a));
}

TEST_F(LightEventMgrTest, EventIdentifiersMayBeAnyInt) {
    Handler a([](int, LightEventParam*) {});
    for (const int id : {INT_MIN, -1, 0, 1, INT_MAX}) EXPECT_EQ(0, Mgr().RegisterHandler(id, &a));
    for (const int id : {INT_MIN, -1, 0, 1, INT_MAX}) EXPECT_THAT(Mgr().find(id), ElementsAre(&a));
    EXPECT_THAT(Mgr().find(2), IsEmpty());
}

TEST_F(LightEventMgrTest, UnRegisterHandlerRemovesTheFirstOccurrenceOnly) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    Mgr().RegisterHandler(7, &b);
    Mgr().RegisterHandler(7, &a);

    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b, &a));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
    EXPECT_THAT(Mgr().find(7), IsEmpty());
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
}

TEST_F(LightEventMgrTest, UnRegisteringWhatIsNotThereReturnsZero) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(8, &a));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, nullptr));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&a));
}

TEST_F(LightEventMgrTest, ANullHandlerIsSkipped) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    EXPECT_EQ(0, Mgr().RegisterHandler(7, nullptr));
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(nullptr, &a));
    Mgr().Push_Msg(7, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(7));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
