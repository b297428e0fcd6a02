#include <atomic>
#include <filesystem>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bundlemgr/base.h>

#include "src/base/basefacade/corbaconfigaccess.h"
#include "support/capture.h"
#include "support/elsewhere.h"
#include "support/environment.h"
#include "support/forkedchild.h"
#include "support/logfiles.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {

void PrintTo(const NameValueStru& entry, std::ostream* out) {
    *out << '"' << entry.name << "\"=\"" << entry.value << '"';
}

namespace {

using Entries = std::vector<NameValueStru>;

/// The agent's files in a directory of their own, and the items read from them.
class CorbaConfig : public testing::Test {
protected:
    CorbaConfig() : m_shareEnv("_APP_SHARE_DIR", m_dir / "share"), m_rootEnv("APP_ROOT", m_dir / "root") {}
    ~CorbaConfig() override { CorbaConfigItems::Destroy(); }

    void WriteStart(const std::string& content) const { m_dir.Write("share/conf/corba_start.cfg", content); }
    void WriteAgent(const std::string& content) const { m_dir.Write("share/conf/corba_agent.cfg", content); }
    void WriteNodeList(const std::string& content) const { m_dir.Write("root/etc/sysconf/nodelist.json", content); }

    /// @return the items, freshly read
    static CorbaConfigItems& Read() {
        CorbaConfigItems::Destroy();
        CorbaConfigItems::Instance()->init();
        return *CorbaConfigItems::Instance();
    }

    static Entries Items() {
        Entries items;
        EXPECT_TRUE(CorbaConfigItems::Instance()->GetCorbaConfigItems(items));
        return items;
    }

    static std::string StrItem(const std::string& name) {
        std::string value = "untouched";
        return CorbaConfigItems::Instance()->GetStrItemInfo(name, value) ? value : "none, " + value;
    }

    /// The mode that the node list leads to, with the agent at 10.0.0.5.
    bool LvsModeWith(const std::string& nodeList) const {
        WriteAgent("CORBAAgent_HostIP=10.0.0.5\n");
        WriteNodeList(nodeList);
        return Read().GetHfsMode("127.0.0.1");
    }

    test::ScopedLogDir m_log;
    test::TempDir m_dir;
    test::ScopedEnv m_shareEnv;
    test::ScopedEnv m_rootEnv;
};

// ---- Life ----

TEST_F(CorbaConfig, ThereIsOneObject) {
    CorbaConfigItems* const first = CorbaConfigItems::Instance();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, CorbaConfigItems::Instance());
}

TEST_F(CorbaConfig, IsCreatedEmptyWithoutReadingAnything) {
    WriteStart("A=1\n");
    EXPECT_EQ(Entries(), Items());
    EXPECT_FALSE(CorbaConfigItems::Instance()->GetHfsMode("127.0.0.1"));
}

TEST_F(CorbaConfig, DestroyMakesRoomForAFreshEmptyObject) {
    WriteStart("A=1\n");
    CorbaConfigItems::Instance()->init();
    EXPECT_EQ("1", StrItem("A"));
    CorbaConfigItems::Destroy();
    CorbaConfigItems::Destroy();
    EXPECT_EQ(Entries(), Items());
}

TEST_F(CorbaConfig, EightThreadsGetTheSameObject) {
    std::vector<CorbaConfigItems*> seen(8);
    std::vector<std::thread> threads;
    for (CorbaConfigItems*& each : seen) threads.emplace_back([&each] { each = CorbaConfigItems::Instance(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(seen, testing::Each(CorbaConfigItems::Instance()));
}

TEST(CorbaData, InitDoesNothing) {
    EXPECT_EQ("", test::StdoutOf(InitCorbaData));
}

TEST(CorbaData, UnloadingIsFalseAtFirst) {
    EXPECT_FALSE(g_isUnloadingCorba);
}

// ---- The start items ----

TEST_F(CorbaConfig, StartItemsAreTakenInFileOrder) {
    WriteStart("B = 2\n# comment\nA=1\nno separator\nB=3\n");
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetAllStartItem());
    EXPECT_EQ((Entries{{"B", "2"}, {"A", "1"}, {"B", "3"}}), Items());
}

TEST_F(CorbaConfig, StartItemsAreAppended) {
    WriteStart("A=1\n");
    CorbaConfigItems::Instance()->GetAllStartItem();
    CorbaConfigItems::Instance()->GetAllStartItem();
    EXPECT_EQ((Entries{{"A", "1"}, {"A", "1"}}), Items());
}

TEST_F(CorbaConfig, AMissingStartFileIsNoFailure) {
    EXPECT_EQ("", test::StdoutOf([] { EXPECT_TRUE(CorbaConfigItems::Instance()->GetAllStartItem()); }));
    EXPECT_EQ(Entries(), Items());
    EXPECT_EQ("", m_log.Text());
}

TEST_F(CorbaConfig, AnEmptyShareDirectoryIsNotAMissingOne) {
    const test::ScopedEnv empty("_APP_SHARE_DIR", "");
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetAllStartItem());
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetAllHostItem());
    EXPECT_EQ("", m_log.Text());
}

TEST_F(CorbaConfig, WithoutShareDirectoryStartItemsAreLoggedAsMissing) {
    const test::ScopedEnv unset("_APP_SHARE_DIR");
    const std::string printed = test::StdoutOf([] { EXPECT_FALSE(CorbaConfigItems::Instance()->GetAllStartItem()); });
    EXPECT_EQ("[CorbaConfigItems::GetAllStartItem()]_APP_SHARE_DIR is empty", printed);
    EXPECT_THAT(m_log.Text(), testing::ContainsRegex("Level = 3, Bundle = BundleMgr, Service = Core \n"
                                                     "filename = basefacade, lineno = [0-9]+\n"
                                                     "\\[CorbaConfigItems::GetAllStartItem\\(\\)\\]_APP_SHARE_DIR is "
                                                     "empty\n</1>\n"));
}

TEST_F(CorbaConfig, WithoutShareDirectoryHostItemsAreLoggedAsMissing) {
    const test::ScopedEnv unset("_APP_SHARE_DIR");
    const std::string printed = test::StdoutOf([] { EXPECT_FALSE(CorbaConfigItems::Instance()->GetAllHostItem()); });
    EXPECT_EQ("[CorbaConfigItems::GetAllHostItem()]_APP_SHARE_DIR is empty", printed);
    EXPECT_THAT(m_log.Text(), testing::ContainsRegex("Level = 3, Bundle = BundleMgr, Service = Core \n"
                                                     "filename = basefacade, lineno = [0-9]+\n"
                                                     "\\[CorbaConfigItems::GetAllHostItem\\(\\)\\]_APP_SHARE_DIR is "
                                                     "empty\n</1>\n"));
}

TEST_F(CorbaConfig, WithoutShareDirectoryInitGoesOn) {
    const test::ScopedEnv unset("_APP_SHARE_DIR");
    const std::string printed = test::StdoutOf([] { CorbaConfigItems::Instance()->init(); });
    EXPECT_EQ(
        "[CorbaConfigItems::GetAllStartItem()]_APP_SHARE_DIR is empty"
        "[CorbaConfigItems::GetAllHostItem()]_APP_SHARE_DIR is empty",
        printed);
    EXPECT_EQ((Entries{{"CORBAAgent_Host", ""}, {"NamingService_Host", ""}, {"NotifyService_Host", ""}}), Items());
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetHfsMode("127.0.0.1"));
}

TEST_F(CorbaConfig, TheReaderIsTheOneOfTheFreeFunction) {
    const std::string file = m_dir.Write("any.cfg", "  # comment\nkey\t=\tva\tlue\nbare line\n");
    Entries entries = {{"kept", "1"}};
    CorbaConfigItems* const items = CorbaConfigItems::Instance();
    EXPECT_TRUE(items->GetAllCfgFrmFile(entries, file, true));
    EXPECT_EQ((Entries{{"kept", "1"}, {"key", "value"}}), entries);
    EXPECT_TRUE(items->GetAllCfgFrmFile(entries, file, false));
    EXPECT_EQ((Entries{{"kept", "1"}, {"key", "value"}, {"", "key=value"}, {"", "bare line"}}), entries);
    EXPECT_FALSE(items->GetAllCfgFrmFile(entries, m_dir / "missing", true));
}

// ---- The hosts ----

constexpr char kSixHosts[] =
    "CORBAAgent_HostIP=10.0.0.1\n"
    "CORBAAgent_HostName=agent\n"
    "NamingService_HostIP=10.0.0.2\n"
    "NamingService_HostName=naming\n"
    "NotifyService_HostIP=10.0.0.3\n"
    "NotifyService_HostName=notify\n";

TEST_F(CorbaConfig, ASwitchThatIsEnableSelectsTheAddress) {
    WriteStart("CorbaAgentUseIp=enable\nNamingServiceUseIp=enable\nNotifyServiceUseIp=enable\n");
    WriteAgent(kSixHosts);
    Read();
    EXPECT_EQ("10.0.0.1", StrItem("CORBAAgent_Host"));
    EXPECT_EQ("10.0.0.2", StrItem("NamingService_Host"));
    EXPECT_EQ("10.0.0.3", StrItem("NotifyService_Host"));
}

TEST_F(CorbaConfig, AnyOtherSwitchSelectsTheName) {
    WriteStart("CorbaAgentUseIp=Enable\nNamingServiceUseIp=disable\n");
    WriteAgent(kSixHosts);
    Read();
    EXPECT_EQ("agent", StrItem("CORBAAgent_Host"));
    EXPECT_EQ("naming", StrItem("NamingService_Host"));
    EXPECT_EQ("notify", StrItem("NotifyService_Host"));
}

TEST_F(CorbaConfig, TheFirstSwitchOfANameCounts) {
    WriteStart("CorbaAgentUseIp=enable\nCorbaAgentUseIp=disable\n");
    WriteAgent(kSixHosts);
    Read();
    EXPECT_EQ("10.0.0.1", StrItem("CORBAAgent_Host"));
}

TEST_F(CorbaConfig, TheChosenHostsFollowTheStartItems) {
    WriteStart("NamingServiceUseIp=enable\n");
    WriteAgent(kSixHosts);
    Read();
    EXPECT_EQ((Entries{{"NamingServiceUseIp", "enable"},
                       {"CORBAAgent_Host", "agent"},
                       {"NamingService_Host", "10.0.0.2"},
                       {"NotifyService_Host", "notify"}}),
              Items());
}

TEST_F(CorbaConfig, ChoosingTwiceAppendsTwiceAndTheFirstIsSeen) {
    WriteAgent(kSixHosts);
    CorbaConfigItems& items = Read();
    WriteAgent("CORBAAgent_HostName=later\n");
    EXPECT_TRUE(items.GetAllHostItem());
    EXPECT_TRUE(items.SetHostOrIPaddress());
    EXPECT_EQ((Entries{{"CORBAAgent_Host", "agent"},
                       {"NamingService_Host", "naming"},
                       {"NotifyService_Host", "notify"},
                       {"CORBAAgent_Host", "later"},
                       {"NamingService_Host", "naming"},
                       {"NotifyService_Host", "notify"}}),
              Items());
    EXPECT_EQ("agent", StrItem("CORBAAgent_Host"));
}

TEST_F(CorbaConfig, OfAHostKeyThatOccursTwiceTheLastCounts) {
    WriteAgent("CORBAAgent_HostIP=10.0.0.1\nCORBAAgent_HostIP=10.0.0.9\n");
    std::string address;
    Read().GetHostIP(address);
    EXPECT_EQ("10.0.0.9", address);
}

TEST_F(CorbaConfig, OtherHostKeysAreIgnored) {
    WriteAgent("corbaagent_hostip=1\nCORBAAgent_HostIP2=2\nOther=3\nCORBAAgent_HostIP=10.0.0.1\n");
    std::string address = "old";
    Read().GetHostIP(address);
    EXPECT_EQ("10.0.0.1", address);
    EXPECT_EQ("none, untouched", StrItem("Other"));
    EXPECT_EQ("none, untouched", StrItem("CORBAAgent_HostIP"));
}

TEST_F(CorbaConfig, TheHostAddressIsEmptyUntilRead) {
    std::string address = "old";
    CorbaConfigItems::Instance()->GetHostIP(address);
    EXPECT_EQ("", address);
}

// ---- LVS and HFS mode ----

TEST_F(CorbaConfig, AnAddressInTheNodeListSwitchesLvsModeOff) {
    EXPECT_FALSE(LvsModeWith(R"({"nodeList": {"node1": {"IPAddresses": [{"IP": "10.0.0.5"}]}}})"));
    EXPECT_FALSE(CorbaConfigItems::Instance()->GetHfsMode("10.0.0.5:2000"));
}

TEST_F(CorbaConfig, AnAddressMissingInTheNodeListLeavesLvsModeOn) {
    EXPECT_TRUE(LvsModeWith(R"({"nodeList": {"node1": {"IPAddresses": [{"IP": "10.0.0.7"}]}}})"));
    CorbaConfigItems& items = *CorbaConfigItems::Instance();
    EXPECT_TRUE(items.GetHfsMode("10.0.0.5:2000"));
    EXPECT_TRUE(items.GetHfsMode("10.0.0.5"));
    EXPECT_TRUE(items.GetHfsMode("127.0.0.1"));
    EXPECT_TRUE(items.GetHfsMode("127.0.0.1:99"));
    EXPECT_TRUE(items.GetHfsMode("10.0.0.5:a:b"));
    EXPECT_FALSE(items.GetHfsMode("10.0.0.6"));
    EXPECT_FALSE(items.GetHfsMode("10.0.0.55"));
    EXPECT_FALSE(items.GetHfsMode(" 10.0.0.5"));
    EXPECT_FALSE(items.GetHfsMode(""));
}

TEST_F(CorbaConfig, EveryNodeAndEveryAddressIsLookedAt) {
    EXPECT_FALSE(LvsModeWith(R"({"other": 1, "nodeList": {
        "z": {"IPAddresses": []},
        "m": {"IPAddresses": [{"IP": null}, {"name": "eth1"}, {"IP": "10.0.0.4"}, {"IP": "10.0.0.5"}]},
        "a": {"IPAddresses": [{"IP": "10.0.0.1"}]}}})"));
}

TEST_F(CorbaConfig, AnAddressBehindBadDataIsStillFound) {
    EXPECT_FALSE(LvsModeWith(R"({"nodeList": {
        "a": 1, "b": {}, "c": {"IPAddresses": "x"}, "d": {"IPAddresses": [1, [], "s", {"IP": {}}, {"IP": 7}]},
        "e": {"IPAddresses": [{"IP": "10.0.0.5"}]}}})"));
}

TEST_F(CorbaConfig, ANodeListMayHoldComments) {
    EXPECT_FALSE(
        LvsModeWith("/* nodes */ {\"nodeList\": // all\n"
                    "{\"n\": {\"IPAddresses\": [{\"IP\": /* own */ \"10.0.0.5\"}]}}} // end\n"));
}

TEST_F(CorbaConfig, AnAddressMayBeWrittenWithEscapes) {
    EXPECT_FALSE(LvsModeWith(R"({"nodeList": {"n": {"IPAddresses": [{"IP": "10.0.0.\u0035"}]}}})"));
    EXPECT_FALSE(LvsModeWith(R"({"node\u004cist": {"n": {"IPAddresses": [{"\u0049P": "10.0.0.5"}]}}})"));
    EXPECT_TRUE(LvsModeWith(R"({"nodeList": {"n": {"IPAddresses": [{"IP": "10.0.0.5\n"}]}}})"));
}

TEST_F(CorbaConfig, WhatFollowsTheRootIsNotLookedAt) {
    EXPECT_FALSE(LvsModeWith(R"({"nodeList": {"n": {"IPAddresses": [{"IP": "10.0.0.5"}]}}} and so on)"));
}

TEST_F(CorbaConfig, AnAgentWithoutAddressMatchesAnEmptyOne) {
    WriteNodeList(R"({"nodeList": {"n": {"IPAddresses": [{"IP": ""}]}}})");
    EXPECT_FALSE(Read().GetHfsMode("127.0.0.1"));
}

TEST_F(CorbaConfig, LvsModeIsDecidedAfresh) {
    EXPECT_FALSE(LvsModeWith(R"({"nodeList": {"n": {"IPAddresses": [{"IP": "10.0.0.5"}]}}})"));
    WriteNodeList("{}");
    CorbaConfigItems::Instance()->GetLvsMode();
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetHfsMode("127.0.0.1"));
}

TEST_F(CorbaConfig, WithoutAppRootTheSystemsNodeListIsRead) {
    // There is none of that name on a machine that is not the agent's.
    const test::ScopedEnv unset("APP_ROOT");
    if (access("/etc/sysconf/nodelist.json", F_OK) == 0) GTEST_SKIP() << "this machine has a node list";
    WriteAgent("CORBAAgent_HostIP=10.0.0.5\n");
    EXPECT_TRUE(Read().GetHfsMode("127.0.0.1"));
}

/// Node lists that are not the agent's, however wrong they are.
class BadNodeList : public CorbaConfig {
protected:
    void ExpectOnAndSilent(const std::string& nodeList) {
        const std::string printed = test::StdoutOf([&] {
            EXPECT_TRUE(LvsModeWith(nodeList));
            // A document without the address may not be parsed at all; with it, it must.
            EXPECT_TRUE(LvsModeWith("/*\"10.0.0.5\"*/" + nodeList));
        });
        EXPECT_EQ("", printed);
        EXPECT_EQ("", m_log.Text());
    }
};

TEST_F(BadNodeList, IsMissing) {
    WriteAgent("CORBAAgent_HostIP=10.0.0.5\n");
    const std::string printed = test::StdoutOf([] { EXPECT_TRUE(Read().GetHfsMode("127.0.0.1")); });
    EXPECT_EQ("", printed);
    EXPECT_EQ("", m_log.Text());
}

TEST_F(BadNodeList, IsADirectory) {
    m_dir.Write("root/etc/sysconf/nodelist.json/file", "");
    const std::string printed = test::StdoutOf([] { EXPECT_TRUE(Read().GetHfsMode("127.0.0.1")); });
    EXPECT_EQ("", printed);
}

TEST_F(BadNodeList, IsAFifo) {
    std::filesystem::create_directories(m_dir / "root/etc/sysconf");
    ASSERT_EQ(0, mkfifo((m_dir / "root/etc/sysconf/nodelist.json").c_str(), 0600));
    const test::Elsewhere reader([] { EXPECT_TRUE(Read().GetHfsMode("127.0.0.1")); });
    ASSERT_TRUE(reader.Finishes());
}

TEST_F(BadNodeList, IsADeviceWithoutEnd) {
    std::filesystem::create_directories(m_dir / "root/etc/sysconf");
    std::filesystem::create_symlink("/dev/zero", m_dir / "root/etc/sysconf/nodelist.json");
    const test::Elsewhere reader([] { EXPECT_TRUE(Read().GetHfsMode("127.0.0.1")); });
    ASSERT_TRUE(reader.Finishes());
}

TEST_F(CorbaConfig, ItemsThatAreInNoRegularFileAreMissing) {
    std::filesystem::create_directories(m_dir / "share/conf");
    ASSERT_EQ(0, mkfifo((m_dir / "share/conf/corba_start.cfg").c_str(), 0600));
    std::filesystem::create_symlink("/dev/zero", m_dir / "share/conf/corba_agent.cfg");
    const test::Elsewhere reader([] { Read(); });
    ASSERT_TRUE(reader.Finishes());
    EXPECT_EQ((Entries{{"CORBAAgent_Host", ""}, {"NamingService_Host", ""}, {"NotifyService_Host", ""}}), Items());
}

TEST_F(BadNodeList, IsNotJson) {
    for (const char* text :
         {"", " ", "nodeList", "{", "{\"nodeList\": ", "[1,", "{\"nodeList\" 1}", "\"", "\\", "{}}", "/*", "/", "//",
          "tru", "1e999999", "-", "\xEF\xBB\xBF{}", "{\"a\":\"\\u12\"}", "{\"a\":\"\\uD800\"}"}) {
        SCOPED_TRACE(text);
        ExpectOnAndSilent(text);
    }
}

TEST_F(BadNodeList, IsOfTheWrongKindSomewhere) {
    for (const char* text : {"null",
                             "1",
                             "\"10.0.0.5\"",
                             "[]",
                             "[{\"nodeList\": {}}]",
                             "{}",
                             "{\"nodeList\": null}",
                             "{\"nodeList\": \"10.0.0.5\"}",
                             "{\"nodeList\": [{\"IPAddresses\": [{\"IP\": \"10.0.0.5\"}]}]}",
                             "{\"nodeList\": {\"n\": null}}",
                             "{\"nodeList\": {\"n\": []}}",
                             "{\"nodeList\": {\"n\": 1}}",
                             "{\"nodeList\": {\"n\": {}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": null}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": \"10.0.0.5\"}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": {\"IP\": \"10.0.0.5\"}}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [\"10.0.0.5\", 1, null, [], true]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": null}]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": [\"10.0.0.5\"]}]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": {\"IP\": \"10.0.0.5\"}}]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"ip\": \"10.0.0.5\"}]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": \"10.0.0.5 \"}]}}}",
                             "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": \"10.0.0.5\\u0000\"}]}}}"}) {
        SCOPED_TRACE(text);
        ExpectOnAndSilent(text);
    }
}

TEST_F(BadNodeList, HoldsANumberAsAddress) {
    WriteAgent("CORBAAgent_HostIP=10\n");
    WriteNodeList(R"({"nodeList": {"n": {"IPAddresses": [{"IP": 10}, {"IP": 10.0}, {"IP": true}]}}})");
    EXPECT_TRUE(Read().GetHfsMode("127.0.0.1"));
}

TEST_F(BadNodeList, IsNestedDeeply) {
    constexpr std::size_t kDepth = 200000;
    std::string objects;
    for (std::size_t i = 0; i < kDepth; ++i) objects += "{\"nodeList\":";
    for (const std::string& text :
         {std::string(kDepth, '['), std::string(kDepth, '[') + std::string(kDepth, ']'), objects,
          "{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": " + std::string(kDepth, '[') + std::string(kDepth, ']') +
              "}]}}}"}) {
        ExpectOnAndSilent(text);
    }
}

TEST_F(BadNodeList, IsNestedAsDeeplyAsTheReaderGoes) {
    for (const std::size_t depth : {900u, 990u, 1000u, 1010u}) {
        ExpectOnAndSilent(std::string(depth, '[') + std::string(depth, ']'));
    }
}

TEST_F(BadNodeList, HoldsInvalidUtf8) {
    ExpectOnAndSilent("\xFF\xFE{\"nodeList\": {}}");
    ExpectOnAndSilent("{\"nodeList\": {\"\xC0\x80\": {\"IPAddresses\": [{\"IP\": \"10.0.0.5\xFF\"}]}}}");
    ExpectOnAndSilent("{\"\xED\xA0\x80\xF8\": \"\x80\"}");
    ExpectOnAndSilent(std::string("{\"nodeList\": \0 {}}", 18));
}

constexpr std::size_t kFiftyMegabytes = 50u << 20;

TEST_F(BadNodeList, IsAHugeFileOfNothing) {
    ExpectOnAndSilent(std::string(kFiftyMegabytes, ' '));
    ExpectOnAndSilent(std::string(kFiftyMegabytes, '\0'));
    ExpectOnAndSilent(std::string(kFiftyMegabytes, '['));
}

TEST_F(BadNodeList, IsAHugeText) {
    ExpectOnAndSilent("{\"nodeList\": {\"n\": {\"IPAddresses\": [{\"IP\": \"" + std::string(kFiftyMegabytes, '1') +
                      "\"}]}}}");
}

TEST_F(BadNodeList, IsFullOfComments) {
    std::string text = "1";
    while (text.size() < kFiftyMegabytes) text += "/**/";
    ExpectOnAndSilent(text);
}

TEST_F(BadNodeList, IsAHugeList) {
    std::string text = "{\"nodeList\": {\"n\": {\"IPAddresses\": [";
    while (text.size() < kFiftyMegabytes / 5) text += "{\"IP\": \"10.0.0.6\", \"remark\": \"one of very many nodes\"},";
    ExpectOnAndSilent(text + "{}]}}}");
    text += "{\"IP\": \"10.0.0.5\"}]}}}";
    EXPECT_FALSE(LvsModeWith(text));
}

// ---- Items by name ----

TEST_F(CorbaConfig, AStringItemIsTheFirstOfItsName) {
    WriteStart("Name=first\nname=other\nName=second\nEmpty=\n");
    Read();
    EXPECT_EQ("first", StrItem("Name"));
    EXPECT_EQ("other", StrItem("name"));
    EXPECT_EQ("", StrItem("Empty"));
    EXPECT_EQ("none, untouched", StrItem("Nam"));
    EXPECT_EQ("none, untouched", StrItem(""));
}

TEST_F(CorbaConfig, AnIntegerItemIsTheFirstOfItsNameThatIsANumber) {
    WriteStart("N=abc\nN=5\nN=6\nHex=0x1f\nBad=12x\nNegative=-7\n");
    CorbaConfigItems& items = Read();
    int value = 99;
    EXPECT_TRUE(items.GetIntItemInfo("N", value));
    EXPECT_EQ(5, value);
    EXPECT_TRUE(items.GetIntItemInfo("Hex", value));
    EXPECT_EQ(31, value);
    EXPECT_TRUE(items.GetIntItemInfo("Negative", value));
    EXPECT_EQ(-7, value);
}

TEST_F(CorbaConfig, WithoutSuchANumberTheValueIsUntouched) {
    WriteStart("Bad=12x\nBad=0X1\n");
    CorbaConfigItems& items = Read();
    int value = 99;
    EXPECT_FALSE(items.GetIntItemInfo("Bad", value));
    EXPECT_FALSE(items.GetIntItemInfo("Missing", value));
    EXPECT_EQ(99, value);
}

TEST_F(CorbaConfig, SettingOverwritesEveryItemOfTheName) {
    WriteStart("A=1\nB=2\nA=3\n");
    Read();
    EXPECT_TRUE(CorbaConfigItems::Instance()->SetStrItemInfo("A", "new"));
    Entries items = Items();
    items.resize(3);
    EXPECT_EQ((Entries{{"A", "new"}, {"B", "2"}, {"A", "new"}}), items);
}

TEST_F(CorbaConfig, SettingAddsNothing) {
    WriteStart("A=1\n");
    CorbaConfigItems::Instance()->GetAllStartItem();
    EXPECT_TRUE(CorbaConfigItems::Instance()->SetStrItemInfo("B", "2"));
    EXPECT_EQ((Entries{{"A", "1"}}), Items());
}

TEST_F(CorbaConfig, TheItemsReplaceWhatTheListHeld) {
    WriteStart("A=1\n");
    CorbaConfigItems::Instance()->GetAllStartItem();
    Entries items = {{"old", "1"}, {"old", "2"}};
    EXPECT_TRUE(CorbaConfigItems::Instance()->GetCorbaConfigItems(items));
    EXPECT_EQ((Entries{{"A", "1"}}), items);
}

// ---- Access lists ----

TEST_F(CorbaConfig, AccessListsAddUp) {
    WriteStart("acl=1.1.1.1, 2.2.2.2\nother=9.9.9.9\nacl=3.3.3.3\nACL=8.8.8.8\n");
    Entries addresses = {{"kept", "0"}};
    EXPECT_TRUE(Read().GetIPAddressList(addresses));
    EXPECT_EQ((Entries{{"kept", "0"}, {"", "1.1.1.1"}, {"", "2.2.2.2"}, {"", "3.3.3.3"}}), addresses);
}

/// @return the addresses of one list, set without the file reader's trimming
std::vector<std::string> AddressesOf(const std::string& list) {
    CorbaConfigItems& items = *CorbaConfigItems::Instance();
    items.SetStrItemInfo("acl", list);
    Entries entries;
    EXPECT_TRUE(items.GetIPAddressList(entries));
    std::vector<std::string> addresses;
    for (const NameValueStru& entry : entries) {
        EXPECT_EQ("", entry.name);
        addresses.push_back(entry.value);
    }
    return addresses;
}

TEST_F(CorbaConfig, ACommaAtTheVeryStartOfAnAccessListIsIgnored) {
    WriteStart("acl=x\n");
    Read();
    EXPECT_THAT(AddressesOf(",1.1.1.1"), testing::ElementsAre("1.1.1.1"));
    EXPECT_THAT(AddressesOf(", 1.1.1.1 ,2.2.2.2"), testing::ElementsAre("1.1.1.1", "2.2.2.2"));
}

TEST_F(CorbaConfig, AnEmptyPieceAnywhereElseMakesAnAccessListVoid) {
    WriteStart("acl=x\n");
    Read();
    for (const char* list : {"1.1.1.1,,2.2.2.2", "1.1.1.1,", "1.1.1.1, ", "", " ", ",", ",,", ",,1.1.1.1", " ,1.1.1.1",
                             "1.1.1.1,\t\r\n,2.2.2.2", ",1.1.1.1,"}) {
        EXPECT_THAT(AddressesOf(list), testing::IsEmpty()) << list;
    }
}

TEST_F(CorbaConfig, AVoidAccessListDoesNotTouchTheOthers) {
    WriteStart("acl=1.1.1.1\nacl=2.2.2.2,\nacl=3.3.3.3\n");
    Entries addresses;
    Read().GetIPAddressList(addresses);
    EXPECT_EQ((Entries{{"", "1.1.1.1"}, {"", "3.3.3.3"}}), addresses);
}

/// An access list read byte by byte: slow, but plain to see.
std::vector<std::string> ModelOfAddresses(const std::string& list) {
    std::vector<std::string> pieces(1);
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i] == ',' && i == 0) continue;
        if (list[i] == ',') {
            pieces.emplace_back();
        } else {
            pieces.back() += list[i];
        }
    }
    const auto isWhite = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    for (std::string& piece : pieces) {
        while (!piece.empty() && isWhite(piece.front())) piece.erase(piece.begin());
        while (!piece.empty() && isWhite(piece.back())) piece.pop_back();
        if (piece.empty()) return {};
    }
    return pieces;
}

TEST_F(CorbaConfig, RandomAccessListsAreReadAsModelled) {
    WriteStart("acl=x\n");
    Read();
    std::mt19937 random(20240303);
    int valid = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string list;
        for (std::size_t left = random() % 12; left > 0; --left) list += "12.ab:,, \t\n\f"[random() % 12];
        ASSERT_EQ(ModelOfAddresses(list), AddressesOf(list)) << testing::PrintToString(list);
        if (!ModelOfAddresses(list).empty()) ++valid;
    }
    EXPECT_GT(valid, 1000);
}

// ---- Peeking ----

TEST_F(CorbaConfig, PeekingCreatesNothing) {
    std::string value = "untouched";
    EXPECT_FALSE(CorbaConfigAccess::PeekStrItem("A", value));
    EXPECT_EQ("untouched", value);
    WriteStart("A=1\n");
    Read();
    EXPECT_TRUE(CorbaConfigAccess::PeekStrItem("A", value));
    EXPECT_EQ("1", value);
    EXPECT_FALSE(CorbaConfigAccess::PeekStrItem("B", value));
    EXPECT_EQ("1", value);
    CorbaConfigItems::Destroy();
    EXPECT_FALSE(CorbaConfigAccess::PeekStrItem("A", value));
}

TEST_F(CorbaConfig, PeekingDoesNotWaitForTheStaticObjectLock) {
    WriteStart("A=1\n");
    Read();
    std::atomic<bool> peeked{false};
    std::thread peeker;
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        peeker = std::thread([&peeked] {
            std::string value;
            peeked = CorbaConfigAccess::PeekStrItem("A", value);
        });
        EXPECT_TRUE(test::WaitFor([&peeked] { return peeked.load(); }));
    }
    peeker.join();
}

TEST_F(CorbaConfig, PeekingNeverTouchesADestroyedObject) {
    WriteStart("A=1\n");
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::atomic<int> rounds{0};
    std::vector<std::thread> peekers;
    for (int i = 0; i < 4; ++i) {
        peekers.emplace_back([&] {
            while (!stop) {
                std::string value = "1";
                CorbaConfigAccess::PeekStrItem("A", value);
                if (value != "1") ++wrong;
                ++rounds;
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        CorbaConfigItems::Instance()->GetAllStartItem();
        CorbaConfigItems::Destroy();
    }
    EXPECT_TRUE(test::WaitFor([&rounds] { return rounds > 0; }));
    stop = true;
    for (std::thread& peeker : peekers) peeker.join();
    EXPECT_EQ(0, wrong);
}

TEST_F(CorbaConfig, AForkedChildReadsItemsThatOtherThreadsWereReading) {
    WriteStart("A=1\n");
    Read();
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    const auto readUntilStopped = [&](auto read) {
        const std::string name = "A";
        std::string value;
        for (; !stop; ++rounds) read(name, value);
    };
    std::thread reader(readUntilStopped, [](const std::string& name, std::string& value) {
        CorbaConfigItems::Instance()->GetStrItemInfo(name, value);
    });
    std::thread peeker(readUntilStopped, &CorbaConfigAccess::PeekStrItem);
    EXPECT_TRUE(test::WaitFor([&rounds] { return rounds > 0; }));
    int status = 0;
    for (int i = 0; i < 200 && status == 0; ++i) {
        status = test::InForkedChild([] {
            std::string value;
            return CorbaConfigAccess::PeekStrItem("A", value) && value == "1";
        });
    }
    stop = true;
    reader.join();
    peeker.join();

    EXPECT_EQ(0, status);
}

}  // namespace

}  // namespace NS_BUNDLEMGR1
