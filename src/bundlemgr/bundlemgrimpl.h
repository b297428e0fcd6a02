// The bundle manager.
#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <ace/Recursive_Thread_Mutex.h>

#include <bundlemgr/bundlemgr.h>

namespace NS_BUNDLEMGR1 {

class LogProxyMgrImpl;

/// The one implementation of `BundleMgr`.
///
/// Thread safety: one recursive lock (see `TableLock`) guards the tables; it is held while
/// libraries are opened and while bundles are initialised, finalised and waited for,
/// because all of these call back on the same thread. The phase has a lock of its own.
class BundleMgrImpl : public BundleMgr {
public:
    BundleMgrImpl();

    /// Forgets the bundles, closes their libraries by ascending file name and deletes
    /// the log proxy manager.
    ~BundleMgrImpl() noexcept(false) override;

    BundleMgrImpl(const BundleMgrImpl&) = delete;
    BundleMgrImpl& operator=(const BundleMgrImpl&) = delete;

    void RegisterBundle(BundleObject* pBundle) override;
    int InitAllBundles() override;
    void WaitAllBundlesThreadExit() override;
    void FiniAllBundles() override;
    BundleObject* GetBundle(const std::string& name) override;
    BundleObject* LoadBundle(const std::string& name) override;
    int LoadAllBundles() override;
    void GetBundlesInReverseOrder(std::list<BundleObject*>& out) override;
    ServiceInterface* GetBundleInterface(const std::string& name) override;
    LogProxyMgr* GetLogProxyMgr() override;
    void SetIntSetting(const int& value) override;
    int GetIntSetting() override;
    int GetMgrPhase() override;
    void SetMgrPhase(const int& phase) override;

    /// Lists the bundles to load.
    /// @param out         replaced by `coreBundles`, then those of `bundlemgr.cfg`
    /// @param coreBundles null-terminated array of names; null is reported on standard
    ///                    output and yields an empty list
    void GetLoadBundles(std::list<std::string>& out, const char** coreBundles);

private:
    using BundlesByOrder = std::multimap<long, BundleObject*>;

    /// A registered bundle; none for a configured bundle that never registered.
    class TableEntry {
    public:
        TableEntry() = default;
        explicit TableEntry(BundleObject* bundle);

        /// @return the bundle, or null when there is none or it is gone
        BundleObject* Get() const;

        /// @return whether there never was one
        bool IsNull() const { return m_pBundle == nullptr; }

    private:
        BundleObject* m_pBundle = nullptr;
        unsigned long m_nId = 0;  // see LiveBundles
    };

    /// A call of `FiniAllBundles`.
    class FiniScope {
    public:
        explicit FiniScope(BundleMgrImpl& manager);
        ~FiniScope();
        FiniScope(const FiniScope&) = delete;
        FiniScope& operator=(const FiniScope&) = delete;

    private:
        BundleMgrImpl& m_manager;
    };

    void ReadConfiguration();
    BundlesByOrder SelectLoaded(bool core);
    int InitBundles(const BundlesByOrder& bundles, unsigned long finisBefore);
    bool BeginInit(unsigned long& finisBefore);
    void AwaitInit();
    bool IsFinalisedSince(unsigned long finisBefore);
    BundleObject* FindBundle(const std::string& name) const;
    bool Knows(const std::string& name) const;
    void ForgetBundles();

    // The tables are guarded by the TableLock.
    std::map<std::string, void*> m_mapLibraries;  // library file name -> handle
    std::unique_ptr<LogProxyMgrImpl, void (*)(LogProxyMgrImpl*)> m_pLogProxyMgr;
    std::map<std::string, int> m_mapConfiguredBundles;
    std::vector<std::string> m_vecConfiguredBundles;  // in file order, duplicates kept
    std::map<std::string, TableEntry> m_mapBundleTable;
    std::atomic<int> m_nIntSetting;
    ACE_Recursive_Thread_Mutex m_initLock;   // held by InitAllBundles; taken before the table
    ACE_Recursive_Thread_Mutex m_phaseLock;  // guards the three below
    int m_nPhase;
    unsigned long m_nFinis;  // calls of FiniAllBundles so far
    int m_nFinalising;       // those that are under way
};

}  // namespace NS_BUNDLEMGR1
