// The bundle manager.
#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/detail/mutex.h>

#include "src/lifetime/tablelock.h"

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

    void ReadConfiguration() ZO_REQUIRES(TableLock::Mutex());
    BundlesByOrder SelectLoaded(bool core);
    int InitBundles(const BundlesByOrder& bundles, unsigned long finisBefore);
    bool BeginInit(unsigned long& finisBefore);
    int InitInTurn();
    void AwaitInit();
    bool IsFinalisedSince(unsigned long finisBefore);
    BundleObject* FindBundle(const std::string& name) const ZO_REQUIRES(TableLock::Mutex());
    bool Knows(const std::string& name) const ZO_REQUIRES(TableLock::Mutex());
    void ForgetBundles() ZO_REQUIRES(TableLock::Mutex());

    // Library file name -> handle.
    std::map<std::string, void*> m_mapLibraries ZO_GUARDED_BY(TableLock::Mutex());
    std::unique_ptr<LogProxyMgrImpl, void (*)(LogProxyMgrImpl*)> m_pLogProxyMgr;
    std::map<std::string, int> m_mapConfiguredBundles ZO_GUARDED_BY(TableLock::Mutex());
    // In file order, duplicates kept.
    std::vector<std::string> m_vecConfiguredBundles ZO_GUARDED_BY(TableLock::Mutex());
    std::map<std::string, TableEntry> m_mapBundleTable ZO_GUARDED_BY(TableLock::Mutex());
    std::atomic<int> m_nIntSetting;
    detail::RecursiveThreadMutex m_initLock;  // held by InitAllBundles; taken before the table
    detail::RecursiveThreadMutex m_phaseLock;
    int m_nPhase ZO_GUARDED_BY(m_phaseLock);
    unsigned long m_nFinis ZO_GUARDED_BY(m_phaseLock);  // calls of FiniAllBundles so far
    int m_nFinalising ZO_GUARDED_BY(m_phaseLock);       // those that are under way
};

}  // namespace NS_BUNDLEMGR1
