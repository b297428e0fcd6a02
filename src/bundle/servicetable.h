// The services in a bundle's table, as objects that may be gone.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <bundlemgr/bundle.h>

namespace NS_BUNDLEMGR1 {

/// What a bundle does with its table, for a thread that holds the bundle's lock.
///
/// A name in the table may stand for a service that is gone, or that another thread is ending
/// and has let go of the bundle meanwhile.
class ServiceTable {
public:
    explicit ServiceTable(BundleObject& bundle) : m_bundle(bundle) {}

    /// Learns what the operations of a bundle are that no class overrides.
    /// @param bundle one that is just constructed as a `BundleObject`, and as nothing more yet
    static void NoteOwnOperations(const BundleObject& bundle);

    /// @return whether there is a service of that name, which no other thread is ending
    bool Has(const std::string& name) const;

    /// @return whether the name is in the table, whatever has become of the service
    bool Lists(const std::string& name) const;

    /// @return the number of the object that the name stands for, see `LiveServices`; 0 when it
    ///         is not known
    unsigned long IdOf(const std::string& name) const;

    /// Puts a service in place of one of that name that another thread is ending. One that is
    /// there fails an assertion.
    void Register(const std::string& name, ServiceObjectBase* service);

    void Forget(const std::string& name);

    /// Waits until a service that another thread is ending is gone; not on a thread that is in
    /// the code of a service, for which that thread may be waiting.
    void AwaitEndElsewhere(const std::string& name);

    /// @return the names, newest first: a copy, since who ends a service may take it out
    std::vector<std::string> NamesNewestFirst() const;

    /// Asks the service to end its threads, if it is there.
    void ExitThreadsOf(const std::string& name);

    /// Finds the interface that the service of that name publishes. There is none in a service
    /// that is gone, nor where `cast` does not take it for one of the type that is sought.
    /// @param found is called with the interface and what `cast` made of it, while the service
    ///              cannot be ended, nor the interface withdrawn
    static void FindInterface(BundleObject& bundle, const std::string& name, void* (*cast)(ServiceInterface*),
                              const std::function<void(ServiceInterface*, void*)>& found);

private:
    bool IsEndedElsewhere(const std::string& name) const;

    BundleObject& m_bundle;
};

}  // namespace NS_BUNDLEMGR1
