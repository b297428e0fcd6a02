// Writes the two-byte characters of GBK, as the C library of the machine that builds knows
// them, as the values of `GbkTable`. Those who run what was built need no GBK of theirs.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <iconv.h>

#include "src/platform/iconv/gbk.h"

namespace {

using NS_BUNDLEMGR1::GbkTable;

struct Tables {
    std::array<std::uint16_t, GbkTable::kPairs> characters{};
    std::array<std::uint16_t, GbkTable::kCodePoints> codes{};
};

/// @return the code point, or 0 when the two bytes are no character
unsigned Decode(iconv_t gbk, unsigned lead, unsigned trail) {
    char bytes[] = {static_cast<char>(lead), static_cast<char>(trail)};
    unsigned char character[8] = {};
    char* in = bytes;
    char* out = reinterpret_cast<char*>(character);
    std::size_t inLeft = sizeof bytes;
    std::size_t outLeft = sizeof character;
    const bool whole = iconv(gbk, &in, &inLeft, &out, &outLeft) == 0 && outLeft == sizeof character - 2;
    iconv(gbk, nullptr, nullptr, nullptr, nullptr);
    return whole ? static_cast<unsigned>(character[0] << 8 | character[1]) : 0;
}

bool Fill(Tables& tables) {
    const iconv_t gbk = iconv_open("UTF-16BE", "GBK");
    if (gbk == reinterpret_cast<iconv_t>(-1)) return false;  // NOLINT(performance-no-int-to-ptr): the C library's
    for (std::size_t pair = 0; pair < GbkTable::kPairs; ++pair) {
        const unsigned lead = GbkTable::kFirstLead + static_cast<unsigned>(pair >> 8);
        const unsigned trail = pair & 0xFF;
        const unsigned character = Decode(gbk, lead, trail);
        if (character == 0) continue;
        tables.characters[pair] = static_cast<std::uint16_t>(character);
        tables.codes[character] = static_cast<std::uint16_t>(lead << 8 | trail);
    }
    iconv_close(gbk);
    return true;
}

template <std::size_t kSize>
void Write(const char* name, const std::array<std::uint16_t, kSize>& table, std::FILE* file) {
    std::fprintf(file, "const std::uint16_t GbkTable::%s[] = {", name);
    for (std::size_t i = 0; i < kSize; ++i) std::fprintf(file, "%s%u,", i % 16 == 0 ? "\n    " : " ", table[i] + 0u);
    std::fprintf(file, "\n};\n");
}

bool WriteTables(const Tables& tables, const char* path) {
    std::FILE* const file = std::fopen(path, "w");
    if (file == nullptr) return false;
    std::fprintf(file, "// Made by makegbktable.cpp.\n");
    Write("kCharacters", tables.characters, file);
    Write("kCodes", tables.codes, file);
    const bool good = std::ferror(file) == 0;
    return std::fclose(file) == 0 && good;
}

}  // namespace

int main(int count, char* arguments[]) {
    static Tables tables;
    if (count != 2) {
        std::fprintf(stderr, "usage: makegbktable FILE\n");
    } else if (!Fill(tables)) {
        std::fprintf(stderr,
                     "makegbktable: the C library of this machine lacks GBK; scripts/install-deps.sh gets it\n");
    } else if (!WriteTables(tables, arguments[1])) {
        std::perror(arguments[1]);
    } else {
        return 0;
    }
    return 1;
}
