// A bundle that is made of the kit, in a host.
#include "hosttest.h"

namespace test {
namespace {

class KitTest : public HostTest {
protected:
    KitTest() {
        ConfigureBundles("Bundle=fx_kit\n");
        ConfigureServices("fx_kit", "service=fx_kit:KitFirst\nservice=fx_kit:KitSecond\n");
    }

    static std::string FirstStarts() { return InitService("KitFirst") + "KitFirst works\n" + Ready("KitFirst"); }
    static std::string FirstEnds() {
        return "KitFirst: has no threads\n" + Finalize("KitFirst") + "KitFirst: destroyed\n";
    }
    static std::string Init() { return InitBundle("fx_kit"); }
    static std::string FailedServices() {
        return "fx_kit: publishes\n" + FirstStarts() + InitService("KitSecond") + "KitSecond: refuses\n" +
               InitFailed("fx_kit", "KitSecond", "1") + InitBundleFailed("fx_kit", "1");
    }
    static std::string GoodServices() {
        return "fx_kit: publishes\n" + FirstStarts() + InitService("KitSecond") +
               "KitSecond: finds the first service\n" + Ready("KitSecond");
    }
};

TEST_F(KitTest, AfterAFailedInitTheNextOneBeginsAnew) {
    const std::string output =
        Run("load init state=fx_kit services=fx_kit init state=fx_kit services=fx_kit fini state=fx_kit "
            "destroy-events destroy destroy-log");
    EXPECT_EQ(Loading("fx_kit") + Opened("fx_kit") + "> load: 0\n" + Init() + FailedServices() + "> init: 1\n" +
                  "> state=fx_kit: 0\n> services=fx_kit:  KitFirst\n" + Init() + FirstEnds() + "fx_kit: withdraws\n" +
                  GoodServices() + "> init: 0\n" + "> state=fx_kit: 1\n> services=fx_kit:  KitFirst KitSecond\n" +
                  FiniBundle("fx_kit") + Finalize("KitSecond") + FirstEnds() +
                  "fx_kit: withdraws\n> fini: done\n> state=fx_kit: 2\n" +
                  "> destroy-events: done\n> destroy: done\n> destroy-log: done\n",
              output);
}

TEST_F(KitTest, AfterAFailedInitItEndsInOrderToo) {
    const std::string output = Run("load init fini state=fx_kit destroy-events destroy destroy-log");
    EXPECT_THAT(output, testing::HasSubstr(FailedServices() + "> init: 1\n" + FiniBundle("fx_kit") + FirstEnds() +
                                           "fx_kit: withdraws\n> fini: done\n> state=fx_kit: 2\n"));
}

TEST_F(KitTest, ItsServicesMayComeAndGo) {
    Set("FX_KIT_TRIED", "yes");
    const std::string output =
        Run("load init remove=KitFirst@fx_kit remove=KitSecond@fx_kit load-services=fx_kit fini destroy-events "
            "destroy destroy-log");
    const std::string again = FirstStarts() + InitService("KitSecond") + "KitSecond: finds the first service\n" +
                              Ready("KitSecond") + "> load-services=fx_kit: 0\n";
    EXPECT_THAT(output, testing::HasSubstr(GoodServices() + "> init: 0\n" + FirstEnds()));
    EXPECT_THAT(output, testing::HasSubstr(again));
}

TEST_F(KitTest, MayBeInitialisedOnceMoreAfterItsEnd) {
    Set("FX_KIT_TRIED", "yes");
    const std::string output = Run("load init fini reset-state=fx_kit init state=fx_kit fini destroy-events destroy");
    EXPECT_THAT(output, testing::HasSubstr("> reset-state=fx_kit: done\n"));
    EXPECT_THAT(output, testing::HasSubstr(GoodServices() + "> init: 0\n> state=fx_kit: 1\n"));
}

TEST_F(KitTest, ItsLibraryIsUnmapped) {
    Set("FX_KIT_TRIED", "yes");
    const std::string output =
        Run("load init events fini mapped=libfx_kit.so destroy-events destroy mapped=libfx_kit.so");
    EXPECT_THAT(output, testing::HasSubstr("> mapped=libfx_kit.so: yes\n"));
    EXPECT_THAT(output, testing::HasSubstr("> destroy: done\n> mapped=libfx_kit.so: no\n"));
}

}  // namespace
}  // namespace test
