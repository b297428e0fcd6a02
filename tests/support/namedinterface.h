// An interface that is told from others by its description.
#pragma once

#include <string>
#include <utility>

#include <bundlemgr/bundle.h>

namespace test {

class NamedInterface : public NS_BUNDLEMGR1::ServiceInterface {
public:
    explicit NamedInterface(std::string name = "named", int* deletions = nullptr)
        : m_name(std::move(name)), m_deletions(deletions) {}
    ~NamedInterface() override {
        if (m_deletions != nullptr) ++*m_deletions;
    }
    std::string GetDescription() override { return m_name; }
    void* GetImplementation() override { return this; }

private:
    const std::string m_name;
    int* const m_deletions;
};

}  // namespace test
