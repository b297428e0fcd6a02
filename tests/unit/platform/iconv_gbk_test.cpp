// GBK: bad input, every pair of bytes, and random text against a slow model.
#include "unit/platform/iconvtest.h"

#include <cstdlib>
#include <random>
#include <utility>

#include "support/environment.h"
#include "support/tempdir.h"

namespace test {

namespace {

TEST(IconvGbk, InvalidInputIsReplacedByteByByte) {
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\x81\x30\x61"), "?0a", 1);
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\xFF\xFF"), "??", 2);
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\x80"), "?", 1);
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\x81\x7Fz"), "?\x7Fz", 1);
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\x81\xFFz"), "??z", 2);
}

TEST(IconvGbk, DecodingGoesOnAtTheByteBehindAnInvalidOne) {
    // AA A1 is unassigned; A1 B0 and A1 A1 are quotation mark and blank.
    ExpectDone(ConvertOnce("UTF-8", "GBK", "\xAA\xA1\xB0\xA1\xA1"), "?\xE2\x80\x9C\xE3\x80\x80", 1);
}

TEST(IconvGbk, AnIncompleteCharacterAtTheEndFails) {
    ExpectIncomplete(ConvertOnce("UTF-8", "GBK", "\xAA\xA1\xB0\xA1"));
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        SCOPED_TRACE(lead);
        const Result result = ConvertOnce("UTF-8", "GBK", "ab" + std::string(1, static_cast<char>(lead)));
        ExpectIncomplete(result);
        EXPECT_EQ("ab", result.out);
        EXPECT_EQ(2u, result.read);
    }
}

void ExitAfterConvertingFromGbk() {
    const Handle handle("UTF-8", "GBK");
    std::exit(handle.IsOpen() && handle.Convert("\xD6\xD0\x80").out == "\xE4\xB8\xAD?" ? 7 : 1);
}

TEST(IconvNames, GbkIsKnownWhereTheCLibraryCannotLoadIt) {
    // Started anew, since the C library reads the variable as the process starts.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const TempDir dir;
    dir.Write("gconv-modules", "module GBK// INTERNAL nowhere 1\nmodule INTERNAL GBK// nowhere 1\n");
    const ScopedEnv modules("GCONV_PATH", dir.Path());
    EXPECT_EXIT(ExitAfterConvertingFromGbk(), testing::ExitedWithCode(7), "");
}

// ---- Against the C library and against slow models ----

TEST(IconvGbk, EveryPairOfBytesIsReadAsTheCLibraryReadsIt) {
    const CLibrary theirs("UTF-8", "GBK");
    const Handle ours("UTF-8", "GBK");
    int characters = 0;
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        for (unsigned trail = 0; trail <= 0xFF; ++trail) {
            std::string expected;
            const Result result = ours.Convert(Pair(lead, trail));
            if (theirs.Convert(Pair(lead, trail), expected)) {
                ++characters;
                ASSERT_EQ(expected, result.out) << lead << ' ' << trail;
                ASSERT_EQ(0u, result.replaced);
            } else if (trail >= 0x81 && trail <= 0xFE) {
                ASSERT_EQ(EINVAL, result.error) << lead << ' ' << trail;
            } else {
                const std::string second = trail < 0x80 ? std::string(1, static_cast<char>(trail)) : "?";
                ASSERT_EQ("?" + second, result.out) << lead << ' ' << trail;
            }
        }
    }
    EXPECT_EQ(21791, characters);
}

TEST(IconvGbk, EveryCodePointIsWrittenAsTheCLibraryWritesIt) {
    const CLibrary theirs("GBK", "UTF-8");
    const Handle ours("GBK", "UTF-8");
    int pairs = 0;
    for (std::uint32_t codePoint = 0; codePoint < 0x110000; ++codePoint) {
        if (codePoint >= 0xD800 && codePoint < 0xE000) continue;
        std::string expected;
        const Result result = ours.Convert(Utf8Of(codePoint), 8);
        if (!theirs.Convert(Utf8Of(codePoint), expected) || codePoint == 0x20AC) {
            ASSERT_EQ("?", result.out) << codePoint;
            ASSERT_EQ(1u, result.replaced) << codePoint;
        } else {
            if (expected.size() == 2) ++pairs;
            ASSERT_EQ(expected, result.out) << codePoint;
            ASSERT_EQ(0u, result.replaced) << codePoint;
        }
    }
    EXPECT_EQ(21791, pairs);
}

/// What a text should become, character by character: slow, but plain to see.
struct Model {
    bool complete = true;
    std::size_t replaced = 0;
    std::string out;

    void Replace() {
        out += '?';
        ++replaced;
    }
};

Model ModelOfGbkToUtf8(const std::string& text) {
    static const CLibrary library("UTF-8", "GBK");
    Model model;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::string character;
        const bool isLead = byte >= 0x81 && byte <= 0xFE;
        if (isLead && i + 1 == text.size()) {
            model.complete = false;
            return model;
        }
        if (isLead && library.Convert(text.substr(i, 2), character)) {
            model.out += character;
            i += 2;
            continue;
        }
        if (byte < 0x80) {
            model.out += text[i];
        } else {
            model.Replace();
        }
        ++i;
    }
    return model;
}

/// @return the valid character that the text begins with, or -1
long FirstOfUtf8(const std::string& text, std::size_t length) {
    for (const auto& [first, last] : {std::pair<std::uint32_t, std::uint32_t>{0, 0xD7FF}, {0xE000, 0x10FFFF}}) {
        std::uint32_t low = first;
        std::uint32_t high = last;
        // UTF-8 sorts as code points do.
        while (low < high) {
            const std::uint32_t middle = low + (high - low) / 2;
            if (Utf8Of(middle) < text.substr(0, length)) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        if (Utf8Of(low) == text.substr(0, length)) return static_cast<long>(low);
    }
    return -1;
}

Model ModelOfUtf8ToGbk(const std::string& text) {
    static const CLibrary library("GBK", "UTF-8");
    Model model;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const bool isLead = lead >= 0xC2 && lead <= 0xF7;
        const std::size_t length = lead < 0x80 || !isLead ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (i + length > text.size()) {
            model.complete = false;
            return model;
        }
        const long codePoint = FirstOfUtf8(text.substr(i), length);
        std::string character;
        const bool isTag = codePoint >= 0xE0000 && codePoint <= 0xE007F;
        if (codePoint >= 0 && codePoint != 0x20AC && library.Convert(text.substr(i, length), character)) {
            model.out += character;
        } else if (!isTag) {
            model.Replace();
        }
        i += codePoint >= 0 ? length : 1;
    }
    return model;
}

/// Texts that are partly sound, partly spoilt.
class TextMaker {
public:
    explicit TextMaker(unsigned seed) : m_random(seed) {}

    template <class MakeCharacter>
    std::string Make(MakeCharacter makeCharacter) {
        std::string text;
        for (unsigned left = Below(12); left > 0; --left) {
            switch (Below(4)) {
                case 0:
                    text += static_cast<char>(Below(0x80));
                    break;
                case 1:
                    text += static_cast<char>(Below(0x100));
                    break;
                default:
                    text += makeCharacter(*this);
                    break;
            }
        }
        if (!text.empty() && Below(3) == 0) text.pop_back();
        return text;
    }

    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

private:
    std::mt19937 m_random;
};

void ExpectAsModelled(const Handle& handle, const std::string& text, const Model& model) {
    const Result result = handle.Convert(text);
    ASSERT_EQ(model.complete, result.error == 0) << testing::PrintToString(text);
    ASSERT_EQ(model.out, result.out) << testing::PrintToString(text);
    if (!model.complete) return;
    ASSERT_EQ(model.replaced, result.replaced) << testing::PrintToString(text);
}

TEST(IconvModel, RandomGbkIsReadAsModelled) {
    TextMaker maker(20240301);
    const Handle handle("UTF-8", "GBK");
    for (int i = 0; i < 20000 && !HasFatalFailure(); ++i) {
        const std::string text =
            maker.Make([](TextMaker& m) { return Pair(0x81 + m.Below(0x7E), 0x40 + m.Below(0xBF)); });
        ExpectAsModelled(handle, text, ModelOfGbkToUtf8(text));
    }
}

TEST(IconvModel, RandomUtf8IsReadAsModelled) {
    TextMaker maker(20240302);
    const Handle handle("GBK", "UTF-8");
    for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
        const std::string text = maker.Make([](TextMaker& m) {
            switch (m.Below(4)) {
                case 0:
                    return Utf8Of(0x4E00 + m.Below(0x5200));
                case 1:
                    return Utf8Of(0xD000 + m.Below(0x1800));
                case 2:
                    return Utf8Of(0xDFF00 + m.Below(0x200));
                default:
                    return Utf8Of(m.Below(0x130000));
            }
        });
        ExpectAsModelled(handle, text, ModelOfUtf8ToGbk(text));
    }
}

}  // namespace

}  // namespace test
