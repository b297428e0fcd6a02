// Executes one hot path a thousand times under callgrind, which counts its instructions: see
// scripts/instructions.sh.
//
//     valgrind --tool=callgrind --collect-atstart=no instructions <path> <directory>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include <valgrind/callgrind.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>
#include <bundlemgr/log.h>
#include <bundlemgr/schema.h>

#include "benchlog.h"

using namespace NS_BUNDLEMGR1;

namespace {

constexpr int kTimes = 1000;
constexpr int kEvent = 7;

/// Caches are filled and symbols bound before anything is counted.
void Count(const std::function<void(int)>& step) {
    for (int i = 0; i < 10; ++i) step(i);
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < kTimes; ++i) step(kTimes + i);  // numbers of equal length
    CALLGRIND_TOGGLE_COLLECT;
}

void CountRecords(int mode) {
    LogProxy& log = bench::Log(mode);
    Count([&](int i) {
        log.SetPosition("instructions", __LINE__);
        log.Printf(LOG_LEVEL_INFO, "alarm %d of element %d changed from major to critical\n", i, 12);
    });
}

void CountDrain() {
    LogProxy& log = bench::Log(LOG_OUTPUT_BUFFERED);
    for (int i = 0; i < kTimes; ++i) log.Printf(LOG_LEVEL_INFO, "alarm %d\n", kTimes + i);
    CALLGRIND_TOGGLE_COLLECT;
    log.FlushDebugInfo();
    CALLGRIND_TOGGLE_COLLECT;
}

class Handler : public LightEventHandler {
public:
    void HandleLightEvent(int, LightEventParam*) override {}
};

void CountEvents(int handlers) {
    LightEventMgr& events = *LightEventMgr::Instance();
    Handler handler;
    for (int i = 0; i < handlers; ++i) events.RegisterHandler(kEvent, &handler);
    Count([&](int) {
        events.Push_Msg(kEvent, nullptr, 0);
        events.process_msg();
    });
    LightEventMgr::RemoveHandler(&handler);
}

class Clock : public ServiceInterface {
public:
    std::string GetDescription() override { return "Clock"; }
    void* GetImplementation() override { return this; }
};

void CountLookUps() {
    Clock clock;
    SetIFBuf("ClockSvc", &clock);
    ServiceInterfaceProxy<Clock> proxy("ClockSvc");
    Count([&](int) {
        if (proxy.GetInterface() != &clock) std::abort();
    });
    RemoveIFBuf("ClockSvc", &clock);
}

void CountLines(const std::string& directory) {
    const std::string file = directory + "/thousand.cfg";
    std::FILE* const out = std::fopen(file.c_str(), "w");
    if (out == nullptr) std::abort();
    for (int i = 0; i < kTimes; ++i) std::fprintf(out, "Element%dPort = %d\n", kTimes + i, kTimes + i);
    std::fclose(out);
    std::vector<NameValueStru> entries;
    CALLGRIND_TOGGLE_COLLECT;
    GetAllCfgFrmFile(entries, file, true);
    CALLGRIND_TOGGLE_COLLECT;
    if (entries.size() != kTimes) std::abort();
}

void CountConversions() {
    const std::string text(40, '\xD6');
    std::string out;
    Count([&](int) { CodeSetConvert("GBK", "UTF-8", text, out); });
}

void CountDirtyPaths() {
    ObjectSchema_T schema;
    std::string paths;
    for (int i = 0; i < kTimes; ++i) {
        Property_T property;
        property.name = "property" + std::to_string(kTimes + i);
        paths += property.name + ";";
        schema.properties.push_back(property);
    }
    CALLGRIND_TOGGLE_COLLECT;
    const bool isSet = __SetDirty(schema, paths.c_str());
    CALLGRIND_TOGGLE_COLLECT;
    if (!isSet) std::abort();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::string path = argv[1];
    const std::string directory = argv[2];
    setenv("_APP_LOG_DIR", directory.c_str(), 1);
    const std::map<std::string, std::function<void()>> paths{
        {"record_immediate", [] { CountRecords(LOG_OUTPUT_IMMEDIATE); }},
        {"record_buffered", [] { CountRecords(LOG_OUTPUT_BUFFERED); }},
        {"record_drained", CountDrain},
        {"event_1_handler", [] { CountEvents(1); }},
        {"event_10_handlers", [] { CountEvents(10); }},
        {"lookup_cached", CountLookUps},
        {"keyvalue_line", [&] { CountLines(directory); }},
        {"codeset_40_bytes", CountConversions},
        {"setdirty_path", CountDirtyPaths},
    };
    const auto found = paths.find(path);
    if (found == paths.end()) return 2;
    found->second();
    _exit(0);  // no static object need be destroyed under valgrind
}
