// The command lines of the agent and of its text client.
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/childprocess.h"
#include "support/tempdir.h"

namespace test {
namespace {

struct Answer {
    int status;
    std::string out;
    std::string err;
};

Answer RunProgram(const char* program, const std::vector<std::string>& arguments) {
    const TempDir dir;
    ChildProcess::Command command;
    command.words = arguments;
    command.words.insert(command.words.begin(), program);
    command.unset = {"_APP_SHARE_DIR", "_APP_LOG_DIR", "APP_ROOT", "KORU_SERVER_PATH"};
    command.out = dir / "out";
    command.err = dir / "err";
    ChildProcess process(command);
    const int status = process.Wait();
    return {status, ReadFile(dir / "out"), ReadFile(dir / "err")};
}

Answer RunAgent(const std::vector<std::string>& arguments) {
    return RunProgram(ZO_AGENT, arguments);
}

TEST(AgentOptions, HelpAndVersionGoToStandardOutput) {
    const Answer help = RunAgent({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: zo_agent [--root DIR] [--conf NAME] [--for SECONDS]\n", 0), 0U);
    EXPECT_EQ(help.err, "");
    const Answer version = RunAgent({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "zo_agent 1.0.0\n");
}

TEST(AgentOptions, TheHelpOfTheClientGoesToStandardOutput) {
    const Answer help = RunProgram(ZO_ASCII_CLIENT, {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: zo_ascii_client (--port N | --port-file FILE) ", 0), 0U) << help.out;
    EXPECT_EQ(help.err, "");
    const Answer wrong = RunProgram(ZO_ASCII_CLIENT, {"LIST"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(wrong.err, help.out);
}

TEST(AgentOptions, AWrongCommandLineIsExplainedWithStatusTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--frobnicate"}, "zo_agent: unknown option '--frobnicate'\n"},
        {{"--for", "a while"},
         "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not 'a while'\n"},
        {{"--for", "-1"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '-1'\n"},
        {{"--for", "010"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '010'\n"},
        {{"--for", "0x10"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '0x10'\n"},
        {{"--for", "99999999999"},
         "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '99999999999'\n"},
        {{"--for"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not ''\n"},
        {{"--root"}, "zo_agent: --root needs a value, not ''\n"},
    };
    for (const auto& wrong : cases) {
        const Answer answer = RunAgent(wrong.first);
        EXPECT_EQ(answer.status, 2);
        EXPECT_EQ(answer.out, "");
        EXPECT_EQ(answer.err.rfind(wrong.second + "usage: zo_agent ", 0), 0U) << answer.err;
    }
    const Answer answer = RunAgent({"--root", "/nowhere/at/all"});
    EXPECT_EQ(answer.status, 2);
    EXPECT_EQ(answer.err, "zo_agent: --root: there is no directory /nowhere/at/all\n");
}

TEST(AgentOptions, WithNothingToHostItSaysSo) {
    const Answer rootless = RunAgent({});
    EXPECT_EQ(rootless.status, 1);
    EXPECT_EQ(rootless.err, "zo_agent: no installation root, give --root or set KORU_SERVER_PATH\n");
    const TempDir empty;
    const Answer answer = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.err, "zo_agent: cannot enter " + empty.Path() + "/nbi: No such file or directory\n");
    std::filesystem::create_directory(empty / "nbi");
    const std::string file = empty.Path() + "/nbi/../etc/oss_cfg/nbi/other/bundlemgr.cfg";
    const Answer unconfigured = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(unconfigured.status, 1);
    EXPECT_EQ(unconfigured.err, "zo_agent: cannot read " + file + ": No such file or directory\n");
    empty.Write("etc/oss_cfg/nbi/other/bundlemgr.cfg", "# none\n");
    const Answer bundleless = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(bundleless.status, 1);
    EXPECT_EQ(bundleless.err, "zo_agent: no bundle is named in " + file + "\n");
}

}  // namespace
}  // namespace test
