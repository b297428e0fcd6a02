// How many records were lost, and since when.
#pragma once

#include <cstdint>

#include <ace/Time_Value.h>

namespace NS_BUNDLEMGR1 {

/// Counts for `GetLogLoss`. Whoever gives a record up counts it here; whoever has brought
/// records to the disk ends the loss.
///
/// Takes no lock and no memory. Thread-safe.
class LossCounter {
public:
    /// @param records how many were lost
    /// @param first   time of the first of them
    static void Lost(std::uint64_t records, const ACE_Time_Value& first);

    /// Records were kept.
    static void Kept();

    /// A forked child has lost nothing yet.
    static void Reset();
};

}  // namespace NS_BUNDLEMGR1
