#include "src/platform/standardoutput.h"

#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/badoutput.h"
#include "support/capture.h"
#include "support/forkedchild.h"
#include "support/nosystemcalls.h"
#include "support/tempdir.h"

namespace {

using NS_BUNDLEMGR1::PrintError;
using NS_BUNDLEMGR1::PrintOut;
using NS_BUNDLEMGR1::PrintOutText;
using test::ReadFile;
using test::StatusOfChild;
using test::StdoutOf;

constexpr int kNotAvailable = 77;

/// Makes standard output a file, buffered as `mode` says.
void RedirectStdout(const std::string& file, int mode) {
    static char s_buffer[8192];
    if (std::freopen(file.c_str(), "w", stdout) == nullptr) std::abort();
    std::setvbuf(stdout, s_buffer, mode, sizeof s_buffer);
}

sigset_t Set(int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    return set;
}

bool IsBlocked(int number) {
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    return sigismember(&now, number) != 0;
}

bool IsPending(int number) {
    sigset_t now;
    sigpending(&now);
    return sigismember(&now, number) != 0;
}

// ---- What is printed ----

TEST(StandardOutputTest, PrintsAsPrintfDoes) {
    EXPECT_EQ("a text, 42, 100%\n", StdoutOf([] { PrintOut("a %s, %d, 100%%\n", "text", 42); }));
    EXPECT_EQ("", StdoutOf([] { PrintOut("%s", ""); }));
    for (const std::size_t length : {1022U, 1023U, 1024U, 100000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(text + "\n", StdoutOf([&] { PrintOut("%s\n", text.c_str()); })) << length;
    }
}

TEST(StandardOutputTest, PrintsATextAsItStands) {
    EXPECT_EQ("100% %s %n\n", StdoutOf([] { PrintOutText("100% %s %n\n"); }));
    EXPECT_EQ("", StdoutOf([] { PrintOutText(""); }));
    const std::string text(100000, 'x');
    EXPECT_EQ(text, StdoutOf([&] { PrintOutText(text.c_str()); }));
}

TEST(StandardOutputTest, PrintsInTurnWithOthers) {
    EXPECT_EQ("1234", StdoutOf([] {
                  std::printf("1");
                  PrintOut("%d", 2);
                  std::fputs("3", stdout);
                  PrintOutText("4");
              }));
}

TEST(StandardOutputTest, PrintsOnStandardError) {
    testing::internal::CaptureStderr();
    PrintError("%s: %d\n", "error", 5);
    EXPECT_EQ("error: 5\n", testing::internal::GetCapturedStderr());
}

TEST(StandardOutputTest, MixesNoTextsOfSeveralThreads) {
    constexpr int kThreads = 4;
    constexpr int kPrints = 500;
    const std::string output = StdoutOf([] {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < kPrints; ++i) PrintOut("<%d.%d>", t, i);
            });
        }
        for (std::thread& thread : threads) thread.join();
    });
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kPrints; ++i) {
            const std::string text = "<" + std::to_string(t) + "." + std::to_string(i) + ">";
            EXPECT_NE(std::string::npos, output.find(text)) << text;
        }
    }
}

TEST(StandardOutputTest, GivesAStreamOfWideCharactersNoBytes) {
    const test::TempDir dir;
    EXPECT_EQ(0, StatusOfChild([&] {
                  RedirectStdout(dir / "out", _IOFBF);
                  std::fputws(L"wide 1\n", stdout);
                  PrintOutText("bytes\n");
                  PrintOut("%s\n", "bytes");
                  std::fputws(L"wide 2\n", stdout);
                  std::fflush(stdout);
                  PrintOutText("bytes\n");
                  std::fputws(L"wide 3\n", stdout);
                  std::fflush(stdout);
              }));
    EXPECT_EQ("wide 1\nwide 2\nwide 3\n", ReadFile(dir / "out"));
}

TEST(StandardOutputTest, LeavesTheTextsOfTwoThreadsWholeInABufferedFile) {
    constexpr int kPrints = 5000;
    const std::string text = "a short one\n" + std::string(60, 'x') + "\n";
    const test::TempDir dir;
    EXPECT_EQ(0, StatusOfChild([&] {
                  RedirectStdout(dir / "out", _IOFBF);
                  const auto print = [&text] {
                      for (int i = 0; i < kPrints; ++i) PrintOutText(text);
                  };
                  std::thread first(print);
                  std::thread second(print);
                  first.join();
                  second.join();
                  std::fflush(stdout);
              }));
    std::string expected;
    for (int i = 0; i < 2 * kPrints; ++i) expected += text;
    EXPECT_TRUE(expected == ReadFile(dir / "out"));
}

// ---- What it costs ----

// How a child ends that prints, as the stream is buffered, without being allowed a system call.
template <class Action>
int StatusWithoutSystemCalls(int mode, Action print) {
    const test::TempDir dir;
    return StatusOfChild([&] {
        RedirectStdout(dir / "out", mode);
        PrintOut("%s", "The first print may look at the file.\n");
        if (!test::ForbidSystemCalls()) _exit(kNotAvailable);
        print();
        test::ExitAtOnce(0);
    });
}

TEST(StandardOutputTest, CostsNoSystemCallWhileTheStreamBuffers) {
    const int status = StatusWithoutSystemCalls(_IOFBF, [] {
        for (int i = 0; i < 100; ++i) {
            PrintOut("print %d\n", i);
            PrintOutText("a text\n");
        }
    });
    if (status == kNotAvailable) GTEST_SKIP() << "this system cannot forbid system calls";
    EXPECT_EQ(0, status);
}

TEST(StandardOutputTest, CostsNoSystemCallWhileALineIsIncomplete) {
    const int status = StatusWithoutSystemCalls(_IOLBF, [] {
        for (int i = 0; i < 100; ++i) {
            PrintOut("print %d", i);
            PrintOutText("a text");
        }
    });
    if (status == kNotAvailable) GTEST_SKIP() << "this system cannot forbid system calls";
    EXPECT_EQ(0, status);
}

TEST(StandardOutputTest, CostsSystemCallsWhenALineIsWritten) {
    const int status = StatusWithoutSystemCalls(_IOLBF, [] { PrintOutText("line\n"); });
    if (status == kNotAvailable) GTEST_SKIP() << "this system cannot forbid system calls";
    EXPECT_EQ(-SIGSYS, status);  // or the other tests would say nothing
}

// ---- Writes that are refused ----

TEST(StandardOutputTest, OutlivesEveryReaderHoweverTheStreamBuffers) {
    for (const int mode : {_IONBF, _IOLBF, _IOFBF}) {
        for (const std::size_t size : {1U, 64U, 127U, 128U, 129U, 200U, 4096U}) {
            const int status = StatusOfChild([&] {
                test::BreakStdout();
                std::vector<char> buffer(size);
                std::setvbuf(stdout, buffer.data(), mode, size);
                for (std::size_t length = 0; length < 400; ++length) {
                    PrintOutText(std::string(length, 'x').c_str());
                    PrintOut("%s\n%s", std::string(length, 'y').c_str(), "z");
                }
                PrintOutText(std::string(100000, 'x').c_str());
                test::ExitAtOnce(0);
            });
            EXPECT_EQ(0, status) << mode << ", " << size;
        }
    }
}

TEST(StandardOutputTest, OutlivesEveryReaderWithTheFirstTextOfASmallLineBuffer) {
    EXPECT_EQ(0, StatusOfChild([] {
                  test::BreakStdout();
                  static char s_buffer[64];
                  std::setvbuf(stdout, s_buffer, _IOLBF, sizeof s_buffer);
                  errno = ENOTTY;
                  PrintOutText("abc");
                  EXPECT_EQ(ENOTTY, errno);
                  EXPECT_FALSE(IsPending(SIGPIPE));
                  test::ExitAtOnce(testing::Test::HasFailure() ? 1 : 0);
              }));
}

TEST(StandardOutputTest, OutlivesAFullFileHoweverTheStreamBuffers) {
    for (const int mode : {_IONBF, _IOLBF, _IOFBF}) {
        const test::TempDir dir;
        const int status = StatusOfChild([&] {
            test::LimitStdout(dir / "out", 5000);
            std::vector<char> buffer(256);
            std::setvbuf(stdout, buffer.data(), mode, buffer.size());
            for (int i = 0; i < 2000; ++i) PrintOut("print %d\n", i);
            test::ExitAtOnce(0);
        });
        EXPECT_EQ(0, status) << mode;
        EXPECT_EQ(5000U, ReadFile(dir / "out").size()) << mode;
        EXPECT_EQ(0U, ReadFile(dir / "out").find("print 0\nprint 1\nprint 2\n")) << mode;
    }
}

TEST(StandardOutputTest, OutlivesAReaderOfItsOwnStream) {
    const test::TempDir dir;
    const std::string content = dir.Write("out", std::string(5000, 'x'));
    const int status = StatusOfChild([&] {
        test::LimitStdout(content, 5000);
        if (std::freopen(content.c_str(), "r+", stdout) == nullptr) _exit(2);
        std::vector<char> buffer(4096);
        std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
        // Half of the buffer is taken up by what was read.
        std::fseek(stdout, 3000, SEEK_SET);
        std::vector<char> read(1000);
        if (std::fread(read.data(), 1, read.size(), stdout) != read.size()) _exit(3);
        for (int i = 0; i < 200; ++i) PrintOut("%s", std::string(100, 'y').c_str());
        test::ExitAtOnce(0);
    });
    EXPECT_EQ(0, status);
}

TEST(StandardOutputTest, TheErrorStreamIsRefusedLikewise) {
    const int status = StatusOfChild([] {
        test::BreakStdout();
        dup2(STDOUT_FILENO, STDERR_FILENO);
        PrintError("%s\n", "lost");
    });
    EXPECT_EQ(0, status);
}

TEST(StandardOutputTest, PrintsAgainWhenThereIsRoom) {
    const test::TempDir dir;
    const int status = StatusOfChild([&] {
        test::LimitStdout(dir / "out", 4);
        PrintOutText("kept");
        PrintOutText("lost");
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_FSIZE, &limit);
        PrintOutText(", and more");
        EXPECT_NE(0, std::ferror(stdout));  // for whoever looks at the end
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ("kept, and more", ReadFile(dir / "out"));
}

TEST(StandardOutputTest, TakesAStreamThatIsClosed) {
    EXPECT_EQ(0, StatusOfChild([] {
                  close(STDOUT_FILENO);
                  PrintOut("%d", 1);
                  PrintOutText("lost");
                  std::fflush(stdout);
              }));
    EXPECT_EQ(0, StatusOfChild([] {
                  std::fclose(stdout);
                  for (int i = 0; i < 1000; ++i) {
                      PrintOut("%d", i);
                      PrintOutText("lost");
                  }
              }));
}

TEST(StandardOutputTest, LeavesErrnoAlone) {
    EXPECT_EQ(0, StatusOfChild([] {
                  test::BreakStdout();
                  errno = ENOTTY;
                  PrintOut("%d", 1);
                  EXPECT_EQ(ENOTTY, errno);
                  PrintOutText("lost");
                  EXPECT_EQ(ENOTTY, errno);
                  PrintOut("%s", std::string(5000, 'x').c_str());
                  EXPECT_EQ(ENOTTY, errno);
              }));
}

// ---- Signals ----

TEST(StandardOutputTest, LeavesDispositionsAndMasksAlone) {
    static volatile sig_atomic_t s_caught = 0;
    EXPECT_EQ(0, StatusOfChild([] {
                  test::BreakStdout();
                  for (const auto disposition : {SIG_IGN, SIG_DFL, +[](int) { s_caught = 1; }}) {
                      std::signal(SIGPIPE, disposition);
                      PrintOutText("lost");
                      EXPECT_EQ(disposition, std::signal(SIGPIPE, SIG_IGN));
                      EXPECT_FALSE(IsBlocked(SIGPIPE));
                      EXPECT_FALSE(IsBlocked(SIGXFSZ));
                      EXPECT_FALSE(IsPending(SIGPIPE));
                  }
                  EXPECT_EQ(0, s_caught);
              }));
}

TEST(StandardOutputTest, LeavesASignalThatWasPending) {
    for (const bool pending : {false, true}) {
        EXPECT_EQ(0, StatusOfChild([pending] {
                      test::BreakStdout();
                      const sigset_t set = Set(SIGPIPE);
                      pthread_sigmask(SIG_BLOCK, &set, nullptr);
                      if (pending) kill(getpid(), SIGPIPE);
                      PrintOutText("lost");
                      EXPECT_TRUE(IsBlocked(SIGPIPE));
                      EXPECT_EQ(pending, IsPending(SIGPIPE));
                  }));
    }
}

TEST(StandardOutputTest, TheProcessOwnWritesStillRaiseTheSignal) {
    EXPECT_EQ(-SIGPIPE, StatusOfChild([] {
        test::BreakStdout();
        PrintOutText("lost");
        std::fputs("ends the process", stdout);
    }));
}

// ---- The end, and children ----

TEST(StandardOutputTest, WhatIsLeftAtTheEndIsWritten) {
    const test::TempDir dir;
    EXPECT_EQ(5, StatusOfChild([&] {
                  RedirectStdout(dir / "out", _IOFBF);
                  PrintOutText("left");
                  std::exit(5);
              }));
    EXPECT_EQ("left", ReadFile(dir / "out"));
}

TEST(StandardOutputTest, WhatIsLeftAtTheEndMayBeRefused) {
    EXPECT_EQ(5, StatusOfChild([] {
                  test::BreakStdout();
                  std::vector<char> buffer(4096);
                  std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
                  PrintOutText("left");
                  std::exit(5);
              }));
}

TEST(StandardOutputTest, AChildPrintsThoughOthersPrintedWhenItWasForked) {
    const test::TempDir dir;
    const int status = StatusOfChild([&] {
        RedirectStdout(dir / "out", _IONBF);
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        threads.reserve(3);
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                while (!stop) PrintOutText("other\n");
            });
        }
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(0, StatusOfChild([] { PrintOut("%s\n", "child"); }));
        }
        stop = true;
        for (std::thread& thread : threads) thread.join();
    });
    EXPECT_EQ(0, status);
    std::size_t children = 0;
    const std::string output = ReadFile(dir / "out");
    for (std::size_t at = 0; (at = output.find("child\n", at)) != std::string::npos; ++at) ++children;
    EXPECT_EQ(50U, children);
}

}  // namespace
