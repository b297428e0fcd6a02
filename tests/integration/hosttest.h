// Runs the host of the tests as a process of its own, on real files and plug-ins.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "unit/log/logtest.h"

namespace test {

/// What the library says, on its standard output and in its log.
/// @{
inline std::string Loading(const std::string& bundle) {
    return "Loading... " + bundle + "\n";
}
inline std::string Opened(const std::string& bundle) {
    return "Loading ... (lib" + bundle + ".so)\n";
}
inline std::string NotLoaded(const std::string& bundle) {
    return "Error: Load Bundle " + bundle + " failed!\n";
}
inline std::string NoBundleIn(const std::string& bundle) {
    return "Error: Load Bundles Lib \xEF\xBC\x88lib" + bundle + ".so\xEF\xBC\x89 failed! \n";
}
inline std::string InitBundle(const std::string& bundle) {
    return "\n========== Init Bundle --- [ " + bundle + " ] ==========\n";
}
inline std::string InitBundleFailed(const std::string& bundle, const std::string& error) {
    return "Error: Init Bundle " + bundle + " failed! errcode=" + error + "\n";
}
inline std::string FiniBundle(const std::string& bundle) {
    return "\n========== Fini Bundle --- " + bundle + " ==========\n";
}
inline std::string InitService(const std::string& service) {
    return "\n===== Init Service -[ " + service + " ] =====\n";
}
inline std::string Ready(const std::string& service) {
    return "\n===== Service Ready -[ " + service + " ] =====\n";
}
inline std::string InitFailed(const std::string& library, const std::string& service, const std::string& error) {
    return "\n===== Init Failed -[ " + service + " ][ params:dynamic " + service + " Service_Object * lib" + library +
           ":_make_" + service + "() \"\" ][ err: " + error + " ] =====\n";
}
inline std::string NotFound(const std::string& service) {
    return "Error: Remove service " + service + " failed! Service not found!\n";
}
inline std::string Finalize(const std::string& service) {
    return "\n===== Start to Finalize -[ " + service + " ] =====\n";
}
inline std::string BeginExit(const std::string& bundle, const std::string& service) {
    return "\n===== Begin to Exit Threads of -[ " + bundle + " -- " + service + " ] =====\n";
}
inline std::string FinishExit(const std::string& bundle, const std::string& service) {
    return "\n===== Finish to Exit Threads of -[ " + bundle + " -- " + service + " ] =====\n";
}
/// @}

/// What a scripted service prints and the library says while it is made ready.
inline std::string StartService(const std::string& service) {
    return InitService(service) + service + ": created\n" + service + ": init with 0 arguments\n" + Ready(service);
}
/// The same while it is ended, with its destructor.
inline std::string EndService(const std::string& service) {
    return service + ": fini\n" + Finalize(service) + service + ": destroyed\n";
}
inline std::string Loaded(const std::string& bundle, const std::string& result = "0") {
    return bundle + ": services loaded: " + result + "\n";
}

/// @param output receives the standard output of a command
/// @return how it ended, see `waitpid`
inline int RunCommand(const std::string& command, std::string& output) {
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("popen failed");
    std::array<char, 4096> buffer{};
    for (std::size_t read; (read = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), read);
    }
    return pclose(pipe);
}

class HostTest : public testing::Test {
protected:
    HostTest() {
        Set("KORU_SERVER_PATH", m_dir.Path());
        Set("_APP_LOG_DIR", m_dir / "log");
        Set("_APP_SHARE_DIR", m_dir / "share");
        Set("APP_ROOT", m_dir.Path());
        Set("LD_LIBRARY_PATH", ZO_TEST_PLUGIN_DIR);
        Set("TZ", "UTC");
        m_dir.Write("nbi/present", "");
        m_dir.Write("log/present", "");
    }

    void Set(const std::string& name, const std::string& value) { m_environment.emplace_back(name.c_str(), value); }

    /// Tells a bundle or a service what to do; see the plug-ins.
    void Tell(const std::string& name, const std::string& words) { Set("FX_" + name, words); }

    void ConfigureBundles(const std::string& content) { m_dir.Write(Configuration("bundlemgr.cfg"), content); }
    void ConfigureServices(const std::string& bundle, const std::string& content) {
        m_dir.Write(Configuration(bundle + "/svc.cfg"), content);
    }

    /// Runs the host, which is expected to end well.
    /// @return its standard output, less the two lines that reading bundlemgr.cfg prints
    std::string Run(const std::string& commands) {
        std::string output;
        const int status = RunCommand(std::string(ZO_TEST_HOST) + " " + commands, output);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status << " after:\n" << output;
        return WithoutConfigurationLines(output);
    }

    /// The library's own records: "<file>:<line>:<level> <text>", without the line where
    /// it is not fixed.
    std::vector<std::string> Records() const {
        std::vector<std::string> records;
        for (const LogRecord& record : ParseLog(LogIn(m_dir / "log/Develop/nbi/Agent_CORBA"))) {
            const bool fixedLine = (record.file == "bundledef" || record.file == "servicedef") && record.level == 3;
            records.push_back(record.file + ":" + (fixedLine ? std::to_string(record.line) : "") + ":" +
                              std::to_string(record.level) + " " + record.text);
        }
        return records;
    }

    TempDir m_dir;

private:
    static std::string Configuration(const std::string& file) { return "etc/oss_cfg/nbi/conf/" + file; }

    std::string WithoutConfigurationLines(std::string output) const {
        const std::string file = m_dir / ("nbi/../" + Configuration("bundlemgr.cfg"));
        const std::string lines = "cfg_file " + file + " \nm_strCfgFileName=" + file + " \n";
        for (std::size_t at; (at = output.find(lines)) != std::string::npos;) output.erase(at, lines.size());
        return output;
    }

    std::list<ScopedEnv> m_environment;
};

}  // namespace test
