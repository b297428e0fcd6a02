// The sources are as ARCHITECTURE.md says: who includes whom, and which locks there are.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

const fs::path kRoot = ZO_SOURCE_DIR;

std::string ReadAll(const fs::path& file) {
    std::ifstream in(file);
    EXPECT_TRUE(in) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<fs::path> FilesUnder(const std::string& folder) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kRoot / folder)) {
        const std::string extension = entry.path().extension();
        if (extension == ".h" || extension == ".cpp") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// @return all first groups of the expression's matches
std::vector<std::string> Matches(const std::string& text, const std::string& expression) {
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

// ---- Arrows -------------------------------------------------------------------------------

/// Where each folder of src/ may include from: folders, and files as "<folder>/<name>".
using Arrows = std::map<std::string, std::set<std::string>>;

/// The indented lines "<folder> → <target>, <target>; <file> alone" of a text. What stands in
/// brackets is a remark.
Arrows ReadArrows(const std::string& text) {
    Arrows arrows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch parts;
        if (!std::regex_match(line, parts, std::regex(R"(\s{4}(\w+)\s*→\s*(.*))"))) continue;
        std::set<std::string>& targets = arrows[parts[1]];
        for (const std::string& target : Matches(parts[2], R"((?:^|[,;])\s*(\w+(?:/\w+)?)(?= alone|[,;]|$))")) {
            targets.insert(target);
        }
    }
    return arrows;
}

/// @param file    path of the including file below src/
/// @param include what it includes, below src/
bool IsAllowed(const Arrows& arrows, const fs::path& file, const fs::path& include) {
    const std::string from = file.begin()->string();
    const std::string to = include.begin()->string();
    if (from == to) return true;
    const auto targets = arrows.find(from);
    if (targets == arrows.end()) return false;
    return targets->second.count(to) != 0 || targets->second.count(fs::path(include).replace_extension().string()) != 0;
}

Arrows TheArrows() {
    return ReadArrows(ReadAll(kRoot / "ARCHITECTURE.md"));
}

TEST(ArrowsTest, AreReadFromALinePerFolder) {
    const Arrows arrows = ReadArrows(
        "text → text\n"
        "    bundle   → event, corelog; bundlemgr/env alone\n"
        "    platform → (nothing)\n");
    EXPECT_EQ((Arrows{{"bundle", {"event", "corelog", "bundlemgr/env"}}, {"platform", {}}}), arrows);
}

TEST(ArrowsTest, LeadToFoldersOrSingleFiles) {
    const Arrows arrows = {{"bundle", {"event", "bundlemgr/env"}}};
    EXPECT_TRUE(IsAllowed(arrows, "bundle/a.cpp", "bundle/a.h"));
    EXPECT_TRUE(IsAllowed(arrows, "bundle/a.cpp", "event/b.h"));
    EXPECT_TRUE(IsAllowed(arrows, "bundle/a.cpp", "bundlemgr/env.h"));
    EXPECT_FALSE(IsAllowed(arrows, "bundle/a.cpp", "bundlemgr/impl.h"));
    EXPECT_FALSE(IsAllowed(arrows, "event/a.cpp", "bundle/a.h"));
}

TEST(ArrowsTest, EveryFolderHasItsLine) {
    std::vector<std::string> folders;
    for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / "src")) {
        if (entry.is_directory()) folders.push_back(entry.path().filename());
    }
    std::vector<std::string> listed;
    for (const auto& [folder, targets] : TheArrows()) listed.push_back(folder);
    EXPECT_THAT(listed, testing::UnorderedElementsAreArray(folders));
}

TEST(ArrowsTest, SourcesIncludeAlongArrowsOnly) {
    const Arrows arrows = TheArrows();
    std::vector<std::string> wrong;
    for (const fs::path& file : FilesUnder("src")) {
        const fs::path source = file.lexically_relative(kRoot / "src");
        for (const std::string& include : Matches(ReadAll(file), R"re(#include "src/([^"]+)")re")) {
            if (!IsAllowed(arrows, source, include)) wrong.push_back(source.string() + " includes " + include);
        }
    }
    EXPECT_THAT(wrong, IsEmpty());
}

// Also by way of a public header, which is called like the folder whose it is.
TEST(ArrowsTest, EveryArrowIsUsed) {
    std::set<std::string> used;
    for (const fs::path& file : FilesUnder("src")) {
        const std::string from = file.lexically_relative(kRoot / "src").begin()->string() + " ";
        for (const std::string& include : Matches(ReadAll(file), R"re(#include ["<](?:src|bundlemgr)/([^">]+)\.h)re")) {
            used.insert(from + fs::path(include).begin()->string());
            used.insert(from + include);
        }
    }
    std::vector<std::string> idle;
    for (const auto& [folder, targets] : TheArrows()) {
        for (const std::string& target : targets) {
            if (used.count(folder + " " + target) == 0) idle.push_back(folder + " " + target);
        }
    }
    EXPECT_THAT(idle, IsEmpty());
}

TEST(IncludesTest, TellWhatTheyCross) {
    std::vector<std::string> wrong;
    for (const fs::path& file : FilesUnder("src")) {
        const std::string text = ReadAll(file);
        for (const std::string& include : Matches(text, R"re(#include "([^"]+)")re")) {
            if (include.rfind("src/", 0) != 0) wrong.push_back(file.string() + " includes \"" + include + "\"");
        }
    }
    EXPECT_THAT(wrong, IsEmpty());
}

TEST(IncludesTest, PublicHeadersIncludeNoPrivateOnes) {
    std::vector<std::string> wrong;
    for (const fs::path& file : FilesUnder("include")) {
        for (const std::string& include : Matches(ReadAll(file), R"re(#include (".*))re")) {
            wrong.push_back(file.string() + " includes " + include);
        }
    }
    EXPECT_THAT(wrong, IsEmpty());
}

// ---- Locks --------------------------------------------------------------------------------

/// @return the names of the locks that a source defines: members, variables and statics, not
///         references to the locks of others
std::vector<std::string> LocksIn(const std::string& text) {
    return Matches(std::regex_replace(text, std::regex("extern [^;]*;"), ""),
                   R"re(\b\w*[Mm]utex\s+(\w*(?:[Mm]utex|[Ll]ock)\w*)\s*(?:;|\{|=))re");
}

TEST(LocksTest, AreFoundByTheirDeclarations) {
    EXPECT_THAT(LocksIn("std::mutex g_mutex;\nACE_Recursive_Thread_Mutex m_lock;\n"
                        "ACE_RW_Mutex m_handlerLock{};\nextern ACE_Thread_Mutex g_mutex;\nstd::mutex& m_mutex;\n"
                        "using Guard = ACE_Guard<ACE_Thread_Mutex>;\n"),
                ElementsAre("g_mutex", "m_lock", "m_handlerLock"));
}

TEST(LocksTest, EveryLockHasItsRow) {
    const std::string page = ReadAll(kRoot / "ARCHITECTURE.md");
    std::vector<std::string> missing;
    for (const std::string folder : {"src", "include"}) {
        for (const fs::path& file : FilesUnder(folder)) {
            if (file.filename() == "mutex.h") continue;  // what ours are made of
            for (const std::string& lock : LocksIn(ReadAll(file))) {
                const std::string place = file.stem();
                const bool hasRow = page.find("| `" + lock + "`, " + place + " ") != std::string::npos;
                if (!hasRow) missing.push_back("`" + lock + "`, " + place);
            }
        }
    }
    EXPECT_THAT(missing, IsEmpty());
}

}  // namespace
