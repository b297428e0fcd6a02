// What does a conversion cost, next to the C library's own iconv on a handle that is
// already open, and does it scale with threads?
#include <string>

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <bundlemgr/base.h>

namespace {

// U+4E2D in GBK, over and over.
std::string GbkText(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += "\xD6\xD0";
    return text;
}

void Ours(benchmark::State& state) {
    const std::string in = GbkText(static_cast<std::size_t>(state.range(0)));
    std::string out;
    for (auto _ : state) {
        NS_BUNDLEMGR1::CodeSetConvert("GBK", "UTF-8", in, out);
        benchmark::DoNotOptimize(out);
    }
    if (out.size() != in.size() / 2 * 3) state.SkipWithError("not converted");
    state.SetItemsProcessed(state.iterations());
}

void OpenIconvHandle(benchmark::State& state) {
    std::string in = GbkText(static_cast<std::size_t>(state.range(0)));
    std::string out(2 * in.size(), '\0');
    const iconv_t handle = iconv_open("UTF-8", "GBK");
    for (auto _ : state) {
        char* inNext = in.data();
        char* outNext = out.data();
        std::size_t inLeft = in.size();
        std::size_t outLeft = out.size();
        benchmark::DoNotOptimize(iconv(handle, &inNext, &inLeft, &outNext, &outLeft));
    }
    iconv_close(handle);
    state.SetItemsProcessed(state.iterations());
}

void Register(const char* size, int bytes) {
    for (const int threads : {1, 2}) {
        const std::string question = std::string("codeset_") + size + "_" + std::to_string(threads) + "t/";
        benchmark::RegisterBenchmark((question + "ours").c_str(), &Ours)->Arg(bytes)->Threads(threads)->UseRealTime();
        benchmark::RegisterBenchmark((question + "open iconv handle").c_str(), &OpenIconvHandle)
            ->Arg(bytes)
            ->Threads(threads)
            ->UseRealTime();
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Register("40b", 40);
    Register("1mib", 1 << 20);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
