// Code-set conversion when memory runs out, and in a process that forks.
#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "support/capture.h"
#include "support/environment.h"
#include "support/forkedchild.h"
#include "support/logfiles.h"
#include "support/memoryfault.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {

namespace {

using test::MemoryFault;

// ---- No memory ----

/// Runs an action with ever more memory until it succeeds; until then it must answer false
/// and leave its output alone.
/// @return how often it failed
template <class Action>
long FailuresUntilDone(Action action, const std::string& expected) {
    for (long requests = 0; requests < 1000; ++requests) {
        std::string out = "untouched";
        bool done = false;
        {
            const MemoryFault shortage(requests + 1, MemoryFault::kFromThenOn);
            done = action(out);
        }
        if (done) {
            EXPECT_EQ(expected, out);
            return requests;
        }
        EXPECT_EQ("untouched", out) << requests;
    }
    ADD_FAILURE() << "never done";
    return 0;
}

const std::string kLongText(200, 'x');

TEST(CodeSetFailures, WithoutMemoryAConversionIsFalse) {
    const test::ScopedLogDir log;
    test::StdoutOf([] {
        EXPECT_LT(1, FailuresUntilDone([](std::string& out) { return CodeSetConvert("GBK", "UTF-8", kLongText, out); },
                                       kLongText));
        EXPECT_LT(1,
                  FailuresUntilDone([](std::string& out) { return CodeSetConvert("KOI8-R", "CP1251", kLongText, out); },
                                    kLongText));
        // Open by now: what is left is the result and, for a text beyond a line, the buffer.
        EXPECT_EQ(1, FailuresUntilDone([](std::string& out) { return CodeSetConvert("GBK", "UTF-8", kLongText, out); },
                                       kLongText));
        const std::string page(1000, 'x');
        EXPECT_EQ(2,
                  FailuresUntilDone([&](std::string& out) { return CodeSetConvert("GBK", "UTF-8", page, out); }, page));
    });
}

TEST(CodeSetFailures, WithoutMemoryACopyIsFalse) {
    EXPECT_EQ(
        1, FailuresUntilDone([](std::string& out) { return CodeSetConvert("GBK", "GBK", kLongText, out); }, kLongText));
}

TEST(CodeSetFailures, WithoutMemoryTheFixedDirectionsAreFalse) {
    const test::TempDir dir;
    dir.Write("conf/corba_start.cfg", "CharacterSetSwitch=2\n");
    const test::ScopedEnv shareDir("_APP_SHARE_DIR", dir.Path());
    const test::ScopedLogDir log;
    test::StdoutOf([] {
        EXPECT_LT(0, FailuresUntilDone([](std::string& out) { return Local2Utf(out, kLongText); }, kLongText));
        EXPECT_LT(0, FailuresUntilDone([](std::string& out) { return Utf2Local(out, kLongText); }, kLongText));
    });
}

TEST(CodeSetFailures, WithoutMemoryAnUnknownSetIsFalse) {
    const test::ScopedLogDir log;
    test::StdoutOf([] {
        std::string ignored;
        CodeSetConvert("nonsense", "UTF-8", "x", ignored);
        for (long requests = 0; requests < 100; ++requests) {
            std::string out = "untouched";
            bool done = true;
            {
                const MemoryFault shortage(requests + 1, MemoryFault::kFromThenOn);
                done = CodeSetConvert("nonsense", "UTF-8", "x", out);
            }
            EXPECT_FALSE(done) << requests;
            EXPECT_EQ("untouched", out);
        }
    });
}

// ---- fork ----

/// Threads that do the same over and over while it lives.
class Busy {
public:
    template <class Action>
    Busy(int threads, Action action) {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this, action] {
                while (!m_stop) {
                    action();
                    ++m_rounds;
                }
            });
        }
        test::WaitFor([this] { return m_rounds > 0; });
    }
    ~Busy() {
        m_stop = true;
        for (std::thread& thread : m_threads) thread.join();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> m_stop{false};
    std::atomic<long> m_rounds{0};
    std::vector<std::thread> m_threads;
};

std::string Converted(const char* from, const char* to, const std::string& in) {
    std::string out = "untouched";
    return CodeSetConvert(from, to, in, out) ? out : "failed, " + out;
}

constexpr int kForks = 200;

TEST(CodeSetFork, AChildConvertsWhateverOtherThreadsWereConverting) {
    if (!test::kForkedChildMayAllocate) GTEST_SKIP() << "a forked child may not allocate here";
    const Busy threads(2, [] {
        Converted("GBK", "UTF-8", "\xD6\xD0");
        Converted("KOI8-R", "UTF-8", "\xC1");
    });
    for (int i = 0; i < kForks; ++i) {
        ASSERT_EQ(0, test::InForkedChild([] {
                      return Converted("GBK", "UTF-8", "\xD6\xD0") == "\xE4\xB8\xAD" &&
                             Converted("KOI8-R", "UTF-8", "\xC1") == "\xD0\xB0";
                  }))
            << i;
    }
}

TEST(CodeSetFork, AChildGoesOnInTheShiftStateOfItsParent) {
    EXPECT_EQ("\xFE\xFF\x04\x30", Converted("ISO-8859-5", "UTF-16", "\xD0"));
    EXPECT_EQ(0, test::InForkedChild([] { return Converted("ISO-8859-5", "UTF-16", "\xD0") == "\x04\x30"; }));
    EXPECT_EQ("\x04\x30", Converted("ISO-8859-5", "UTF-16", "\xD0"));
}

}  // namespace

}  // namespace NS_BUNDLEMGR1
