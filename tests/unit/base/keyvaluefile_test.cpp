#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "support/elsewhere.h"
#include "support/ordinaryuser.h"
#include "support/tempdir.h"

namespace NS_BUNDLEMGR1 {

void PrintTo(const NameValueStru& entry, std::ostream* out) {
    *out << testing::PrintToString(entry.name) << " = " << testing::PrintToString(entry.value);
}

namespace {

using Entries = std::vector<NameValueStru>;

class KeyValueFileTest : public testing::Test {
protected:
    Entries Read(const std::string& content, bool keyValue) const {
        Entries entries;
        EXPECT_TRUE(GetAllCfgFrmFile(entries, m_dir.Write("test.cfg", content), keyValue));
        return entries;
    }
    Entries ReadKeyValues(const std::string& content) const { return Read(content, true); }
    Entries ReadLines(const std::string& content) const { return Read(content, false); }

    const test::TempDir m_dir;
};

std::size_t OpenFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

TEST(NameValue, IsEmptyAtFirst) {
    const NameValueStru entry;
    EXPECT_EQ("", entry.name);
    EXPECT_EQ("", entry.value);
}

TEST(NameValue, ComparesNameAndValueByteForByte) {
    const NameValueStru entry{"name", "value"};
    EXPECT_TRUE(entry == (NameValueStru{"name", "value"}));
    EXPECT_FALSE(entry != (NameValueStru{"name", "value"}));
    EXPECT_TRUE(entry != (NameValueStru{"Name", "value"}));
    EXPECT_TRUE(entry != (NameValueStru{"name", "value "}));
    EXPECT_FALSE(entry == (NameValueStru{"name", std::string("value\0", 6)}));
}

TEST(NameValue, IsCopiedAndAssigned) {
    const NameValueStru entry{"name", "value"};
    NameValueStru copy = entry;
    EXPECT_EQ(entry, copy);
    copy = NameValueStru{"other", ""};
    EXPECT_EQ("other", copy.name);
    EXPECT_EQ("name", entry.name);
}

TEST_F(KeyValueFileTest, ReadsEntriesInFileOrderAndKeepsDuplicates) {
    EXPECT_EQ((Entries{{"b", "1"}, {"a", "2"}, {"b", "3"}}), ReadKeyValues("b=1\na=2\nb=3\n"));
}

TEST_F(KeyValueFileTest, AppendsToWhatTheListHolds) {
    Entries entries{{"before", "x"}};
    EXPECT_TRUE(GetAllCfgFrmFile(entries, m_dir.Write("a.cfg", "a=1\n"), true));
    EXPECT_EQ((Entries{{"before", "x"}, {"a", "1"}}), entries);
}

TEST_F(KeyValueFileTest, SkipsEmptyLinesAndComments) {
    const std::string content = "\n   \n\t\r\n#a=1\n   # comment = x\n\t#b=2\na=1\n";
    EXPECT_EQ((Entries{{"a", "1"}}), ReadKeyValues(content));
    EXPECT_EQ((Entries{{"", "a=1"}}), ReadLines(content));
}

TEST_F(KeyValueFileTest, KeepsANoteBehindTheValue) {
    EXPECT_EQ((Entries{{"key", "value # note"}}), ReadKeyValues("key=value # note\n"));
}

TEST_F(KeyValueFileTest, SplitsAtTheFirstEqualsSign) {
    EXPECT_EQ((Entries{{"a", "b = c"}}), ReadKeyValues("a = b = c\n"));
    EXPECT_EQ((Entries{{"", "x"}}), ReadKeyValues("=x\n"));
    EXPECT_EQ((Entries{{"a", ""}}), ReadKeyValues("a=\n"));
    EXPECT_EQ((Entries{{"", ""}}), ReadKeyValues("=\n"));
    EXPECT_EQ((Entries{{"", "="}}), ReadKeyValues("==\n"));
}

TEST_F(KeyValueFileTest, RemovesTabsFromNameAndValue) {
    EXPECT_EQ((Entries{{"key", "value"}}), ReadKeyValues("\tkey\t=\tva\tlue\n"));
    EXPECT_EQ((Entries{{"ke y", "va lue"}}), ReadKeyValues(" k\te y = va l\tue \n"));
}

TEST_F(KeyValueFileTest, SkipsLinesWithoutAnEqualsSign) {
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), ReadKeyValues("a=1\nno sign here\nb=2\n"));
}

TEST_F(KeyValueFileTest, KeepsWholeLinesThatAreNotPairs) {
    EXPECT_EQ((Entries{{"", "a bc"}, {"", "key = value"}}), ReadLines("a b\tc\n  key = value \n"));
}

TEST_F(KeyValueFileTest, ReadsTheLastLineWithoutALineEnd) {
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), ReadKeyValues("a=1\nb=2"));
}

TEST_F(KeyValueFileTest, DropsTheCarriageReturnOfALineEnd) {
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "x\ry"}}), ReadKeyValues("a=1\r\n\r\nb=x\ry\r\n"));
}

TEST_F(KeyValueFileTest, KeepsFormFeedsAndHighBytes) {
    EXPECT_EQ((Entries{{"\f\xb0\xa1", "\xff\v"}}), ReadKeyValues("\f\xb0\xa1=\xff\v\n"));
}

TEST_F(KeyValueFileTest, CutsALineAtItsFirstNul) {
    EXPECT_EQ((Entries{{"a", "1"}, {"c", "3"}}), ReadKeyValues(std::string("a=1\0=x\nb\0=2\n\0d=4\nc=3\n", 21)));
}

TEST_F(KeyValueFileTest, EmptyFileHasNoEntries) {
    EXPECT_EQ(Entries{}, ReadKeyValues(""));
    EXPECT_EQ(Entries{}, ReadLines("\n\n"));
}

TEST_F(KeyValueFileTest, KeepsALineOf1022BytesWhole) {
    const std::string line(1022, 'x');
    EXPECT_EQ((Entries{{"", line}, {"", "next"}}), ReadLines(line + "\nnext\n"));
}

TEST_F(KeyValueFileTest, KeepsALineOf1023BytesWhole) {
    const std::string line(1023, 'x');
    EXPECT_EQ((Entries{{"", line}, {"", "next"}}), ReadLines(line + "\nnext\n"));
    EXPECT_EQ((Entries{{"", line}}), ReadLines(line));
}

TEST_F(KeyValueFileTest, ReadsALineOf1024BytesInTwoPieces) {
    EXPECT_EQ((Entries{{"", std::string(1023, 'x')}, {"", "x"}, {"", "next"}}),
              ReadLines(std::string(1024, 'x') + "\nnext\n"));
}

TEST_F(KeyValueFileTest, ReadsALineOf3000BytesInThreePieces) {
    EXPECT_EQ((Entries{{"", std::string(1023, 'x')}, {"", std::string(1023, 'x')}, {"", std::string(954, 'x')}}),
              ReadLines(std::string(3000, 'x') + "\n"));
}

TEST_F(KeyValueFileTest, TreatsEachPieceAsALineOfItsOwn) {
    // The second piece is "y=2", the third a comment, the fourth has no "=".
    const std::string first = "k=" + std::string(1021, 'v');
    const std::string second = "y=2" + std::string(1020, ' ');
    const std::string third = "#" + std::string(1022, 'c');
    EXPECT_EQ((Entries{{"k", std::string(1021, 'v')}, {"y", "2"}}), ReadKeyValues(first + second + third + "rest\n"));
}

TEST_F(KeyValueFileTest, TrimsEachPiece) {
    const std::string line = std::string(1022, 'x') + "  y";
    EXPECT_EQ((Entries{{"", std::string(1022, 'x')}, {"", "y"}}), ReadLines(line + "\n"));
}

TEST_F(KeyValueFileTest, MissingFileFailsAndLeavesTheList) {
    Entries entries{{"before", "x"}};
    EXPECT_FALSE(GetAllCfgFrmFile(entries, m_dir / "missing.cfg", true));
    EXPECT_FALSE(GetAllCfgFrmFile(entries, m_dir / "missing/a.cfg", true));
    EXPECT_FALSE(GetAllCfgFrmFile(entries, "", false));
    EXPECT_FALSE(GetAllCfgFrmFile(entries, std::string(5000, 'x'), true));
    EXPECT_EQ((Entries{{"before", "x"}}), entries);
}

TEST_F(KeyValueFileTest, NeverReadsAFileAboveThePathThatWasAskedFor) {
    const std::string file = m_dir.Write("a.cfg", "a=1\n");
    Entries entries;
    EXPECT_FALSE(GetAllCfgFrmFile(entries, file + "/x", true));
    EXPECT_FALSE(GetAllCfgFrmFile(entries, file + "/", true));
    EXPECT_EQ(Entries{}, entries);
}

TEST_F(KeyValueFileTest, UnreadableFileFails) {
    const std::string file = m_dir.Write("a.cfg", "a=1\n");
    std::filesystem::permissions(file, std::filesystem::perms::none);
    const test::AsOrdinaryUser user(m_dir.Path());
    Entries entries{{"before", "x"}};
    EXPECT_FALSE(GetAllCfgFrmFile(entries, file, true));
    EXPECT_EQ((Entries{{"before", "x"}}), entries);
}

TEST_F(KeyValueFileTest, DanglingLinkFails) {
    std::filesystem::create_symlink(m_dir / "nowhere", m_dir / "link.cfg");
    Entries entries;
    EXPECT_FALSE(GetAllCfgFrmFile(entries, m_dir / "link.cfg", true));
}

TEST_F(KeyValueFileTest, FollowsLinks) {
    m_dir.Write("real.cfg", "a=1\n");
    std::filesystem::create_symlink(m_dir / "real.cfg", m_dir / "link.cfg");
    Entries entries;
    EXPECT_TRUE(GetAllCfgFrmFile(entries, m_dir / "./link.cfg", true));
    EXPECT_EQ((Entries{{"a", "1"}}), entries);
}

TEST_F(KeyValueFileTest, APathThatIsTooLongForTheSystemIsResolved) {
    m_dir.Write("a.cfg", "a=1\n");
    std::string path = m_dir.Path();
    while (path.size() <= PATH_MAX) path += "/.";
    Entries entries;
    EXPECT_EQ(-1, access((path + "/a.cfg").c_str(), F_OK));
    EXPECT_TRUE(GetAllCfgFrmFile(entries, path + "/a.cfg", true));
    EXPECT_EQ((Entries{{"a", "1"}}), entries);
    EXPECT_FALSE(GetAllCfgFrmFile(entries, path + "/missing.cfg", true));
}

TEST_F(KeyValueFileTest, AFileThatVanishesAndComesBackIsReadAnew) {
    Entries entries;
    for (const char* const text : {"a=1\n", "b=2\n"}) {
        const std::string file = m_dir.Write("a.cfg", text);
        EXPECT_TRUE(GetAllCfgFrmFile(entries, file, true));
        std::filesystem::remove(file);
        EXPECT_FALSE(GetAllCfgFrmFile(entries, file, true));
    }
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), entries);
}

TEST_F(KeyValueFileTest, ReadErrorEndsTheFileLikeItsEnd) {
    // A directory can be opened, but not read.
    Entries entries{{"before", "x"}};
    EXPECT_TRUE(GetAllCfgFrmFile(entries, m_dir.Path(), true));
    EXPECT_EQ((Entries{{"before", "x"}}), entries);
}

TEST_F(KeyValueFileTest, WhatIsNoRegularFileFailsAtOnce) {
    ASSERT_EQ(0, mkfifo((m_dir / "fifo").c_str(), 0600));
    std::filesystem::create_symlink("/dev/zero", m_dir / "link");
    for (const std::string& file : {m_dir / "fifo", m_dir / "link", std::string("/dev/zero"), std::string("/dev/null"),
                                    std::string("/dev/ptmx")}) {
        Entries entries{{"before", "x"}};
        std::string value = "before";
        const test::Elsewhere reader([&] {
            EXPECT_FALSE(GetAllCfgFrmFile(entries, file, true)) << file;
            EXPECT_FALSE(GetAllCfgFrmFile(entries, file, false)) << file;
            EXPECT_FALSE(GetCfgInfo(value, "k", file)) << file;
        });
        ASSERT_TRUE(reader.Finishes()) << file;
        EXPECT_EQ((Entries{{"before", "x"}}), entries);
        EXPECT_EQ("before", value);
    }
}

TEST_F(KeyValueFileTest, AFifoWithAWriterFailsAtOnce) {
    ASSERT_EQ(0, mkfifo((m_dir / "fifo").c_str(), 0600));
    const int writer = open((m_dir / "fifo").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(4, write(writer, "k=v\n", 4));
    Entries entries;
    const test::Elsewhere reader([&] { EXPECT_FALSE(GetAllCfgFrmFile(entries, m_dir / "fifo", true)); });
    ASSERT_TRUE(reader.Finishes());
    EXPECT_EQ(Entries{}, entries);
    close(writer);
}

TEST_F(KeyValueFileTest, ClosesItsFile) {
    const std::string file = m_dir.Write("a.cfg", "a=1\n");
    const std::size_t before = OpenFiles();
    Entries entries;
    GetAllCfgFrmFile(entries, file, true);
    GetAllCfgFrmFile(entries, m_dir.Path(), true);
    GetAllCfgFrmFile(entries, m_dir / "missing", true);
    GetAllCfgFrmFile(entries, "/dev/null", true);
    EXPECT_EQ(before, OpenFiles());
}

// Cuts the text as a file is read: at each line end, after 1023 bytes, at a NUL.
std::vector<std::string> ModelPieces(const std::string& content) {
    std::vector<std::string> pieces;
    std::string piece;
    const auto finish = [&] {
        pieces.push_back(piece.substr(0, piece.find('\0')));
        piece.clear();
    };
    for (const char c : content) {
        piece += c;
        if (c == '\n' || piece.size() == 1023) finish();
    }
    finish();
    return pieces;
}

std::string ModelTrim(std::string text) {
    const auto isWhite = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isWhite(text.front())) text.erase(0, 1);
    while (!text.empty() && isWhite(text.back())) text.pop_back();
    return text;
}

std::string ModelClean(const std::string& text) {
    std::string result;
    for (const char c : ModelTrim(text)) result += c == '\t' ? "" : std::string(1, c);
    return result;
}

Entries ModelEntries(const std::string& content, bool keyValue) {
    Entries entries;
    for (const std::string& piece : ModelPieces(content)) {
        const std::string line = ModelTrim(piece);
        if (line.empty() || line[0] == '#') continue;
        const std::size_t equals = line.find('=');
        if (!keyValue) {
            entries.push_back({"", ModelClean(line)});
        } else if (equals != std::string::npos) {
            entries.push_back({ModelClean(line.substr(0, equals)), ModelClean(line.substr(equals + 1))});
        }
    }
    return entries;
}

TEST_F(KeyValueFileTest, AgreesWithTheModelOnRandomFiles) {
    const std::string alphabet("ab==##  \t\r\n\n\0\xe9", 14);
    std::mt19937 random(20240301);
    for (int round = 0; round < 500; ++round) {
        std::string content;
        for (std::size_t i = random() % 200; i > 0; --i) content += alphabet[random() % alphabet.size()];
        // Every other file has a line of about the length at which lines are cut.
        if (round % 2 == 0) content += std::string(1000 + random() % 50, 'x') + content;
        EXPECT_EQ(ModelEntries(content, true), ReadKeyValues(content)) << testing::PrintToString(content);
        EXPECT_EQ(ModelEntries(content, false), ReadLines(content)) << testing::PrintToString(content);
    }
}

// Larger than any block in which a reader may take it, with lines of every length across its borders.
TEST_F(KeyValueFileTest, AgreesWithTheModelOnLargeFiles) {
    std::mt19937 random(20240302);
    for (int round = 0; round < 20; ++round) {
        std::string content;
        while (content.size() < 60000) {
            content += "key" + std::to_string(content.size()) + "\t=";
            content += std::string(random() % (round % 2 == 0 ? 40 : 2500), 'v') + (random() % 8 == 0 ? "" : "\n");
        }
        content.resize(round < 10 ? content.size() : 49152);  // ends where blocks of any usual size end
        EXPECT_TRUE(ModelEntries(content, true) == ReadKeyValues(content)) << round;
        EXPECT_TRUE(ModelEntries(content, false) == ReadLines(content)) << round;
    }
}

TEST(GetValByKey, FindsTheFirstOfEqualKeys) {
    std::string value = "before";
    EXPECT_TRUE(GetValByKey(value, "k", Entries{{"a", "0"}, {"k", "1"}, {"k", "2"}}));
    EXPECT_EQ("1", value);
}

TEST(GetValByKey, ComparesTheKeyExactly) {
    std::string value = "before";
    const Entries list{{"Port", "1"}, {"MyPort", "2"}, {"", "3"}};
    EXPECT_FALSE(GetValByKey(value, "port", list));
    EXPECT_FALSE(GetValByKey(value, "Por", list));
    EXPECT_FALSE(GetValByKey(value, "Port ", list));
    EXPECT_EQ("before", value);
    EXPECT_TRUE(GetValByKey(value, "", list));
    EXPECT_EQ("3", value);
}

TEST(GetValByKey, LeavesTheValueWhereThereIsNone) {
    std::string value = "before";
    EXPECT_FALSE(GetValByKey(value, "k", Entries{}));
    EXPECT_EQ("before", value);
}

TEST(GetValByKey, TakesOneStringForKeyAndValue) {
    std::string text = "k";
    EXPECT_TRUE(GetValByKey(text, text, Entries{{"k", "v"}}));
    EXPECT_EQ("v", text);
}

TEST_F(KeyValueFileTest, GetCfgInfoTakesTheFirstOfEqualKeys) {
    const std::string file = m_dir.Write("a.cfg", "x=0\nk = 1 \nk=2\n");
    std::string value = "before";
    EXPECT_TRUE(GetCfgInfo(value, "k", file));
    EXPECT_EQ("1", value);
}

TEST_F(KeyValueFileTest, GetCfgInfoReadsTheFileEachTime) {
    std::string value;
    EXPECT_TRUE(GetCfgInfo(value, "k", m_dir.Write("a.cfg", "k=1\n")));
    EXPECT_TRUE(GetCfgInfo(value, "k", m_dir.Write("a.cfg", "k=2\n")));
    EXPECT_EQ("2", value);
}

TEST_F(KeyValueFileTest, GetCfgInfoFailsAndLeavesTheValue) {
    const std::string file = m_dir.Write("a.cfg", "a=1\n");
    std::string value = "before";
    EXPECT_FALSE(GetCfgInfo(value, "k", file));
    EXPECT_FALSE(GetCfgInfo(value, "k", m_dir / "missing.cfg"));
    EXPECT_EQ("before", value);
}

struct LineCase {
    const char* line;
    const char* key;
    bool found;
    const char* value;
};

TEST(GetKeyAndValFrmStr, TakesTheValueOfALine) {
    const LineCase cases[] = {
        {"MyKey=1", "Key", true, "1"},  // found anywhere in front of the "="
        {"a=Key", "Key", false, ""},    // but not behind it
        {"Port=5", "Port", true, "5"},
        {"MyPort=5", "Port", true, "5"},
        {"Port2=5", "Port", true, "5"},
        {"port=5", "Port", false, ""},
        {"Port", "Port", false, ""},  // no "="
        {"", "Port", false, ""},
        {"=5", "Port", false, ""},
        {"Port=", "Port", true, ""},
        {"  Port = \t\r\n", "Port", true, ""},
        {" Port =  5 6\t7 \r\n", "Port", true, "5 67"},
        {"Port=a=b", "Port", true, "a=b"},  // the first "=" counts
        {"a=Port=5", "Port", false, ""},
        {"Key=Key=5", "Key", true, "Key=5"},  // the first occurrence counts
        {"a=1", "", true, "1"},               // the empty key is in every line
        {"", "", false, ""},
        {"a=1", "=", true, "1"},  // at the "=" itself
        {"a=1", "=1", true, "1"},
        {"#Port=5", "Port", true, "5"},  // no comments here
    };
    for (const LineCase& c : cases) {
        std::string value = "before";
        EXPECT_EQ(c.found, GetKeyAndValFrmStr(value, c.line, c.key)) << c.line;
        EXPECT_EQ(c.value, value) << c.line;
    }
}

TEST(GetKeyAndValFrmStr, TakesOneStringForLineAndValue) {
    std::string text = "Key = value";
    EXPECT_TRUE(GetKeyAndValFrmStr(text, text, "Key"));
    EXPECT_EQ("value", text);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
