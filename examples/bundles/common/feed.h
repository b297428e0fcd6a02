// The interface that FeedSvc publishes: what it has read from the feed file.
#pragma once

#include <cstdint>
#include <string>

#include <bundlemgr/bundle.h>

namespace alarms {

constexpr char FEED_SERVICE[] = "FeedSvc";

/// Thread safety: every operation may be called from any thread.
class ZO_PLUGIN_EXPORT Feed : public NS_BUNDLEMGR1::ServiceInterface {
public:
    struct Counters {
        std::uint64_t applied = 0;   ///< Lines that were applied to the alarm table.
        std::uint64_t rejected = 0;  ///< Lines that were reported and skipped.
    };

    ~Feed() override;

    /// @return the path of the feed file
    virtual std::string File() = 0;

    virtual Counters Count() = 0;
};

}  // namespace alarms
