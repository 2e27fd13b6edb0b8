// Text primitives: the number reader's base 0 and signed limits, and null texts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/system.h"
#include "unit/test_text.h"

namespace {

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

// A null text reads as an empty one wherever a text is read.
TEST(TextTest, NullTextsReadAsEmpty) {
    EXPECT_EQ(str_len(nullptr), 0u);
    for (auto compare : {str_cmp, str_icmp}) {
        EXPECT_EQ(compare(nullptr, u""), 0);
        EXPECT_LT(compare(nullptr, u"a"), 0);
        EXPECT_GT(compare(u"a", nullptr), 0);
    }
    for (auto compare : {str_ncmp, str_nicmp}) {
        EXPECT_EQ(compare(nullptr, u"", 5), 0);
        EXPECT_LT(compare(nullptr, u"a", 5), 0);
        EXPECT_GT(compare(u"a", nullptr, 5), 0);
    }
    char16_t *copy = str_dup(nullptr);
    EXPECT_EQ(str_len(copy), 0u);
    free(copy);
}

} // namespace
