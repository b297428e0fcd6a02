// Loads the one configured bundle, asks it for its interface, converts a text and shuts
// down. That the shared library answers to its plain file name, it checks as well.
#include <dlfcn.h>

#include <cstdio>
#include <string>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/bundlemgr.h>

namespace {

int Fail(const char* reason) {
    std::printf("consumer_host: %s\n", reason);
    return 1;
}

int Convert() {
    std::string utf8;
    if (!NS_BUNDLEMGR1::CodeSetConvert("GBK", "UTF-8", "\xD6\xD0", utf8)) return Fail("GBK is not converted");
    std::printf("consumer_host: D6D0 is ");
    for (const char c : utf8) std::printf("%02X", static_cast<unsigned char>(c));
    std::printf("\n");
    return 0;
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

    int result = Run(*NS_BUNDLEMGR1::BundleMgr::Instance());
    if (result == 0) result = Convert();
    NS_BUNDLEMGR1::BundleMgr::Destroy();
    NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
    return result;
}
