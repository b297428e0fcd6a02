#include "bundle/servicelibraries.h"

#include <gtest/gtest.h>

#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

// That libraries really close is a matter of real ones: see the tests of whole life cycles.

TEST(ServiceLibrariesTest, LibrariesThatAreNotOpenAreLeftAlone) {
    ServiceLibraries::Note("dynamic svc Service_Object * libzo_test_missing:_make_svc() \"\"");
    EXPECT_EQ("", test::StdoutOf([] {
                  ServiceLibraries::CloseUnused();
                  ServiceLibraries::CloseUnused();
              }));
}

TEST(ServiceLibrariesTest, WhatIsNoDirectiveIsIgnored) {
    for (const char* const text : {"", " Service_Object * ", "dynamic a Service_Object * ", ":_make_a()",
                                   "dynamic a:b Service_Object * lib:_make_a:b() \"\"", "static a \"\""}) {
        ServiceLibraries::Note(text);
    }
    ServiceLibraries::CloseUnused();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
