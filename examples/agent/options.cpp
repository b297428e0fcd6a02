#include "options.h"

#include <climits>
#include <cstdlib>

#include <sys/stat.h>

#include "decimal.h"

namespace {

constexpr char kUsage[] =
    "usage: zo_agent [--root DIR] [--conf NAME] [--for SECONDS]\n"
    "\n"
    "Hosts the bundles that bundlemgr.cfg names until SIGINT or SIGTERM.\n"
    "\n"
    "  --root DIR     installation root: configuration in DIR/etc/oss_cfg/nbi/NAME and\n"
    "                 DIR/share/conf, logs in DIR/log. Sets KORU_SERVER_PATH, and\n"
    "                 _APP_SHARE_DIR, _APP_LOG_DIR and APP_ROOT where they are not set\n"
    "  --conf NAME    configuration sub-directory (conf)\n"
    "  --for SECONDS  stop by itself after so long\n"
    "  --help         print this text\n"
    "  --version      print the version\n"
    "\n"
    "Status: 0 after an orderly stop, 1 when a bundle could not be loaded or initialised,\n"
    "2 for a wrong command line, 3 when a third SIGINT or SIGTERM ended it.\n"
    "SIGHUP makes the log go on in a new file.\n";

constexpr char kSeconds[] = "decimal number of seconds, 2147483647 at most";

bool ParseSeconds(const std::string& text, int& seconds) {
    int value = 0;
    if (!alarms::ParseDecimal(text, value) || value < 0) return false;
    seconds = value;
    return true;
}

bool TakeValue(const std::string& name, const std::string& value, Options& options) {
    if (name == "--for") return ParseSeconds(value, options.seconds);
    (name == "--root" ? options.root : options.conf) = value;
    return !value.empty();
}

}  // namespace

const char* UsageText() {
    return kUsage;
}

bool ParseOptions(int argc, char* argv[], Options& options, std::string& reason) {
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--help") {
            options.help = true;
        } else if (name == "--version") {
            options.version = true;
        } else if (name == "--root" || name == "--conf" || name == "--for") {
            const std::string value = i + 1 < argc ? argv[++i] : "";
            if (TakeValue(name, value, options)) continue;
            reason = name + " needs a " + (name == "--for" ? kSeconds : "value") + ", not '" + value + "'";
            return false;
        } else {
            reason = "unknown option '" + name + "'";
            return false;
        }
    }
    return true;
}

bool ApplyRoot(const Options& options, std::string& reason) {
    if (options.root.empty()) return true;
    char resolved[PATH_MAX];
    struct stat status {};
    if (realpath(options.root.c_str(), resolved) == nullptr || stat(resolved, &status) == -1 ||
        !S_ISDIR(status.st_mode)) {
        reason = "--root: there is no directory " + options.root;
        return false;
    }
    const std::string root = resolved;
    setenv("KORU_SERVER_PATH", root.c_str(), 1);
    setenv("_APP_SHARE_DIR", (root + "/share").c_str(), 0);
    setenv("_APP_LOG_DIR", (root + "/log").c_str(), 0);
    setenv("APP_ROOT", root.c_str(), 0);
    return true;
}
