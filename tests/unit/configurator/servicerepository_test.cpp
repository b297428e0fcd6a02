#include "src/configurator/servicerepository.h"

#include <stdexcept>

#include "src/lifetime/heldbundle.h"
#include "src/lifetime/tablelock.h"
#include "support/elsewhere.h"
#include "unit/bundle/bundletest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Install;
using test::IsInRepository;
using test::TestService;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

class ServiceRepositoryTest : public test::BundleTest {
protected:
    static ACE_Service_Repository& Repository() { return *ACE_Service_Repository::instance(); }

    TestService& AddNowhere(const char* name, int initResult = 0) {
        auto* const service = new TestService(m_trace, "nowhere", name);
        service->initResult = initResult;
        Install(name, service, &test::Exterminate, Library());
        return *service;
    }

    void AddStatic(const char* name) { Install(name, new TestService(m_trace, "nowhere", name)); }

    static std::vector<std::string> Names() {
        std::vector<std::string> names;
        ACE_Service_Repository_Iterator entries(Repository());
        for (const ACE_Service_Type* entry = nullptr; entries.next(entry) != 0; entries.advance()) {
            names.push_back(entry->name());
        }
        return names;
    }

    /// Finalises a service where it stands, as code of others may do.
    static void FinalizeInPlace(const char* name) {
        const ACE_Service_Type* entry = nullptr;
        ASSERT_EQ(0, Repository().find(name, &entry));
        const_cast<ACE_Service_Type*>(entry)->fini();
    }

    Trace Finalize(const ServiceEntry& entry) {
        Trace thrown;
        ServiceRepository::Finalize(*entry, [&thrown](const std::string& what) { thrown.push_back(what); });
        return thrown;
    }

    /// Any that is there. It stays open: ACE closes it under two locks, which the end of the
    /// process takes in the other order.
    static const ACE_DLL& Library() {
        static const ACE_DLL* const library = new ACE_DLL("libc.so.6");
        return *library;
    }
};

// An ACE service that is none of this library's.
class ForeignService : public ACE_Service_Object {
public:
    int init(int, ACE_TCHAR*[]) override { return 9; }
};

// ---- InitResult -----------------------------------------------------------------------------------

TEST_F(ServiceRepositoryTest, KnowsWhatInitReturned) {
    AddNowhere("good");
    AddNowhere("bad", 3);
    AddNowhere("worse", -1);
    Install("foreign", new ForeignService);
    const ServiceRepository repository;
    EXPECT_EQ(0, repository.InitResult("good"));
    EXPECT_EQ(3, repository.InitResult("bad"));
    EXPECT_EQ(-1, repository.InitResult("worse"));
    EXPECT_EQ(9, repository.InitResult("foreign"));
    EXPECT_EQ(0, repository.InitResult("unknown"));
    EXPECT_EQ(0, repository.InitResult("BAD"));
}

TEST_F(ServiceRepositoryTest, AFinalisedServiceCountsNoMore) {
    AddNowhere("svc", 3);
    FinalizeInPlace("svc");
    EXPECT_EQ(0, ServiceRepository().InitResult("svc"));
    AddNowhere("svc", 4);
    EXPECT_EQ(4, ServiceRepository().InitResult("svc"));
}

TEST_F(ServiceRepositoryTest, WhatIsNoServiceObjectHasNoInitResult) {
    auto* const type = new ACE_Module_Type(nullptr, "module", 0);
    Repository().insert(new ACE_Service_Type("module", type, ACE_DLL(), true));
    EXPECT_EQ(0, ServiceRepository().InitResult("module"));
    ServiceEntry entry = ServiceRepository().Take("module");
    ASSERT_NE(nullptr, entry);
    EXPECT_THAT(ServiceRepository::ObjectOf(*entry), IsNull());
    entry->type(nullptr, false);
    delete type;
}

TEST_F(ServiceRepositoryTest, KnowsWhatItHoldsUnderAnotherName) {
    TestService& service = AddNowhere("svc");
    const auto stranger = Make("stranger");
    Install("foreign", new ForeignService);
    const auto holds = [](const ServiceObjectBase* object, const char* name) {
        return ServiceRepository().HoldsUnderAnotherName(object, name);
    };
    EXPECT_TRUE(holds(&service, "other"));
    EXPECT_FALSE(holds(&service, "svc"));
    EXPECT_FALSE(holds(stranger.get(), "other"));
    FinalizeInPlace("svc");
    EXPECT_FALSE(holds(&service, "other"));
}

TEST_F(ServiceRepositoryTest, AForeignServiceAtTheAddressOfOneThatIsGoneIsNotThatOne) {
    alignas(TestService) unsigned char memory[sizeof(TestService)];
    auto* const gone = new (memory) TestService(m_trace, "nowhere", "svc");
    gone->~TestService();
    Install("foreign", new (memory) ForeignService,
            [](void* service) { static_cast<ACE_Service_Object*>(service)->~ACE_Service_Object(); });
    EXPECT_FALSE(ServiceRepository().HoldsUnderAnotherName(gone, "svc"));
    EXPECT_FALSE(ServiceRepository::MayKeep(gone));
    EXPECT_NE(nullptr, ServiceRepository().Take("foreign"));
}

// ---- Take and TakeActive -----------------------------------------------------------------------------

TEST_F(ServiceRepositoryTest, ATakenServiceIsNotFoundAnyMoreAndNotYetFinalised) {
    TestService& service = AddNowhere("svc");
    {
        const ServiceEntry entry = ServiceRepository().Take("svc");
        ASSERT_NE(nullptr, entry);
        EXPECT_EQ(&service, ServiceRepository::ObjectOf(*entry));
        EXPECT_FALSE(IsInRepository("svc"));
        EXPECT_EQ(nullptr, ServiceRepository().Take("svc"));
        EXPECT_THAT(m_trace, IsEmpty());
    }
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
}

TEST_F(ServiceRepositoryTest, ThereMayBeNothingToTake) {
    EXPECT_EQ(nullptr, ServiceRepository().Take("svc"));
    EXPECT_THAT(ServiceRepository().TakeActive("svc"), IsEmpty());
}

TEST_F(ServiceRepositoryTest, OnlyTakeTakesASuspendedService) {
    AddNowhere("svc");
    Repository().suspend("svc");
    EXPECT_THAT(ServiceRepository().TakeActive("svc"), IsEmpty());
    EXPECT_NE(nullptr, ServiceRepository().Take("svc"));
}

TEST_F(ServiceRepositoryTest, AServiceBehindAFinalisedNamesakeIsTaken) {
    AddNowhere("svc");
    FinalizeInPlace("svc");
    AddNowhere("svc");
    m_trace.clear();
    const std::vector<ServiceEntry> entries = ServiceRepository().TakeActive("svc");
    ASSERT_EQ(1U, entries.size());
    EXPECT_THAT(Finalize(entries.front()), IsEmpty());
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
    EXPECT_EQ(nullptr, ServiceRepository().Take("svc"));

    AddNowhere("svc");
    EXPECT_THAT(Finalize(ServiceRepository().Take("svc")), IsEmpty());
    EXPECT_EQ(nullptr, ServiceRepository().Take("svc"));
}

TEST_F(ServiceRepositoryTest, AForeignServiceIsTakenButIsNoObjectOfThisLibrary) {
    Install("foreign", new ForeignService);
    const ServiceEntry entry = ServiceRepository().Take("foreign");
    ASSERT_NE(nullptr, entry);
    EXPECT_THAT(ServiceRepository::ObjectOf(*entry), IsNull());
    EXPECT_THAT(Finalize(entry), IsEmpty());
}

// ---- What ACE keeps ----------------------------------------------------------------------------------

TEST_F(ServiceRepositoryTest, AServiceThatComesAndGoesTakesThePlaceThatItHadBefore) {
    const std::size_t before = ServiceRepository().CountPlaces();
    AddNowhere("first");
    for (int round = 0; round < 1000; ++round) {
        ServiceRepository repository;
        const std::size_t places = repository.CountPlaces();
        AddNowhere("svc");
        repository.CloseGaps(places);
        EXPECT_NE(nullptr, repository.Take("svc"));
    }
    AddNowhere("last");
    EXPECT_LE(ServiceRepository().CountPlaces() - before, 3U);
    EXPECT_THAT(Names(), ElementsAre("first", "last"));
}

TEST_F(ServiceRepositoryTest, ServicesStayInOrderAndInReachWhenGapsAreClosed) {
    for (const char* const name : {"a", "b", "c", "d", "e", "f"}) AddNowhere(name);
    FinalizeInPlace("e");
    for (const char* const name : {"a", "c", "d", "f"}) EXPECT_NE(nullptr, ServiceRepository().Take(name));
    ServiceRepository().CloseGaps(0);
    EXPECT_EQ(2U, ServiceRepository().CountPlaces());
    m_trace.clear();
    AddNowhere("g");
    EXPECT_THAT(Names(), ElementsAre("b", "e", "g"));
    EXPECT_EQ(0, Repository().remove("b"));
    EXPECT_EQ(0, Repository().fini());
    EXPECT_THAT(m_trace, ElementsAre("fini b", "dtor b", "fini g", "dtor g"));
}

// ACE tells by its place whether a static service came with a library.
TEST_F(ServiceRepositoryTest, AStaticServiceKeepsItsPlaceAndOthersTheirSideOfIt) {
    for (const char* const name : {"a", "b", "c"}) AddNowhere(name);
    AddStatic("static");
    for (const char* const name : {"d", "e"}) AddNowhere(name);
    for (const char* const name : {"a", "d"}) EXPECT_NE(nullptr, ServiceRepository().Take(name));
    ServiceRepository().CloseGaps(0);
    EXPECT_THAT(Names(), ElementsAre("b", "c", "static", "e"));
    EXPECT_EQ(5U, ServiceRepository().CountPlaces());  // the gap before it stays
    AddNowhere("f");
    EXPECT_EQ(6U, ServiceRepository().CountPlaces());
    EXPECT_THAT(Names(), ElementsAre("b", "c", "static", "e", "f"));
}

TEST_F(ServiceRepositoryTest, PlacesThatSomebodyMayHaveCountedStay) {
    for (const char* const name : {"a", "b", "c"}) AddNowhere(name);
    for (const char* const name : {"a", "c"}) EXPECT_NE(nullptr, ServiceRepository().Take(name));
    ServiceRepository().CloseGaps(3);
    EXPECT_EQ(3U, Repository().current_size());
    ServiceRepository().CloseGaps(4);
    EXPECT_EQ(3U, Repository().current_size());
    EXPECT_THAT(Names(), ElementsAre("b"));
    EXPECT_NE(nullptr, ServiceRepository().Take("b"));
    ServiceRepository().CloseGaps(0);
    EXPECT_EQ(0U, Repository().current_size());
}

TEST_F(ServiceRepositoryTest, ASuspendedServiceHidesNoOther) {
    AddNowhere("svc");
    FinalizeInPlace("svc");
    AddNowhere("svc");
    AddNowhere("svc");  // which ACE puts behind the finalised one as well
    EXPECT_EQ(2U, ServiceRepository().TakeActive("svc").size());
}

// ---- Finalize -------------------------------------------------------------------------------------------

TEST_F(ServiceRepositoryTest, FinalizeEndsAndDestroys) {
    AddNowhere("svc");
    const ServiceEntry entry = ServiceRepository().Take("svc");
    EXPECT_THAT(Finalize(entry), IsEmpty());
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
    EXPECT_THAT(ServiceRepository::ObjectOf(*entry), IsNull());
}

TEST_F(ServiceRepositoryTest, AServiceThatThrowsIsDestroyedAndReported) {
    const TestService::Action onFini = [] { throw std::runtime_error("not now"); };
    AddNowhere("svc").onFini = &onFini;
    const ServiceEntry entry = ServiceRepository().Take("svc");
    EXPECT_THAT(Finalize(entry), ElementsAre("not now"));
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
    EXPECT_THAT(ServiceRepository::ObjectOf(*entry), IsNull());
}

TEST_F(ServiceRepositoryTest, AServiceThatThrowsInItsPlaceLeavesNothingToCall) {
    const TestService::Action onFini = [] { throw 5; };
    AddNowhere("svc");
    FinalizeInPlace("svc");
    AddNowhere("svc").onFini = &onFini;
    m_trace.clear();
    EXPECT_THAT(Finalize(ServiceRepository().Take("svc")), ElementsAre("an exception of unknown type"));
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
    EXPECT_EQ(0, Repository().fini());
    EXPECT_EQ(0, Repository().close());
}

// ---- Locks -----------------------------------------------------------------------------------------------

TEST_F(ServiceRepositoryTest, HoldsTheRepositoryForItsLife) {
    auto repository = std::make_unique<ServiceRepository>();
    const Elsewhere other([] { IsInRepository("svc"); });
    EXPECT_FALSE(other.Finishes(std::chrono::milliseconds(20)));
    repository.reset();
    EXPECT_TRUE(other.Finishes());
}

// A lock as a thread may hold it before it turns to the repository.
class HeldLockTest : public ServiceRepositoryTest {
protected:
    bool IsFree() {
        return CanBeDoneElsewhere([this] { const HeldBundle guard(m_lock); });
    }

    ACE_Recursive_Thread_Mutex m_lock;
};

TEST_F(HeldLockTest, ABundleStaysHeldWhileTheRepositoryIsFree) {
    auto bundle = std::make_unique<HeldBundle>(m_lock);
    const Elsewhere other([this] { const HeldBundle otherGuard(m_lock); });
    {
        const ServiceRepository repository;
        const ServiceRepository again;
        EXPECT_FALSE(other.Finishes(std::chrono::milliseconds(20)));
    }
    EXPECT_FALSE(other.Finishes(std::chrono::milliseconds(20)));
    bundle.reset();
    EXPECT_TRUE(other.Finishes());
}

TEST_F(HeldLockTest, BundleAndTableAreGivenBackWhileTheRepositoryIsBusy) {
    auto busy = std::make_unique<Guard>(Repository().lock());
    std::atomic<bool> holdsBoth{false};
    const Elsewhere waiting([&] {
        const TableLock::Guard table;
        const TableLock::Guard tableAgain;
        const HeldBundle bundle(m_lock);
        const HeldBundle bundleAgain(m_lock);
        holdsBoth = true;
        const ServiceRepository repository;
    });
    EXPECT_TRUE(test::WaitFor([&] { return holdsBoth.load(); }));
    {
        const TableLock::Guard table;  // this thread holds the repository
        const HeldBundle bundle(m_lock);
    }
    EXPECT_FALSE(waiting.Finishes(std::chrono::milliseconds(20)));
    busy.reset();
    EXPECT_TRUE(waiting.Finishes());
    EXPECT_TRUE(IsFree());
    EXPECT_TRUE(CanBeDoneElsewhere([] { const TableLock::Guard table; }));
    EXPECT_TRUE(CanBeDoneElsewhere([] { IsInRepository("svc"); }));
}

TEST_F(HeldLockTest, TheTableIsGivenBackByWhoeverHoldsNoBundle) {
    auto busy = std::make_unique<Guard>(Repository().lock());
    std::atomic<bool> holdsTable{false};
    const Elsewhere waiting([&] {
        const TableLock::Guard table;
        holdsTable = true;
        const ServiceRepository repository;
    });
    EXPECT_TRUE(test::WaitFor([&] { return holdsTable.load(); }));
    { const TableLock::Guard table; }
    busy.reset();
    EXPECT_TRUE(waiting.Finishes());
    EXPECT_TRUE(CanBeDoneElsewhere([] { const TableLock::Guard table; }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
