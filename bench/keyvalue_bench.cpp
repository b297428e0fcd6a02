// What does it cost to read 1 MB of key=value lines into a list, next to other readers?
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#ifdef ZO_BENCH_INIH
#include <ini.h>
#endif
#ifdef ZO_BENCH_BOOST
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

#include <bundlemgr/base.h>

#include "benchdir.h"

using namespace NS_BUNDLEMGR1;

namespace {

constexpr std::size_t kFileBytes = 1000000;

const std::string& File() {
    static const bench::Directory s_directory;
    static const std::string s_file = [] {
        const std::string file = s_directory.Path() + "/large.cfg";
        std::ofstream out(file);
        std::size_t bytes = 0;
        for (int i = 0; bytes < kFileBytes; ++i) {
            const std::string line =
                "Element" + std::to_string(i) + "Port = " + std::to_string(1024 + i % 60000) + "\n";
            out << line;
            bytes += line.size();
        }
        return file;
    }();
    return s_file;
}

void Ours(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<NameValueStru> entries;
        if (!GetAllCfgFrmFile(entries, File(), true)) state.SkipWithError("not read");
        benchmark::DoNotOptimize(entries);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Ours)->Name("keyvalue_1mb/ours");

#ifdef ZO_BENCH_INIH
int Append(void* entries, const char*, const char* name, const char* value) {
    static_cast<std::vector<NameValueStru>*>(entries)->push_back({name, value});
    return 1;
}

void Inih(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<NameValueStru> entries;
        if (ini_parse(File().c_str(), &Append, &entries) != 0) state.SkipWithError("not read");
        benchmark::DoNotOptimize(entries);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Inih)->Name("keyvalue_1mb/inih");
#endif

#ifdef ZO_BENCH_BOOST
void PropertyTree(benchmark::State& state) {
    for (auto _ : state) {
        boost::property_tree::ptree tree;
        boost::property_tree::read_ini(File(), tree);
        benchmark::DoNotOptimize(tree);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PropertyTree)->Name("keyvalue_1mb/PropertyTree");
#endif

}  // namespace

BENCHMARK_MAIN();
