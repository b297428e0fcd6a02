// What does a path cost when all n of n properties are marked dirty at once?
#include <string>

#include <benchmark/benchmark.h>

#include <bundlemgr/schema.h>

namespace {

void SetAllDirty(benchmark::State& state) {
    ObjectSchema_T schema;
    std::string paths;
    for (int i = 0; i < state.range(0); ++i) {
        Property_T property;
        property.name = "property" + std::to_string(i);
        paths += property.name + ";";
        schema.properties.push_back(property);
    }
    for (auto _ : state) {
        if (!__SetDirty(schema, paths.c_str())) state.SkipWithError("not set");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (const int properties : {100, 1000, 10000}) {
        benchmark::RegisterBenchmark(("setdirty_" + std::to_string(properties) + "/ours").c_str(), &SetAllDirty)
            ->Arg(properties);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
