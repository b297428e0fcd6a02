// The program's side of the services in the library fx_hooked, which ask it at every step of
// their lives. For one source file of a program that exports its symbols.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace test {

using Step = std::function<int()>;

/// What services do at a step, by "<service> <step>", and what they have done.
struct Script {
    std::mutex mutex;
    std::map<std::string, Step> steps;
    std::vector<std::string> done;
};

inline Script& TheScript() {
    static Script script;
    return script;
}

/// From now on services do this at that step; what it returns is the result of an init.
inline void At(const std::string& step, Step action) {
    const std::lock_guard<std::mutex> guard(TheScript().mutex);
    TheScript().steps[step] = std::move(action);
}

/// @return the steps that were taken, in order
inline std::vector<std::string> Done() {
    const std::lock_guard<std::mutex> guard(TheScript().mutex);
    return TheScript().done;
}

inline void ForgetDone() {
    const std::lock_guard<std::mutex> guard(TheScript().mutex);
    TheScript().done.clear();
}

inline bool IsDone(const std::string& step) {
    const std::vector<std::string> done = Done();
    return std::find(done.begin(), done.end(), step) != done.end();
}

}  // namespace test

extern "C" __attribute__((visibility("default"))) int fx_step(const char* service, const char* step) {
    const std::string name = std::string(service) + " " + step;
    test::Step action;
    {
        const std::lock_guard<std::mutex> guard(test::TheScript().mutex);
        test::TheScript().done.push_back(name);
        const auto found = test::TheScript().steps.find(name);
        if (found != test::TheScript().steps.end()) action = found->second;
    }
    return action ? action() : 0;
}
