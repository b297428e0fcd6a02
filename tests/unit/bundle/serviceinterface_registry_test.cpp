// The list of interfaces that were found under a name.
#include <gmock/gmock.h>

#include "serviceinterfacetest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Interfaces;
using test::NamedInterface;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

TEST(InterfaceRegistryTest, AFreshNameHasAnEmptyListThatStays) {
    Interfaces* const list = CheckIFBuf("X");
    ASSERT_THAT(list, NotNull());
    EXPECT_THAT(*list, IsEmpty());
    EXPECT_EQ(list, CheckIFBuf("X"));
    EXPECT_NE(list, CheckIFBuf("x"));
    EXPECT_NE(list, CheckIFBuf(""));
}

TEST(InterfaceRegistryTest, SettingReplacesTheList) {
    NamedInterface a;
    NamedInterface b;
    NamedInterface c;
    Interfaces* const list = CheckIFBuf("X");
    list->push_back(&b);
    list->push_back(&c);
    SetIFBuf("X", &a);
    EXPECT_THAT(*list, ElementsAre(&a));
    EXPECT_EQ(list, CheckIFBuf("X"));
    SetIFBuf("X", &b);
    EXPECT_THAT(*list, ElementsAre(&b));
}

TEST(InterfaceRegistryTest, SettingMakesTheEntry) {
    NamedInterface a;
    SetIFBuf("new", &a);
    EXPECT_THAT(*CheckIFBuf("new"), ElementsAre(&a));
}

TEST(InterfaceRegistryTest, ANullInterfaceIsStoredAsItIs) {
    SetIFBuf("X", nullptr);
    EXPECT_THAT(*CheckIFBuf("X"), ElementsAre(IsNull()));
}

TEST(InterfaceRegistryTest, ListsStayWhereTheyAreWhileOthersCome) {
    Interfaces* const list = CheckIFBuf("X");
    for (int i = 0; i < 1000; ++i) CheckIFBuf(std::to_string(i));
    EXPECT_EQ(list, CheckIFBuf("X"));
}

TEST(InterfaceRegistryTest, RemovingTakesOutThatInterfaceOnly) {
    NamedInterface a;
    NamedInterface b;
    Interfaces* const list = CheckIFBuf("X");
    *list = {&a, &b, nullptr, &a};
    RemoveIFBuf("X", &a);
    EXPECT_THAT(*list, ElementsAre(&b, IsNull()));
    RemoveIFBuf("X", &a);
    RemoveIFBuf("X", nullptr);
    RemoveIFBuf("of nobody", &b);
    EXPECT_THAT(*list, ElementsAre(&b, IsNull()));
}

TEST(InterfaceRegistryTest, ProxiesThatHadFoundARemovedInterfaceFindItNoMore) {
    NamedInterface a("a");
    NamedInterface b("b");
    SetIFBuf("X", &a);
    ServiceInterfaceProxy<NamedInterface> proxy("X");
    EXPECT_EQ(&a, proxy.GetInterface());
    RemoveIFBuf("X", &a);
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    SetIFBuf("X", &b);
    EXPECT_EQ(&b, proxy.GetInterface());
}

TEST(InterfaceRegistryTest, NeedsNotTheProxiesMutex) {
    const ACE_Guard<ACE_Thread_Mutex> guard(_g_actualmutex);
    EXPECT_TRUE(CanBeDoneElsewhere([] {
        CheckIFBuf("X");
        SetIFBuf("X", nullptr);
    }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
