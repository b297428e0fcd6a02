#include "src/bundlemgr/bundleenvironment.h"

#include <unistd.h>

#include <random>

#include <gmock/gmock.h>

#include "support/capture.h"
#include "support/slot.h"
#include "unit/log/logtest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Slot;
using test::StdoutOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;

class ConfigTest : public test::LogTest {
protected:
    // The records that were written, which are all this file's.
    std::vector<std::string> Reported() {
        const std::vector<test::LogRecord> records = test::ParseLog(Log());
        for (const test::LogRecord& record : records) {
            EXPECT_THAT(
                record,
                AllOf(Field(&test::LogRecord::level, LOG_LEVEL_INFO), Field(&test::LogRecord::bundle, "BundleMgr"),
                      Field(&test::LogRecord::service, "Core"), Field(&test::LogRecord::file, "bundleenvironment")));
        }
        return test::Texts(records);
    }
};

// ---- Config_Param ----------------------------------------------------------------------

class CountingReader : public Config_Param {
public:
    explicit CountingReader(int& reads) : Config_Param("the file"), m_reads(reads) {}
    ~CountingReader() override { m_reads = -1; }
    int Read() override { return ++m_reads; }
    std::string File() const { return m_strCfgFileName; }
    bool IsRead() const { return m_bRead; }

private:
    int& m_reads;
};

TEST(ConfigParamTest, KeepsTheFileNameAndIsUnread) {
    int reads = 0;
    const CountingReader reader(reads);
    EXPECT_EQ("the file", reader.File());
    EXPECT_FALSE(reader.IsRead());
}

TEST(ConfigParamTest, SlotsAreTheDestructorsAndRead) {
    int reads = 0;
    Config_Param* const reader = new CountingReader(reads);
    EXPECT_EQ(1, Slot<int (*)(Config_Param*)>(reader, 2)(reader));
    Slot<void (*)(Config_Param*)>(reader, 1)(reader);  // frees it as well
    EXPECT_EQ(-1, reads);

    alignas(CountingReader) unsigned char place[sizeof(CountingReader)];
    Config_Param* const placed = new (place) CountingReader(reads);
    Slot<void (*)(Config_Param*)>(placed, 0)(placed);
    EXPECT_EQ(-1, reads);
}

// ---- BundleMgr_Config_Param ------------------------------------------------------------

class BundleMgrConfigTest : public ConfigTest {
protected:
    struct Config {
        std::map<std::string, int> set{{"kept", 1}};
        std::vector<std::string> list{"kept"};
    };

    BundleMgr_Config_Param Reader(const std::string& content) {
        return BundleMgr_Config_Param(m_dir.Write("bundlemgr.cfg", content).c_str());
    }

    Config ConfigOf(const std::string& content) {
        Config config;
        Reader(content).GetConfig(config.set, config.list);
        return config;
    }
};

TEST_F(BundleMgrConfigTest, BundlesComeInFileOrderWithDuplicates) {
    BundleMgr_Config_Param reader = Reader("Bundle = a\nOther = x\nBundle2 = b\nBundle = a\n");
    Config config;
    reader.GetConfig(config.set, config.list);

    EXPECT_THAT(config.list, ElementsAre("a", "b", "a"));
    EXPECT_THAT(config.set, ElementsAre(Pair("a", 999), Pair("b", 999)));
    EXPECT_EQ("x", reader.GetValue("Other"));
    EXPECT_EQ("", reader.GetValue("Bundle"));
    EXPECT_EQ("", reader.GetValue("Bundle2"));
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(BundleMgrConfigTest, AKeyNamesABundleByItsFirstSixCharacters) {
    BundleMgr_Config_Param reader = Reader(
        "Bundl=five\nBundleX=six\nBundleList=list\nBundle=plain\nbundle=small\nBUNDLE=big\nMyBundle=mine\nBundle =\n");
    Config config;
    reader.GetConfig(config.set, config.list);

    EXPECT_THAT(config.list, ElementsAre("six", "list", "plain", ""));
    EXPECT_EQ("five", reader.GetValue("Bundl"));
    EXPECT_EQ("small", reader.GetValue("bundle"));
    EXPECT_EQ("big", reader.GetValue("BUNDLE"));
    EXPECT_EQ("mine", reader.GetValue("MyBundle"));
}

TEST_F(BundleMgrConfigTest, TheLastOfSeveralOtherItemsCounts) {
    BundleMgr_Config_Param reader = Reader("k=first\nk=second\n=nameless\n");
    EXPECT_EQ("second", reader.GetValue("k"));
    EXPECT_EQ("nameless", reader.GetValue(""));
    EXPECT_EQ("", reader.GetValue("absent"));
}

TEST_F(BundleMgrConfigTest, CommentsAndBlankLinesAreSkippedAndTabsGo) {
    const Config config = ConfigOf("# Bundle=no\n\n  \t\r\nBundle\n\tBundle\t=\tone\ttwo \r\nBundle=a=b\nBundle=c # d");
    EXPECT_THAT(config.list, ElementsAre("onetwo", "a=b", "c # d"));
}

TEST_F(BundleMgrConfigTest, TheOutputsAreReplacedEvenByNothing) {
    const Config config = ConfigOf("");
    EXPECT_THAT(config.set, IsEmpty());
    EXPECT_THAT(config.list, IsEmpty());
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(BundleMgrConfigTest, ReadPrintsTheFileName) {
    BundleMgr_Config_Param reader = Reader("Bundle=a\n");
    int result = 1;
    EXPECT_EQ("m_strCfgFileName=" + (m_dir / "bundlemgr.cfg") + " \n", StdoutOf([&] { result = reader.Read(); }));
    EXPECT_EQ(0, result);
}

TEST_F(BundleMgrConfigTest, EveryCallReadsTheFileAnewAndAppends) {
    BundleMgr_Config_Param reader = Reader("Bundle=a\nk=1\n");
    Config config;
    reader.GetConfig(config.set, config.list);
    m_dir.Write("bundlemgr.cfg", "Bundle=b\nk=2\n");

    EXPECT_EQ("2", reader.GetValue("k"));
    reader.GetConfig(config.set, config.list);

    EXPECT_THAT(config.list, ElementsAre("a", "b", "b"));
    EXPECT_THAT(config.set, ElementsAre(Pair("a", 999), Pair("b", 999)));
}

TEST_F(BundleMgrConfigTest, AMissingFileLeavesTheOutputsAndIsReportedTwice) {
    const std::string file = m_dir / "missing.cfg";
    BundleMgr_Config_Param reader(file.c_str());
    Config config;
    const std::string printed = StdoutOf([&] { reader.GetConfig(config.set, config.list); });

    EXPECT_THAT(config.set, ElementsAre(Pair("kept", 1)));
    EXPECT_THAT(config.list, ElementsAre("kept"));
    EXPECT_EQ(
        "m_strCfgFileName=" + file + " \nFile :" + file + " Open Failed \nFailed in Read BundleMgr Config File \n",
        printed);
    EXPECT_THAT(Reported(),
                ElementsAre("File :" + file + " Open Failed \n", "Failed in Read BundleMgr Config File \n"));
}

TEST_F(BundleMgrConfigTest, AMissingFileHasNoValues) {
    const std::string file = m_dir / "missing.cfg";
    BundleMgr_Config_Param reader(file.c_str());
    EXPECT_EQ("", reader.GetValue("k"));
    EXPECT_EQ(-1, reader.Read());
    EXPECT_THAT(Reported(), ElementsAre("File :" + file + " Open Failed \n", "Failed in Read BundleMgr Config File \n",
                                        "File :" + file + " Open Failed \n"));
}

TEST_F(BundleMgrConfigTest, AFileThatCannotBeOpenedIsLikeAMissingOne) {
    const std::string loop = m_dir / "loop.cfg";
    ASSERT_EQ(0, symlink(loop.c_str(), loop.c_str()));
    BundleMgr_Config_Param reader(loop.c_str());
    EXPECT_EQ(-1, reader.Read());
    EXPECT_THAT(Reported(), ElementsAre("File :" + loop + " Open Failed \n"));
}

TEST_F(BundleMgrConfigTest, AFileThatAppearsLaterIsRead) {
    BundleMgr_Config_Param reader((m_dir / "bundlemgr.cfg").c_str());
    EXPECT_EQ("", reader.GetValue("k"));
    m_dir.Write("bundlemgr.cfg", "k=1\n");
    EXPECT_EQ("1", reader.GetValue("k"));
}

// ---- SVC_Config_Param ------------------------------------------------------------------

class SvcConfigTest : public ConfigTest {
protected:
    SVC_Config_Param Reader(const std::string& content) {
        return SVC_Config_Param(m_dir.Write("svc.cfg", content).c_str());
    }

    std::string DirectiveOf(const std::string& value, const std::string& service) {
        return Reader("service=" + value + "\n").GetServiceDirective(service.c_str());
    }
};

TEST_F(SvcConfigTest, AServiceLivesInItsBundlesLibrary) {
    EXPECT_EQ("dynamic AgentSvc Service_Object * libnbi_agent:_make_AgentSvc() \"\"",
              DirectiveOf("nbi_agent:AgentSvc", "AgentSvc"));
}

TEST_F(SvcConfigTest, TheServicesOfFiveBundlesLiveInLibrariesOfTheirOwn) {
    for (const char* const bundle :
         {"zo_base_bundle", "zo_domain_bundle", "zo_corba_bundle", "zo_ascii_bundle", "zo_koru_corbaagent_bundle"}) {
        EXPECT_EQ("dynamic AlarmSvc Service_Object * libAlarmSvc:_make_AlarmSvc() \"\"",
                  DirectiveOf(std::string(bundle) + ":AlarmSvc", "AlarmSvc"))
            << bundle;
    }
}

TEST_F(SvcConfigTest, OnlyThoseFiveNamesExactly) {
    EXPECT_EQ("dynamic x Service_Object * libx:_make_x() \"\"", DirectiveOf("zo_domain_bundle:x", "x"));
    EXPECT_EQ("dynamic x Service_Object * libzo_domain_bundle2:_make_x() \"\"",
              DirectiveOf("zo_domain_bundle2:x", "x"));
    EXPECT_EQ("dynamic x Service_Object * libzo_domain_bundl:_make_x() \"\"", DirectiveOf("zo_domain_bundl:x", "x"));
    EXPECT_EQ("dynamic x Service_Object * libZO_BASE_BUNDLE:_make_x() \"\"", DirectiveOf("ZO_BASE_BUNDLE:x", "x"));
    EXPECT_EQ("dynamic x Service_Object * libzo_base_bundle :_make_x() \"\"", DirectiveOf("zo_base_bundle :x", "x"));
}

TEST_F(SvcConfigTest, TheFirstColonSeparates) {
    EXPECT_EQ("dynamic b:c Service_Object * liba:_make_b:c() \"\"", DirectiveOf("a:b:c", "b:c"));
}

TEST_F(SvcConfigTest, EitherPartMayBeEmpty) {
    EXPECT_EQ("dynamic x Service_Object * lib:_make_x() \"\"", DirectiveOf(":x", "x"));
    EXPECT_EQ("dynamic  Service_Object * liba:_make_() \"\"", DirectiveOf("a:", ""));
    EXPECT_EQ("dynamic  Service_Object * lib:_make_() \"\"", DirectiveOf("zo_base_bundle:", ""));
    EXPECT_THAT(Reader("service=a:\n").GetServiceNames(), ElementsAre(""));
}

TEST_F(SvcConfigTest, NamesComeInFileOrderEachOnce) {
    SVC_Config_Param reader = Reader("service=l:c\nservice=l:a\nservice=m:c\nservice=l:b\nservice=l:a\n");
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre("c", "a", "b"));
    EXPECT_EQ("dynamic c Service_Object * libl:_make_c() \"\"", reader.GetServiceDirective("c"));
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(SvcConfigTest, AnItemWithoutAColonIsSkipped) {
    SVC_Config_Param reader = Reader("service=nothing\nservice=\nservice=l:a\n");
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre("a"));
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(SvcConfigTest, ReadingIsSilentAndOnce) {
    SVC_Config_Param reader = Reader("service=l:a\n");
    EXPECT_EQ("", StdoutOf([&] { EXPECT_EQ("", reader.GetServiceDirective("b")); }));
    m_dir.Write("svc.cfg", "service=l:b\n");
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre("a"));
    EXPECT_EQ("", reader.GetServiceDirective("b"));
}

TEST_F(SvcConfigTest, AnExplicitReadReadsAgainAndKeepsTheFirst) {
    SVC_Config_Param reader = Reader("service=l:a\n");
    EXPECT_EQ(0, reader.Read());
    m_dir.Write("svc.cfg", "service=m:a\nservice=m:b\n");
    EXPECT_EQ(0, reader.Read());
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre("a", "b"));
    EXPECT_EQ("dynamic a Service_Object * libl:_make_a() \"\"", reader.GetServiceDirective("a"));
}

TEST_F(SvcConfigTest, AnEmptyFileIsReadOnceAndYieldsNothing) {
    SVC_Config_Param reader = Reader("# nothing yet\n");
    EXPECT_THAT(reader.GetServiceNames(), IsEmpty());
    m_dir.Write("svc.cfg", "service=l:a\n");
    EXPECT_EQ("", reader.GetServiceDirective("a"));
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(SvcConfigTest, AnotherKeyStopsTheReadingThere) {
    SVC_Config_Param reader = Reader("service=l:a\nService=l:b\nservice=l:c\n");
    int result = 0;
    EXPECT_EQ("Item name is not 'service'\n", StdoutOf([&] { result = reader.Read(); }));
    EXPECT_EQ(-1, result);
    EXPECT_THAT(Reported(), ElementsAre("Item name is not 'service'\n"));
}

TEST_F(SvcConfigTest, AfterAFailureTheFileIsReadAgainAndNothingComesTwice) {
    SVC_Config_Param reader = Reader("service=l:a\nservices=l:b\n");
    EXPECT_EQ("", reader.GetServiceDirective("a"));
    EXPECT_THAT(Reported(), ElementsAre("Item name is not 'service'\n", "Failed in Read a 's SvcConfig File \n"));

    m_dir.Write("svc.cfg", "service=m:a\nservice=m:b\n");
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre("a", "b"));
    EXPECT_EQ("dynamic a Service_Object * libl:_make_a() \"\"", reader.GetServiceDirective("a"));
}

TEST_F(SvcConfigTest, AMissingFileIsReportedWithTheServiceAskedFor) {
    const std::string file = m_dir / "missing.cfg";
    SVC_Config_Param reader(file.c_str());
    std::string printed = StdoutOf([&] { EXPECT_EQ("", reader.GetServiceDirective("AgentSvc")); });
    EXPECT_EQ("File :" + file + " Open Failed \nFailed in Read AgentSvc 's SvcConfig File \n", printed);

    printed = StdoutOf([&] { EXPECT_THAT(reader.GetServiceNames(), IsEmpty()); });
    EXPECT_EQ("File :" + file + " Open Failed \nFailed in Read  's SvcConfig File \n", printed);
    EXPECT_THAT(Reported(),
                ElementsAre("File :" + file + " Open Failed \n", "Failed in Read AgentSvc 's SvcConfig File \n",
                            "File :" + file + " Open Failed \n", "Failed in Read  's SvcConfig File \n"));
}

TEST_F(SvcConfigTest, ALineLongerThanTheReadersBufferIsSeveralLines) {
    const std::string longName(1023 - std::string("service=l:").size(), 's');
    SVC_Config_Param reader = Reader("service=l:" + longName + "service=l:tail\n");
    EXPECT_THAT(reader.GetServiceNames(), ElementsAre(longName, "tail"));
}

// The table as it would be if somebody filled it by hand.
class SvcModel {
public:
    void Add(const std::string& library, const std::string& service) {
        if (!m_directives.emplace(service, Directive(library, service)).second) return;
        m_names.push_back(service);
    }
    const std::vector<std::string>& Names() const { return m_names; }
    const std::map<std::string, std::string>& Directives() const { return m_directives; }

private:
    static std::string Directive(const std::string& library, const std::string& service) {
        const bool own = library == "zo_base_bundle" || library == "zo_domain_bundle" || library == "zo_corba_bundle" ||
                         library == "zo_ascii_bundle" || library == "zo_koru_corbaagent_bundle";
        std::string text = "dynamic ";
        text.append(service).append(" Service_Object * lib").append(own ? service : library);
        text.append(":_make_").append(service).append("() \"\"");
        return text;
    }

    std::map<std::string, std::string> m_directives;
    std::vector<std::string> m_names;
};

TEST_F(SvcConfigTest, RandomFilesYieldWhatTheModelYields) {
    const std::vector<std::string> libraries = {"zo_base_bundle",
                                                "zo_domain_bundle",
                                                "zo_corba_bundle",
                                                "zo_ascii_bundle",
                                                "zo_koru_corbaagent_bundle",
                                                "zo_base_bundle2",
                                                "nbi_agent",
                                                "",
                                                "z o"};
    const std::vector<std::string> services = {"A", "B", "C", "AlarmSvc", "", "a:b", "x=y", "_1", "#x"};
    const std::vector<std::string> blanks = {"", " ", "\t", " \t ", "\r"};
    std::mt19937 random(20240131);
    const auto pick = [&random](const std::vector<std::string>& from) { return from[random() % from.size()]; };

    for (int round = 0; round < 300; ++round) {
        SvcModel model;
        std::string content;
        for (auto lines = random() % 20; lines > 0; --lines) {
            switch (random() % 8) {
                case 0:
                    content += pick(blanks) + "# service=l:comment\n";
                    break;
                case 1:
                    content += pick(blanks) + "\nno separator\nservice=no colon\n";
                    break;
                default: {
                    const std::string library = pick(libraries);
                    const std::string service = pick(services);
                    content += pick(blanks) + "service" + pick(blanks) + "=" + pick(blanks) + library + ":" + service +
                               pick(blanks) + "\n";
                    model.Add(library, service);
                }
            }
        }
        SVC_Config_Param reader = Reader(content);
        ASSERT_EQ(model.Names(), reader.GetServiceNames()) << content;
        for (const auto& entry : model.Directives()) {
            ASSERT_EQ(entry.second, reader.GetServiceDirective(entry.first.c_str())) << content;
        }
    }
    EXPECT_THAT(Reported(), IsEmpty());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
