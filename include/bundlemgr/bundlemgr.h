/// @file bundlemgr.h
/// The bundle manager: loads bundles by name, initialises them in two phases, and
/// shuts them down in order. A host's life, with all the calls that belong to it:
///
///     BundleMgr* mgr = BundleMgr::Instance();
///     LightEventMgr::Instance()->Init();    // the event worker
///     CorbaConfigItems::Instance()->init(); // reads the settings, for bundles that use them
///     if (mgr->LoadAllBundles() == 0 && mgr->InitAllBundles() == 0) {
///         ... run ...
///     }
///     mgr->FiniAllBundles();                // finalises the services
///     mgr->WaitAllBundlesThreadExit();      // and waits for what is left of them
///     LightEventMgr::Instance()->Fini();    // no handler is called any more
///     LightEventMgr::Destroy();
///     BundleMgr::Destroy();                 // unmaps the bundles
///     CorbaConfigItems::Destroy();
///     LogProxyDebugInfoBufMgr::Destroy();   // writes what the log still holds
///
/// The stop is the same when the start has failed. In it, services are finalised first, and
/// those that are finalised are not asked for their threads afterwards. The event worker ends
/// before the bundles are unmapped, whose handlers it runs; the log ends last, since all
/// others write to it.
#pragma once

#include <atomic>
#include <list>
#include <string>

#include <bundlemgr/base.h>
#include <bundlemgr/export.h>
#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

class BundleObject;
class ServiceInterface;

/// The integer state of a bundle.
enum BundleState : int {
    BUNDLE_STATE_LOADED = 0,  ///< Registered; the only state in which it is initialised.
    BUNDLE_STATE_INITED = 1,  ///< Set by `BundleObject::Init`.
    BUNDLE_STATE_FINIED = 2,  ///< Set by `BundleObject::Fini`.
};

/// The phase of the manager.
enum MgrPhase : int {
    MGR_PHASE_INIT = 1,  ///< From the start.
    MGR_PHASE_FINI = 2,  ///< From `FiniAllBundles` on; bundles start no more services.
};

/// The process-wide container of bundles.
///
/// Thread safety: every operation but `Destroy` may be called from any thread.
/// Bundles are initialised, finalised and waited for under one recursive lock: the bundles
/// themselves may call back, other threads wait until it is over. Only where such a bundle
/// itself has to wait for another thread inside the library, the lock is let go of, so that
/// the two do not wait for each other. Services that are being made or ended look bundles up
/// without waiting.
///
/// The order of the virtual operations is part of the contract with bundles in the
/// field; new ones go to the end.
class ZO_EXPORT BundleMgr {
public:
    /// @return the one manager, created on the first call; null only when ACE's
    ///         static-object lock cannot be taken
    static BundleMgr* Instance();

    /// Closes every bundle library and deletes the manager. Does nothing when there
    /// is none. For the host, when its threads no longer use the manager, and no thread is in
    /// the code of a bundle or service, which is unmapped.
    static void Destroy();

    /// May throw, as the destructors of the bundles may; `Destroy` swallows it.
    virtual ~BundleMgr() noexcept(false);

    /// Adds a bundle to the table, under its name; called by the bundle's library while it loads.
    /// The bundle stays its library's. A null bundle, or a second one of a name,
    /// fails an ACE assertion and ends the process. A configured bundle that somebody has
    /// asked for in vain (`GetBundlesInReverseOrder`) has its place in the table already.
    /// @param pBundle the bundle, of a name that is not in the table
    virtual void RegisterBundle(BundleObject* pBundle) = 0;

    /// Initialises the bundles that are in `BUNDLE_STATE_LOADED`: "zo_base_bundle"
    /// and "zo_domain_bundle" first, then all others, each group by ascending order
    /// value, ties by name.
    /// @return 0; the result of the first bundle whose `Init` failed; -1 when
    ///         `FiniAllBundles` is called meanwhile, or when a service calls this in its `init`
    ///         while another thread initialises bundles. Later bundles are then not initialised,
    ///         earlier ones stay so
    virtual int InitAllBundles() = 0;

    /// Pauses for 7 seconds (5 when `g_isUnloadingCorba`), then waits for the threads
    /// of the configured bundles, the last configured first.
    virtual void WaitAllBundlesThreadExit() = 0;

    /// Finalises every bundle by descending order value, ties by name.
    virtual void FiniAllBundles() = 0;

    /// @param name the bundle's name, compared exactly
    /// @return the registered bundle of that name, or null
    virtual BundleObject* GetBundle(const std::string& name) = 0;

    /// Loads `lib<name>.so`, found by the dynamic loader's rules.
    /// @param name the bundle's name
    /// @return the bundle, also when it was there already; null (and a log record)
    ///         when the library cannot be loaded or registered no such bundle, or the name
    ///         has a place in the table without a bundle
    virtual BundleObject* LoadBundle(const std::string& name) = 0;

    /// Forgets the registered bundles and loads those that `bundlemgr.cfg` names.
    /// @return 0, or minus the number of bundles that failed
    virtual int LoadAllBundles() = 0;

    /// @param out the configured bundles are appended, last configured first; a
    ///            configured bundle that never registered appends a null pointer, and has
    ///            a place in the table from then on
    virtual void GetBundlesInReverseOrder(std::list<BundleObject*>& out) = 0;

    /// @param name the bundle's name, compared exactly
    /// @return the interface that the bundle of that name publishes, or null
    virtual ServiceInterface* GetBundleInterface(const std::string& name) = 0;

    /// @return the log proxy manager, owned by the bundle manager
    virtual LogProxyMgr* GetLogProxyMgr() = 0;

    /// Stores a number for the bundles to read; 1024 at first, of no meaning to the
    /// library.
    /// @param value any number
    virtual void SetIntSetting(const int& value) = 0;

    /// @return the number stored by `SetIntSetting`
    virtual int GetIntSetting() = 0;

    /// @return the phase, see `MgrPhase`
    virtual int GetMgrPhase() = 0;

    /// @param phase see `MgrPhase`
    virtual void SetMgrPhase(const int& phase) = 0;

protected:
    static std::atomic<BundleMgr*> m_pInstance;
};

}  // namespace NS_BUNDLEMGR1
