#include "src/log/logfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <fstream>
#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include "logtest.h"
#include "recordof.h"
#include "support/badoutput.h"
#include "support/elsewhere.h"
#include "support/forkedchild.h"
#include "support/ordinaryuser.h"
#include "support/testclock.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::FilesIn;
using test::LogRecord;
using test::MakeInfo;
using test::ReadFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kNoLimit = UINT64_MAX;
constexpr std::uint64_t kMaxFiles = 100;

// The process's umask for the length of a test.
class Umask {
public:
    explicit Umask(mode_t mask) : m_old(umask(mask)) {}
    ~Umask() { umask(m_old); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

    static mode_t Now() {
        const mode_t now = umask(0);
        umask(now);
        return now;
    }

private:
    const mode_t m_old;
};

class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& directory) : m_old(std::filesystem::current_path()) {
        std::filesystem::current_path(directory);
    }
    ~WorkingDirectory() { std::filesystem::current_path(m_old); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    const std::filesystem::path m_old;
};

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) throw std::runtime_error("no " + path);
    return status.st_mode & 07777;
}

std::string NameAt(const std::string& fileTime, const std::string& prefix = "pnbi") {
    return prefix + "_sys_" + fileTime + "_" + std::to_string(getpid()) + ".log";
}

std::string Bytes(unsigned long sequence, const std::string& text) {
    LogRecord record;
    record.sequence = sequence;
    record.text = text;
    return record.Bytes();
}

class LogFileTest : public testing::Test {
protected:
    LogFileTest() : m_zone("UTC") { test::Clock::Set(test::kTheSecond, 42); }
    ~LogFileTest() override { test::Clock::Reset(); }

    LogFile MakeFile(std::uint64_t maxBytes) { return LogFile(m_dir.Path(), "pnbi", maxBytes, kMaxFiles); }
    std::string PathAt(const std::string& fileTime) const { return m_dir / NameAt(fileTime); }

    const test::ScopedZone m_zone;
    const test::TempDir m_dir;
    const std::string m_first = PathAt("20240131_235959");
    const std::string m_second = PathAt("20240201_000000");
};

// ---- Names ----

TEST_F(LogFileTest, StartsWithoutFile) {
    {
        const LogFile file = MakeFile(kNoLimit);
        EXPECT_THAT(FilesIn(m_dir.Path()), IsEmpty());
    }
    EXPECT_THAT(FilesIn(m_dir.Path()), IsEmpty());
}

TEST_F(LogFileTest, IsNamedAfterSecondAndProcess) {
    LogFile file = MakeFile(kNoLimit);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(m_dir.Path()),
                ElementsAre(m_dir.Path() + "/pnbi_sys_20240131_235959_" + std::to_string(getpid()) + ".log"));
}

TEST_F(LogFileTest, IsNamedInLocalTime) {
    const test::ScopedZone zone("CST-8");
    LogFile file(m_dir.Path(), "other prefix", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_dir / NameAt("20240201_075959", "other prefix")));
}

TEST_F(LogFileTest, KeepsItsFileWhileItIsOpen) {
    LogFile file = MakeFile(kNoLimit);
    EXPECT_TRUE(file.EnsureOpen());
    test::Clock::Set(test::kTheSecond + 1);
    EXPECT_TRUE(file.EnsureOpen());
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    file.Flush();
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
}

TEST_F(LogFileTest, DropsOneTrailingSeparator) {
    for (const std::string separator : {"", "/", "\\"}) {
        LogFile file(m_dir.Path() + separator, "pnbi", kNoLimit, kMaxFiles);
        EXPECT_TRUE(file.EnsureOpen());
        EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first)) << separator;
    }
    // The second one from the end stays, and is part of a name.
    const std::string odd = m_dir / "odd\\";
    std::filesystem::create_directory(odd);
    LogFile file(odd + "\\", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(odd), ElementsAre(odd + "/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, TruncatesAFileOfItsName) {
    m_dir.Write(NameAt("20240131_235959"), "old content");
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    file.Flush();
    EXPECT_EQ(Bytes(1, "a"), ReadFile(m_first));
}

TEST_F(LogFileTest, IsNotInheritedByPrograms) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) != m_first) continue;
        ++found;
        EXPECT_NE(0, fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(1, found);
}

// ---- Directories ----

TEST_F(LogFileTest, CreatesThreeMissingLevels) {
    LogFile file(m_dir / "Develop/nbi/Agent_CORBA", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
    EXPECT_TRUE(file.EnsureOpen());
    file.WriteRecord(test::RecordOf(MakeInfo(3, "the very first")));
    file.Flush();
    EXPECT_EQ(Bytes(1, "the very first"), ReadFile(m_dir / "Develop/nbi/Agent_CORBA/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, CreatesNoFourthLevel) {
    LogFile file(m_dir / "a/b/c/d", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_FALSE(file.EnsureOpen());
    EXPECT_FALSE(std::filesystem::exists(m_dir / "a"));
    std::filesystem::create_directory(m_dir / "a");
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(m_dir / "a/b/c/d"), ElementsAre(m_dir / "a/b/c/d/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, CreatesTheDirectoryAgainWhenItIsGone) {
    LogFile file(m_dir / "a/b/c", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    std::filesystem::remove_all(m_dir / "a");
    file.OpenNewFile();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "t")));
    file.Flush();
    EXPECT_EQ(Bytes(1, "t"), ReadFile(m_dir / "a/b/c/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, ModesDependOnNoUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
        const test::TempDir dir;
        const Umask processMask(mask);
        LogFile file(dir / "Develop/nbi/Agent_CORBA", "pnbi", kNoLimit, kMaxFiles);
        EXPECT_TRUE(file.EnsureOpen());
        EXPECT_EQ(mask, Umask::Now());
        EXPECT_EQ(0750U, ModeOf(dir / "Develop"));
        EXPECT_EQ(0750U, ModeOf(dir / "Develop/nbi"));
        EXPECT_EQ(0750U, ModeOf(dir / "Develop/nbi/Agent_CORBA"));
        EXPECT_EQ(0640U, ModeOf(dir / "Develop/nbi/Agent_CORBA/" + NameAt("20240131_235959")));
    }
}

TEST_F(LogFileTest, ModesDependOnNoUmaskForAnOrdinaryUserEither) {
    const test::AsOrdinaryUser user(m_dir.Path());
    const Umask processMask(0777);
    LogFile file(m_dir / "Develop/nbi/Agent_CORBA", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_EQ(0750U, ModeOf(m_dir / "Develop"));
    EXPECT_EQ(0750U, ModeOf(m_dir / "Develop/nbi"));
    EXPECT_EQ(0750U, ModeOf(m_dir / "Develop/nbi/Agent_CORBA"));
    EXPECT_EQ(0640U, ModeOf(m_dir / "Develop/nbi/Agent_CORBA/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, FilesOfOtherThreadsGetTheirOwnModes) {
    const Umask processMask(022);
    std::atomic<bool> stop{false};
    std::atomic<int> opened{0};
    std::thread other([&] {
        for (; !stop; ++opened) {
            const test::TempDir dir;
            LogFile(dir / "Develop/nbi/Agent_CORBA", "pnbi", kNoLimit, kMaxFiles).EnsureOpen();
        }
    });
    EXPECT_TRUE(test::WaitFor([&] { return opened > 0; }));
    const std::string path = m_dir / "own";
    for (int i = 0; i < 3000; ++i) {
        const int handle = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        close(handle);
        EXPECT_EQ(0644U, ModeOf(path)) << i;
        std::filesystem::remove(path);
    }
    stop = true;
    other.join();
}

TEST_F(LogFileTest, ADirectoryKeepsTheGroupBitThatItInherits) {
    ASSERT_EQ(0, chmod(m_dir.Path().c_str(), 02750));
    LogFile file(m_dir / "log", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_EQ(02750U, ModeOf(m_dir / "log"));
}

TEST_F(LogFileTest, RestoresTheUmaskWhereNothingCanBeOpened) {
    const Umask processMask(0123);
    m_dir.Write("plain", "a file in place of the directory");
    LogFile file(m_dir / "plain", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_FALSE(file.EnsureOpen());
    EXPECT_EQ(0123U, Umask::Now());
}

TEST_F(LogFileTest, DoesNotTakeThePlaceOfStandardStreamsThatAreClosed) {
    const int output = dup(STDOUT_FILENO);
    const int error = dup(STDERR_FILENO);
    std::fflush(stdout);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    {
        LogFile file(m_dir.Path(), "pnbi", kNoLimit, kMaxFiles);
        file.WriteRecord(test::RecordOf(MakeInfo(3, "lost")));
        file.EnsureOpen();
        file.WriteRecord(test::RecordOf(MakeInfo(3, "kept")));
        EXPECT_EQ(-1, write(STDOUT_FILENO, "x", 1));
        EXPECT_EQ(-1, write(STDERR_FILENO, "x", 1));
    }
    dup2(output, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    EXPECT_EQ(Bytes(2, "kept"), ReadFile(FilesIn(m_dir.Path()).at(0)));
}

TEST_F(LogFileTest, LeavesTheModeOfAFileThatIsThere) {
    m_dir.Write(NameAt("20240131_235959"), "old content");
    ASSERT_EQ(0, chmod(m_first.c_str(), 0604));
    LogFile file = MakeFile(kNoLimit);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_EQ("", ReadFile(m_first));
    EXPECT_EQ(0604U, ModeOf(m_first));
}

TEST_F(LogFileTest, LeavesTheModesOfDirectoriesThatAreThere) {
    std::filesystem::create_directories(m_dir / "a/b");
    ASSERT_EQ(0, chmod((m_dir / "a").c_str(), 0711));
    ASSERT_EQ(0, chmod((m_dir / "a/b").c_str(), 0700));
    LogFile file(m_dir / "a/b", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_EQ(0711U, ModeOf(m_dir / "a"));
    EXPECT_EQ(0700U, ModeOf(m_dir / "a/b"));
}

TEST_F(LogFileTest, TakesRelativeDirectories) {
    const WorkingDirectory here(m_dir.Path());
    for (const std::string directory : {"one", "one2/two", "./one3/two/three", "a//b/", "."}) {
        LogFile file(directory, "pnbi", kNoLimit, kMaxFiles);
        EXPECT_TRUE(file.EnsureOpen()) << directory;
        file.WriteRecord(test::RecordOf(MakeInfo(3, directory)));
        file.Close();
        EXPECT_EQ(Bytes(1, directory), ReadFile(m_dir / directory + "/" + NameAt("20240131_235959")));
    }
}

TEST_F(LogFileTest, TakesDoubledSeparators) {
    for (const std::string directory : {"//Develop/nbi/Agent_CORBA", "//x//y//z//", "///p"}) {
        LogFile file(m_dir.Path() + directory, "pnbi", kNoLimit, kMaxFiles);
        EXPECT_TRUE(file.EnsureOpen()) << directory;
        file.WriteRecord(test::RecordOf(MakeInfo(3, directory)));
        file.Close();
        EXPECT_EQ(Bytes(1, directory), ReadFile(m_dir.Path() + directory + "/" + NameAt("20240131_235959")));
    }
}

TEST_F(LogFileTest, FollowsLinks) {
    std::filesystem::create_directory(m_dir / "real");
    std::filesystem::create_directory_symlink(m_dir / "real", m_dir / "link");
    LogFile file(m_dir / "link/nbi/Agent_CORBA", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(m_dir / "real/nbi/Agent_CORBA"),
                ElementsAre(m_dir / "real/nbi/Agent_CORBA/" + NameAt("20240131_235959")));
}

TEST_F(LogFileTest, SurvivesDirectoriesThatCannotBe) {
    for (const std::string& directory : {std::string(), std::string("/proc/self/no such place"), std::string(5000, 'x'),
                                         m_dir.Path() + "/a\nb\\c/d"}) {
        LogFile file(directory, "no/such", kNoLimit, kMaxFiles);
        EXPECT_FALSE(file.EnsureOpen()) << directory;
        file.WriteRecord(test::RecordOf(MakeInfo(3, "lost")));
        file.Flush();
        file.Close();
    }
}

TEST_F(LogFileTest, TriesAgainEachTime) {
    const std::string obstacle = m_dir.Write("place", "a file");
    LogFile file(m_dir / "place", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_FALSE(file.EnsureOpen());
    EXPECT_FALSE(file.EnsureOpen());
    std::filesystem::remove(obstacle);
    EXPECT_TRUE(file.EnsureOpen());
}

// ---- What is no regular file ----

class ObstacleTest : public LogFileTest {
protected:
    /// What is said on standard error while three batches find no file to go to.
    std::string SaidOfThreeBatches(LogFile& file) const {
        testing::internal::CaptureStderr();
        for (int i = 0; i < 3; ++i) {
            const test::Elsewhere batch([&] { EXPECT_FALSE(file.EnsureOpen()); });
            EXPECT_TRUE(batch.Finishes());
        }
        return testing::internal::GetCapturedStderr();
    }
    std::string Refused() const {
        return "The log file " + m_first + " is not a regular file and gets no records. Remove it.\n";
    }
};

TEST_F(ObstacleTest, ALinkIsNotFollowed) {
    const std::string target = m_dir.Write("target", "not ours");
    std::filesystem::create_symlink(target, m_first);
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
    EXPECT_EQ("not ours", ReadFile(target));
    EXPECT_TRUE(std::filesystem::is_symlink(m_first));
}

TEST_F(ObstacleTest, ALinkThatLeadsNowhereCreatesNothing) {
    std::filesystem::create_symlink(m_dir / "nowhere", m_first);
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
}

TEST_F(ObstacleTest, AFifoIsNotWaitedFor) {
    ASSERT_EQ(0, mkfifo(m_first.c_str(), 0600));
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
}

TEST_F(ObstacleTest, AFifoWithAReaderGetsNothing) {
    ASSERT_EQ(0, mkfifo(m_first.c_str(), 0600));
    const int reader = open(m_first.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
    char byte = 0;
    EXPECT_EQ(0, read(reader, &byte, 1));
    close(reader);
}

TEST_F(ObstacleTest, ADirectoryIsLeft) {
    std::filesystem::create_directory(m_first);
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
}

TEST_F(ObstacleTest, IsToldAgainAfterAFileCouldBeOpened) {
    std::filesystem::create_directory(m_first);
    LogFile file = MakeFile(kNoLimit);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
    test::Clock::Set(test::kTheSecond + 1);
    EXPECT_TRUE(file.EnsureOpen());
    file.Close();
    test::Clock::Set(test::kTheSecond);
    EXPECT_EQ(Refused(), SaidOfThreeBatches(file));
}

TEST_F(ObstacleTest, OtherReasonsAreNotTold) {
    m_dir.Write("place", "a file");
    LogFile file(m_dir / "place", "pnbi", kNoLimit, kMaxFiles);
    EXPECT_EQ("", SaidOfThreeBatches(file));
}

TEST_F(ObstacleTest, StandardErrorMayBeAPipeWithoutAReader) {
    std::filesystem::create_directory(m_first);
    EXPECT_EQ(0, test::StatusOfChild([&] {
                  test::BreakStdout();
                  dup2(STDOUT_FILENO, STDERR_FILENO);
                  LogFile file(m_dir.Path(), "pnbi", kNoLimit, kMaxFiles);
                  std::filesystem::create_directory(m_dir / NameAt("20240131_235959"));
                  EXPECT_FALSE(file.EnsureOpen());
              }));
}

// ---- Records ----

TEST_F(LogFileTest, WritesRecords) {
    DebugInfo info;
    info.level = 1;
    info.time = ACE_Time_Value(1709251509, 42);
    info.thread = "Thread -5";
    info.bundle = "zo_base_bundle";
    info.service = "AlarmSvc";
    info.text = "two\nlines";
    info.file = "alarmsvc";
    info.line = 18446744073709551615UL;

    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(info));
    file.WriteRecord(test::RecordOf(DebugInfo()));
    file.Flush();
    EXPECT_EQ(
        "<1>\n"
        "UTC 2024-03-01 00:05:09.000042, Thread -5, Level = 1, Bundle = zo_base_bundle, Service = AlarmSvc \n"
        "filename = alarmsvc, lineno = 18446744073709551615\n"
        "two\nlines\n"
        "</1>\n"
        "\n"
        "<2>\n"
        "UTC 1970-01-01 00:00:00.000000, , Level = 0, Bundle = , Service =  \n"
        "filename = , lineno = 0\n"
        "\n"
        "</2>\n"
        "\n",
        ReadFile(m_first));
}

TEST_F(LogFileTest, StampsEachRecordWithItsOwnTime) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    const std::vector<std::pair<ACE_Time_Value, std::string>> stamps = {
        {ACE_Time_Value(1706745599, 0), "UTC 2024-01-31 23:59:59.000000"},
        {ACE_Time_Value(1706745599, 999999), "UTC 2024-01-31 23:59:59.999999"},
        {ACE_Time_Value(1706745600, 100000), "UTC 2024-02-01 00:00:00.100000"},
        {ACE_Time_Value(1706745599, 1), "UTC 2024-01-31 23:59:59.000001"},
        {ACE_Time_Value(-1, 0), "UTC 1969-12-31 23:59:59.000000"},
        {ACE_Time_Value(0, 7), "UTC 1970-01-01 00:00:00.000007"},
        {ACE_Time_Value(-1, -500000), "UTC 1969-12-31 23:59:59.-500000"},
        {ACE_Time_Value(253402300799, 5), "UTC 9999-12-31 23:59:59.000005"}};
    std::string expected;
    unsigned long sequence = 0;
    for (const auto& [time, stamp] : stamps) {
        DebugInfo info = MakeInfo(3, "t");
        info.time = time;
        file.WriteRecord(test::RecordOf(info));
        LogRecord record;
        record.sequence = ++sequence;
        record.stamp = stamp;
        record.text = "t";
        expected += record.Bytes();
    }
    file.Flush();
    EXPECT_EQ(expected, ReadFile(m_first));
}

TEST_F(LogFileTest, FollowsAChangeOfTheZone) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    const test::ScopedZone zone("CST-8");
    file.EnsureOpen();  // the next batch
    file.WriteRecord(test::RecordOf(MakeInfo(3, "b")));
    file.Flush();
    LogRecord second;
    second.sequence = 2;
    second.stamp = "CST 2024-02-01 07:59:59.000042";
    second.text = "b";
    EXPECT_EQ(Bytes(1, "a") + second.Bytes(), ReadFile(m_first));
}

TEST_F(LogFileTest, NumbersRecordsThatFoundNoFile) {
    LogFile file = MakeFile(kNoLimit);
    file.WriteRecord(test::RecordOf(MakeInfo(3, "lost")));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "lost as well")));
    file.EnsureOpen();
    EXPECT_EQ("", ReadFile(m_first));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "kept")));
    file.Flush();
    EXPECT_EQ(Bytes(3, "kept"), ReadFile(m_first));
}

TEST_F(LogFileTest, NumbersRecordsAcrossFiles) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    test::Clock::Set(test::kTheSecond + 1);
    file.OpenNewFile();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "b")));
    file.Close();
    EXPECT_EQ(Bytes(1, "a"), ReadFile(m_first));
    EXPECT_EQ(Bytes(2, "b"), ReadFile(m_second));
}

TEST_F(LogFileTest, BringsRecordsToTheDiskWithFlush) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    EXPECT_EQ("", ReadFile(m_first));
    file.Flush();
    EXPECT_EQ(Bytes(1, "a"), ReadFile(m_first));
}

TEST_F(LogFileTest, WritesRecordsLargerThanAnyBuffer) {
    const std::string large(1000000, 'x');
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    for (const std::string& text : {std::string("a"), large, std::string("b")})
        file.WriteRecord(test::RecordOf(MakeInfo(3, text)));
    file.Flush();
    EXPECT_EQ(Bytes(1, "a") + Bytes(2, large) + Bytes(3, "b"), ReadFile(m_first));
}

// ---- Rotation ----

TEST_F(LogFileTest, RotatesAtTheLimit) {
    LogFile file = MakeFile(Bytes(1, "a").size() + Bytes(2, "b").size());
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
    test::Clock::Set(test::kTheSecond + 1);
    file.WriteRecord(test::RecordOf(MakeInfo(3, "b")));
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first, m_second));
    EXPECT_EQ(Bytes(1, "a") + Bytes(2, "b"), ReadFile(m_first));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "c")));
    file.Flush();
    EXPECT_EQ(Bytes(3, "c"), ReadFile(m_second));
}

TEST_F(LogFileTest, DoesNotRotateOneByteBelowTheLimit) {
    LogFile file = MakeFile(Bytes(1, "a").size() + 1);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    test::Clock::Set(test::kTheSecond + 1);
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "exceeds")));
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first, m_second));
    EXPECT_EQ(Bytes(1, "a") + Bytes(2, "exceeds"), ReadFile(m_first));
    file.Close();
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
}

TEST_F(LogFileTest, CountsTheBytesOfEachFileAnew) {
    const std::uint64_t limit = Bytes(1, "a").size() + 1;
    LogFile file = MakeFile(limit);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "b")));
    test::Clock::Set(test::kTheSecond + 1);
    file.OpenNewFile();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "c")));
    test::Clock::Set(test::kTheSecond + 2);
    file.Flush();
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_second));
}

TEST_F(LogFileTest, ASecondFileOfOneSecondReplacesTheFirst) {
    LogFile file = MakeFile(1);
    file.EnsureOpen();
    file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    EXPECT_EQ("", ReadFile(m_first));
    file.WriteRecord(test::RecordOf(MakeInfo(3, "b")));
    EXPECT_EQ("", ReadFile(m_first));
    test::Clock::Set(test::kTheSecond + 1);
    file.WriteRecord(test::RecordOf(MakeInfo(3, "c")));
    EXPECT_EQ(Bytes(3, "c"), ReadFile(m_first));
    EXPECT_EQ("", ReadFile(m_second));
}

TEST_F(LogFileTest, PrunesNoOldFiles) {
    LogFile file(m_dir.Path(), "pnbi", 1, 1);
    file.EnsureOpen();
    for (int i = 1; i <= 5; ++i) {
        test::Clock::Set(test::kTheSecond + i);
        file.WriteRecord(test::RecordOf(MakeInfo(3, "t")));
    }
    file.Close();
    EXPECT_EQ(5U, FilesIn(m_dir.Path()).size());
}

// ---- Closing ----

TEST_F(LogFileTest, RemovesAFileWithoutRecords) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    file.Flush();
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
    file.Close();
    EXPECT_THAT(FilesIn(m_dir.Path()), IsEmpty());
    file.Close();
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_first));
}

TEST_F(LogFileTest, RemovesTheEmptyFileBeforeTheNext) {
    LogFile file = MakeFile(kNoLimit);
    file.EnsureOpen();
    test::Clock::Set(test::kTheSecond + 1);
    file.OpenNewFile();
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(m_second));
}

TEST_F(LogFileTest, KeepsAFileWithRecords) {
    {
        LogFile file = MakeFile(kNoLimit);
        file.EnsureOpen();
        file.WriteRecord(test::RecordOf(MakeInfo(3, "a")));
    }
    EXPECT_EQ(Bytes(1, "a"), ReadFile(m_first));
}

TEST_F(LogFileTest, RemovesOnlyItsOwnFile) {
    const std::string other = m_dir.Write("other", "");
    {
        LogFile file = MakeFile(kNoLimit);
        file.EnsureOpen();
    }
    EXPECT_THAT(FilesIn(m_dir.Path()), ElementsAre(other));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
