#include "src/configurator/servicelibraries.h"

#include <gtest/gtest.h>

#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

// That libraries really close is a matter of real ones: see the tests of whole life cycles.

TEST(ServiceLibrariesTest, LibrariesThatAreNotOpenAreLeftAlone) {
    ServiceLibraries::Note("libzo_test_missing");
    EXPECT_EQ("", test::StdoutOf([] {
                  ServiceLibraries::CloseUnused();
                  ServiceLibraries::CloseUnused();
              }));
}

TEST(ServiceLibrariesTest, NamesThatNoLibraryCanHaveAreLeftAlone) {
    for (const char* const name : {"", "/", "a/b/", "..", "lib\n"}) ServiceLibraries::Note(name);
    EXPECT_EQ("", test::StdoutOf([] { ServiceLibraries::CloseUnused(); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
