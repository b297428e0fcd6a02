#include <cstdarg>
#include <cstdio>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <bundlemgr/log.h>

#include "logtest.h"
#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::PrintAt;
using test::StdoutOf;
using testing::ElementsAre;

// ---- The order of the virtual operations, as a caller in another library sees it ----

// Remembers which of its operations ran last.
class RecordingProxy : public LogProxy {
public:
    ~RecordingProxy() override { s_called = "~"; }
    void Write(int level, const char* text) override { Called("Write", level, text); }
    void WriteText(const char* text) override { Called("WriteText", 0, text); }
    void Printf(int level, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        Called("Printf", level, format);
    }
    void PrintfText(const char* format, ...) override __attribute__((format(printf, 2, 3))) {
        Called("PrintfText", 0, format);
    }
    bool IsLevelEnabled(int level) override { return Called("IsLevelEnabled", level); }
    bool DisableLevel(int level) override { return Called("DisableLevel", level); }
    bool EnableLevel(int level) override { return Called("EnableLevel", level); }
    bool DisableAllLevels() override { return Called("DisableAllLevels"); }
    bool EnableAllLevels() override { return Called("EnableAllLevels"); }
    void FlushDebugInfo() override { Called("FlushDebugInfo"); }
    bool SetDebugOutputMode(int mode) override { return Called("SetDebugOutputMode", mode); }
    void SetPosition(const char* file, unsigned long line) override {
        Called("SetPosition", static_cast<int>(line), file);
    }
    void SetBundleName(const char* name) override { Called("SetBundleName", 0, name); }
    void SetServiceName(const char* name) override { Called("SetServiceName", 0, name); }
    std::string GetName() const override {
        s_called = "GetName";
        return "a name that is too long for the string object itself";
    }

    void VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        const int argument = va_arg(args, int);
        Called("VPrintfAt", level, format);
        s_called += std::string(" ") + file + ":" + std::to_string(line) + " " + std::to_string(argument);
    }

    static std::string s_called;

private:
    static bool Called(const char* operation, int number = 0, const char* text = "") {
        s_called = operation + std::string(" ") + std::to_string(number) + " " + text;
        return true;
    }
};

std::string RecordingProxy::s_called;

// The operation in a slot of the object's table, as the 64-bit Itanium ABI lays it out.
template <class Operation, class Object>
Operation Slot(const Object* object, std::size_t slot) {
    return reinterpret_cast<Operation>((*reinterpret_cast<void** const*>(object))[slot]);
}

class LogProxySlotsTest : public testing::Test {
protected:
    std::string Called() { return std::exchange(RecordingProxy::s_called, std::string()); }

    RecordingProxy m_recording;
    LogProxy* const m_proxy = &m_recording;
};

TEST_F(LogProxySlotsTest, DestructorsComeFirst) {
    alignas(RecordingProxy) unsigned char place[sizeof(RecordingProxy)];
    LogProxy* const placed = new (place) RecordingProxy;
    Slot<void (*)(LogProxy*)>(placed, 0)(placed);
    EXPECT_EQ("~", Called());

    LogProxy* const allocated = new RecordingProxy;
    Slot<void (*)(LogProxy*)>(allocated, 1)(allocated);  // frees it as well
    EXPECT_EQ("~", Called());
}

TEST_F(LogProxySlotsTest, WritingOperationsFollow) {
    Slot<void (*)(LogProxy*, int, const char*)>(m_proxy, 2)(m_proxy, 1, "text");
    EXPECT_EQ("Write 1 text", Called());
    Slot<void (*)(LogProxy*, const char*)>(m_proxy, 3)(m_proxy, "text");
    EXPECT_EQ("WriteText 0 text", Called());
    Slot<void (*)(LogProxy*, int, const char*, ...)>(m_proxy, 4)(m_proxy, 2, "%d", 5);
    EXPECT_EQ("Printf 2 %d", Called());
    Slot<void (*)(LogProxy*, const char*, ...)>(m_proxy, 5)(m_proxy, "%s", "text");
    EXPECT_EQ("PrintfText 0 %s", Called());
}

TEST_F(LogProxySlotsTest, LevelOperationsFollow) {
    EXPECT_TRUE(Slot<bool (*)(LogProxy*, int)>(m_proxy, 6)(m_proxy, 1));
    EXPECT_EQ("IsLevelEnabled 1 ", Called());
    EXPECT_TRUE(Slot<bool (*)(LogProxy*, int)>(m_proxy, 7)(m_proxy, 2));
    EXPECT_EQ("DisableLevel 2 ", Called());
    EXPECT_TRUE(Slot<bool (*)(LogProxy*, int)>(m_proxy, 8)(m_proxy, 3));
    EXPECT_EQ("EnableLevel 3 ", Called());
    EXPECT_TRUE(Slot<bool (*)(LogProxy*)>(m_proxy, 9)(m_proxy));
    EXPECT_EQ("DisableAllLevels 0 ", Called());
    EXPECT_TRUE(Slot<bool (*)(LogProxy*)>(m_proxy, 10)(m_proxy));
    EXPECT_EQ("EnableAllLevels 0 ", Called());
}

TEST_F(LogProxySlotsTest, OutputOperationsAndNamesComeLast) {
    Slot<void (*)(LogProxy*)>(m_proxy, 11)(m_proxy);
    EXPECT_EQ("FlushDebugInfo 0 ", Called());
    EXPECT_TRUE(Slot<bool (*)(LogProxy*, int)>(m_proxy, 12)(m_proxy, 1));
    EXPECT_EQ("SetDebugOutputMode 1 ", Called());
    Slot<void (*)(LogProxy*, const char*, unsigned long)>(m_proxy, 13)(m_proxy, "file", 12);
    EXPECT_EQ("SetPosition 12 file", Called());
    Slot<void (*)(LogProxy*, const char*)>(m_proxy, 14)(m_proxy, "bundle");
    EXPECT_EQ("SetBundleName 0 bundle", Called());
    Slot<void (*)(LogProxy*, const char*)>(m_proxy, 15)(m_proxy, "service");
    EXPECT_EQ("SetServiceName 0 service", Called());
    EXPECT_EQ("a name that is too long for the string object itself",
              Slot<std::string (*)(const LogProxy*)>(m_proxy, 16)(m_proxy));
    EXPECT_EQ("GetName", Called());
}

void CallSlot17(LogProxy* proxy, const char* file, unsigned long line, int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    Slot<void (*)(LogProxy*, const char*, unsigned long, int, const char*, va_list)>(proxy, 17)(proxy, file, line,
                                                                                                level, format, args);
    va_end(args);
}

TEST_F(LogProxySlotsTest, PrintingAtAPositionWasAddedAtTheEnd) {
    CallSlot17(m_proxy, "file", 12, 2, "%d", 5);
    EXPECT_EQ("VPrintfAt 2 %d file:12 5", Called());
}

// ---- VPrintfAt of proxies that were written without it ----

// Keeps what `SetPosition` and `Printf` are called with.
template <class Base>
class OlderProxy : public Base {
public:
    void SetPosition(const char* file, unsigned long line) override {
        m_calls.push_back("SetPosition " + std::string(file) + ":" + std::to_string(line));
    }
    void Printf(int level, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        char text[8192];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        m_calls.push_back("Printf " + std::to_string(level) + " " + text);
    }
    std::vector<std::string> m_calls;
};

class ProxyWithoutVPrintfAt : public RecordingProxy {
public:
    void VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        LogProxy::VPrintfAt(file, line, level, format, args);
    }
};

template <class Proxy>
class OlderProxyTest : public testing::Test {};

using OlderProxies = testing::Types<OlderProxy<ProxyWithoutVPrintfAt>, OlderProxy<DefaultLogProxy>>;
TYPED_TEST_SUITE(OlderProxyTest, OlderProxies);

TYPED_TEST(OlderProxyTest, GetsThePositionAndThenTheText) {
    TypeParam proxy;
    PrintAt(proxy, "file", 12, 1, "%d%% of %s", 5, "all");
    EXPECT_THAT(proxy.m_calls, ElementsAre("SetPosition file:12", "Printf 1 5% of all"));
}

TYPED_TEST(OlderProxyTest, GetsATextThatIsCutAsARecordWouldBe) {
    TypeParam proxy;
    PrintAt(proxy, "file", 12, 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_THAT(proxy.m_calls, ElementsAre("SetPosition file:12", "Printf 1 " + std::string(4095, 'x')));
}

// One that changes something else, and prints as its base does.
class SilentPositionProxy : public DefaultLogProxy {
public:
    void SetPosition(const char*, unsigned long) override {}
};

TEST(DerivedDefaultProxyTest, ThatPrintsItsFormatPrintsTheText) {
    SilentPositionProxy proxy;
    EXPECT_EQ("all of it\n", StdoutOf([&] { PrintAt(proxy, "file", 12, 1, "%s of it\n", "all"); }));
}

class RecordingProxyMgr : public LogProxyMgr {
public:
    explicit RecordingProxyMgr(std::string& called) : m_called(called) {}
    ~RecordingProxyMgr() override { m_called = "~"; }
    LogProxy* GetLogProxy(const char* name) override {
        m_called = name;
        return nullptr;
    }

private:
    std::string& m_called;
};

TEST(LogProxyMgrSlotsTest, LookUpComesBeforeDestructors) {
    std::string called;
    alignas(RecordingProxyMgr) unsigned char place[sizeof(RecordingProxyMgr)];
    LogProxyMgr* const placed = new (place) RecordingProxyMgr(called);
    EXPECT_EQ(nullptr, Slot<LogProxy* (*)(LogProxyMgr*, const char*)>(placed, 0)(placed, "name"));
    EXPECT_EQ("name", called);
    Slot<void (*)(LogProxyMgr*)>(placed, 1)(placed);
    EXPECT_EQ("~", std::exchange(called, std::string()));

    LogProxyMgr* const allocated = new RecordingProxyMgr(called);
    Slot<void (*)(LogProxyMgr*)>(allocated, 2)(allocated);  // frees it as well
    EXPECT_EQ("~", called);
}

// ---- DefaultLogProxy ----

class DefaultLogProxyTest : public test::LogTest {
protected:
    DefaultLogProxy m_default;
    LogProxy& m_proxy = m_default;
};

TEST_F(DefaultLogProxyTest, HoldsNothing) {
    EXPECT_EQ(sizeof(void*), sizeof(DefaultLogProxy));
}

TEST_F(DefaultLogProxyTest, PrintfPrintsTheFormatAsItStands) {
    const std::string format = "%d%% of %s, %n no line end";
    const std::string empty;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(format, StdoutOf([&] { m_proxy.Printf(1, format.c_str(), 5); }));
    EXPECT_EQ(format, StdoutOf([&] { m_proxy.Printf(-7, format.c_str()); }));
    EXPECT_EQ("", StdoutOf([&] { m_proxy.Printf(1, empty.c_str()); }));
    const char* const null = nullptr;
    EXPECT_EQ("", StdoutOf([&] { m_proxy.Printf(1, null); }));
#pragma GCC diagnostic pop
}

TEST_F(DefaultLogProxyTest, VPrintfAtPrintsTheFormatAsItStands) {
    EXPECT_EQ("%d%% of %s", StdoutOf([&] { PrintAt(m_proxy, "file", 1, 1, "%d%% of %s", 5, "all"); }));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const char* const null = nullptr;
    EXPECT_EQ("", StdoutOf([&] { PrintAt(m_proxy, "file", 1, 1, null); }));
#pragma GCC diagnostic pop
}

TEST_F(DefaultLogProxyTest, OtherWritingOperationsDoNothing) {
    EXPECT_EQ("", StdoutOf([&] {
                  m_proxy.Write(0, "text");
                  m_proxy.WriteText("text");
                  m_proxy.PrintfText("%s", "text");
                  m_proxy.FlushDebugInfo();
                  m_proxy.SetPosition("file", 1);
                  m_proxy.SetBundleName("bundle");
                  m_proxy.SetServiceName("service");
              }));
    EXPECT_FALSE(std::filesystem::exists(LogDir()));
}

TEST_F(DefaultLogProxyTest, EveryQuestionIsAnsweredFalse) {
    for (const int level : {-1, 0, 1, 2, 3, 4}) {
        EXPECT_FALSE(m_proxy.IsLevelEnabled(level));
        EXPECT_FALSE(m_proxy.DisableLevel(level));
        EXPECT_FALSE(m_proxy.EnableLevel(level));
        EXPECT_FALSE(m_proxy.SetDebugOutputMode(level));
    }
    EXPECT_FALSE(m_proxy.DisableAllLevels());
    EXPECT_FALSE(m_proxy.EnableAllLevels());
}

TEST_F(DefaultLogProxyTest, HasItsName) {
    EXPECT_EQ("DefaultLogProxy", m_proxy.GetName());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
