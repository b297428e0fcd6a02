// The stuff of which the measured plug-ins are made: a bundle, four services, or both. It is
// compiled once and linked many times, each time under another name, by which it goes:
// libown007.so has the bundle "own007" and the services "own007s0" to "own007s3".
//   PART_BUNDLE     with the bundle
//   PART_SERVICES   with the services, of a bundle called like the library, but for its kind
//                   where that is "svc": these are services of a bundle "far007"
//   PART_RAW        the services are plain ACE ones
#include <dlfcn.h>

#include <string>

#include <ace/Service_Object.h>

#ifndef PART_RAW
#include <bundlemgr/bundle.h>
#endif

namespace {

/// @return the middle part of the name of the library that this is in
[[maybe_unused]] std::string LibraryName() {
    static const char s_here = 0;
    Dl_info info{};
    dladdr(&s_here, &info);
    const std::string path = info.dli_fname;
    const std::string::size_type begin = path.rfind('/') + sizeof("lib");
    return path.substr(begin, path.rfind('.') - begin);
}

#ifdef PART_BUNDLE
class PartBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return 10; }
    void SetInterface() override {}
    int Init() override {
        const int result = LoadAllServiceObjects();
        return result == 0 ? BundleObject::Init() : result;
    }
    void Fini() override {
        UnLoadAllServiceObjects();
        BundleObject::Fini();
    }

private:
    const std::string m_name = LibraryName();
};
#endif

#ifdef PART_SERVICES
#ifdef PART_RAW
class Part : public ACE_Service_Object {
public:
    int init(int, ACE_TCHAR*[]) override { return 0; }
    int fini() override { return 0; }
};

void DestroyPart(void* service) {
    delete static_cast<ACE_Service_Object*>(service);
}
#else
std::string BundleName() {
    const std::string name = LibraryName();
    return name.compare(0, 3, "svc") == 0 ? "far" + name.substr(3) : name;
}

template <int kNumber>
class Part : public NS_BUNDLEMGR1::ServiceObjectBase {
public:
    Part() : ServiceObjectBase(BundleName().c_str(), (LibraryName() + "s" + std::to_string(kNumber)).c_str()) {}
    int init(int, ACE_TCHAR*[]) override { return 0; }
    void ExitThreads() override {}
};
#endif
#endif

}  // namespace

#ifdef PART_BUNDLE
ZO_BUNDLE(PartBundle);
#endif

// Each library is linked with names of its own for these: see link_parts.sh.
#ifdef PART_SERVICES
#ifdef PART_RAW
#define PART_FACTORY(number)                                                                \
    extern "C" __attribute__((visibility("default")))                                       \
    ACE_Service_Object* _make_part##number(ACE_Service_Object_Exterminator* exterminator) { \
        if (exterminator != nullptr) *exterminator = &DestroyPart;                          \
        return new Part;                                                                    \
    }                                                                                       \
    static_assert(true, "a semicolon follows")
#else
#define PART_FACTORY(number) ZO_SERVICE_FACTORY(Part<number>, part##number)
#endif
PART_FACTORY(0);
PART_FACTORY(1);
PART_FACTORY(2);
PART_FACTORY(3);
#endif
