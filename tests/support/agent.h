// The agent as a child process on an installation root of its own.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/childprocess.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace test {

/// An installation root with the examples' configuration. ZO_EXAMPLES_DIR and ZO_AGENT
/// are defined by the build.
class AgentRoot {
public:
    AgentRoot() {
        namespace fs = std::filesystem;
        fs::copy(ZO_EXAMPLES_DIR "/conf", m_dir.Path(), fs::copy_options::recursive);
        for (const char* const name : {"nbi", "log", "var"}) fs::create_directory(m_dir / name);
    }

    std::string operator/(const std::string& name) const { return m_dir / name; }
    const std::string& Path() const { return m_dir.Path(); }
    std::string Write(const std::string& name, const std::string& content) const { return m_dir.Write(name, content); }

    /// Replaces the bundles of bundlemgr.cfg.
    void SetBundles(const std::vector<std::string>& names) const {
        std::string content;
        for (const std::string& name : names) content += "Bundle=" + name + "\n";
        Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", content);
    }

    /// Replaces, adds or (without a value) drops an item of corba_start.cfg.
    void SetItem(const std::string& name, const std::string& value) const {
        const std::string file = "share/conf/corba_start.cfg";
        std::istringstream lines(ReadFile(*this / file));
        std::string content;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind(name + "=", 0) != 0) content += line + "\n";
        }
        if (!value.empty()) content += name + "=" + value + "\n";
        Write(file, content);
    }

    /// Appends to a file in one write.
    void Append(const std::string& name, const std::string& text) const {
        std::ofstream(*this / name, std::ios::binary | std::ios::app) << text;
    }

    /// Everything that the agent has logged so far.
    std::string Log() const {
        std::string text;
        std::error_code ignored;
        for (const auto& file : std::filesystem::recursive_directory_iterator(*this / "log", ignored)) {
            if (file.is_regular_file()) text += ReadFile(file.path().string());
        }
        return text;
    }

    bool WaitForLog(const std::string& text) const {
        return WaitFor([&] { return Log().find(text) != std::string::npos; });
    }

private:
    TempDir m_dir;
};

/// A running agent. Its standard output and standard error are in the files "out" and
/// "err" of its root.
class Agent {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    /// @param wrapper a command that runs the command that follows it
    explicit Agent(const AgentRoot& root, const std::vector<std::string>& options = {},
                   const Environment& environment = {}, const std::vector<std::string>& wrapper = {})
        : m_root(root), m_process(MakeCommand(root, options, environment, wrapper)) {}

    /// @return whether all bundles are ready
    bool WaitUntilReady() {
        return WaitFor(
                   [this] { return m_process.HasEnded() || Out().find("zo_agent: ready\n") != std::string::npos; }) &&
               !m_process.HasEnded();
    }

    /// @return the port of the text server; 0 when there is none
    int TextPort() const {
        std::ifstream file(m_root / "var/ascii.port");
        int port = 0;
        file >> port;
        return port;
    }

    /// Asks it to stop.
    /// @return its exit status
    int Stop(int signal = SIGTERM) {
        m_process.Signal(signal);
        return m_process.Wait();
    }

    std::string Out() const { return ReadFile(m_root / "out"); }
    std::string Err() const { return ReadFile(m_root / "err"); }
    ChildProcess& Process() { return m_process; }

private:
    static ChildProcess::Command MakeCommand(const AgentRoot& root, const std::vector<std::string>& options,
                                             const Environment& environment, const std::vector<std::string>& wrapper) {
        ChildProcess::Command command;
        command.words = wrapper;
        command.words.insert(command.words.end(), {ZO_AGENT, "--root", root.Path()});
        command.words.insert(command.words.end(), options.begin(), options.end());
        command.unset = {"_APP_SHARE_DIR", "_APP_LOG_DIR", "APP_ROOT", "KORU_SERVER_PATH"};
        command.set = environment;
        command.out = root / "out";
        command.err = root / "err";
        return command;
    }

    const AgentRoot& m_root;
    ChildProcess m_process;
};

}  // namespace test
