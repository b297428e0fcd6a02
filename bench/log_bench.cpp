// What does a record cost, written at once and buffered, next to spdlog writing a line
// of the same text to a file? Records are also echoed to standard output, which goes to
// /dev/null here, as it does for a daemon.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>
#include <unistd.h>
#ifdef ZO_BENCH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include <bundlemgr/bundlemgr.h>

using namespace NS_BUNDLEMGR1;

namespace {

constexpr char kText[] = "alarm 4711 of element 12 changed from major to critical";

// Removed with all logs at the end of the program.
class LogDirectory {
public:
    LogDirectory() : m_path((std::filesystem::temp_directory_path() / "zo_bench_XXXXXX").string()) {
        if (mkdtemp(m_path.data()) == nullptr) std::abort();
        setenv("_APP_LOG_DIR", m_path.c_str(), 1);
    }
    ~LogDirectory() { std::filesystem::remove_all(m_path); }
    LogDirectory(const LogDirectory&) = delete;
    LogDirectory& operator=(const LogDirectory&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

const LogDirectory g_logDirectory;

// The results go to standard output as well, so it is lent for the run only.
class EchoToNull {
public:
    EchoToNull() {
        std::fflush(stdout);
        m_saved = dup(STDOUT_FILENO);
        if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
    }
    ~EchoToNull() {
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
    }
    EchoToNull(const EchoToNull&) = delete;
    EchoToNull& operator=(const EchoToNull&) = delete;

private:
    int m_saved;
};

void Records(benchmark::State& state, int mode) {
    LogProxy* const log = BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Bench");
    log->SetDebugOutputMode(mode);
    const EchoToNull echo;
    for (auto _ : state) {
        log->SetPosition("log_bench", __LINE__);
        log->Printf(LOG_LEVEL_INFO, "%s", kText);
    }
    log->FlushDebugInfo();
    LogProxyDebugInfoBufMgr::Destroy();
}
BENCHMARK_CAPTURE(Records, immediate, LOG_OUTPUT_IMMEDIATE)->Iterations(100000);
BENCHMARK_CAPTURE(Records, buffered, LOG_OUTPUT_BUFFERED)->Iterations(100000);

#ifdef ZO_BENCH_SPDLOG
void Spdlog(benchmark::State& state, spdlog::level::level_enum flushLevel) {
    const auto log = spdlog::basic_logger_mt("bench", g_logDirectory.Path() + "/spdlog.log", true);
    log->flush_on(flushLevel);
    for (auto _ : state) log->info("{}", kText);
    log->flush();
    spdlog::drop("bench");
}
BENCHMARK_CAPTURE(Spdlog, immediate, spdlog::level::info)->Iterations(100000);
BENCHMARK_CAPTURE(Spdlog, buffered, spdlog::level::off)->Iterations(100000);
#endif

}  // namespace
