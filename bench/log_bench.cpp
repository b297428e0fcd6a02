// What does a record cost, next to one write(2) of as many bytes and to other logging libraries?
//
// Each library writes records of the same size: the texts of those that put less around them are
// longer. Our records are also echoed to standard output, so run this with that on /dev/null.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchdir.h"
#include "log/logger.h"

namespace {

using bench::Logger;
using bench::LogMode;

constexpr char kText[] = "alarm 4711 of element 12 changed from major to critical";
constexpr int kRecords = 4096;  // in a batch; our buffer is written when it holds 8192

struct Library {
    const char* name;
    bench::MakeLogger make;
    bool isAsync;
};

/// The limit: bytes that are there already, and nothing but the call that writes them.
class PlainWrite : public Logger {
public:
    PlainWrite(const std::string& directory, LogMode)
        : m_file(open((directory + "/plain.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640)) {}
    ~PlainWrite() override { close(m_file); }

    void Write(const char*) override {
        if (s_isShared) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            WriteOnce();
        } else {
            WriteOnce();
        }
    }
    void Drain() override {}

    static bool s_isShared;
    static std::size_t s_recordSize;

private:
    void WriteOnce() const {
        if (write(m_file, m_record.data(), m_record.size()) != static_cast<ssize_t>(m_record.size())) std::abort();
    }

    const std::string m_record = std::string(s_recordSize, 'x');
    const int m_file;
    std::mutex m_mutex;
};

bool PlainWrite::s_isShared = false;
std::size_t PlainWrite::s_recordSize = 0;

std::unique_ptr<Logger> MakePlainWrite(const std::string& directory, LogMode mode) {
    return std::make_unique<PlainWrite>(directory, mode);
}

std::uintmax_t BytesIn(const std::string& directory) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file() && !entry.is_symlink()) bytes += entry.file_size();
    }
    return bytes;
}

/// @return bytes a record of that text; with several of them a head of the file counts little
std::size_t RecordSize(const Library& library, const std::string& text) {
    constexpr int kSample = 1000;
    const bench::Directory directory;
    {
        const auto log = library.make(directory.Path(), library.isAsync ? LogMode::Async : LogMode::Immediate);
        for (int i = 0; i < kSample; ++i) log->Write(text.c_str());
        log->Drain();
    }
    return BytesIn(directory.Path()) / kSample;
}

/// @return the text with which a record of that library is as long as one of ours
std::string TextFor(const Library& library, std::size_t recordSize) {
    const std::size_t size = RecordSize(library, kText);
    if (size > recordSize) std::abort();
    return kText + std::string(recordSize - size, '.');
}

std::unique_ptr<Logger> g_log;
std::unique_ptr<bench::Directory> g_directory;

void Open(const Library& library, LogMode mode) {
    g_directory = std::make_unique<bench::Directory>();
    g_log = library.make(g_directory->Path(), mode);
    g_log->Write("opens the file");
    g_log->Drain();
}

void Close() {
    g_log.reset();
    g_directory.reset();
}

void Immediate(benchmark::State& state, const Library& library, const std::string& text) {
    if (state.thread_index() == 0) {
        PlainWrite::s_isShared = state.threads() > 1;
        Open(library, LogMode::Immediate);
    }
    for (auto _ : state) g_log->Write(text.c_str());
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) Close();
}

enum class Timed { Calls, CallsAndDrain };

void Buffered(benchmark::State& state, const Library& library, const std::string& text, LogMode mode, Timed timed) {
    using Clock = std::chrono::steady_clock;
    PlainWrite::s_isShared = false;
    Open(library, mode);
    for (auto _ : state) {
        const auto begin = Clock::now();
        for (int i = 0; i < kRecords; ++i) g_log->Write(text.c_str());
        const auto called = Clock::now();
        g_log->Drain();
        const auto end = timed == Timed::Calls ? called : Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
    }
    state.SetItemsProcessed(state.iterations() * kRecords);
    Close();
}

void RegisterBuffered(const Library& library, const std::string& text, LogMode mode, const std::string& name) {
    for (const Timed timed : {Timed::Calls, Timed::CallsAndDrain}) {
        const std::string question = timed == Timed::Calls ? "record_buffered_call/" : "record_buffered_drained/";
        benchmark::RegisterBenchmark((question + name).c_str(),
                                     [=](benchmark::State& state) { Buffered(state, library, text, mode, timed); })
            ->UseManualTime()
            ->Iterations(8);
    }
}

void Register(const Library& library, const std::string& text) {
    const std::string name = library.name;
    for (const int threads : {1, 4}) {
        benchmark::RegisterBenchmark(("record_immediate_" + std::to_string(threads) + "/" + name).c_str(),
                                     [=](benchmark::State& state) { Immediate(state, library, text); })
            ->Threads(threads)
            ->UseRealTime()
            ->Iterations(30000 / threads);
    }
    RegisterBuffered(library, text, LogMode::Buffered, name);
    if (library.isAsync) RegisterBuffered(library, text, LogMode::Async, name + " async");
}

std::vector<Library> Peers() {
    return {
#ifdef ZO_BENCH_SPDLOG
        {"spdlog", &bench::MakeSpdlog, true},
#endif
#ifdef ZO_BENCH_LOG4CPLUS
        {"log4cplus", &bench::MakeLog4cplus, false},
#endif
#ifdef ZO_BENCH_GLOG
        {"glog", &bench::MakeGlog, false},
#endif
#ifdef ZO_BENCH_BOOSTLOG
        {"Boost.Log", &bench::MakeBoostLog, false},
#endif
#ifdef ZO_BENCH_POCO
        {"Poco", &bench::MakePoco, false},
#endif
    };
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const Library ours{"ours", &bench::MakeOurs, false};
    const std::size_t recordSize = RecordSize(ours, kText);
    PlainWrite::s_recordSize = recordSize;
    Register(ours, kText);
    Register({"write(2)", &MakePlainWrite, false}, kText);
    for (const Library& peer : Peers()) Register(peer, TextFor(peer, recordSize));
    benchmark::AddCustomContext("record_bytes", std::to_string(recordSize));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
