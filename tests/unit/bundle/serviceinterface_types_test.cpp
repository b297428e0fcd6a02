// The interface that offers nothing, and the layout of every other.
#include <atomic>
#include <chrono>
#include <thread>
#include <type_traits>

#include <gmock/gmock.h>

#include "serviceinterfacetest.h"
#include "support/elsewhere.h"
#include "support/slot.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Adder;
using test::BetterAdder;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Interfaces;
using test::Slot;
using testing::NotNull;

class RecordingInterface : public ServiceInterface {
public:
    ~RecordingInterface() override { s_called = "~"; }
    std::string GetDescription() override {
        s_called = "GetDescription";
        return "a description that is too long for the string object itself";
    }
    void* GetImplementation() override {
        s_called = "GetImplementation";
        return this;
    }
    static std::string s_called;
};

std::string RecordingInterface::s_called;

TEST(ServiceInterfaceTest, SlotsAreTheDestructorsDescriptionAndImplementation) {
    alignas(RecordingInterface) unsigned char place[sizeof(RecordingInterface)];
    ServiceInterface* const placed = new (place) RecordingInterface;
    Slot<void (*)(ServiceInterface*)>(placed, 0)(placed);
    EXPECT_EQ("~", RecordingInterface::s_called);

    ServiceInterface* const interface = new RecordingInterface;
    EXPECT_EQ("a description that is too long for the string object itself",
              Slot<std::string (*)(ServiceInterface*)>(interface, 2)(interface));
    EXPECT_EQ("GetDescription", RecordingInterface::s_called);
    EXPECT_EQ(interface, Slot<void* (*)(ServiceInterface*)>(interface, 3)(interface));
    EXPECT_EQ("GetImplementation", RecordingInterface::s_called);
    Slot<void (*)(ServiceInterface*)>(interface, 1)(interface);  // frees it as well
    EXPECT_EQ("~", RecordingInterface::s_called);
}

TEST(NullServiceInterfaceTest, OffersNothing) {
    NULLServiceInterface null;
    EXPECT_EQ("NULLServiceInterface!", null.GetDescription());
    EXPECT_EQ(nullptr, null.GetImplementation());
    ServiceInterface* const allocated = new NULLServiceInterface;
    EXPECT_EQ("NULLServiceInterface!", allocated->GetDescription());
    delete allocated;
}

TEST(NullServiceInterfaceTest, DerivesFromFinalClassPrivately) {
    EXPECT_TRUE(std::is_default_constructible_v<NULLServiceInterface>);
    EXPECT_TRUE((std::is_base_of_v<FinalClass, NULLServiceInterface>));
    EXPECT_FALSE((std::is_convertible_v<NULLServiceInterface*, FinalClass*>));
    EXPECT_TRUE(std::is_polymorphic_v<FinalClass>);
    EXPECT_TRUE(std::has_virtual_destructor_v<FinalClass>);
}

class Marked : private virtual FinalClass {
public:
    static int Answer() { return 42; }
};

TEST(FinalClassTest, MarksAClassAsItsPrivateVirtualBase) {
    const Marked marked;
    EXPECT_EQ(42, marked.Answer());
    EXPECT_FALSE((std::is_convertible_v<Marked*, FinalClass*>));
}

TEST(NullServiceInterfaceTest, IsSharedPerTypeOfInterface) {
    ServiceInterface* const shared = ServiceInterfaceProxy<Adder>::GetNullInterface();
    ASSERT_THAT(shared, NotNull());
    EXPECT_EQ("NULLServiceInterface!", shared->GetDescription());
    EXPECT_NE(nullptr, dynamic_cast<NULLServiceInterface*>(shared));
    EXPECT_EQ(shared, ServiceInterfaceProxy<Adder>::GetNullInterface());
    EXPECT_NE(shared, ServiceInterfaceProxy<BetterAdder>::GetNullInterface());
}

TEST(NullServiceInterfaceTest, ThreadsGetOne) {
    std::atomic<bool> go{false};
    Interfaces seen(8, nullptr);
    {
        std::list<Elsewhere> threads;
        for (ServiceInterface*& slot : seen) {
            threads.emplace_back([&go, &slot] {
                while (!go) std::this_thread::yield();
                slot = ServiceInterfaceProxy<Adder>::GetNullInterface();
            });
        }
        go = true;
    }
    ASSERT_THAT(seen.front(), NotNull());
    EXPECT_THAT(seen, testing::Each(seen.front()));
}

TEST(NullServiceInterfaceTest, IsMadeUnderTheProxiesMutexAndReadWithoutIt) {
    auto guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    const Elsewhere making([] { ServiceInterfaceProxy<Adder>::GetNullInterface(); });
    EXPECT_FALSE(making.Finishes(std::chrono::milliseconds(20)));
    guard.reset();
    EXPECT_TRUE(making.Finishes());

    guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    EXPECT_TRUE(CanBeDoneElsewhere([] { ServiceInterfaceProxy<Adder>::GetNullInterface(); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
