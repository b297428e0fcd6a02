#include "src/base/converters.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/forkedchild.h"

namespace NS_BUNDLEMGR1 {
namespace {

using OpenConverters = std::vector<std::unique_ptr<Converter>>;

OpenConverters Open(std::size_t count) {
    OpenConverters open;
    for (std::size_t i = 0; i < count; ++i) open.push_back(std::make_unique<Converter>("GBK", "UTF-8"));
    return open;
}

// On the heap, for the fake stack of AddressSanitizer does not keep the alignment of the slots.
std::unique_ptr<Converters> MakeConverters() {
    return std::make_unique<Converters>("GBK", "UTF-8");
}

std::vector<Converter*> TakeAll(Converters& converters) {
    std::vector<Converter*> taken;
    while (Converter* const converter = converters.Take()) taken.push_back(converter);
    return taken;
}

TEST(ConvertersTest, AConversionThatDoesNotExistIsNotOpen) {
    EXPECT_TRUE(Converter("GBK", "UTF-8").IsOpen());
    EXPECT_FALSE(Converter("GBK", "no such set").IsOpen());
}

TEST(ConvertersTest, AThreadGetsTheOneThatItGaveBackLast) {
    const OpenConverters open = Open(2);
    const std::unique_ptr<Converters> made = MakeConverters();
    Converters& converters = *made;
    EXPECT_EQ(nullptr, converters.Take());
    for (int i = 0; i < 1000; ++i) {
        converters.GiveBack(open[0].get());
        EXPECT_EQ(open[0].get(), converters.Take());
    }
    // What another thread has put somewhere else does not change that.
    std::thread([&] { converters.GiveBack(open[1].get()); }).join();
    converters.GiveBack(open[0].get());
    EXPECT_EQ(open[0].get(), converters.Take());
    EXPECT_EQ(open[1].get(), converters.Take());
    EXPECT_EQ(nullptr, converters.Take());
}

TEST(ConvertersTest, AnyNumberIsKeptAndEachIsLentOnce) {
    const OpenConverters open = Open(100);
    std::vector<Converter*> expected;
    for (const auto& converter : open) expected.push_back(converter.get());
    std::sort(expected.begin(), expected.end());
    const std::unique_ptr<Converters> made = MakeConverters();
    Converters& converters = *made;
    for (int round = 0; round < 3; ++round) {
        for (const auto& converter : open) converters.GiveBack(converter.get());
        std::vector<Converter*> taken = TakeAll(converters);
        std::sort(taken.begin(), taken.end());
        EXPECT_EQ(expected, taken);
    }
}

class ConvertersThreadsTest : public testing::TestWithParam<std::size_t> {};

TEST_P(ConvertersThreadsTest, NoneIsLostOrLentTwice) {
    const OpenConverters open = Open(GetParam());
    const std::unique_ptr<Converters> made = MakeConverters();
    Converters& converters = *made;
    for (const auto& converter : open) converters.GiveBack(converter.get());
    std::vector<std::atomic<int>> borrowers(open.size());
    std::atomic<int> shared{0};
    const auto indexOf = [&](const Converter* converter) {
        const auto is = [&](const auto& one) { return one.get() == converter; };
        return static_cast<std::size_t>(std::find_if(open.begin(), open.end(), is) - open.begin());
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                Converter* const converter = converters.Take();
                if (converter == nullptr) continue;
                const std::size_t index = indexOf(converter);
                if (borrowers[index].fetch_add(1) != 0) ++shared;
                borrowers[index].fetch_sub(1);
                converters.GiveBack(converter);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, shared);
    EXPECT_EQ(open.size(), TakeAll(converters).size());
}

// Fewer than threads, and more than slots.
INSTANTIATE_TEST_SUITE_P(, ConvertersThreadsTest, testing::Values(1, 3, 24));

TEST(ConvertersTest, ADirectionIsMadeOnceAndFoundByAll) {
    EXPECT_EQ(nullptr, Converters::Find("made", "once"));
    Converters& made = Converters::Get("made", "once");
    EXPECT_EQ(&made, &Converters::Get("made", "once"));
    // More than a thread remembers.
    for (int i = 0; i < 10; ++i) Converters::Get("made", std::to_string(i));
    for (int i = 0; i < 10; ++i) {
        EXPECT_NE(nullptr, Converters::Find("made", std::to_string(i)));
        EXPECT_EQ(&made, Converters::Find("made", "once"));
    }
    std::thread([&] { EXPECT_EQ(&made, Converters::Find("made", "once")); }).join();
    EXPECT_EQ(nullptr, Converters::Find("once", "made"));
}

// Each look takes the lock: there are more directions than a thread remembers.
TEST(ConvertersTest, AChildFindsDirectionsWhateverOtherThreadsLookedFor) {
    constexpr int kDirections = 8;
    for (int i = 0; i < kDirections; ++i) Converters::Get("forked", std::to_string(i));
    const auto findAll = [] {
        bool areFound = true;
        for (int i = 0; i < kDirections; ++i) {
            areFound = areFound && Converters::Find("forked", std::to_string(i)) != nullptr;
        }
        return areFound;
    };
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!isOver) findAll();
        });
    }
    for (int i = 0; i < 50; ++i) EXPECT_EQ(0, test::InForkedChild(findAll));
    isOver = true;
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
