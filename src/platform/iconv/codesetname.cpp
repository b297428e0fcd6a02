#include "src/platform/iconv/codesetname.h"

#include <algorithm>
#include <iterator>

namespace NS_BUNDLEMGR1 {

namespace {

struct Name {
    const char* name;
    CodeSet codeSet;
};

// The C library counts CP936 and its like as GBK; for GNU they are sets of their own,
// with a Euro sign at 80, and so they are here: the C library's.
constexpr Name kNames[] = {
    {"GBK", CodeSet::kGbk},
    {"CSGBK", CodeSet::kGbk},
    {"UTF-8", CodeSet::kUtf8},
    {"UTF8", CodeSet::kUtf8},
    {"ISO-8859-1", CodeSet::kLatin1},
    {"ISO_8859-1", CodeSet::kLatin1},
    {"ISO_8859-1:1987", CodeSet::kLatin1},
    {"ISO8859-1", CodeSet::kLatin1},
    {"ISO88591", CodeSet::kLatin1},
    {"ISO-IR-100", CodeSet::kLatin1},
    {"8859_1", CodeSet::kLatin1},
    {"CP819", CodeSet::kLatin1},
    {"IBM819", CodeSet::kLatin1},
    {"LATIN1", CodeSet::kLatin1},
    {"L1", CodeSet::kLatin1},
    {"CSISOLATIN1", CodeSet::kLatin1},
    {"UTF-16", CodeSet::kUtf16},
    {"UTF16", CodeSet::kUtf16},
    {"UTF-16BE", CodeSet::kUtf16Be},
    {"UTF-16LE", CodeSet::kUtf16Le},
    {"UTF-32", CodeSet::kUtf32},
    {"UTF32", CodeSet::kUtf32},
    {"UTF-32BE", CodeSet::kUtf32Be},
    {"UTF-32LE", CodeSet::kUtf32Le},
};

CodeSet LookUp(std::string name) {
    for (char& c : name) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    const auto* const found =
        std::find_if(std::begin(kNames), std::end(kNames), [&name](const Name& known) { return name == known.name; });
    return found != std::end(kNames) ? found->codeSet : CodeSet::kOther;
}

std::string WithoutPunctuation(const std::string& name) {
    std::string bare;
    std::remove_copy_if(name.begin(), name.end(), std::back_inserter(bare),
                        [](char c) { return c == '+' || c == '(' || c == ')'; });
    return bare;
}

}  // namespace

CodeSet FindCodeSet(const std::string& name) {
    // The C library passes over these characters. It would then take the name for that of one
    // of our sets, or for "the set of the locale" where nothing else is left.
    const std::string bare = WithoutPunctuation(name);
    if (bare != name && (bare.empty() || LookUp(bare) != CodeSet::kOther)) return CodeSet::kUnknown;
    return LookUp(name);
}

}  // namespace NS_BUNDLEMGR1
