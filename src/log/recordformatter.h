// The bytes of a record in the log file.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "src/log/recordview.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

/// One record as a row of pieces: its number, time stamp, thread, level and source, line
/// and text, and its number once more. Refers to the texts of the record and the stamp.
class RecordFormatter {
public:
    RecordFormatter(std::uint64_t sequence, std::string_view stamp, const RecordView& record)
        : m_record(record), m_stamp(stamp), m_sequence(sequence), m_level(record.level), m_line(record.line) {}

    /// Calls `take` with each piece, as a `std::string_view`.
    template <class Take>
    void ForEachPiece(Take take) const {
        take("<");
        take(m_sequence.Text());
        take(">\n");
        take(m_stamp);
        take(", ");
        take(m_record.thread);
        take(", Level = ");
        take(m_level.Text());
        take(", Bundle = ");
        take(m_record.source);
        take(", lineno = ");
        take(m_line.Text());
        take("\n");
        take(m_record.text);
        take("\n</");
        take(m_sequence.Text());
        take(">\n\n");
    }

    /// @return number of bytes
    std::size_t Size() const {
        std::size_t size = 0;
        ForEachPiece([&size](std::string_view piece) { size += piece.size(); });
        return size;
    }

    /// @param out has room for `Size()` bytes
    void CopyTo(char* out) const {
        ForEachPiece([&out](std::string_view piece) { out = CopyText(piece, out); });
    }

private:
    template <class Number>
    class Decimal {
    public:
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the digits are what is written
        explicit Decimal(Number number) : m_size(std::to_chars(m_digits, m_digits + kSize, number).ptr - m_digits) {}
        std::string_view Text() const { return {m_digits, static_cast<std::size_t>(m_size)}; }

    private:
        static constexpr std::size_t kSize = std::numeric_limits<Number>::digits10 + 2;  // one for a sign

        char m_digits[kSize];
        std::ptrdiff_t m_size;
    };

    const RecordView& m_record;
    const std::string_view m_stamp;
    const Decimal<std::uint64_t> m_sequence;
    const Decimal<int> m_level;
    const Decimal<unsigned long> m_line;
};

}  // namespace NS_BUNDLEMGR1
