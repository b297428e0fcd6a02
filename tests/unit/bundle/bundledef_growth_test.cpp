// That work does not grow with what it is not about. Counted, since time would depend on the machine.
#include <atomic>

#include <gtest/gtest.h>

#include "bundledeftest.h"
#include "support/replacednew.h"

namespace {

std::atomic<unsigned long> g_allocations{0};

}  // namespace

bool test::RefusesMemory() noexcept {
    ++g_allocations;
    return false;
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::NamedInterface;
using test::TestService;

class GrowthTest : public test::BundleObjectTest {
protected:
    template <class Action>
    static unsigned long AllocationsOf(Action action) {
        const unsigned long before = g_allocations;
        action();
        return g_allocations - before;
    }

    /// Adds services up to that number of them.
    void Fill(int count) {
        for (int number = static_cast<int>(m_services.size()); number < count; ++number) {
            m_services.push_back(std::make_unique<TestService>(m_trace, "bundle", std::to_string(number).c_str()));
            m_services.back()->m_pInterface = &m_interface;
        }
    }

    std::vector<std::unique_ptr<TestService>> m_services;
    NamedInterface m_interface;
};

TEST_F(GrowthTest, ASearchCopiesNoTable) {
    const auto search = [this] { EXPECT_EQ(&m_interface, test::FindInterface(m_bundle, "0")); };
    Fill(1);
    search();  // takes the memory that it keeps
    const unsigned long amongFew = AllocationsOf(search);
    Fill(2000);
    EXPECT_EQ(amongFew, AllocationsOf(search));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
