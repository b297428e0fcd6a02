// Open conversions between character sets, lent to threads.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <map>
#include <string>

#include <bundlemgr/detail/mutex.h>

#include "src/platform/iconv/iconv.h"

namespace NS_BUNDLEMGR1 {

/// One open handle, which serves one thread at a time.
class Converter {
public:
    /// @param from,to names of character sets
    Converter(const std::string& from, const std::string& to);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const { return m_handle != NoIconv(); }

    /// @return whether all of the text was converted; if not, `out` is as it was
    bool Run(const std::string& in, std::string& out) const;

private:
    friend class Converters;

    libiconv_t const m_handle;
    Converter* m_next = nullptr;  // of those that found no slot
};

/// The converters of one direction that nobody uses at the moment. Once open, a converter is kept
/// for good, and so is its direction.
///
/// Each thread has a slot, which few others share; it finds there what it put there last, without
/// a lock. So a single thread always has the same converter, whose shift state goes on from call
/// to call, and threads that take turns have that one, too. A thread may overlook one that moves
/// from slot to slot meanwhile: there are then a few more than threads that ever converted at
/// once, at most as many more as there are slots.
///
/// Thread safety: all operations may be called from any thread.
class Converters {
public:
    Converters(std::string from, std::string to);
    Converters(const Converters&) = delete;
    Converters& operator=(const Converters&) = delete;

    /// @return the one of that direction; null where none has been made
    static Converters* Find(const std::string& from, const std::string& to);

    /// Finds or makes it. Throws std::bad_alloc.
    static Converters& Get(const std::string& from, const std::string& to);

    /// @return null where all are in use. The caller gives it back
    Converter* Take();

    void GiveBack(Converter* converter);

    /// @name Around fork
    /// A converter that another thread uses at that moment is not in the child.
    /// @{
    static void BeforeFork() ZO_ACQUIRE(s_mutex);
    static void AfterFork() ZO_RELEASE(s_mutex);
    /// @}

private:
    using Directions = std::map<std::string, std::map<std::string, Converters>>;

    static constexpr std::size_t kSlots = 8;
    static constexpr std::size_t kCacheLine = 64;

    struct alignas(kCacheLine) Slot {
        std::atomic<Converter*> converter{nullptr};
    };

    bool IsOf(const std::string& from, const std::string& to) const { return m_from == from && m_to == to; }
    static Converters* FindKnown(const std::string& from, const std::string& to);

    static detail::Mutex s_mutex;
    // By source and target. Never destroyed, since it serves static destructors, too.
    static Directions* s_directions ZO_GUARDED_BY(s_mutex);

    const std::string m_from;
    const std::string m_to;
    std::array<Slot, kSlots> m_slots;
    Converter* m_others ZO_GUARDED_BY(s_mutex) = nullptr;  // beyond the slots
};

}  // namespace NS_BUNDLEMGR1
