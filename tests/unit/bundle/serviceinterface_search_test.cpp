// Where a proxy searches, and in which order.
#include <gmock/gmock.h>

#include "serviceinterfacetest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Adder;
using test::AdderProxy;
using test::BetterAdder;
using test::CanBeDoneElsewhere;
using test::Interfaces;
using test::ProxyTest;
using test::TestService;
using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
