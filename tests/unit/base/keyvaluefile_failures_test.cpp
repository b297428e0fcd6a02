// Files that change, or can no longer be read, while they are read.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "support/replacedfunction.h"
#include "support/tempdir.h"

namespace {

// What happens after each piece that was read.
std::function<void(std::FILE*)> g_afterRead;

}  // namespace

extern "C" ZO_REPLACES std::size_t fread(void* to, std::size_t size, std::size_t count, std::FILE* stream) {
    static const auto real = test::Next<std::size_t (*)(void*, std::size_t, std::size_t, std::FILE*)>("fread");
    const std::size_t done = real(to, size, count, stream);
    if (g_afterRead) g_afterRead(stream);
    return done;
}

namespace NS_BUNDLEMGR1 {

namespace {

class AfterRead {
public:
    explicit AfterRead(std::function<void(std::FILE*)> action) { g_afterRead = std::move(action); }
    ~AfterRead() { g_afterRead = nullptr; }
    AfterRead(const AfterRead&) = delete;
    AfterRead& operator=(const AfterRead&) = delete;
};

std::string Texts(const std::vector<NameValueStru>& entries) {
    std::string texts;
    for (const NameValueStru& entry : entries) texts += entry.name + "=" + entry.value + ";";
    return texts;
}

TEST(KeyValueFileFailures, AFileThatGrowsEndsWhereItsEndWasMet) {
    const test::TempDir dir;
    const std::string file = dir.Write("grows.cfg", "a=1\nb=1234");
    int reads = 0;
    const AfterRead growth([&](std::FILE*) {
        ++reads;
        std::ofstream(file, std::ios::app) << "5678\nc=1\n";
    });
    std::vector<NameValueStru> entries;
    EXPECT_TRUE(GetAllCfgFrmFile(entries, file, true));
    EXPECT_EQ("a=1;b=1234;", Texts(entries));
    EXPECT_EQ(1, reads);
}

TEST(KeyValueFileFailures, AReadErrorTakesTheLineAlongThatItCuts) {
    const test::TempDir dir;
    std::string content = "a=1\n";
    content.append(4096 - content.size() - std::string("\nport=12").size(), '#');
    const std::string file = dir.Write("breaks.cfg", content + "\nport=1234\nb=2\n");
    int reads = 0;
    const AfterRead error([&](std::FILE* stream) {
        if (++reads > 1) return;
        const int directory = open(dir.Path().c_str(), O_RDONLY | O_CLOEXEC);
        dup2(directory, fileno(stream));  // reading fails from now on
        close(directory);
    });
    std::vector<NameValueStru> entries;
    EXPECT_TRUE(GetAllCfgFrmFile(entries, file, true));
    EXPECT_EQ("a=1;", Texts(entries));
    EXPECT_EQ(2, reads);
}

// Sanitizers need larger stacks themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// A thread that converts its first text reads a file.
TEST(KeyValueFileFailures, AFileIsReadOnASmallStack) {
    const test::TempDir dir;
    static const std::string s_file = dir.Write("small.cfg", "a=1\n");
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 32 * 1024));
    std::string value;
    pthread_t thread{};
    const auto read = [](void* result) -> void* {
        GetCfgInfo(*static_cast<std::string*>(result), "a", s_file);
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, &attributes, read, &value));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ("1", value);
}
#endif

}  // namespace

}  // namespace NS_BUNDLEMGR1
