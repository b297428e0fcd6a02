// Each place of the library that prints on standard output, on one that takes nothing.
#include <functional>
#include <list>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>
#include <bundlemgr/schema.h>

#include "src/bundlemgr/bundleenvironment.h"
#include "src/bundlemgr/bundlemgrimpl.h"
#include "support/badoutput.h"
#include "support/forkedchild.h"
#include "unit/log/logtest.h"

namespace NS_BUNDLEMGR1 {
namespace {

struct Place {
    const char* name;
    std::function<void()> print;
    std::vector<std::string> records;  // what goes to the log all the same
};

void PrintTo(const Place& place, std::ostream* out) {
    *out << place.name;
}

void PrintSchema() {
    ObjectSchema_T schema;
    schema.properties.resize(1);
    __PrintSchemaDirty(schema);
}

void PrintUnknownSet() {
    std::string out;
    CodeSetConvert("no such set", "UTF-8", "text", out);
}

void ReadMissingBundles() {
    BundleMgr_Config_Param("no such file").Read();
}

void ListBundlesWithoutCore() {
    std::list<std::string> names;
    BundleMgrImpl().GetLoadBundles(names, nullptr);
}

class PrintingPlaceTest : public test::LogTest, public testing::WithParamInterface<Place> {};

TEST_P(PrintingPlaceTest, CostsNeitherProcessNorRecordWhereNobodyReads) {
    const int status = test::StatusOfChild([] {
        test::BreakStdout();
        GetParam().print();
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ(GetParam().records, test::Texts(test::ParseLog(Log())));
}

TEST_P(PrintingPlaceTest, CostsNeitherProcessNorRecordWhereTheFileIsFull) {
    // The log's file may be as large as this one, which is full.
    constexpr rlim_t kBytes = 4096;
    const std::string full = m_dir.Write("full", std::string(kBytes, 'x'));
    const int status = test::StatusOfChild([&] {
        test::LimitStdout(full, kBytes);
        lseek(STDOUT_FILENO, 0, SEEK_END);
        GetParam().print();
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ(GetParam().records, test::Texts(test::ParseLog(Log())));
}

INSTANTIATE_TEST_SUITE_P(
    All, PrintingPlaceTest,
    testing::Values(
        Place{"Echo",
              [] { BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Echo")->Printf(LOG_LEVEL_INFO, "text\n"); },
              {"text\n"}},
        Place{"DefaultLogProxy", [] { DefaultLogProxy().Printf(LOG_LEVEL_INFO, "text\n"); }, {}},
        Place{"CodeSetConvert", PrintUnknownSet, {"[CodeSetConvert]:iconv_open(UTF-8,no such set) failed.\n"}},
        Place{"BundlemgrCfg", ReadMissingBundles, {"File :no such file Open Failed \n"}},
        Place{"LoadBundles", ListBundlesWithoutCore, {}}, Place{"Schema", PrintSchema, {}}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace NS_BUNDLEMGR1
