#include "src/platform/openfile.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/tempdir.h"

namespace {

using NS_BUNDLEMGR1::InputStream;
using NS_BUNDLEMGR1::MakeDirectory;
using NS_BUNDLEMGR1::OpenForReading;
using NS_BUNDLEMGR1::OpenForWriting;
using NS_BUNDLEMGR1::ResolvePath;

class OpenFileTest : public testing::Test {
protected:
    OpenFileTest() : m_maskAtStart(umask(0)) {}
    ~OpenFileTest() override { umask(m_maskAtStart); }

    std::string Fifo() const {
        const std::string path = m_dir / "fifo";
        EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
        return path;
    }

    std::string Socket() const {
        const std::string path = m_dir / "socket";
        const int handle = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        close(handle);
        return path;
    }

    static mode_t ModeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(0, lstat(path.c_str(), &status));
        return status.st_mode & 07777;
    }

    const test::TempDir m_dir;

private:
    const mode_t m_maskAtStart;
};

// ---- Resolving ----

TEST_F(OpenFileTest, APathIsResolvedToWhatItLeadsTo) {
    const std::string file = std::filesystem::canonical(m_dir.Write("file", "text"));
    std::filesystem::create_symlink(file, m_dir / "link");

    EXPECT_EQ(file, ResolvePath(m_dir / "./link"));
}

TEST_F(OpenFileTest, APathToNothingIsResolvedToNothing) {
    const std::string file = m_dir.Write("file", "text");
    for (const std::string& path : {m_dir / "missing", file + "/below", std::string()}) {
        errno = 0;
        EXPECT_EQ("", ResolvePath(path)) << path;
        EXPECT_NE(0, errno) << path;
    }
}

// ---- Reading ----

TEST_F(OpenFileTest, AFileIsRead) {
    std::filesystem::create_symlink(m_dir.Write("file", "text"), m_dir / "link");
    for (const char* const name : {"file", "link"}) {
        const InputStream stream = OpenForReading(m_dir / name);
        ASSERT_NE(nullptr, stream) << name;
        char text[8] = "";
        EXPECT_EQ(4U, std::fread(text, 1, sizeof text, stream.get())) << name;
        EXPECT_STREQ("text", text) << name;
        EXPECT_NE(0, fcntl(fileno(stream.get()), F_GETFD) & FD_CLOEXEC) << name;
    }
}

TEST_F(OpenFileTest, ADirectoryReadsAsEmpty) {
    const InputStream stream = OpenForReading(m_dir.Path());
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(EOF, std::fgetc(stream.get()));
}

TEST_F(OpenFileTest, NothingElseIsRead) {
    for (const std::string& path : {Fifo(), Socket(), std::string("/dev/zero"), std::string("/dev/tty")}) {
        errno = 0;
        EXPECT_EQ(nullptr, OpenForReading(path)) << path;
        EXPECT_EQ(ENXIO, errno) << path;
    }
    EXPECT_EQ(nullptr, OpenForReading(m_dir / "missing"));
    EXPECT_EQ(ENOENT, errno);
}

// ---- Writing ----

TEST_F(OpenFileTest, AFileIsCreatedWithItsModeAlone) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        umask(mask);
        const std::string path = m_dir / std::to_string(mask);
        const int handle = OpenForWriting(path, 0, 0640);
        EXPECT_EQ(4, write(handle, "text", 4));
        EXPECT_NE(0, fcntl(handle, F_GETFD) & FD_CLOEXEC);
        close(handle);
        EXPECT_EQ(0640U, ModeOf(path));
    }
}

TEST_F(OpenFileTest, WhatIsInAFileStays) {
    const std::string path = m_dir.Write("file", "old text");
    ASSERT_EQ(0, chmod(path.c_str(), 0604));
    const int handle = OpenForWriting(path, 0, 0640);
    EXPECT_EQ(3, write(handle, "new", 3));
    close(handle);
    const int appended = OpenForWriting(path, O_APPEND, 0640);
    EXPECT_EQ(1, write(appended, "!", 1));
    close(appended);
    EXPECT_EQ("new text!", test::ReadFile(path));
    EXPECT_EQ(0604U, ModeOf(path));
}

TEST_F(OpenFileTest, NothingElseIsWritten) {
    std::filesystem::create_symlink(m_dir.Write("target", "text"), m_dir / "link");
    std::filesystem::create_symlink(m_dir / "nowhere", m_dir / "dangling");
    const int reader = open(Fifo().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (const std::string& path : {m_dir / "link", m_dir / "dangling", m_dir / "fifo", Socket(), m_dir.Path(),
                                    std::string("/dev/null"), m_dir / "missing/file"}) {
        EXPECT_EQ(-1, OpenForWriting(path, 0, 0640)) << path;
    }
    close(reader);
    EXPECT_EQ("text", test::ReadFile(m_dir / "target"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "nowhere"));
}

TEST_F(OpenFileTest, StandardStreamsThatAreClosedAreNotTaken) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const int handle = OpenForWriting(m_dir / "file", 0, 0640);
    EXPECT_LT(STDERR_FILENO, handle);
    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    close(handle);
    dup2(input, STDIN_FILENO);
    close(input);
}

// ---- Directories ----

TEST_F(OpenFileTest, ADirectoryIsMadeWithItsMode) {
    for (const mode_t mask : {mode_t{0}, mode_t{077}, mode_t{0777}}) {
        umask(mask);
        MakeDirectory(m_dir / std::to_string(mask), 0750);
        EXPECT_EQ(0750U, ModeOf(m_dir / std::to_string(mask)));
    }
}

TEST_F(OpenFileTest, WhatIsInTheDirectorysPlaceIsLeft) {
    MakeDirectory(m_dir / "directory", 0700);
    std::filesystem::create_symlink(m_dir / "directory", m_dir / "link");
    m_dir.Write("file", "text");
    ASSERT_EQ(0, chmod((m_dir / "file").c_str(), 0600));
    for (const char* const name : {"directory", "link", "file", "missing/directory"}) MakeDirectory(m_dir / name, 0750);
    EXPECT_EQ(0700U, ModeOf(m_dir / "directory"));
    EXPECT_EQ(0600U, ModeOf(m_dir / "file"));
    EXPECT_TRUE(std::filesystem::is_symlink(m_dir / "link"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "missing"));
}

}  // namespace
