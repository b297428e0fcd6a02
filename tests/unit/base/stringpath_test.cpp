#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <limits>
#include <list>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "support/environment.h"
#include "support/ordinaryuser.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

namespace fs = std::filesystem;

using Fields = std::vector<std::string>;

TEST(Trim, CutsTheFourWhiteSpaceCharacters) {
    EXPECT_EQ("a b", Trim(" \t\r\na b\n\r\t "));
    EXPECT_EQ("a b\n\r\t ", LTrim(" \t\r\na b\n\r\t "));
    EXPECT_EQ(" \t\r\na b", RTrim(" \t\r\na b\n\r\t "));
}

TEST(Trim, LeavesNothingOfWhiteSpaceAlone) {
    for (const char* text : {"", " ", "\t", "\r", "\n", "\t \r\n"}) {
        EXPECT_EQ("", Trim(text));
        EXPECT_EQ("", LTrim(text));
        EXPECT_EQ("", RTrim(text));
    }
}

TEST(Trim, KeepsOtherCharacters) {
    EXPECT_EQ("\fa", Trim("\fa"));
    EXPECT_EQ("a\v", Trim("a\v "));
    EXPECT_EQ("\xa0-\xa0", Trim(" \xa0-\xa0 "));
    EXPECT_EQ(std::string("\0a\0", 3), Trim(std::string(" \0a\0 ", 5)));
    EXPECT_EQ("a", Trim("a"));
    EXPECT_EQ("a \t b", Trim("a \t b"));
}

TEST(DelTabStr, RemovesEveryTabAndNothingElse) {
    EXPECT_EQ("", DelTabStr(""));
    EXPECT_EQ("", DelTabStr("\t\t"));
    EXPECT_EQ("abc", DelTabStr("\ta\tb\t\tc\t"));
    EXPECT_EQ(" a \r\n", DelTabStr(" a\t \r\n"));
    EXPECT_EQ(std::string("a\0b", 3), DelTabStr(std::string("a\t\0b", 4)));
}

Fields SplitAt(char separator, const char* text) {
    Fields fields;
    Str2StrVec(text, separator, fields);
    return fields;
}

TEST(Str2StrVec, SplitsAndKeepsEmptyFieldsButATrailingOne) {
    EXPECT_EQ((Fields{"a"}), SplitAt(',', "a"));
    EXPECT_EQ((Fields{"a", "b"}), SplitAt(',', "a,b"));
    EXPECT_EQ((Fields{"a", "", "b"}), SplitAt(',', "a,,b"));
    EXPECT_EQ((Fields{"", "a"}), SplitAt(',', ",a"));
    EXPECT_EQ((Fields{"a", "b"}), SplitAt(',', "a,b,"));
    EXPECT_EQ((Fields{"a", "b", ""}), SplitAt(',', "a,b,,"));
    EXPECT_EQ((Fields{""}), SplitAt(',', ","));
    EXPECT_EQ((Fields{"", ""}), SplitAt(',', ",,"));
    EXPECT_EQ((Fields{" a ", "\tb"}), SplitAt(',', " a ,\tb"));
    EXPECT_EQ((Fields{"a,b", "c"}), SplitAt(';', "a,b;c"));
}

TEST(Str2StrVec, NoTextHasNoFields) {
    EXPECT_EQ(Fields{}, SplitAt(',', ""));
    EXPECT_EQ(Fields{}, SplitAt(',', nullptr));
}

TEST(Str2StrVec, ANulSeparatorNeverOccurs) {
    EXPECT_EQ((Fields{"a,b"}), SplitAt('\0', "a,b"));
}

TEST(Str2StrVec, AppendsToWhatTheVectorHolds) {
    Fields fields{"before"};
    Str2StrVec("a,b", ',', fields);
    Str2StrVec(nullptr, ',', fields);
    EXPECT_EQ((Fields{"before", "a", "b"}), fields);
}

TEST(Str2StrVec, AgreesWithGetlineOnRandomTexts) {
    std::mt19937 random(20240301);
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (std::size_t i = random() % 12; i > 0; --i) text += ",,a;\xff"[random() % 5];
        Fields expected;
        std::istringstream lines(text);
        for (std::string field; std::getline(lines, field, ',');) expected.push_back(field);
        EXPECT_EQ(expected, SplitAt(',', text.c_str())) << testing::PrintToString(text);
    }
}

struct IntCase {
    const char* text;
    int value;
};

TEST(Str2Int, ReadsIntegerLiterals) {
    const IntCase cases[] = {
        {"0", 0},
        {"-0", 0},
        {" 42 ", 42},
        {"\t\r\n7\n", 7},
        {"-42", -42},
        {"010", 8},
        {"00", 0},
        {"0017", 15},
        {"-017", -15},
        {"0x1f", 31},
        {"0xAbCdEf", 0xabcdef},
        {"-0x10", -16},
        {"0x0", 0},
        {"2147483647", INT_MAX},
        {"-2147483648", INT_MIN},
        // Narrowed to int: the low 32 bits.
        {"2147483648", INT_MIN},
        {"4294967295", -1},
        {"4294967298", 2},
        {"-4294967298", -2},
        {"0xffffffff", -1},
        {"18446744073709551615", -1},
        // Beyond 64 bits the C library answers its largest number.
        {"18446744073709551616", -1},
        {"-18446744073709551616", -1},
        {"99999999999999999999999999", -1},
    };
    for (const IntCase& c : cases) {
        int value = 4711;
        EXPECT_TRUE(Str2Int(c.text, value)) << c.text;
        EXPECT_EQ(c.value, value) << c.text;
    }
}

TEST(Str2Int, RefusesEverythingElseAndLeavesTheValue) {
    for (const char* text : {"",   " ",  "-",    "--1", "- 1",  "+1",  "4-2",  "42-",  "1 2",  "12x",
                             "x",  "x1", "0x",   "-0x", "0X1F", "0xg", "0x-1", "0x1x", "00x1", "1x1",
                             "09", "08", "0178", "a",   "1a",   "1.0", "1e3",  "\f1",  "0b1",  "\xb2"}) {
        int value = 4711;
        EXPECT_FALSE(Str2Int(text, value)) << text;
        EXPECT_EQ(4711, value) << text;
    }
    int value = 4711;
    EXPECT_FALSE(Str2Int(std::string("1\0", 2), value));
    EXPECT_FALSE(Str2Int(std::string("\0", 1), value));
    EXPECT_EQ(4711, value);
}

/// The value of a valid literal, digit by digit.
int ModelValue(std::string literal) {
    const bool negative = literal[0] == '-';
    if (negative) literal.erase(0, 1);
    std::uint64_t base = literal[0] == '0' ? 8 : 10;
    if (literal.compare(0, 2, "0x") == 0) {
        base = 16;
        literal.erase(0, 2);
    }
    const std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t value = 0;
    for (const char c : literal) {
        const std::uint64_t digit = std::string("0123456789abcdef").find(static_cast<char>(std::tolower(c)));
        if (value > (largest - digit) / base) return -1;
        value = value * base + digit;
    }
    return static_cast<int>(negative ? 0 - value : value);
}

class Str2IntModel : public testing::Test {
protected:
    void ExpectAgreement(const std::string& text) const {
        std::smatch match;
        const bool expected = std::regex_match(text, match, m_pattern);
        int value = 4711;
        EXPECT_EQ(expected, Str2Int(text, value)) << testing::PrintToString(text);
        EXPECT_EQ(expected ? ModelValue(match[1]) : 4711, value) << testing::PrintToString(text);
    }

private:
    const std::regex m_pattern{"[ \\t\\r\\n]*(-?(?:0|0[0-7]+|[1-9][0-9]*|0x[0-9a-fA-F]+))[ \\t\\r\\n]*"};
};

TEST_F(Str2IntModel, AgreesOnAllShortTexts) {
    const std::string alphabet = "0178aFxX- ";
    std::vector<std::string> texts{""};
    for (std::size_t begin = 0, length = 0; length < 4; ++length) {
        const std::size_t end = texts.size();
        for (; begin < end; ++begin) {
            for (const char c : alphabet) texts.push_back(texts[begin] + c);
        }
    }
    ASSERT_EQ(11111u, texts.size());
    for (const std::string& text : texts) ExpectAgreement(text);
}

TEST_F(Str2IntModel, AgreesOnRandomNumbers) {
    std::mt19937 random(20240301);
    const auto randomOf = [&random](const std::string& alphabet, std::size_t length) {
        std::string text;
        for (std::size_t i = length; i > 0; --i) text += alphabet[random() % alphabet.size()];
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const std::string sign = random() % 2 == 0 ? "-" : "";
        ExpectAgreement(sign + randomOf("0123456789", 1 + random() % 24));
        ExpectAgreement(sign + "0x" + randomOf("0123456789abcdefABCDEF", random() % 20));
        ExpectAgreement(sign + "0" + randomOf("01234567", random() % 26));
        ExpectAgreement(randomOf("0123456789abcxX-+ \t\n", random() % 8));
    }
}

TEST(ConvertBackslash, TrimsBlanksAndTurnsBackslashes) {
    const auto convert = [](std::string path) {
        ConvertBackslash(path);
        return path;
    };
    EXPECT_EQ("/a/b", convert("  \\a\\b  "));
    EXPECT_EQ("c:/a b/c", convert("c:\\a b/c"));
    EXPECT_EQ("", convert(""));
    EXPECT_EQ("", convert("   "));
    EXPECT_EQ("\t/a\n", convert(" \t\\a\n "));
    EXPECT_EQ("//", convert("\\\\"));
}

/// The result, or "false".
std::string Absolute(std::string path) {
    return ConvertAbsolutePath(path) ? path : "false";
}

TEST(ConvertAbsolutePath, FoldsParentSegments) {
    EXPECT_EQ("/a/c", Absolute("/a/b/../c"));
    EXPECT_EQ("/a", Absolute("\\a\\b\\.."));
    EXPECT_EQ("/a", Absolute(" /a/b/.. "));
    EXPECT_EQ("/d", Absolute("/a/b/../../d"));
    EXPECT_EQ("/d", Absolute("/a/b/../../c/../d"));
    EXPECT_EQ("", Absolute("/a/.."));
    EXPECT_EQ("/", Absolute("/a/../"));
    EXPECT_EQ("c:/b", Absolute("c:\\a\\..\\b"));
}

TEST(ConvertAbsolutePath, MatchesTextuallyNotBySegment) {
    EXPECT_EQ("/ax", Absolute("/a/b/..x"));
    EXPECT_EQ("/a.", Absolute("/a/b/..."));
    EXPECT_EQ("/a/b", Absolute("/a//../b"));
    EXPECT_EQ("/a/b../c", Absolute("/a/b../c"));
    // The "." in front of it is what a "/.." takes first.
    EXPECT_EQ("/a", Absolute("/a/./.."));
}

TEST(ConvertAbsolutePath, FoldsSelfSegments) {
    EXPECT_EQ("/a/b", Absolute("/a/./b"));
    EXPECT_EQ("/a/b", Absolute("/a/././b"));
    EXPECT_EQ("/a/", Absolute("/a/./"));
    EXPECT_EQ("/a/.", Absolute("/a/."));
    EXPECT_EQ("/", Absolute("/./"));
    EXPECT_EQ("/a/.b", Absolute("/a/.b"));
}

TEST(ConvertAbsolutePath, LeavesOtherPaths) {
    EXPECT_EQ("/", Absolute("/"));
    EXPECT_EQ("//a//b//", Absolute("//a//b//"));
    EXPECT_EQ("a/b", Absolute("a/b"));
    EXPECT_EQ("\t/a", Absolute("\t/a"));
}

TEST(ConvertAbsolutePath, FailsOnEmptyAndRelativePaths) {
    for (const char* path : {"", "   ", ".", "..", "./a", "../a", ".a", " ./a", ".\\a"}) {
        EXPECT_EQ("false", Absolute(path)) << path;
    }
}

TEST(ConvertAbsolutePath, FailsOnAParentSegmentWithNothingToFold) {
    for (const char* path :
         {"relative/..", "a/../b", "/..", "/../a", "\\..", "/a/../..", "/a/../../b", "/../..", "/...", "/..x/a/b"}) {
        EXPECT_EQ("false", Absolute(path)) << path;
    }
    EXPECT_EQ("", Absolute("//.."));
}

/// The folding as one would write it down first.
std::string ModelAbsolute(std::string path) {
    const std::size_t first = path.find_first_not_of(' ');
    if (first == std::string::npos) return "false";
    path = path.substr(first, path.find_last_not_of(' ') - first + 1);
    for (char& c : path) c = c == '\\' ? '/' : c;
    if (path[0] == '.') return "false";
    for (std::size_t at = path.find("/.."); at != std::string::npos; at = path.find("/..")) {
        const std::size_t segment = at == 0 ? std::string::npos : path.rfind('/', at - 1);
        if (segment == std::string::npos) return "false";
        path = path.substr(0, segment) + path.substr(at + 3);
    }
    for (std::size_t at = path.find("/./"); at != std::string::npos; at = path.find("/./")) path.erase(at, 2);
    return path;
}

TEST(ConvertAbsolutePath, EndsAndAgreesWithTheModelOnAllShortPaths) {
    const std::string alphabet = "/.a\\ ";
    std::vector<std::string> paths{""};
    for (std::size_t begin = 0, length = 0; length < 6; ++length) {
        const std::size_t end = paths.size();
        for (; begin < end; ++begin) {
            for (const char c : alphabet) paths.push_back(paths[begin] + c);
        }
    }
    ASSERT_EQ(19531u, paths.size());
    for (const std::string& path : paths) ASSERT_EQ(ModelAbsolute(path), Absolute(path)) << path;
}

TEST(ConvertAbsolutePath, EndsAndAgreesWithTheModelOnRandomPaths) {
    std::mt19937 random(20240301);
    const Fields pieces = {"/", "/a", "/bc", "/.", "/..", "/../..", "//", "\\", ".", "x"};
    for (int round = 0; round < 20000; ++round) {
        std::string path = "/a/b/c";
        for (std::size_t i = random() % 12; i > 0; --i) path += pieces[random() % pieces.size()];
        ASSERT_EQ(ModelAbsolute(path), Absolute(path)) << path;
    }
}

TEST(ConvertAbsolutePath, TakesLongPaths) {
    std::string folding = "/x";
    for (int i = 0; i < 200000; ++i) folding += "/a/..";
    EXPECT_EQ("/x", Absolute(folding));

    std::string nested;
    for (int i = 0; i < 200000; ++i) nested += "/a";
    for (int i = 0; i < 199999; ++i) nested += "/..";
    EXPECT_EQ("/a", Absolute(nested));
    EXPECT_EQ("false", Absolute(nested + "/../.."));

    std::string self = "/x";
    for (int i = 0; i < 200000; ++i) self += "/.";
    EXPECT_EQ("/x/y", Absolute(self + "/y"));
}

TEST(GetParentPath, IsTheDirectoryAbove) {
    EXPECT_EQ("/a/b/", GetParentPath("/a/b/c"));
    EXPECT_EQ("/a/b/", GetParentPath("/a/b/c/"));
    EXPECT_EQ("/", GetParentPath("/a"));
    EXPECT_EQ("/", GetParentPath("/a/"));
    EXPECT_EQ("a/", GetParentPath("a/b"));
    EXPECT_EQ("/a/", GetParentPath(" \\a\\b\\x\\.. "));
    // One "/" is dropped, the one before it stands for the parent.
    EXPECT_EQ("/a/", GetParentPath("/a//"));
}

TEST(GetParentPath, IsEmptyWhereThereIsNone) {
    for (const char* path : {"", " ", "/", "a", "a/", "./a", "../a", "/a/..", "/..", "/../a"}) {
        EXPECT_EQ("", GetParentPath(path)) << path;
    }
}

class FilesTest : public testing::Test {
protected:
    FilesTest() : m_maskAtStart(umask(0022)) {}
    ~FilesTest() override { umask(m_maskAtStart); }

    void MakeDirs(const std::string& name) const { fs::create_directories(m_dir / name); }
    void Link(const std::string& target, const std::string& name) const { fs::create_symlink(target, m_dir / name); }
    bool Exists(const std::string& name) const { return fs::exists(fs::symlink_status(m_dir / name)); }

    /// Every path below the test's directory.
    std::set<std::string> Tree() const {
        std::set<std::string> names;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_dir.Path())) {
            names.insert(fs::path(entry.path()).lexically_relative(m_dir.Path()).string());
        }
        return names;
    }

    mode_t ModeOf(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(0, lstat((m_dir / name).c_str(), &status));
        return status.st_mode & 07777;
    }

    const test::TempDir m_dir;

private:
    const mode_t m_maskAtStart;
};

using Names = std::set<std::string>;

TEST_F(FilesTest, IsExistDirAcceptsAnyKindOfFile) {
    m_dir.Write("file", "x");
    MakeDirs("dir");
    Link("file", "link");
    Link("nowhere", "dangling");
    EXPECT_TRUE(IsExistDir(m_dir / "file"));
    EXPECT_TRUE(IsExistDir(m_dir / "dir"));
    EXPECT_TRUE(IsExistDir(m_dir / "dir/"));
    EXPECT_TRUE(IsExistDir(m_dir / "link"));
    EXPECT_FALSE(IsExistDir(m_dir / "dangling"));
    EXPECT_FALSE(IsExistDir(m_dir / "missing"));
    EXPECT_FALSE(IsExistDir(m_dir / "file/x"));
    EXPECT_FALSE(IsExistDir(""));
}

TEST_F(FilesTest, RemoveDirEmptiesTheDirectoryAndKeepsIt) {
    m_dir.Write("p/a", "x");
    m_dir.Write("p/sub/b", "x");
    m_dir.Write("p/sub/deep/c", "x");
    MakeDirs("p/empty");
    m_dir.Write("other", "x");
    RemoveDir(m_dir / "p", false);
    EXPECT_EQ((Names{"other", "p"}), Tree());
}

TEST_F(FilesTest, RemoveDirTakesTheDirectoryItselfIfAsked) {
    m_dir.Write("p/sub/b", "x");
    m_dir.Write("other", "x");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ((Names{"other"}), Tree());
}

TEST_F(FilesTest, RemoveDirTakesAPathThatEndsInASeparator) {
    m_dir.Write("p/sub/b", "x");
    RemoveDir(m_dir / "p/", true);
    EXPECT_EQ(Names{}, Tree());
}

TEST_F(FilesTest, RemoveDirPassesOverOnlyTheTwoDotEntries) {
    for (const char* name : {".hidden", "..x", "...", "a b", " ", "a\nb", "\xff"}) {
        m_dir.Write(std::string("p/") + name, "x");
        m_dir.Write(std::string("p/sub/") + name + "/file", "x");
    }
    RemoveDir(m_dir / "p", false);
    EXPECT_EQ((Names{"p"}), Tree());
}

TEST_F(FilesTest, RemoveDirTakesPipesAndSockets) {
    MakeDirs("p");
    ASSERT_EQ(0, mkfifo((m_dir / "p/fifo").c_str(), 0600));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (m_dir / "p/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    close(fd);
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ(Names{}, Tree());
}

TEST_F(FilesTest, RemoveDirLeavesWhatIsNoDirectory) {
    m_dir.Write("file", "x");
    RemoveDir(m_dir / "file", true);
    RemoveDir(m_dir / "missing", true);
    RemoveDir("", true);
    EXPECT_EQ((Names{"file"}), Tree());
}

TEST_F(FilesTest, RemoveDirUnlinksALinkToAFile) {
    m_dir.Write("target", "kept");
    MakeDirs("p");
    Link("../target", "p/link");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ((Names{"target"}), Tree());
    EXPECT_EQ("kept", test::ReadFile(m_dir / "target"));
}

TEST_F(FilesTest, RemoveDirFollowsALinkToADirectory) {
    m_dir.Write("target/sub/file", "x");
    MakeDirs("p");
    Link("../target", "p/link");
    RemoveDir(m_dir / "p", true);
    // The target is emptied; rmdir refuses the link, and so the directory around it.
    EXPECT_EQ((Names{"p", "p/link", "target"}), Tree());
}

TEST_F(FilesTest, RemoveDirSkipsWhatItCannotStat) {
    MakeDirs("p");
    Link("nowhere", "p/dangling");
    m_dir.Write("p/file", "x");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ((Names{"p", "p/dangling"}), Tree());
}

TEST_F(FilesTest, RemoveDirTakesAnUnreadableDirectoryOnlyIfItIsEmpty) {
    MakeDirs("p/empty");
    m_dir.Write("p/full/file", "x");
    m_dir.Write("p/readable/file", "x");
    fs::permissions(m_dir / "p/empty", fs::perms::none);
    fs::permissions(m_dir / "p/full", fs::perms::none);
    {
        const test::AsOrdinaryUser user(m_dir.Path());
        RemoveDir(m_dir / "p", true);
        fs::permissions(m_dir / "p/full", fs::perms::owner_all);
    }
    EXPECT_EQ((Names{"p", "p/full", "p/full/file"}), Tree());
}

TEST_F(FilesTest, ReCreateDirLeavesWhatItMayNotReach) {
    m_dir.Write("closed/p/file", "x");
    fs::permissions(m_dir / "closed", fs::perms::none);
    {
        const test::AsOrdinaryUser user(m_dir.Path());
        ReCreateDir(m_dir / "closed/p");
        fs::permissions(m_dir / "closed", fs::perms::owner_all);
    }
    EXPECT_EQ((Names{"closed", "closed/p", "closed/p/file"}), Tree());
}

TEST_F(FilesTest, RemoveDirEndsThoughADirectoryLinksToItself) {
    MakeDirs("p");
    for (const char* name : {"p/1", "p/2", "p/3", "p/4"}) Link(".", name);
    m_dir.Write("p/file", "x");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ((Names{"p", "p/1", "p/2", "p/3", "p/4"}), Tree());
}

TEST_F(FilesTest, RemoveDirEndsThoughADirectoryLinksToOneAboveIt) {
    m_dir.Write("p/a/b/file", "x");
    m_dir.Write("p/z", "x");
    Link("../..", "p/a/b/up");
    Link("../b", "p/a/b/again");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ((Names{"p", "p/a", "p/a/b", "p/a/b/again", "p/a/b/up"}), Tree());
}

TEST_F(FilesTest, RemoveDirNeedsFewFileDescriptorsForADeepTree) {
    std::string deep = "p";
    for (int i = 0; i < 300; ++i) deep += "/d";
    m_dir.Write(deep + "/file", "x");

    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit few = before;
    few.rlim_cur = 64;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    RemoveDir(m_dir / "p", true);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(Names{}, Tree());
}

TEST_F(FilesTest, RemoveDirTakesManyEntries) {
    for (int i = 0; i < 3000; ++i) m_dir.Write("p/" + std::to_string(i), "");
    RemoveDir(m_dir / "p", true);
    EXPECT_EQ(Names{}, Tree());
}

TEST_F(FilesTest, ReCreateDirCreatesAMissingDirectory) {
    m_dir.Write("other/file", "x");
    ReCreateDir(m_dir / "new");
    EXPECT_EQ((Names{"new", "other", "other/file"}), Tree());
    EXPECT_EQ(0750u, ModeOf("new"));
}

TEST_F(FilesTest, ReCreateDirEmptiesAnExistingOne) {
    m_dir.Write("p/sub/file", "x");
    fs::permissions(m_dir / "p", fs::perms::all);
    ReCreateDir(m_dir / "p");
    EXPECT_EQ((Names{"p"}), Tree());
    EXPECT_EQ(0750u, ModeOf("p"));
}

TEST_F(FilesTest, ReCreateDirTakesAPathWithDotsInIt) {
    m_dir.Write("p/sub/file", "x");
    ReCreateDir(m_dir / "p/sub/../.");
    EXPECT_EQ((Names{"p"}), Tree());
    ReCreateDir(m_dir / "p/new/");
    EXPECT_EQ((Names{"p", "p/new"}), Tree());
}

TEST_F(FilesTest, ReCreateDirDependsOnNoUmask) {
    for (const mode_t mask : {0000u, 0022u, 0077u, 0777u}) {
        umask(mask);
        ReCreateDir(m_dir / "p");
        EXPECT_EQ(0750u, ModeOf("p"));
        EXPECT_EQ(mask, umask(0022));
    }
}

TEST_F(FilesTest, ReCreateDirLeavesOthersTheirUmask) {
    std::atomic<bool> stop{false};
    std::atomic<int> created{0};
    std::thread other([&] {
        for (; !stop; ++created) ReCreateDir(m_dir / "p");
    });
    EXPECT_TRUE(test::WaitFor([&] { return created > 0; }));
    for (int i = 0; i < 3000; ++i) {
        m_dir.Write("own", "");
        EXPECT_EQ(0644u, ModeOf("own")) << i;
        fs::remove(m_dir / "own");
    }
    stop = true;
    other.join();
}

TEST_F(FilesTest, ReCreateDirRemovesNothingAboveAMissingDirectory) {
    m_dir.Write("p/file", "x");
    ReCreateDir(m_dir / "p/missing/new");
    EXPECT_EQ((Names{"p", "p/file"}), Tree());
    ReCreateDir(m_dir / "p/file/new");
    EXPECT_EQ((Names{"p", "p/file"}), Tree());
    ReCreateDir("");
    ReCreateDir(m_dir.Path() + "/" + std::string(300, 'x'));
    EXPECT_EQ((Names{"p", "p/file"}), Tree());
}

TEST_F(FilesTest, ReCreateDirLeavesAFile) {
    m_dir.Write("file", "kept");
    ReCreateDir(m_dir / "file");
    EXPECT_EQ("kept", test::ReadFile(m_dir / "file"));
}

TEST_F(FilesTest, ReCreateDirReplacesTheDirectoryThatALinkLeadsTo) {
    m_dir.Write("target/file", "x");
    Link("target", "link");
    ReCreateDir(m_dir / "link");
    EXPECT_EQ((Names{"link", "target"}), Tree());
    EXPECT_TRUE(fs::is_directory(m_dir / "link"));
    EXPECT_EQ(0750u, ModeOf("target"));
}

TEST_F(FilesTest, ReCreateDirEmptiesWhatALinkInItLeadsTo) {
    m_dir.Write("target/sub/file", "x");
    m_dir.Write("p/file", "x");
    fs::permissions(m_dir / "p", fs::perms::owner_all);
    Link("../target", "p/link");
    ReCreateDir(m_dir / "p");
    EXPECT_EQ((Names{"p", "p/link", "target"}), Tree());
    EXPECT_EQ(0700u, ModeOf("p"));  // the old one, which the link keeps from being removed
}

TEST_F(FilesTest, DeleteFileTakesFilesOnly) {
    m_dir.Write("file", "x");
    m_dir.Write("target", "kept");
    MakeDirs("dir");
    Link("target", "fileLink");
    Link("dir", "dirLink");
    Link("nowhere", "dangling");
    ASSERT_EQ(0, mkfifo((m_dir / "fifo").c_str(), 0600));
    for (const char* name : {"file", "dir", "fileLink", "dirLink", "dangling", "fifo", "missing", "target/x", ""}) {
        DeleteFile(m_dir / name);
    }
    DeleteFile("");
    EXPECT_EQ((Names{"dangling", "dir", "dirLink", "target"}), Tree());
}

TEST_F(FilesTest, RemoveFilesListPassesOverFailures) {
    m_dir.Write("a", "x");
    m_dir.Write("b", "x");
    m_dir.Write("kept", "x");
    MakeDirs("dir");
    Link("nowhere", "dangling");
    RemoveFilesList({m_dir / "a", m_dir / "missing", m_dir / "dir", "", m_dir / "dangling", m_dir / "a", m_dir / "b"});
    RemoveFilesList({});
    EXPECT_EQ((Names{"dir", "kept"}), Tree());
}

/// A time zone for the life of a test.
class ScopedZone {
public:
    explicit ScopedZone(const std::string& zone) : m_zone("TZ", zone) { tzset(); }
    ~ScopedZone() {
        // Before the variable is restored, since that may free what tzset points to.
        setenv("TZ", "UTC", 1);
        tzset();
    }

private:
    const test::ScopedEnv m_zone;
};

std::string StampIn(const std::string& zone, std::time_t seconds, long microseconds) {
    const ScopedZone scoped(zone);
    return GetZoneTimeStamp(ACE_Time_Value(seconds, microseconds));
}

TEST(GetZoneTimeStamp, IsTheZoneAndTheLocalTime) {
    EXPECT_EQ("CST 2024-03-01 08:05:09.000042", StampIn("CST-8", 1709251509, 42));
    EXPECT_EQ("UTC 2024-03-01 00:05:09.999999", StampIn("UTC", 1709251509, 999999));
    EXPECT_EQ("UTC 1970-01-01 00:00:00.000000", StampIn("UTC", 0, 0));
    EXPECT_EQ("EST 2024-02-29 19:05:09.000000", StampIn("EST5EDT,M3.2.0,M11.1.0", 1709251509, 0));
    EXPECT_EQ("+0545 2024-03-01 05:50:09.100000", StampIn("<+0545>-5:45", 1709251509, 100000));
}

TEST(GetZoneTimeStamp, NamesSummerTime) {
    EXPECT_EQ("EDT 2024-07-01 08:00:00.000000", StampIn("EST5EDT,M3.2.0,M11.1.0", 1719835200, 0));
}

TEST(GetZoneTimeStamp, TakesTimesBeforeTheEpoch) {
    EXPECT_EQ("UTC 1969-12-31 23:59:59.000000", StampIn("UTC", -1, 0));
    EXPECT_EQ("UTC 0001-01-01 00:00:00.000000", StampIn("UTC", -62135596800, 0));
    // What a failing clock is recorded as, and a normalised negative fraction.
    EXPECT_EQ("UTC 1969-12-31 23:59:59.-500000", StampIn("UTC", -1, -500000));
}

TEST(GetZoneTimeStamp, TakesYearsOfMoreThanFourDigits) {
    EXPECT_EQ("UTC 9999-12-31 23:59:59.000000", StampIn("UTC", 253402300799, 0));
    EXPECT_EQ("UTC 10000-01-01 00:00:00.000000", StampIn("UTC", 253402300800, 0));
    // The last second that the C library knows; cut to 31 characters behind the zone.
    EXPECT_EQ("UTC 2147485547-12-31 23:59:59.0000", StampIn("UTC", 67768036191676799, 42));
}

TEST(GetZoneTimeStamp, SurvivesATimeBeyondTheCalendar) {
    const std::time_t largest = std::numeric_limits<std::time_t>::max();
    const std::time_t smallest = std::numeric_limits<std::time_t>::min();
    EXPECT_EQ("Unknown Time Zone 1900-01-00 00:00:00.000042", StampIn("UTC", largest, 42));
    EXPECT_EQ("Unknown Time Zone 1900-01-00 00:00:00.000000", StampIn("CST-8", smallest, 0));
    EXPECT_EQ("Unknown Time Zone 1900-01-00 00:00:00.000000", StampIn("CST-8", 67768036191676800, 0));
}

TEST(GetZoneTimeStamp, TakesZoneNamesOfUpTo64Bytes) {
    const std::string longest(64, 'Z');
    EXPECT_EQ(longest + " 2024-03-01 00:05:09.000042", StampIn(longest + "0", 1709251509, 42));
    EXPECT_EQ("Unknown Time Zone 2024-03-01 00:05:09.000042", StampIn(longest + "Z0", 1709251509, 42));
    EXPECT_EQ(longest + " 2147485547-12-31 23:59:59.0000", StampIn(longest + "0", 67768036191676799, 42));
}

/// A compiled time zone file with one type: no offset and the given name.
std::string ZoneFile(const std::string& name) {
    const auto bigEndian = [](std::size_t number) {
        return std::string{'\0', '\0', static_cast<char>(number >> 8), static_cast<char>(number)};
    };
    return "TZif" + std::string(16, '\0')                               // version 1, reserved
           + bigEndian(0) + bigEndian(0) + bigEndian(0) + bigEndian(0)  // no indicators, leaps, transitions
           + bigEndian(1) + bigEndian(name.size() + 1)                  // one type, the names' length
           + std::string(6, '\0')                                       // offset, no summer time, name at 0
           + name + '\0';
}

TEST(GetZoneTimeStamp, SaysSoWhereTheZoneHasNoName) {
    const test::TempDir dir;
    EXPECT_EQ("Unknown Time Zone 2024-03-01 00:05:09.000042",
              StampIn(dir.Write("nameless", ZoneFile("")), 1709251509, 42));
}

TEST(GetZoneTimeStamp, IsConvertedForTheLog) {
    const test::TempDir dir;
    // Taken for ISO-8859-1 as long as nothing else is configured.
    EXPECT_EQ("H\xc3\xa9 2024-03-01 00:05:09.000042", StampIn(dir.Write("latin", ZoneFile("H\xe9")), 1709251509, 42));
    std::string expected;
    for (int i = 0; i < 64; ++i) expected += "\xc3\xbf";
    EXPECT_EQ(expected + " 2024-03-01 00:05:09.000042",
              StampIn(dir.Write("long", ZoneFile(std::string(64, '\xff'))), 1709251509, 42));
}

TEST(GetZoneTimeStamp, GivesEveryThreadItsOwnTime) {
    const ScopedZone zone("UTC");
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            const std::string expected =
                "UTC 1970-01-01 00:00:0" + std::to_string(number) + ".00000" + std::to_string(number);
            for (int i = 0; i < 500; ++i) ASSERT_EQ(expected, GetZoneTimeStamp(ACE_Time_Value(number, number)));
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
