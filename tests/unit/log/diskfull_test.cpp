// The log on disks that are really full, and on files that went bad.
#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <thread>

#include <gmock/gmock.h>

#include "logbuffertest.h"
#include "recordof.h"
#include "src/log/logfile.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::ReadFile;
using testing::ElementsAre;
using testing::IsEmpty;

class DiskFullTest : public test::LogBufferTest {
protected:
    /// Runs `action` in a child process, whose failures are those of this test.
    template <class Action>
    void RunInChild(Action action) {
        const int status = StatusOfChild(action);
        EXPECT_EQ(0, status);
    }

    template <class Action>
    int StatusOfChild(Action action) {
        const pid_t child = fork();
        if (child == 0) {
            action();
            std::fflush(stdout);
            _exit(HasFailure() ? 1 : 0);
        }
        m_child = child;
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return status;
    }

    // Of the child's log.
    std::string ChildFileOf(const std::string& fileTime) const {
        return LogDir() + "/pnbi_sys_" + fileTime + "_" + std::to_string(m_child) + ".log";
    }

    static void LimitFileSize(rlim_t bytes) {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    // Of the clock by which the log looks for a limit.
    static timespec CoarseTime() {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        return now;
    }

    pid_t m_child = 0;
};

// ---- A limit on the size of files ----

TEST_F(DiskFullTest, KeepsWhatFitsAndResumes) {
    const std::size_t size = Bytes(1, "1").size();
    RunInChild([&] {
        LimitFileSize(3 * size + size / 2);
        for (const char* const text : {"1", "2", "3", "4", "5"}) Append(text);
        EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2") + Bytes(3, "3"), FirstFile());
        LimitFileSize(RLIM_INFINITY);
        Append("6");
        EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2") + Bytes(3, "3") + Bytes(6, "6"), FirstFile());
        EXPECT_EQ(1U, Files().size());
    });
}

TEST_F(DiskFullTest, GoesOnInAnotherFile) {
    const std::size_t size = Bytes(1, "1").size();
    RunInChild([&] {
        LimitFileSize(2 * size + size / 2);
        for (const char* const text : {"1", "2", "3"}) Append(text);
        NextSecond();
        for (const char* const text : {"4", "5", "6"}) Append(text);
        EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2"), FirstFile());
        EXPECT_EQ(Bytes(4, "4") + Bytes(5, "5"), NextFile());
        EXPECT_EQ(2U, Files().size());
    });
}

TEST_F(DiskFullTest, LeavesNoEmptyFileWhileNothingFits) {
    RunInChild([&] {
        LimitFileSize(20);
        for (const std::string& text : {std::string("small"), std::string(300000, 'x')}) {
            for (int i = 0; i < 5; ++i) {
                Append(text);
                EXPECT_THAT(Files(), IsEmpty());
                NextSecond();
                Append(text);
                EXPECT_THAT(Files(), IsEmpty());
                test::Clock::Set(test::kTheSecond, 42);
            }
        }
        LimitFileSize(RLIM_INFINITY);
        Append("fits");
        EXPECT_EQ(Bytes(21, "fits"), FirstFile());
    });
}

TEST_F(DiskFullTest, ABatchKeepsItsWholeRecords) {
    std::string fitting;
    for (unsigned long i = 1; i <= 1500; ++i) fitting += Bytes(i, "record " + std::to_string(i));
    RunInChild([&] {
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (int i = 1; i <= 4000; ++i) Append("record " + std::to_string(i));
        LimitFileSize(fitting.size() + 50);
        Buffer().Output();
        EXPECT_TRUE(fitting == FirstFile());
        EXPECT_EQ(1U, Files().size());
    });
}

TEST_F(DiskFullTest, ABatchLosesOneRecordForEachFileThatItFills) {
    RunInChild([&] {
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (int i = 1; i <= 8000; ++i) Append("record " + std::to_string(i));
        const unsigned long long before = GetLogLoss().records;
        LimitFileSize(100000);
        test::Clock::Hurry(test::kTheSecond);
        Buffer().Output();
        const std::size_t files = Files().size();
        std::size_t kept = 0;
        for (const std::string& file : Files()) {
            for (const LogRecord& record : ParseLog(ReadFile(file))) {
                EXPECT_EQ("record " + std::to_string(record.sequence), record.text);
                ++kept;
            }
        }
        EXPECT_LT(5U, files);
        EXPECT_GE(files, GetLogLoss().records - before);
        EXPECT_EQ(8000U, kept + GetLogLoss().records - before);
    });
}

TEST_F(DiskFullTest, ABatchThatNoFileTakesIsLostAndLeavesNone) {
    RunInChild([&] {
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (int i = 1; i <= 8000; ++i) Append("record " + std::to_string(i));
        const unsigned long long before = GetLogLoss().records;
        LimitFileSize(20);
        test::Clock::Hurry(test::kTheSecond);
        Buffer().Output();
        EXPECT_EQ(8000U, GetLogLoss().records - before);
        EXPECT_THAT(Files(), IsEmpty());
        LimitFileSize(RLIM_INFINITY);
        test::Clock::Set(test::kTheSecond, 42);
        Append("kept");
        Buffer().Output();
        EXPECT_EQ(Bytes(8001, "kept"), FirstFile());
    });
}

TEST_F(DiskFullTest, ALargeRecordLeavesNoPart) {
    RunInChild([&] {
        Append("1");
        LimitFileSize(100000);
        Append(std::string(300000, 'x'));
        EXPECT_EQ(Bytes(1, "1"), FirstFile());
        Append("3");
        EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3"), FirstFile());
        EXPECT_EQ(1U, Files().size());
    });
}

TEST_F(DiskFullTest, EachSignalDispositionIsLeftAlone) {
    static volatile sig_atomic_t s_caught = 0;
    RunInChild([&] {
        LimitFileSize(20);
        for (const auto disposition : {SIG_IGN, SIG_DFL, +[](int) { s_caught = 1; }}) {
            std::signal(SIGXFSZ, disposition);
            Append("lost");
            EXPECT_EQ(disposition, std::signal(SIGXFSZ, SIG_IGN));
            sigset_t blocked;
            pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
            EXPECT_EQ(0, sigismember(&blocked, SIGXFSZ));
        }
        EXPECT_EQ(0, s_caught);
    });
}

TEST_F(DiskFullTest, ACallerThatBlocksTheSignalFindsItAsItWas) {
    RunInChild([&] {
        LimitFileSize(20);
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        for (const bool pending : {false, true}) {
            if (pending) raise(SIGXFSZ);
            Append("lost");
            sigset_t now;
            pthread_sigmask(SIG_SETMASK, nullptr, &now);
            EXPECT_EQ(1, sigismember(&now, SIGXFSZ));
            sigpending(&now);
            EXPECT_EQ(pending ? 1 : 0, sigismember(&now, SIGXFSZ));
        }
    });
}

TEST_F(DiskFullTest, TheSignalStillEndsTheProcessElsewhere) {
    const int status = StatusOfChild([&] {
        LimitFileSize(20);
        Append("lost");
        m_dir.Write("file", std::string(100000, 'x'));
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGXFSZ, WTERMSIG(status));
}

TEST_F(DiskFullTest, AnEchoThatDoesNotFitIsLost) {
    LogProxy* const proxy = BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Echo");
    const std::string echo = m_dir.Path() + "/echo";
    RunInChild([&] {
        FILE* const terminal = stdout;
        stdout = std::fopen(echo.c_str(), "w");
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        std::fputs(std::string(5000, 'x').c_str(), stdout);
        LimitFileSize(5000);
        proxy->Write(LOG_LEVEL_ERROR, "kept");
        std::fclose(stdout);
        stdout = terminal;
    });
    EXPECT_EQ(std::string(5000, 'x'), ReadFile(echo));
    const std::vector<LogRecord> records = ParseLog(ReadFile(ChildFileOf(test::kTheFileTime)));
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("kept", records.front().text);
}

TEST_F(DiskFullTest, ALimitThatARecordCrossesIsNoticedAtOnce) {
    const std::size_t size = Bytes(1, "1").size();
    RunInChild([&] {
        Append("1");  // when there is no limit yet
        LimitFileSize(size + size / 2);
        Append("2");
        Append("3");
        LimitFileSize(RLIM_INFINITY);
        Append("4");
        EXPECT_EQ(Bytes(1, "1") + Bytes(4, "4"), FirstFile());
    });
}

TEST_F(DiskFullTest, ALimitBelowTheFileIsNoticedInTheNextSecond) {
    RunInChild([&] {
        Append("1");
        const unsigned long long before = GetLogLoss().records;
        const timespec then = CoarseTime();
        LimitFileSize(20);
        ASSERT_TRUE(test::WaitFor([&] { return CoarseTime().tv_sec > then.tv_sec; }));
        Append("2");
        EXPECT_EQ(1U, GetLogLoss().records - before);
        EXPECT_EQ(Bytes(1, "1"), FirstFile());
    });
}

TEST_F(DiskFullTest, DestroyKeepsWhatFits) {
    const std::size_t size = Bytes(1, "1").size();
    RunInChild([&] {
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (const char* const text : {"1", "2", "3"}) Append(text);
        LimitFileSize(2 * size + 10);
        LogProxyDebugInfoBufMgr::Destroy();
        EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2"), FirstFile());
    });
    EXPECT_THAT(Files(), ElementsAre(ChildFileOf(test::kTheFileTime)));
}

// ---- A device without space ----

TEST_F(DiskFullTest, ALinkToAFullDeviceIsLeftUntilItIsRemoved) {
    std::filesystem::create_directories(LogDir());
    std::filesystem::create_symlink("/dev/full", FileOf(test::kTheFileTime));
    Append("lost");
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
    std::filesystem::remove(FileOf(test::kTheFileTime));
    Append("kept");
    EXPECT_EQ(Bytes(1, "kept"), FirstFile());
}

class SmallDiskTest : public DiskFullTest {
protected:
    /// Runs `action` in a child process of its own mount namespace, with a small disk
    /// in place of the log directory.
    template <class Action>
    void RunOnSmallDisk(const std::string& options, Action action) {
        constexpr int kNotAllowed = 77;
        const int status = StatusOfChild([&] {
            std::filesystem::create_directories(LogDir());
            if (!EnterMountNamespace() || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("small", LogDir().c_str(), "tmpfs", 0, options.c_str()) != 0) {
                _exit(kNotAllowed);
            }
            action();
        });
        if (WIFEXITED(status) && WEXITSTATUS(status) == kNotAllowed) {
            GTEST_SKIP() << "mounting a file system takes a privilege that this process lacks";
        }
        EXPECT_EQ(0, status);
    }

    /// As root, or as the root of a user namespace where the system has them.
    static bool EnterMountNamespace() {
        if (unshare(CLONE_NEWNS) == 0) return true;
        const std::string user = std::to_string(geteuid());
        const std::string group = std::to_string(getegid());
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
        return true;
    }

    std::string FillerPath() const { return LogDir() + "/filler"; }

    /// Leaves `bytes` of space, a multiple of the page.
    void FillDisk(std::uintmax_t bytes) const {
        const std::uintmax_t available = std::filesystem::space(LogDir()).available;
        const int fd = open(FillerPath().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ASSERT_EQ(0, posix_fallocate(fd, 0, static_cast<off_t>(available - bytes)));
        close(fd);
    }
};

TEST_F(SmallDiskTest, KeepsWholeRecordsLeavesNoEmptyFilesAndResumes) {
    RunOnSmallDisk("size=256k", [&] {
        FillDisk(16384);
        int number = 0;
        for (; number < 500; ++number) Append("record " + std::to_string(number));
        const std::size_t kept = ParseLog(FirstFile()).size();
        EXPECT_GT(kept, 50U);
        EXPECT_LT(kept, 150U);

        NextSecond();
        for (; number < 600; ++number) Append("record " + std::to_string(number));
        EXPECT_THAT(Files(), ElementsAre(FillerPath(), FileOf(test::kTheFileTime)));

        std::filesystem::remove(FillerPath());
        Append("record " + std::to_string(number));
        EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime), FileOf(test::kTheNextFileTime)));
        EXPECT_EQ(kept, ParseLog(FirstFile()).size());
        for (const LogRecord& record : ParseLog(FirstFile())) {
            EXPECT_EQ("record " + std::to_string(record.sequence - 1), record.text);
        }
        EXPECT_EQ(Bytes(601, "record 600"), NextFile());
    });
}

TEST_F(SmallDiskTest, ABatchKeepsItsWholeRecords) {
    RunOnSmallDisk("size=256k", [&] {
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (int number = 0; number < 5000; ++number) Append("record " + std::to_string(number));
        Buffer().Output();
        const std::vector<LogRecord> records = ParseLog(Log());
        EXPECT_GT(records.size(), 1000U);
        EXPECT_LT(records.size(), 2000U);
        for (const LogRecord& record : records) {
            EXPECT_EQ("record " + std::to_string(record.sequence - 1), record.text);
        }
    });
}

TEST_F(SmallDiskTest, RecordsLargerThanTheDiskLeaveNothing) {
    RunOnSmallDisk("size=64k", [&] {
        Append("small");
        Append(std::string(200000, 'x'));
        EXPECT_EQ(Bytes(1, "small"), FirstFile());
        NextSecond();
        Append(std::string(200000, 'x'));
        EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
        Append("small again");
        EXPECT_EQ(Bytes(4, "small again"), NextFile());
    });
}

TEST_F(SmallDiskTest, ADiskWithoutRoomForOneMoreFileTakesRecordsLater) {
    RunOnSmallDisk("size=64k,nr_inodes=2", [&] {  // the root directory is one of them
        std::ofstream(FillerPath()) << "a file";
        Append("lost");
        EXPECT_THAT(Files(), ElementsAre(FillerPath()));
        std::filesystem::remove(FillerPath());
        Append("kept");
        EXPECT_EQ(Bytes(1, "kept"), FirstFile());
    });
}

TEST_F(SmallDiskTest, AReadOnlyDiskIsWaitedFor) {
    RunOnSmallDisk("size=64k", [&] {
        ASSERT_EQ(0, mount("small", LogDir().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        Append("lost");
        EXPECT_THAT(Files(), IsEmpty());
        ASSERT_EQ(0, mount("small", LogDir().c_str(), nullptr, MS_REMOUNT, nullptr));
        Append("kept");
        EXPECT_EQ(Bytes(1, "kept"), FirstFile());
    });
}

// ---- Files gone bad ----

class BadFileTest : public DiskFullTest {
protected:
    /// Puts another file in the place of the one that the log has open.
    void Replace(const char* path, int flags) { ReplaceBy(open(path, flags | O_CLOEXEC)); }

    void ReplaceBy(int other) {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry.path(), gone) != FileOf(test::kTheFileTime)) continue;
            ASSERT_NE(-1, dup2(other, std::stoi(entry.path().filename())));
            close(other);
            return;
        }
        FAIL() << "the log has no file open";
    }
};

TEST_F(BadFileTest, AFullFileIsLeftWithItsRecords) {
    Append("1");
    Append("2");
    Replace("/dev/full", O_WRONLY);
    Append("3");
    Append("4");
    EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2") + Bytes(4, "4"), FirstFile());
    NextSecond();
    Replace("/dev/full", O_WRONLY);
    Append("5");
    Append("6");
    EXPECT_EQ(Bytes(1, "1") + Bytes(2, "2") + Bytes(4, "4"), FirstFile());
    EXPECT_EQ(Bytes(6, "6"), NextFile());
    EXPECT_EQ(2U, Files().size());
}

TEST_F(BadFileTest, AFileThatCannotBeWrittenIsLeft) {
    Append("1");
    Replace("/dev/null", O_RDONLY);
    Append("2");
    Append("3");
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3"), FirstFile());
}

TEST_F(BadFileTest, ALargeRecordSwitchesFilesAtOnce) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("1");
    Buffer().Output();
    Replace("/dev/full", O_WRONLY);
    Append(std::string(300000, 'x'));
    Append("3");
    Buffer().Output();
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3"), FirstFile());
}

class InterruptedFileTest : public BadFileTest {
protected:
    ~InterruptedFileTest() override { std::signal(SIGUSR1, SIG_DFL); }

    static void InstallHandler() {
        struct sigaction action {};
        action.sa_handler = [](int) { ++s_caught; };  // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
    }

    /// Interrupts `writer` three times while it waits for room in the pipe, then reads
    /// everything up to its end.
    static std::string InterruptAndRead(int pipe, pthread_t writer) {
        const int capacity = fcntl(pipe, F_GETPIPE_SZ);
        int filled = 0;
        EXPECT_TRUE(test::WaitFor([&] { return ioctl(pipe, FIONREAD, &filled) == 0 && filled == capacity; }));
        for (int i = 1; i <= 3; ++i) {
            // Again and again: a sanitizer keeps back what comes before the thread is in a call.
            EXPECT_TRUE(test::WaitFor([&] { return pthread_kill(writer, SIGUSR1) == 0 && s_caught >= i; }));
        }
        std::string content;
        char piece[65536];
        for (ssize_t n = 0; (n = read(pipe, piece, sizeof piece)) > 0;)
            content.append(piece, static_cast<std::size_t>(n));
        close(pipe);
        return content;
    }

    static inline std::atomic<int> s_caught{0};
};

TEST_F(InterruptedFileTest, AWriteThatIsInterruptedIsRepeated) {
    InstallHandler();
    Append("1");
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ReplaceBy(ends[1]);
    std::string content;
    std::thread reader([&, writer = pthread_self()] { content = InterruptAndRead(ends[0], writer); });
    const std::string large(300000, 'x');
    Append(large);
    Append("3");
    LogProxyDebugInfoBufMgr::Destroy();
    reader.join();
    EXPECT_TRUE(Bytes(2, large) + Bytes(3, "3") == content) << content.size();
    EXPECT_EQ(Bytes(1, "1"), FirstFile());
}

TEST_F(InterruptedFileTest, ABatchThatIsInterruptedIsRepeated) {
    InstallHandler();
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("1");
    Buffer().Output();
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ReplaceBy(ends[1]);
    std::string content;
    std::thread reader([&, writer = pthread_self()] { content = InterruptAndRead(ends[0], writer); });
    std::string expected;
    for (unsigned long i = 2; i <= 3000; ++i) {
        Append("record " + std::to_string(i));
        expected += Bytes(i, "record " + std::to_string(i));
    }
    LogProxyDebugInfoBufMgr::Destroy();
    reader.join();
    EXPECT_TRUE(expected == content) << content.size();
}

TEST_F(BadFileTest, AFileThatTurnsEmptyIsRemoved) {
    Buffer().Output();
    Replace("/dev/full", O_WRONLY);
    Append("1");
    EXPECT_THAT(Files(), IsEmpty());
    NextSecond();
    Append("2");
    EXPECT_EQ(Bytes(2, "2"), NextFile());
}

TEST_F(BadFileTest, ARotationThatFailsKeepsTheOldRecords) {
    LogFile file(LogDir(), "pnbi", 3 * Bytes(1, "1").size() + 10, 100);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(1, "1")));
    file.Flush();
    Replace("/dev/full", O_WRONLY);
    file.WriteRecord(test::RecordOf(MakeInfo(1, "2")));
    file.WriteRecord(test::RecordOf(MakeInfo(1, "3")));
    file.WriteRecord(test::RecordOf(MakeInfo(1, "4")));  // full, and closed
    file.Flush();
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3") + Bytes(4, "4"), FirstFile());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
