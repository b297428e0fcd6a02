// Where the platform is installed and what lies below it.
#include <cstdlib>

#include <bundlemgr/base.h>
#include <bundlemgr/detail/mutex.h>

#include "src/platform/serverpath.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

struct CfgSubDirectory {
    detail::Mutex mutex;
    std::string name ZO_GUARDED_BY(mutex) = "conf";
};

// Made by the first call and never destroyed: static constructors and destructors of
// hosts and bundles may ask for the configuration directory, too.
CfgSubDirectory& TheCfgSubDirectory() {
    static CfgSubDirectory* const subDirectory = new CfgSubDirectory;
    return *subDirectory;
}

std::string CfgSubDirectoryName() {
    CfgSubDirectory& subDirectory = TheCfgSubDirectory();
    const detail::Guard guard(subDirectory.mutex);
    return subDirectory.name;
}

std::string Environment(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
}

}  // namespace

std::string GetPathBySysEnvironment(const std::string& name) {
    return WithoutTrailingSeparator(Environment(name));
}

std::string GetKORURootPath() {
    std::string root;
    ns_korusdk_wrap::VexGetServerPath(root, "", "");
    root = Trim(root);
    if (root.empty() || EndsWithSeparator(root)) return root;
    return root + "/";
}

std::string GetKORUEnvironment() {
    const std::string root = GetKORURootPath();
    return root.empty() ? "" : WithoutTrailingSeparator(root) + "/nbi";
}

// The ".." in the following paths stay in them: users of the library compare the
// paths as text.
std::string GetNBIBaseDirPath() {
    const std::string environment = GetKORUEnvironment();
    return environment.empty() ? "" : environment + "/../nbi";
}

std::string GetCfgDirPath() {
    const std::string environment = GetKORUEnvironment();
    return environment.empty() ? "" : environment + "/../etc/oss_cfg/nbi/" + CfgSubDirectoryName() + "/";
}

int SetCfgDirPath(const std::string& name) {
    CfgSubDirectory& subDirectory = TheCfgSubDirectory();
    const detail::Guard guard(subDirectory.mutex);
    subDirectory.name = name;
    return 0;
}

std::string GetCDRFilesDir() {
    return GetNBIBaseDirPath() + "/../var/oss_tmp/nbi/corba/cdrfiles";
}

std::string GetNBILogPath() {
    return Environment("_APP_LOG_DIR") + "/Develop/nbi/Agent_CORBA";
}

}  // namespace NS_BUNDLEMGR1
