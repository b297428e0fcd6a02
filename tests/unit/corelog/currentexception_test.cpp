#include "src/corelog/currentexception.h"

#include <pthread.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace NS_BUNDLEMGR1 {
namespace {

template <class Action>
std::string ReportOf(Action action) {
    std::string report = "none";
    ReportException(action, [&report](const std::string& what) { report = what; });
    return report;
}

TEST(ReportExceptionTest, TellsWhatWasThrown) {
    EXPECT_EQ("no licence", ReportOf([] { throw std::runtime_error("no licence"); }));
    EXPECT_EQ("std::exception", ReportOf([] { throw std::exception(); }));
    EXPECT_EQ("an exception of unknown type", ReportOf([] { throw 5; }));
    EXPECT_EQ("an exception of unknown type", ReportOf([] { throw "text"; }));
}

TEST(ReportExceptionTest, IsSilentWhereNothingIsThrown) {
    bool done = false;
    EXPECT_EQ("none", ReportOf([&done] { done = true; }));
    EXPECT_TRUE(done);
}

TEST(ReportExceptionTest, AnExceptionOfTheReportEndsThereToo) {
    EXPECT_FALSE(ReportException([] { throw 5; }, [](const std::string&) { throw std::bad_alloc(); }));
}

TEST(ReportExceptionTest, TellsWhetherTheActionCameToItsEnd) {
    EXPECT_TRUE(ReportException([] {}, [](const char*) {}));
    EXPECT_FALSE(ReportException([] { throw 5; }, [](const char*) {}));
}

// The process would not survive that the end of a thread is swallowed.
TEST(ReportExceptionTest, TheEndOfAThreadIsNoException) {
    std::atomic<bool> reported{false};
    std::atomic<bool> wentOn{false};
    std::thread([&] {
        ReportException([] { pthread_exit(nullptr); }, [&reported](const std::string&) { reported = true; });
        wentOn = true;
    }).join();
    EXPECT_FALSE(reported);
    EXPECT_FALSE(wentOn);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
