#include "src/log/zonevariable.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "support/environment.h"

namespace NS_BUNDLEMGR1 {
namespace {

class ZoneVariableTest : public testing::Test {
protected:
    ZoneVariableTest() : m_zone("TZ", "UTC") { m_variable.Value(); }

    const test::ScopedEnv m_zone;
    ZoneVariable m_variable;
};

TEST_F(ZoneVariableTest, IsWhatTheEnvironmentSays) {
    EXPECT_STREQ("UTC", m_variable.Value());
    EXPECT_STREQ("UTC", m_variable.Value());
}

TEST_F(ZoneVariableTest, NoticesANewValue) {
    setenv("TZ", "CST-8", 1);
    EXPECT_STREQ("CST-8", m_variable.Value());
    setenv("TZ", "", 1);
    EXPECT_STREQ("", m_variable.Value());
}

TEST_F(ZoneVariableTest, NoticesThatItIsGoneAndBack) {
    for (int i = 0; i < 3; ++i) {
        unsetenv("TZ");
        EXPECT_STREQ("/etc/localtime", m_variable.Value());
        EXPECT_STREQ("/etc/localtime", m_variable.Value());
        setenv("TZ", "CST-8", 1);
        EXPECT_STREQ("CST-8", m_variable.Value());
    }
}

TEST_F(ZoneVariableTest, NoticesOneThatTakesThePlaceOfAnother) {
    unsetenv("TZ");
    const test::ScopedEnv other("OTHER_VARIABLE", "value");
    EXPECT_STREQ("/etc/localtime", m_variable.Value());
    unsetenv("OTHER_VARIABLE");
    setenv("TZ", "CST-8", 1);
    EXPECT_STREQ("CST-8", m_variable.Value());
}

TEST_F(ZoneVariableTest, NoticesAStringThatItsOwnerChanges) {
    static char s_zone[] = "TZ=AAA1";
    putenv(s_zone);
    EXPECT_STREQ("AAA1", m_variable.Value());
    s_zone[3] = 'B';
    EXPECT_STREQ("BAA1", m_variable.Value());
    unsetenv("TZ");
}

TEST_F(ZoneVariableTest, OtherVariablesAreNoZone) {
    unsetenv("TZ");
    const test::ScopedEnv longer("TZDIR", "/nowhere");
    EXPECT_STREQ("/etc/localtime", m_variable.Value());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
