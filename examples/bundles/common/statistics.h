// The interface that StatisticsSvc publishes: counts of alarms.
#pragma once

#include <array>
#include <cstdint>

#include <bundlemgr/bundle.h>

#include "alarm.h"

namespace alarms {

constexpr char STATISTICS_SERVICE[] = "StatisticsSvc";

/// Thread safety: every operation may be called from any thread.
class ZO_PLUGIN_EXPORT Statistics : public NS_BUNDLEMGR1::ServiceInterface {
public:
    struct Counters {
        std::array<std::uint64_t, SEVERITY_COUNT> active{};  ///< Active alarms by severity.
        std::uint64_t raised = 0;
        std::uint64_t changed = 0;
        std::uint64_t cleared = 0;
    };

    ~Statistics() override;

    virtual Counters Count() = 0;
};

}  // namespace alarms
