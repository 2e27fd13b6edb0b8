// Text primitives: compares, searches, the word splitter, the number reader and
// the letter test of the drive check.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/system.h"
#include "unit/test_text.h"

namespace {

int get_sign(int v) {
    return (v > 0) - (v < 0);
}

TEST(TextTest, CompareFamiliesGiveTheSignOfTheFirstDifference) {
    struct row {
        const char16_t *a, *b;
        size_t n;
        int cmp, ncmp, icmp, nicmp;
    };
    const row rows[] = {
        {u"abc", u"abc", 3, 0, 0, 0, 0},
        {u"abc", u"abd", 2, -1, 0, -1, 0},
        {u"ABC", u"abc", 3, -1, -1, 0, 0},
        {u"abc", u"ab", 3, 1, 1, 1, 1},
        {u"ab", u"abc", 2, -1, 0, -1, 0},
        // Folding goes to lower case, so '_' sorts before a letter either way.
        {u"_", u"A", 1, 1, 1, -1, -1},
        {u"\u00C5", u"\u00E5", 1, -1, -1, -1, -1}, // no folding beyond ASCII
        {u"\uFFFF", u"a", 1, 1, 1, 1, 1},          // units compare unsigned
        {u"x", u"y", 0, -1, 0, -1, 0},
        {nullptr, u"", 1, 0, 0, 0, 0},     // null reads as empty
        {u"a\0b", u"a\0c", 3, 0, 0, 0, 0}, // the terminator ends every compare
    };
    for (const row &r : rows) {
        SCOPED_TRACE(to_utf8(r.a) + " vs " + to_utf8(r.b) + " n=" + std::to_string(r.n));
        EXPECT_EQ(get_sign(str_cmp(r.a, r.b)), r.cmp);
        EXPECT_EQ(get_sign(str_ncmp(r.a, r.b, r.n)), r.ncmp);
        EXPECT_EQ(get_sign(str_icmp(r.a, r.b)), r.icmp);
        EXPECT_EQ(get_sign(str_nicmp(r.a, r.b, r.n)), r.nicmp);
    }
}

TEST(TextTest, SearchesReturnPositionsInsideTheArgument) {
    const char16_t *text = u"a.b.c";
    EXPECT_EQ(str_chr(text, u'.'), text + 1);
    EXPECT_EQ(str_rchr(text, u'.'), text + 3);
    EXPECT_EQ(str_chr(text, 0), text + 5); // the terminator is part of the text
    EXPECT_EQ(str_chr(text, u'x'), nullptr);
    EXPECT_EQ(str_rchr(text, u'x'), nullptr);
    EXPECT_EQ(str_chr(static_cast<const char16_t *>(nullptr), u'a'), nullptr);
    EXPECT_EQ(str_str(text, u"b.c"), text + 2);
    EXPECT_EQ(str_str(text, u""), text);
    EXPECT_EQ(str_str(text, u"c.d"), nullptr);
    const char16_t *overlap = u"aaab";
    EXPECT_EQ(str_str(overlap, u"aab"), overlap + 1);
    EXPECT_EQ(str_pbrk(text, u"cb"), text + 2);
    EXPECT_EQ(str_pbrk(text, u"xyz"), nullptr);
    EXPECT_EQ(str_pbrk(text, u""), nullptr);
}

TEST(TextTest, WordSplitterSkipsRunsOfSeparatorsAndEndsWithNull) {
    char16_t text[] = u"  one,two,,three  ";
    std::u16string words;
    for (char16_t *w = str_tok(text, u" ,"); w; w = str_tok(nullptr, u" ,"))
        words += w + std::u16string(u"|");
    EXPECT_EQ(words, u"one|two|three|");
    EXPECT_EQ(str_tok(nullptr, u" ,"), nullptr); // stays at the end

    // The caller-held form keeps two splits apart.
    char16_t first[] = u"a b", second[] = u"x;y";
    char16_t *p1 = nullptr, *p2 = nullptr;
    EXPECT_EQ(std::u16string(str_tok_r(first, u" ", &p1)), u"a");
    EXPECT_EQ(std::u16string(str_tok_r(second, u";", &p2)), u"x");
    EXPECT_EQ(std::u16string(str_tok_r(nullptr, u" ", &p1)), u"b");
    EXPECT_EQ(std::u16string(str_tok_r(nullptr, u";", &p2)), u"y");
    EXPECT_EQ(str_tok_r(nullptr, u" ", &p1), nullptr);

    char16_t only_separators[] = u",,,";
    EXPECT_EQ(str_tok(only_separators, u","), nullptr);
}

TEST(TextTest, NumberReaderFollowsBaseZeroAndSignedLimits) {
    struct row {
        const char16_t *text;
        int32_t value;
        size_t end; // units consumed; 0 when no digit was read
        bool range;
    };
    const row rows[] = {
        {u"0", 0, 1, false},
        {u"  +12x", 12, 5, false},
        {u"\t\n\v\f\r 7", 7, 7, false},
        {u"-12", -12, 3, false},
        {u"0x1F", 31, 4, false},
        {u"0XaBz", 171, 4, false},
        {u"010", 8, 3, false},
        {u"09", 0, 1, false}, // 9 is no octal digit
        {u"0x", 0, 1, false}, // no hex digit: the 0 alone
        {u"0xg", 0, 1, false},
        {u"2147483647", INT32_MAX, 10, false},
        {u"2147483648", INT32_MAX, 10, true},
        {u"-2147483648", INT32_MIN, 11, false},
        {u"-2147483649", INT32_MIN, 11, true},
        {u"0xFFFFFFFF", INT32_MAX, 10, true},
        {u"-0x80000000", INT32_MIN, 11, false},
        {u"037777777777", INT32_MAX, 12, true},
        {u"99999999999999999999999y", INT32_MAX, 23, true}, // digits go on after overflow
        {u"", 0, 0, false},
        {u"-", 0, 0, false},
        {u"+-1", 0, 0, false},
        {u"- 1", 0, 0, false},
        {u"x1", 0, 0, false},
        {u"\u0661", 0, 0, false}, // only ASCII digits count
    };
    for (const row &r : rows) {
        SCOPED_TRACE(to_utf8(r.text));
        const char16_t *end = nullptr;
        bool range = !r.range;
        EXPECT_EQ(str_to_long(r.text, &end, &range), r.value);
        EXPECT_EQ(static_cast<size_t>(end - r.text), r.end);
        EXPECT_EQ(range, r.range);
    }
    EXPECT_EQ(str_to_long(u"42", nullptr, nullptr), 42);
}

TEST(TextTest, DriveLetterTestTakesLettersBeyondAscii) {
    struct row {
        char16_t c;
        bool letter;
    };
    const row rows[] = {
        {u'A', true},  {u'z', true},  {u'0', false},   {u':', false},   {u'@', false},
        {u'[', false}, {0xAA, true},  {0xB5, true},    {0xBA, true},    {0xBF, false},
        {0xC0, true},  {0xD7, false}, {0xF7, false},   {0xFF, true},    {0xA0, false},
        {0x100, true}, {0x3B1, true}, {0xD800, false}, {0xDFFF, false}, {0xE000, true},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(static_cast<unsigned>(r.c));
        EXPECT_EQ(is_char_alpha(r.c), r.letter);
    }
}

} // namespace
