// What the tests of the order of virtual operations have in common.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/slot.h"

namespace test {

/// Calls an object the way a library does that was built long ago: by slot.
/// @param Base      the class whose order counts
/// @param Recording one derived from it; its operations leave their name in a static
///                  `s_called`, its destructor leaves "~"
/// @param Fixture   what the test stands on
template <class Base, class Recording, class Fixture>
class SlotsTest : public Fixture {
protected:
    static std::string Called() { return std::exchange(Recording::s_called, std::string()); }

    template <class Result>
    Result Call(std::size_t slot) {
        return Slot<Result (*)(Base*)>(m_object, slot)(m_object);
    }

    /// The complete one first, then the one that frees the object as well.
    static void ExpectDestructorsFirst() {
        alignas(Recording) unsigned char place[sizeof(Recording)];
        Base* const placed = new (place) Recording;
        Slot<void (*)(Base*)>(placed, 0)(placed);
        EXPECT_EQ("~", Called());

        Base* const allocated = new Recording;
        Slot<void (*)(Base*)>(allocated, 1)(allocated);
        EXPECT_EQ("~", Called());
    }

    Recording m_recording;
    Base* const m_object = &m_recording;
};

}  // namespace test
