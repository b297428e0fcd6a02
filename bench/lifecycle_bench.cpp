// What does it cost to load, end, reload and find services, as their number grows, next to ACE
// alone?
//
//     lifecycle_bench                          all questions, a JSON object a line
//     lifecycle_bench <measure> <kind> <count> one measure in this process: see lifecycle/measures.h
//
// A library can be loaded for the first time once in a process, so each measure runs in one of
// its own; ours and the peers' take turns, and medians count.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "lifecycle/measures.h"

namespace {

using lifecycle::Figures;

constexpr int kRounds = 7;

const std::map<std::string, std::function<Figures(const std::string&, int)>> kMeasures = {
    {"start-stop", &lifecycle::StartAndStop},
    {"reload", &lifecycle::Reload},
    {"search", &lifecycle::FirstSearch},
};

// Its figures go to the third descriptor: the library says much on standard output.
int RunHere(const std::string& measure, const std::string& kind, int count) {
    std::ostringstream out;
    for (const auto& [name, value] : kMeasures.at(measure)(kind, count)) out << name << " " << value << "\n";
    const std::string text = out.str();
    return write(3, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1;
}

Figures RunElsewhere(const std::string& measure, const std::string& kind, int count) {
    char self[4096] = "";
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0) std::abort();
    const std::string command =
        std::string(self) + " " + measure + " " + kind + " " + std::to_string(count) + " 3>&1 >/dev/null";
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) std::abort();
    Figures figures;
    char name[32] = "";
    for (double value = 0; std::fscanf(pipe, "%31s %lf", name, &value) == 2;) figures[name] = value;
    if (pclose(pipe) != 0) std::exit(1);
    return figures;
}

/// Who is measured: the name that a reader knows, and the kind that the measure does.
struct Party {
    std::string name;
    std::string kind;
};

struct Question {
    std::string text;
    std::string measure;
    std::string figure;
    std::string unit;
    int count;
    std::string ours;
    std::string limit;
    std::vector<Party> peers;
    int rounds = kRounds;
};

using Medians = std::map<std::string, std::map<std::string, double>>;  // by kind and figure

// Measures that several questions share run once.
const Medians& MediansOf(const Question& question) {
    static std::map<std::string, Medians> s_known;
    Medians& medians = s_known[question.measure + question.ours + std::to_string(question.count)];
    if (!medians.empty()) return medians;
    std::vector<std::string> kinds = {question.ours, question.limit};
    for (const Party& peer : question.peers) kinds.push_back(peer.kind);
    std::map<std::string, std::map<std::string, std::vector<double>>> values;
    for (int round = 0; round < question.rounds; ++round) {
        for (const std::string& kind : kinds) {
            for (const auto& [figure, value] : RunElsewhere(question.measure, kind, question.count)) {
                values[kind][figure].push_back(value);
            }
        }
    }
    for (auto& [kind, figures] : values) {
        for (auto& [figure, all] : figures) {
            std::sort(all.begin(), all.end());
            medians[kind][figure] = all[all.size() / 2];
        }
    }
    return medians;
}

void Answer(const Question& question) {
    const Medians& medians = MediansOf(question);
    std::ostringstream line;
    line << "{\"question\": \"" << question.text << "\", \"ours\": " << medians.at(question.ours).at(question.figure)
         << ", \"unit\": \"" << question.unit << "\", \"limit\": " << medians.at(question.limit).at(question.figure)
         << ", \"peers\": {";
    const char* separator = "";
    for (const Party& peer : question.peers) {
        line << separator << "\"" << peer.name << "\": " << medians.at(peer.kind).at(question.figure);
        separator = ", ";
    }
    line << "}}\n";
    std::cout << line.str() << std::flush;
}

void AskForStartAndStop(std::vector<Question>& questions) {
    std::vector<Party> peers = {{"plain ACE services", "raw"}};
#ifdef ZO_BENCH_POCO
    peers.push_back({"Poco ClassLoader", "poco"});
#endif
    for (const int count : {1, 10, 100, 500}) {
        const std::string bundles = std::to_string(count) + " bundles of 4 services";
        for (const std::string kind : {"own", "far"}) {
            const std::string where = bundles + (kind == "far" ? " in other libraries" : "");
            const std::string limit = "bare-" + kind;
            questions.push_back({"load and init, " + where, "start-stop", "start", "ms", count, kind, limit, peers});
            questions.push_back({"Fini and Destroy, " + where, "start-stop", "stop", "ms", count, kind, limit, peers});
        }
    }
}

void AskForReloads(std::vector<Question>& questions) {
    constexpr int kFewRounds = 3;
    for (const int count : {2000, 6000, 10000}) {
        const std::string reloads = std::to_string(count) + " reloads";
        const auto ask = [&](const std::string& text, const char* figure, const char* unit) {
            questions.push_back({text, "reload", figure, unit, count, "own", "raw", {}, kFewRounds});
        };
        ask("remove and load of one service after " + reloads, "cycle", "us");
        ask("time of " + reloads, "total", "ms");
        ask("memory a reload, over " + reloads, "memory", "bytes");
    }
}

void AskForSearches(std::vector<Question>& questions) {
    for (const int count : {64, 1000, 4000}) {
        questions.push_back({"first search among " + std::to_string(count) + " services",
                             "search",
                             "search",
                             "us",
                             count,
                             "own",
                             "raw",
                             {}});
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    setenv("LD_LIBRARY_PATH", ZO_LIFECYCLE_PARTS, 1);  // of the processes that it starts
    if (argc == 4) return RunHere(argv[1], argv[2], std::atoi(argv[3]));
    std::vector<Question> questions;
    AskForStartAndStop(questions);
    AskForReloads(questions);
    AskForSearches(questions);
    for (const Question& question : questions) Answer(question);
    return 0;
}
