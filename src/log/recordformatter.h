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
        : m_record(record), m_stamp(stamp), m_sequence(sequence) {}

    /// @return a number of bytes that it does not exceed
    std::size_t MaxSize() const {
        SizeCounter counter;
        Compose(counter);
        return counter.size;
    }

    /// @param out has room for `MaxSize()` bytes
    /// @return the end of the record there
    char* CopyTo(char* out) const {
        Copier copier(out);
        Compose(copier);
        return copier.next;
    }

    /// Calls `take` with each piece, as a `std::string_view`.
    template <class Take>
    void ForEachPiece(Take take) const {
        PieceMaker<Take> maker{take};
        Compose(maker);
    }

private:
    template <class Number>
    static constexpr std::size_t kDigits = std::numeric_limits<Number>::digits10 + 2;  // one for a sign

    template <class Out>
    void Compose(Out& out) const {
        out.Text("<");
        out.Number(m_sequence);
        out.Text(">\n");
        out.Text(m_stamp);
        out.Text(", ");
        out.Text(m_record.thread);
        out.Text(", Level = ");
        out.Number(m_record.level);
        out.Text(", Bundle = ");
        out.Text(m_record.source);
        out.Text(", lineno = ");
        out.Number(m_record.line);
        out.Text("\n");
        out.Text(m_record.text);
        out.Text("\n</");
        out.Number(m_sequence);
        out.Text(">\n\n");
    }

    struct SizeCounter {
        void Text(std::string_view text) { size += text.size(); }
        template <class Value>
        void Number(Value) {
            size += kDigits<Value>;
        }

        std::size_t size = 0;
    };

    struct Copier {
        explicit Copier(char* out) : next(out) {}

        void Text(std::string_view text) { next = CopyText(text, next); }
        template <class Value>
        void Number(Value value) {
            next = std::to_chars(next, next + kDigits<Value>, value).ptr;
        }

        char* next;
    };

    template <class Take>
    struct PieceMaker {
        void Text(std::string_view text) { take(text); }
        template <class Value>
        void Number(Value value) {
            char digits[kDigits<Value>];
            const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
            take({digits, static_cast<std::size_t>(end - digits)});
        }

        Take& take;
    };

    const RecordView& m_record;
    const std::string_view m_stamp;
    const std::uint64_t m_sequence;
};

}  // namespace NS_BUNDLEMGR1
