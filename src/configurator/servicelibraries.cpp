#include "src/configurator/servicelibraries.h"

#include <set>

#include <ace/DLL_Manager.h>
#include <ace/Framework_Component.h>
#include <dlfcn.h>

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {
namespace ServiceLibraries {

namespace {

detail::Mutex g_mutex;

// Never destroyed: bundles may load services from static constructors and destructors.
std::set<std::string>& Noted() ZO_REQUIRES(g_mutex) {
    static std::set<std::string>* const noted = new std::set<std::string>;
    return *noted;
}

// Not by the handle's own way of unloading, which takes two of ACE's locks in another
// order than the end of the process does.
void Close(ACE_DLL_Handle& handle) {
    ACE_Framework_Repository* const components = ACE_Framework_Repository::instance();
    if (components != nullptr) components->remove_dll_components(handle.dll_name());
    constexpr bool kBecomeOwner = true;
    dlclose(handle.get_handle(kBecomeOwner));
}

void CloseIfUnused(const std::string& library) {
    // Held meanwhile, so that a library that is closed already is not opened again.
    void* const mapped = dlopen((library + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (mapped == nullptr) return;
    ACE_DLL_Handle* const handle =
        ACE_DLL_Manager::instance()->open_dll(library.c_str(), ACE_DEFAULT_SHLIB_MODE, ACE_SHLIB_INVALID_HANDLE);
    if (handle != nullptr && handle->refcount() == 1) {
        Close(*handle);
    } else if (handle != nullptr) {
        handle->close();
    }
    dlclose(mapped);
}

}  // namespace

void Note(const std::string& library) {
    const detail::Guard guard(g_mutex);
    Noted().insert(library);
}

void CloseUnused() {
    std::set<std::string> libraries;
    {
        const detail::Guard guard(g_mutex);
        libraries.swap(Noted());
    }
    for (const std::string& library : libraries) CloseIfUnused(library);
}

}  // namespace ServiceLibraries
}  // namespace NS_BUNDLEMGR1
