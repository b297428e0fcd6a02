#include "src/lifetime/inservice.h"

#include <thread>

#include <gtest/gtest.h>

namespace NS_BUNDLEMGR1 {
namespace {

TEST(InServiceTest, IsActiveForItsLifeOnItsThreadAlone) {
    EXPECT_FALSE(InService::IsActive());
    {
        const InService scope;
        EXPECT_TRUE(InService::IsActive());
        std::thread([] { EXPECT_FALSE(InService::IsActive()); }).join();
    }
    EXPECT_FALSE(InService::IsActive());
}

TEST(InServiceTest, IsActiveUntilTheOutermostScopeEnds) {
    const InService outer;
    { const InService inner; }
    EXPECT_TRUE(InService::IsActive());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
