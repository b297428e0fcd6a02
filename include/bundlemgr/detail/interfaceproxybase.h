// What the interface proxies of <bundlemgr/bundle.h> are made of. Nobody names it.
#pragma once

#include <list>
#include <string>
#include <typeinfo>
#include <vector>

#include <ace/Thread_Mutex.h>

#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

class BundleObject;
class ServiceInterface;

/// @cond INTERNAL
struct InterfaceEntry;
struct VerifiedInterface;

/// The part of an interface proxy that does not depend on the interface's type.
class ZO_EXPORT InterfaceProxyBase {
protected:
    /// The interface as the type that the proxy asks for, or null if it is none.
    using CastFn = void* (*)(ServiceInterface*);

    InterfaceProxyBase(const std::string& interfaceName, const std::string& bundleName, const std::type_info& type);
    void* Find(CastFn cast, std::vector<ServiceInterface*>* all);
    static ServiceInterface* NullInterface(const std::type_info& type);

private:
    __attribute__((visibility("hidden"))) void* FindWithLock(CastFn cast, std::vector<ServiceInterface*>* all);
    void* Verify(CastFn cast);
    void Search(CastFn cast);
    std::list<BundleObject*> BundlesToSearch() const;

    InterfaceEntry* m_pEntry;
    VerifiedInterface* m_pVerified;
    ACE_Thread_Mutex* m_pMutex;
    std::string m_strBundleName;
    std::string m_strInterfaceName;
};
/// @endcond

}  // namespace NS_BUNDLEMGR1
