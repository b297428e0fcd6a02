// The order of the virtual operations, as a caller in another library sees it.
#include <gmock/gmock.h>

#include "recordingmgr.h"
#include "support/slot.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::RecordingMgr;
using test::Slot;
using testing::IsNull;

class BundleMgrSlotsTest : public testing::Test {
protected:
    std::string Called() { return std::exchange(RecordingMgr::s_called, std::string()); }

    const std::unique_ptr<BundleMgr> m_recording = std::make_unique<RecordingMgr>();
    BundleMgr* const m_mgr = m_recording.get();
    const std::string m_name = "a bundle of a name that is too long for the string object itself";
};

TEST_F(BundleMgrSlotsTest, DestructorsComeFirst) {
    alignas(RecordingMgr) unsigned char place[sizeof(RecordingMgr)];
    BundleMgr* const placed = new (place) RecordingMgr;
    Slot<void (*)(BundleMgr*)>(placed, 0)(placed);
    EXPECT_EQ("~", Called());

    BundleMgr* const allocated = new RecordingMgr;
    Slot<void (*)(BundleMgr*)>(allocated, 1)(allocated);  // frees it as well
    EXPECT_EQ("~", Called());
}

TEST_F(BundleMgrSlotsTest, LifeCycleOperationsFollow) {
    Slot<void (*)(BundleMgr*, BundleObject*)>(m_mgr, 2)(m_mgr, nullptr);
    EXPECT_EQ("RegisterBundle", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 3)(m_mgr));
    EXPECT_EQ("InitAllBundles", Called());
    Slot<void (*)(BundleMgr*)>(m_mgr, 4)(m_mgr);
    EXPECT_EQ("WaitAllBundlesThreadExit", Called());
    Slot<void (*)(BundleMgr*)>(m_mgr, 5)(m_mgr);
    EXPECT_EQ("FiniAllBundles", Called());
}

TEST_F(BundleMgrSlotsTest, BundleOperationsFollow) {
    const void* const found = m_mgr;
    EXPECT_EQ(found, Slot<void* (*)(BundleMgr*, const std::string&)>(m_mgr, 6)(m_mgr, m_name));
    EXPECT_EQ("GetBundle " + m_name, Called());
    EXPECT_EQ(found, Slot<void* (*)(BundleMgr*, const std::string&)>(m_mgr, 7)(m_mgr, m_name));
    EXPECT_EQ("LoadBundle " + m_name, Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 8)(m_mgr));
    EXPECT_EQ("LoadAllBundles", Called());
    std::list<BundleObject*> bundles;
    Slot<void (*)(BundleMgr*, std::list<BundleObject*>&)>(m_mgr, 9)(m_mgr, bundles);
    EXPECT_EQ("GetBundlesInReverseOrder", Called());
    EXPECT_EQ(1U, bundles.size());
    EXPECT_EQ("named",
              Slot<ServiceInterface* (*)(BundleMgr*, const std::string&)>(m_mgr, 10)(m_mgr, m_name)->GetDescription());
    EXPECT_EQ("GetBundleInterface " + m_name, Called());
}

TEST_F(BundleMgrSlotsTest, SettingsComeLast) {
    EXPECT_THAT(Slot<LogProxyMgr* (*)(BundleMgr*)>(m_mgr, 11)(m_mgr), IsNull());
    EXPECT_EQ("GetLogProxyMgr", Called());
    const int five = 5;
    Slot<void (*)(BundleMgr*, const int&)>(m_mgr, 12)(m_mgr, five);
    EXPECT_EQ("SetIntSetting 5", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 13)(m_mgr));
    EXPECT_EQ("GetIntSetting", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 14)(m_mgr));
    EXPECT_EQ("GetMgrPhase", Called());
    Slot<void (*)(BundleMgr*, const int&)>(m_mgr, 15)(m_mgr, five);
    EXPECT_EQ("SetMgrPhase 5", Called());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
