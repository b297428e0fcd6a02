// The README's example, in a host.
#include "hosttest.h"

namespace test {
namespace {

using testing::HasSubstr;

class ReadmeTest : public HostTest {};

TEST_F(ReadmeTest, TheExampleRuns) {
    ConfigureBundles("Bundle=hello_bundle\n");
    ConfigureServices("hello_bundle", "service=hello_bundle:HelloSvc\n");
    const std::string output = Run("load init fini destroy destroy-log");
    EXPECT_THAT(output, HasSubstr("> load: 0\n"));
    EXPECT_THAT(output, HasSubstr(InitService("HelloSvc") + "HelloSvc is up\n" + Ready("HelloSvc") + "> init: 0\n"));
    EXPECT_THAT(output, HasSubstr(FiniBundle("hello_bundle") + Finalize("HelloSvc") + "> fini: done\n"));
}

}  // namespace
}  // namespace test
