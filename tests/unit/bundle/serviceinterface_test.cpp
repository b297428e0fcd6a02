#include <random>
#include <stdexcept>
#include <type_traits>

#include "bundletest.h"
#include "src/bundlemgr/bundlemgrimpl.h"
#include "support/elsewhere.h"
#include "support/slot.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::NamedInterface;
using test::Slot;
using test::TestBundle;
using test::TestService;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

using Interfaces = std::vector<ServiceInterface*>;

/// The interface that the tests ask for.
class Adder : public ServiceInterface {
public:
    explicit Adder(int start = 0) : m_start(start) {}
    std::string GetDescription() override { return "adder"; }
    void* GetImplementation() override { return nullptr; }
    virtual int Add(int number) { return m_start + number; }

private:
    const int m_start;
};

class BetterAdder : public Adder {
public:
    int Add(int number) override { return number + 1000; }
};

// ---- ServiceInterface, FinalClass, NULLServiceInterface -------------------------------------------

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

// ---- The registry ------------------------------------------------------------------------------------

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

TEST(InterfaceRegistryTest, NeedsNotTheProxiesMutex) {
    const ACE_Guard<ACE_Thread_Mutex> guard(_g_actualmutex);
    EXPECT_TRUE(CanBeDoneElsewhere([] {
        CheckIFBuf("X");
        SetIFBuf("X", nullptr);
    }));
}

// ---- The proxy ----------------------------------------------------------------------------------------

using AdderProxy = ServiceInterfaceProxy<Adder>;

/// Bundles "first", "second" and "third", configured in this order.
class ProxyTest : public test::BundleTest {
protected:
    ProxyTest() : m_server("KORU_SERVER_PATH", m_dir.Path()) {
        m_dir.Write("nbi/present", "");
        BundleMgr::Instance()->RegisterBundle(&m_first);
        BundleMgr::Instance()->RegisterBundle(&m_second);
        BundleMgr::Instance()->RegisterBundle(&m_third);
        Configure("Bundle=first\nBundle=second\nBundle=third\n");
    }

    void Configure(const std::string& content) {
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", content);
        const char* none[] = {nullptr};
        std::list<std::string> names;
        static_cast<BundleMgrImpl*>(BundleMgr::Instance())->GetLoadBundles(names, none);
    }

    /// A service of a bundle that publishes an interface, owned by the test.
    TestService& Publish(const char* bundle, const char* name, ServiceInterface* interface) {
        m_services.push_back(std::make_unique<TestService>(m_trace, bundle, name));
        m_services.back()->m_pInterface = interface;
        return *m_services.back();
    }

    test::ScopedEnv m_server;
    TestBundle m_first{"first"};
    TestBundle m_second{"second"};
    TestBundle m_third{"third"};
    std::vector<std::unique_ptr<TestService>> m_services;
    Adder m_adder{10};
    Adder m_other{20};
    NamedInterface m_foreign;
};

TEST_F(ProxyTest, FindsAnInterfaceByItsServicesNameAndKeepsIt) {
    Publish("second", "Sums", &m_adder);
    AdderProxy proxy("Sums");
    EXPECT_EQ(&m_adder, proxy.GetInterface());
    EXPECT_EQ(15, proxy->Add(5));
    EXPECT_THAT(*CheckIFBuf("Sums"), ElementsAre(&m_adder));
}

TEST_F(ProxyTest, NobodyOfThatNameIsAnException) {
    Publish("first", "Sums", &m_adder);
    for (const char* const name : {"sums", "Sums2", "", "Sum"}) {
        AdderProxy proxy(name);
        Interfaces all{&m_foreign};
        EXPECT_THROW(proxy.GetInterface(&all), InterfaceNotExistException) << name;
        EXPECT_THROW(proxy->Add(1), InterfaceNotExistException) << name;
        EXPECT_THAT(all, ElementsAre(&m_foreign));
        EXPECT_THAT(*CheckIFBuf(name), IsEmpty());
    }
}

TEST_F(ProxyTest, TheExceptionIsEmpty) {
    try {
        AdderProxy("Sums").GetInterface();
        FAIL();
    } catch (ProcessException& exception) {
        EXPECT_STREQ("std::exception", exception.what());
        EXPECT_EQ("", exception.m_stream1.str() + exception.m_stream2.str() + exception.m_stream3.str() +
                          exception.m_stream4.str());
    }
}

TEST_F(ProxyTest, WhatIsPublishedAfterAFailureIsFound) {
    TestService& service = Publish("first", "Sums", nullptr);
    AdderProxy proxy("Sums");
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    service.m_pInterface = &m_adder;
    EXPECT_EQ(&m_adder, proxy.GetInterface());
    EXPECT_THAT(*CheckIFBuf("Sums"), ElementsAre(&m_adder));
}

TEST_F(ProxyTest, AnInterfaceOfAnotherTypeIsNotTaken) {
    Publish("first", "Sums", &m_foreign);
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), InterfaceNotExistException);
    EXPECT_THAT(*CheckIFBuf("Sums"), IsEmpty());

    Publish("second", "Sums", &m_adder);
    Interfaces all;
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(&m_adder));
}

TEST_F(ProxyTest, ADerivedInterfaceServesForItsBase) {
    BetterAdder better;
    Publish("first", "Sums", &better);
    EXPECT_EQ(1001, AdderProxy("Sums")->Add(1));
}

TEST_F(ProxyTest, TheLastConfiguredBundleComesFirst) {
    Adder third(30);
    Publish("first", "Sums", &m_adder);
    Publish("third", "Sums", &third);
    Publish("second", "Sums", &m_other);
    Interfaces all;
    EXPECT_EQ(&third, AdderProxy("Sums").GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(&third, &m_other, &m_adder));
}

TEST_F(ProxyTest, OnlyConfiguredBundlesAreSearched) {
    Publish("bundle", "Sums", &m_adder);
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), InterfaceNotExistException);
}

TEST_F(ProxyTest, ABundleThatIsNamedIsSearchedAlone) {
    Publish("first", "Sums", &m_adder);
    Publish("third", "Sums", &m_other);
    Publish("bundle", "Products", &m_other);
    EXPECT_THROW(AdderProxy("Sums", "second").GetInterface(), InterfaceNotExistException);
    EXPECT_EQ(&m_adder, AdderProxy("Sums", "first").GetInterface());
    EXPECT_EQ(&m_other, AdderProxy("Products", "bundle").GetInterface());  // although not configured
    EXPECT_THROW(AdderProxy("Missing", "unknown").GetInterface(), InterfaceNotExistException);
}

TEST_F(ProxyTest, ABundleThatIsMissingIsPassedOver) {
    Configure("Bundle=first\nBundle=missing\nBundle=second\nBundle=missing\n");
    Publish("first", "Sums", &m_adder);
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface());
    EXPECT_THROW(AdderProxy("Others", "missing").GetInterface(), InterfaceNotExistException);
}

TEST_F(ProxyTest, ABundleThatIsConfiguredTwiceIsSearchedTwice) {
    Configure("Bundle=first\nBundle=first\n");
    Publish("first", "Sums", &m_adder);
    Interfaces all;
    AdderProxy("Sums").GetInterface(&all);
    EXPECT_THAT(all, ElementsAre(&m_adder, &m_adder));
}

TEST_F(ProxyTest, WhatWasFoundStaysUntilItIsReplaced) {
    TestService& service = Publish("first", "Sums", &m_adder);
    AdderProxy proxy("Sums");
    proxy.GetInterface();
    service.m_pInterface = &m_other;
    EXPECT_EQ(&m_adder, proxy.GetInterface());
    m_first.RemoveServiceObject("Sums");
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface());
    SetIFBuf("Sums", &m_other);
    EXPECT_EQ(&m_other, proxy.GetInterface());
}

TEST_F(ProxyTest, AnInterfaceThatWasSetIsFoundWithoutASearch) {
    SetIFBuf("Sums", &m_other);
    Publish("first", "Sums", &m_adder);
    Interfaces all;
    EXPECT_EQ(&m_other, AdderProxy("Sums", "first").GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(&m_other));
}

TEST_F(ProxyTest, AllIsReplacedByTheWholeList) {
    SetIFBuf("Sums", &m_adder);
    CheckIFBuf("Sums")->push_back(&m_foreign);
    CheckIFBuf("Sums")->push_back(nullptr);
    Interfaces all{&m_other, &m_other};
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(&m_adder, &m_foreign, IsNull()));
}

TEST_F(ProxyTest, AListThatSomebodyFilledByHandIsUsed) {
    AdderProxy proxy("Sums");
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    CheckIFBuf("Sums")->push_back(&m_adder);
    CheckIFBuf("Sums")->push_back(&m_other);
    Interfaces all;
    EXPECT_EQ(&m_adder, proxy.GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(&m_adder, &m_other));
}

TEST_F(ProxyTest, AFirstEntryOfAnotherTypeIsAnExceptionEvenIfTheNextWouldDo) {
    SetIFBuf("Sums", &m_foreign);
    CheckIFBuf("Sums")->push_back(&m_adder);
    Interfaces all{&m_other};
    EXPECT_THROW(AdderProxy("Sums").GetInterface(&all), InterfaceNotExistException);
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), InterfaceNotExistException);
    EXPECT_THAT(all, ElementsAre(&m_other));
    EXPECT_EQ(&m_foreign, ServiceInterfaceProxy<NamedInterface>("Sums").GetInterface());
    EXPECT_EQ(&m_foreign, ServiceInterfaceProxy<ServiceInterface>("Sums").GetInterface());
}

TEST_F(ProxyTest, ANullFirstEntryIsHandedOut) {
    Publish("first", "Sums", &m_adder);
    SetIFBuf("Sums", nullptr);
    Interfaces all{&m_other};
    AdderProxy proxy("Sums");
    EXPECT_EQ(nullptr, proxy.GetInterface());
    EXPECT_EQ(nullptr, proxy.GetInterface(&all));
    EXPECT_THAT(all, ElementsAre(IsNull()));
    EXPECT_EQ(nullptr, ServiceInterfaceProxy<ServiceInterface>("Sums").GetInterface());
    SetIFBuf("Sums", &m_adder);
    EXPECT_EQ(&m_adder, proxy.GetInterface());
}

TEST_F(ProxyTest, WhatWasFoundIsNotTouchedAgain) {
    auto published = std::make_unique<Adder>();
    Adder* const address = published.get();
    Publish("first", "Sums", address);
    AdderProxy proxy("Sums");
    EXPECT_EQ(address, proxy.GetInterface());
    published.reset();
    Interfaces all;
    EXPECT_EQ(address, proxy.GetInterface());
    EXPECT_EQ(address, proxy.GetInterface(&all));
    EXPECT_EQ(address, AdderProxy("Sums").GetInterface());
    EXPECT_EQ(address, AdderProxy("Sums", "second").GetInterface());
}

TEST_F(ProxyTest, WhatWasSetIsNotTouchedAgain) {
    auto published = std::make_unique<Adder>();
    Adder* const address = published.get();
    SetIFBuf("Sums", address);
    EXPECT_EQ(address, AdderProxy("Sums").GetInterface());
    published.reset();
    EXPECT_EQ(address, AdderProxy("Sums").GetInterface());
}

TEST_F(ProxyTest, EachTypeIsVerifiedByItself) {
    SetIFBuf("Sums", &m_adder);
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface());
    EXPECT_THROW(ServiceInterfaceProxy<NamedInterface>("Sums").GetInterface(), InterfaceNotExistException);
    EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface());
    SetIFBuf("Sums", &m_foreign);
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), InterfaceNotExistException);
}

TEST_F(ProxyTest, AnotherTypeAtTheSameAddressIsNoticed) {
    alignas(Adder) alignas(NamedInterface) unsigned char memory[sizeof(NamedInterface) + sizeof(Adder)];
    AdderProxy proxy("Sums");
    auto* const adder = new (memory) Adder(1);
    SetIFBuf("Sums", adder);
    EXPECT_EQ(adder, proxy.GetInterface());
    CheckIFBuf("Sums")->clear();
    adder->~Adder();
    auto* const named = new (memory) NamedInterface;
    Publish("first", "Sums", named);
    EXPECT_EQ(named, ServiceInterfaceProxy<NamedInterface>("Sums").GetInterface());
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    named->~NamedInterface();
}

// The first bundle's service goes while a later one is searched.
TEST_F(ProxyTest, WhatASearchFoundIsNotTouchedAfterItsServiceIsGone) {
    auto published = std::make_unique<Adder>();
    Adder* const address = published.get();
    Publish("third", "Sums", address);
    const TestService::Action goes = [&published] { published.reset(); };
    Publish("first", "Sums", nullptr).onGetInterface = &goes;
    EXPECT_EQ(address, AdderProxy("Sums").GetInterface());
    EXPECT_THAT(published, IsNull());
}

TEST_F(ProxyTest, AListThatItsHolderChangesIsNoticed) {
    AdderProxy proxy("Sums");
    Interfaces& list = *CheckIFBuf("Sums");
    SetIFBuf("Sums", &m_adder);
    EXPECT_EQ(&m_adder, proxy.GetInterface());
    list.clear();
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    list.push_back(&m_other);
    EXPECT_EQ(&m_other, proxy.GetInterface());
    list.insert(list.begin(), &m_adder);
    EXPECT_EQ(&m_adder, proxy.GetInterface());
    list = Interfaces(100, &m_other);
    EXPECT_EQ(&m_other, proxy.GetInterface());
    list.clear();
    list.shrink_to_fit();
    Publish("first", "Sums", &m_adder);
    EXPECT_EQ(&m_adder, proxy.GetInterface());
}

TEST_F(ProxyTest, AServiceMaySearchWhileItIsAskedForItsInterface) {
    Publish("second", "Other", &m_other);
    const TestService::Action onGetInterface = [] { AdderProxy("Other").GetInterface(); };
    Publish("first", "Sums", &m_adder).onGetInterface = &onGetInterface;
    EXPECT_TRUE(CanBeDoneElsewhere([] { AdderProxy("Sums").GetInterface(); }));
}

TEST_F(ProxyTest, AFinalisedServiceIsNotAsked) {
    bool asked = false;
    const TestService::Action onGetInterface = [&asked] { asked = true; };
    auto* const service = new TestService(m_trace, "first", "Sums");
    service->onGetInterface = &onGetInterface;
    service->m_pInterface = &m_adder;
    test::Install("Sums", service, nullptr);
    m_first.UnLoadAllServiceObjects();
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), InterfaceNotExistException);
    EXPECT_FALSE(asked);
}

TEST_F(ProxyTest, OnceFoundNothingIsLocked) {
    Publish("first", "Sums", &m_adder);
    AdderProxy proxy("Sums");
    proxy.GetInterface();
    const ACE_Guard<ACE_Thread_Mutex> guard(_g_actualmutex);
    const ACE_Guard<ACE_Recursive_Thread_Mutex> bundle(m_first.m_lock);
    EXPECT_TRUE(CanBeDoneElsewhere([&proxy] {
        Interfaces all;
        proxy.GetInterface();
        proxy.GetInterface(&all);
        AdderProxy("Sums", "first").GetInterface();
    }));
}

TEST_F(ProxyTest, ASearchTakesTheProxiesMutexAndThenTheBundles) {
    Publish("first", "Sums", &m_adder);
    auto guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    const Elsewhere searching([] { AdderProxy("Sums").GetInterface(); });
    EXPECT_FALSE(searching.Finishes(std::chrono::milliseconds(20)));
    EXPECT_TRUE(CanBeDoneElsewhere([this] { test::FindInterface(m_first, "Sums"); }));
    guard.reset();
    EXPECT_TRUE(searching.Finishes());
}

TEST_F(ProxyTest, WhoeverComesSecondSearchesNoMore) {
    int calls = 0;
    const TestService::Action onGetInterface = [&calls] { ++calls; };
    Publish("first", "Sums", &m_adder).onGetInterface = &onGetInterface;
    std::atomic<int> ready{0};
    auto guard = std::make_unique<ACE_Guard<ACE_Thread_Mutex>>(_g_actualmutex);
    {
        std::list<Elsewhere> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([this, &ready] {
                AdderProxy proxy("Sums");
                ++ready;
                EXPECT_EQ(&m_adder, proxy.GetInterface());
            });
        }
        EXPECT_TRUE(test::WaitFor([&ready] { return ready == 4; }));
        guard.reset();
    }
    EXPECT_EQ(1, calls);
    EXPECT_THAT(*CheckIFBuf("Sums"), ElementsAre(&m_adder));
}

TEST_F(ProxyTest, AnExceptionFromAServiceLeavesNothingLocked) {
    const TestService::Action onGetInterface = [] { throw std::runtime_error("no interface today"); };
    Publish("first", "Sums", &m_adder).onGetInterface = &onGetInterface;
    EXPECT_THROW(AdderProxy("Sums").GetInterface(), std::runtime_error);
    m_services.back()->onGetInterface = nullptr;
    EXPECT_TRUE(CanBeDoneElsewhere([this] { EXPECT_EQ(&m_adder, AdderProxy("Sums").GetInterface()); }));
}

TEST_F(ProxyTest, AProxyMayOutliveTheManagerAndItsBundles) {
    AdderProxy proxy("Sums");
    BundleMgr::Destroy();
    EXPECT_THROW(proxy.GetInterface(), InterfaceNotExistException);
    SetIFBuf("Sums", &m_adder);
    EXPECT_EQ(&m_adder, proxy.GetInterface());
}

TEST_F(ProxyTest, ACopyIsAProxyOfItsOwn) {
    Publish("first", "Sums", &m_adder);
    const auto original = std::make_unique<AdderProxy>("Sums", "first");
    AdderProxy copy(*original);
    EXPECT_EQ(&m_adder, copy.GetInterface());
}

// Look-ups, first searches and replacements at once, for a while.
TEST_F(ProxyTest, ThreadsLookUpWhileOthersSetAndSearch) {
    constexpr int kNames = 40;
    constexpr int kReaders = 8;
    std::vector<std::string> names;
    for (int i = 0; i < kNames; ++i) names.push_back("s" + std::to_string(i));
    for (const std::string& name : names) Publish("second", name.c_str(), &m_adder);

    std::atomic<int> running{kReaders};
    std::list<Elsewhere> threads;
    for (int reader = 0; reader < kReaders; ++reader) {
        threads.emplace_back([&, reader] {
            std::mt19937 random(static_cast<unsigned>(reader));
            for (int round = 0; round < 2000; ++round) {
                AdderProxy proxy(names[random() % names.size()]);
                Interfaces all;
                const int sum = proxy.GetInterface(round % 3 == 0 ? &all : nullptr)->Add(1);
                EXPECT_TRUE(sum == 11 || sum == 21);
            }
            --running;
        });
    }
    threads.emplace_back([&] {
        std::mt19937 random(99);
        while (running > 0) {
            const std::string& name = names[random() % names.size()];
            SetIFBuf(name, random() % 2 == 0 ? &m_adder : &m_other);
            CheckIFBuf("more" + std::to_string(random() % 1000));
        }
    });
    threads.emplace_back([&] {
        while (running > 0) {
            EXPECT_THROW(AdderProxy("nobody").GetInterface(), InterfaceNotExistException);
        }
    });
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

TEST_F(ProxyTest, AServiceMayBeRemovedWhileOthersSearchForIt) {
    std::atomic<bool> over{false};
    std::list<Elsewhere> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&over] {
            while (!over) {
                try {
                    ServiceInterfaceProxy<NamedInterface>("long").GetInterface();
                } catch (const InterfaceNotExistException&) {
                }
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        {
            // A service is in its bundle's table before it is complete.
            const ACE_Guard<ACE_Recursive_Thread_Mutex> bundle(m_first.m_lock);
            auto* const service = new TestService(m_trace, "first", "long");
            service->m_pInterface = &m_adder;
            test::Install("long", service, round % 2 == 0 ? nullptr : &test::Exterminate);
        }
        m_first.RemoveServiceObject("long");
    }
    over = true;
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
