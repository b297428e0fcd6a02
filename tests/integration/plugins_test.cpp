// What the libraries of plug-ins look like from outside.
#include <sstream>

#include "hosttest.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;

class PluginsTest : public testing::Test {
protected:
    static std::string SymbolsOf(const std::string& library) {
        std::string symbols;
        EXPECT_EQ(0, RunCommand("readelf --wide --dyn-syms " ZO_TEST_PLUGIN_DIR "/lib" + library + ".so", symbols));
        return symbols;
    }
};

class EveryPluginTest : public PluginsTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(All, EveryPluginTest,
                         testing::Values("fx_first", "fx_second", "fx_third", "fx_misnamed", "fx_throwing", "fx_early",
                                         "fx_needy", "fx_nobundle", "zo_base_bundle", "zo_domain_bundle", "BaseSvc",
                                         "DomainSvc"),
                         [](const auto& library) { return std::string(library.param); });

// One such symbol would keep the library in memory for good.
TEST_P(EveryPluginTest, HaveNoUniqueSymbols) {
    const std::string symbols = SymbolsOf(GetParam());
    EXPECT_THAT(symbols, HasSubstr("Symbol table '.dynsym'"));
    EXPECT_THAT(symbols, Not(HasSubstr(" UNIQUE ")));
}

// Libraries are opened with RTLD_GLOBAL: what two of them define would become one.
TEST_P(EveryPluginTest, KeepTheirClassesToThemselves) {
    const std::string symbols = SymbolsOf(GetParam());
    std::istringstream lines(symbols);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(" UND ") != std::string::npos) continue;
        for (const char* const own : {"Scripted", "Greeter", "zoBundleRegistration"}) {
            EXPECT_THAT(line, Not(HasSubstr(own)));
        }
    }
}

TEST_F(PluginsTest, ExportTheirFactories) {
    const std::string symbols = SymbolsOf("fx_first");
    for (const char* const factory : {"M1", "M2", "M3", "P1", "P2", "P3", "G1"}) {
        EXPECT_THAT(symbols, HasSubstr(std::string(" _make_") + factory + "\n"));
    }
}

}  // namespace
}  // namespace test
