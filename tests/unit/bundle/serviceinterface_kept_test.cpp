// What a proxy found, or was given, and how long it stays.
#include <gmock/gmock.h>

#include "serviceinterfacetest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Adder;
using test::AdderProxy;
using test::Interfaces;
using test::NamedInterface;
using test::ProxyTest;
using test::TestService;
using testing::ElementsAre;
using testing::IsNull;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
