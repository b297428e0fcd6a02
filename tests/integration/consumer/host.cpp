// Loads the one configured bundle, asks it for its interface and shuts down. That the
// shared library answers to its plain file name, it checks as well.
#include <dlfcn.h>

#include <cstdio>

#include "bundlemgr/bundle.h"
#include "bundlemgr/bundlemgr.h"

namespace {

int Fail(const char* reason) {
    std::printf("consumer_host: %s\n", reason);
    return 1;
}

int Run(NS_BUNDLEMGR1::BundleMgr& bundleMgr) {
    if (bundleMgr.LoadAllBundles() != 0) return Fail("a bundle did not load");
    if (bundleMgr.InitAllBundles() != 0) return Fail("a bundle did not initialise");
    NS_BUNDLEMGR1::ServiceInterface* const greeting = bundleMgr.GetBundleInterface("consumer_bundle");
    if (greeting == nullptr) return Fail("the bundle publishes nothing");
    std::printf("consumer_host: %s\n", greeting->GetDescription().c_str());
    bundleMgr.FiniAllBundles();
    return 0;
}

}  // namespace

int main() {
    void* const library = dlopen("libzo_bundlemgr.so", RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) return Fail("libzo_bundlemgr.so is not the library that is linked");
    dlclose(library);

    const int result = Run(*NS_BUNDLEMGR1::BundleMgr::Instance());
    NS_BUNDLEMGR1::BundleMgr::Destroy();
    NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
    return result;
}
