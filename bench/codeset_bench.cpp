// What does a conversion cost, next to the C library's own iconv on a handle that is
// already open, and does it scale with threads?
#include <string>

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <bundlemgr/base.h>

namespace {

// 100 bytes: fifty times U+4E2D in GBK.
std::string GbkText() {
    std::string text;
    for (int i = 0; i < 50; ++i) text += "\xD6\xD0";
    return text;
}

void GbkToUtf8(benchmark::State& state) {
    const std::string in = GbkText();
    std::string out;
    for (auto _ : state) {
        NS_BUNDLEMGR1::CodeSetConvert("GBK", "UTF-8", in, out);
        benchmark::DoNotOptimize(out);
    }
    if (out.size() != 150) state.SkipWithError("not converted");
}
BENCHMARK(GbkToUtf8)->Threads(1)->Threads(2);

void PlainIconvGbkToUtf8(benchmark::State& state) {
    std::string in = GbkText();
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
}
BENCHMARK(PlainIconvGbkToUtf8);

}  // namespace
