#include "options.h"

#include <climits>
#include <cstdlib>
#include <vector>

#include <sys/stat.h>

#include "commandline.h"
#include "decimal.h"

namespace {

constexpr char kStatus[] =
    "\n"
    "Status: 0 after an orderly stop, 1 when a bundle could not be loaded or initialised,\n"
    "2 for a wrong command line, 3 when a third SIGINT or SIGTERM ended it.\n"
    "SIGHUP makes the log go on in a new file.";

[[noreturn]] void Refuse(const std::string& name, const std::string& wanted, const std::string& value) {
    throw CLI::ValidationError(name + " needs a " + wanted + ", not '" + value + "'");
}

/// Adds an option with a value that is not empty. A missing one counts as empty.
void AddText(CLI::App& app, const std::string& name, const char* label, std::string& text, const char* description) {
    const auto take = [name, &text](const std::string& value) {
        if (value.empty()) Refuse(name, "value", value);
        text = value;
    };
    app.add_option_function<std::string>(name, take, description)->option_text(label)->expected(0, 1);
}

void AddSeconds(CLI::App& app, int& seconds) {
    const auto take = [&seconds](const std::string& value) {
        int number = -1;
        if (!alarms::ParseDecimal(value, number) || number < 0) {
            Refuse("--for", "decimal number of seconds, 2147483647 at most", value);
        }
        seconds = number;
    };
    app.add_option_function<std::string>("--for", take, "stop by itself after so long")
        ->option_text("SECONDS")
        ->expected(0, 1);
}

std::string Explain(const CLI::App* app, const CLI::Error& error) {
    const std::vector<std::string> unknown = app->remaining();
    const std::string reason = unknown.empty() ? error.what() : "unknown option '" + unknown.front() + "'";
    return app->get_name() + ": " + reason + "\n" + app->help();
}

}  // namespace

std::optional<int> ParseOptions(int argc, char* argv[], Options& options) {
    commandline::Parser parser("zo_agent", "[--root DIR] [--conf NAME] [--for SECONDS]",
                               "Hosts the bundles that bundlemgr.cfg names until SIGINT or SIGTERM.");
    AddText(parser, "--root", "DIR", options.root,
            "installation root: configuration in DIR/etc/oss_cfg/nbi/NAME and\n"
            "DIR/share/conf, logs in DIR/log. Sets KORU_SERVER_PATH, and\n"
            "_APP_SHARE_DIR, _APP_LOG_DIR and APP_ROOT where they are not set");
    AddText(parser, "--conf", "NAME", options.conf, "configuration sub-directory (conf)");
    AddSeconds(parser, options.seconds);
    parser.footer(kStatus);
    parser.failure_message(Explain);
    return parser.Parse(argc, argv);
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
