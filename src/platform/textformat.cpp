#include "src/platform/textformat.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>

#include <sys/types.h>

#include "src/platform/bounded.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The part of a destination that is left.
class Room {
public:
    Room(char* begin, std::size_t size) : m_next(begin), m_end(begin + size) {}

    void Put(std::string_view text) {
        m_next = CopyText(text.substr(0, static_cast<std::size_t>(m_end - m_next)), m_next);
    }

    template <class Number>
    void PutNumber(Number number) {
        constexpr std::ptrdiff_t kDigits = 24;  // more than a number has
        if (m_end - m_next >= kDigits) {
            m_next = std::to_chars(m_next, m_end, number).ptr;
            return;
        }
        char digits[kDigits];
        const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        const auto size = static_cast<std::size_t>(std::min(end - digits, m_end - m_next));
        std::memcpy(m_next, digits, size);
        m_next += size;
    }

    char* Next() const { return m_next; }

private:
    char* m_next;
    char* const m_end;
};

// How long an integer is.
enum class Length { Int, Long, LongLong, Size };

Length TakeLength(const char*& format) {
    if (*format == 'z') {
        ++format;
        return Length::Size;
    }
    if (*format != 'l') return Length::Int;
    ++format;
    if (*format != 'l') return Length::Long;
    ++format;
    return Length::LongLong;
}

// The arguments, where functions may take them one after the other.
struct Arguments {
    va_list list;
};

// The checker loses sight of a va_list that is handed on.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)

void PutSigned(Length length, Arguments& args, Room& room) {
    switch (length) {
        case Length::Int:
            return room.PutNumber(va_arg(args.list, int));
        case Length::Long:
            return room.PutNumber(va_arg(args.list, long));
        case Length::LongLong:
            return room.PutNumber(va_arg(args.list, long long));
        case Length::Size:
            return room.PutNumber(va_arg(args.list, ssize_t));
    }
}

void PutUnsigned(Length length, Arguments& args, Room& room) {
    switch (length) {
        case Length::Int:
            return room.PutNumber(va_arg(args.list, unsigned));
        case Length::Long:
            return room.PutNumber(va_arg(args.list, unsigned long));
        case Length::LongLong:
            return room.PutNumber(va_arg(args.list, unsigned long long));
        case Length::Size:
            return room.PutNumber(va_arg(args.list, std::size_t));
    }
}

// False for a conversion of another kind.
bool PutPlain(char kind, Arguments& args, Room& room) {
    if (kind == '%') {
        room.Put("%");
        return true;
    }
    if (kind == 's') {
        const char* const text = va_arg(args.list, const char*);
        const std::string_view shown = text != nullptr ? text : "(null)";
        room.Put(shown);
        return shown.size() <= INT_MAX;  // the C library refuses a longer one
    }
    if (kind != 'c') return false;
    const char character = static_cast<char>(va_arg(args.list, int));
    room.Put({&character, 1});
    return true;
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)

bool PutConversion(const char*& format, Arguments& args, Room& room) {
    const Length length = TakeLength(format);
    const char kind = *format++;
    if (kind == 'd' || kind == 'i') {
        PutSigned(length, args, room);
        return true;
    }
    if (kind == 'u') {
        PutUnsigned(length, args, room);
        return true;
    }
    return length == Length::Int && PutPlain(kind, args, room);
}

bool PutAll(const char* format, Arguments& args, Room& room) {
    for (;;) {
        if (*format != '%') {
            const char* const percent = strchrnul(format, '%');
            room.Put({format, static_cast<std::size_t>(percent - format)});
            format = percent;
        }
        if (*format == '\0') return true;
        ++format;
        if (!PutConversion(format, args, room)) return false;
    }
}

}  // namespace

int FormatText(char* dest, std::size_t destMax, const char* format, va_list args) {
    if (format == nullptr) return vsnprintf_s(dest, destMax, destMax - 1, format, args);
    Room room(dest, destMax - 1);
    Arguments simple{};
    va_copy(simple.list, args);
    const bool isSimple = PutAll(format, simple, room);
    va_end(simple.list);
    if (!isSimple) return vsnprintf_s(dest, destMax, destMax - 1, format, args);
    *room.Next() = '\0';
    return static_cast<int>(room.Next() - dest);
}

}  // namespace NS_BUNDLEMGR1
