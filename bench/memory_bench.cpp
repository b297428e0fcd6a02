// How many bytes does an event take while it waits, and a record, and do a million of them
// leave anything behind? Prints one JSON object a line on file descriptor 3.
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Block.h>
#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/event.h>
#include <bundlemgr/log.h>

#include "benchdir.h"
#include "benchlog.h"

using namespace NS_BUNDLEMGR1;

namespace {

constexpr int kOutput = 3;
constexpr int kEvent = 7;
constexpr int kWaiting = 4000;
constexpr int kMillion = 1000000;
constexpr int kSteps = 10;

/// Handed out by malloc now, with what malloc itself adds.
double AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

double ResidentKiB() {
    std::ifstream status("/proc/self/statm");
    long pages = 0;
    status >> pages >> pages;
    return static_cast<double>(pages * (sysconf(_SC_PAGESIZE) / 1024));
}

template <class Add>
double BytesEach(Add add) {
    add();  // the first brings its surroundings along
    const double before = AllocatedBytes();
    for (int i = 0; i < kWaiting; ++i) add();
    return (AllocatedBytes() - before) / kWaiting;
}

double BytesOfAceEvent() {
    struct Event : ACE_Message_Block {
        int id = 0;
        int extra = 0;
        void* param = nullptr;
        bool isDeleted = false;
    };
    ACE_Message_Queue<ACE_MT_SYNCH> queue;
    return BytesEach([&] { queue.enqueue_tail(new Event); });
}

double BytesOfOurEvent() {
    LightEventMgr& events = *LightEventMgr::Instance();
    const double bytes = BytesEach([&] { events.Push_Msg(kEvent, nullptr, 0); });
    LightEventMgr::Destroy();
    return bytes;
}

void WriteRecord(LogProxy& log) {
    log.SetPosition("memory_bench", __LINE__);
    log.Printf(LOG_LEVEL_INFO, "alarm %d of element %d changed from major to critical\n", 4711, 12);
}

double BytesOfOurRecord() {
    LogProxy& log = bench::Log(LOG_OUTPUT_BUFFERED);
    const double bytes = BytesEach([&] { WriteRecord(log); });
    log.FlushDebugInfo();
    return bytes;
}

void PrintQuestion(const char* question, double ours, const char* peer, double limit) {
    dprintf(kOutput, "{\"question\": \"%s\", \"ours\": %.1f, \"unit\": \"bytes\", \"limit\": ", question, ours);
    if (limit > 0) {
        dprintf(kOutput, "%.1f, \"limit_is\": \"%s\", \"peers\": {}}\n", limit, peer);
    } else {
        dprintf(kOutput, "null, \"peers\": {}}\n");
    }
}

/// Does `step` a million times and prints, for each tenth, nanoseconds a step and the
/// resident memory.
template <class Step, class Finish>
void PrintMillion(const char* series, Step step, Finish finish) {
    using Clock = std::chrono::steady_clock;
    std::string points;
    for (int i = 1; i <= kSteps; ++i) {
        const auto begin = Clock::now();
        for (int n = 0; n < kMillion / kSteps; ++n) step();
        finish();
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        if (i > 1) points += ", ";
        points += "[" + std::to_string(kMillion / kSteps * i) + ", " +
                  std::to_string(seconds * 1e9 * kSteps / kMillion) + ", " + std::to_string(ResidentKiB()) + "]";
    }
    dprintf(kOutput, "{\"series\": \"%s\", \"columns\": [\"done\", \"ns each\", \"resident KiB\"], \"points\": [%s]}\n",
            series, points.c_str());
}

void PrintMillionEvents() {
    LightEventMgr& events = *LightEventMgr::Instance();
    PrintMillion(
        "1,000,000 events",
        [&] {
            events.Push_Msg(kEvent, nullptr, 0);
            events.process_msg();
        },
        [] {});
    LightEventMgr::Destroy();
}

void PrintMillionRecords() {
    LogProxy& immediate = bench::Log(LOG_OUTPUT_IMMEDIATE);
    PrintMillion(
        "1,000,000 records, immediate", [&] { WriteRecord(immediate); }, [] {});
    LogProxy& buffered = bench::Log(LOG_OUTPUT_BUFFERED);
    PrintMillion(
        "1,000,000 records, buffered", [&] { WriteRecord(buffered); }, [&] { buffered.FlushDebugInfo(); });
}

}  // namespace

int main() {
    const bench::Directory logs;
    setenv("_APP_LOG_DIR", logs.Path().c_str(), 1);
    PrintQuestion("bytes a queued event", BytesOfOurEvent(), "raw ACE", BytesOfAceEvent());
    PrintQuestion("bytes a buffered record", BytesOfOurRecord(), "", 0);
    PrintMillionEvents();
    PrintMillionRecords();
    LogProxyDebugInfoBufMgr::Destroy();
    return 0;
}
