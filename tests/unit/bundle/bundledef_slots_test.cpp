// The order of the virtual operations, as a caller in another library sees it.
#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "slotstest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::NamedInterface;
using test::Services;
using test::Slot;

class RecordingBundle : public BundleObject {
public:
    ~RecordingBundle() override { s_called = "~"; }
    std::string GetName() override {
        Called("GetName");
        return "a name that is too long for the string object itself";
    }
    int GetBundleOrder() override { return Called("GetBundleOrder"); }
    ServiceInterface* GetInterface() override {
        Called("GetInterface");
        return &m_interface;
    }
    void SetInterface() override { Called("SetInterface"); }
    void RemoveInterface() override { Called("RemoveInterface"); }
    int Init() override { return Called("Init"); }
    void Fini() override { Called("Fini"); }
    void WaitThreadExit() override { Called("WaitThreadExit"); }
    void RegisterServiceObject(const char* serviceName, ServiceObjectBase*) override {
        Called("RegisterServiceObject " + std::string(serviceName));
    }
    void RemoveServiceObject(const char* serviceName) override {
        Called("RemoveServiceObject " + std::string(serviceName));
    }
    void GetAllServiceObjects(Services& out) override {
        Called("GetAllServiceObjects");
        out["svc"] = nullptr;
    }

    static std::string s_called;

private:
    static int Called(const std::string& operation) {
        s_called = operation;
        return 42;
    }
    NamedInterface m_interface;
};

std::string RecordingBundle::s_called;

using BundleSlotsTest = test::SlotsTest<BundleObject, RecordingBundle, testing::Test>;

TEST_F(BundleSlotsTest, DestructorsComeFirst) {
    ExpectDestructorsFirst();
}

TEST_F(BundleSlotsTest, WhatTheBundleIsFollows) {
    EXPECT_EQ("a name that is too long for the string object itself", Call<std::string>(2));
    EXPECT_EQ("GetName", Called());
    EXPECT_EQ(42, Call<int>(3));
    EXPECT_EQ("GetBundleOrder", Called());
    EXPECT_EQ("named", Call<ServiceInterface*>(4)->GetDescription());
    EXPECT_EQ("GetInterface", Called());
    Call<void>(5);
    EXPECT_EQ("SetInterface", Called());
    Call<void>(6);
    EXPECT_EQ("RemoveInterface", Called());
}

TEST_F(BundleSlotsTest, WhatItDoesComesLast) {
    EXPECT_EQ(42, Call<int>(7));
    EXPECT_EQ("Init", Called());
    Call<void>(8);
    EXPECT_EQ("Fini", Called());
    Call<void>(9);
    EXPECT_EQ("WaitThreadExit", Called());
    Slot<void (*)(BundleObject*, const char*, ServiceObjectBase*)>(m_object, 10)(m_object, "a", nullptr);
    EXPECT_EQ("RegisterServiceObject a", Called());
    Slot<void (*)(BundleObject*, const char*)>(m_object, 11)(m_object, "b");
    EXPECT_EQ("RemoveServiceObject b", Called());
    Services services;
    Slot<void (*)(BundleObject*, Services&)>(m_object, 12)(m_object, services);
    EXPECT_EQ("GetAllServiceObjects", Called());
    EXPECT_EQ(1U, services.size());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
