// The formatter: its conversions, two-step formatting and 8-bit file output,
// on both sides of the fast path.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/system.h"
#include "unit/scratch_dir.h"
#include "unit/test_text.h"

namespace {

struct format_row {
    const char16_t *format;
    std::vector<fmt_arg> args;
    const char16_t *expected;
};

std::u16string format_whole(const char16_t *format, const std::vector<fmt_arg> &args) {
    char16_t *text = str_printf_args(format, args.data(), args.size());
    std::u16string result(text);
    free(text);
    return result;
}

TEST(FormatTest, ConversionsAndArgumentMismatches) {
    const char16_t *none = nullptr;
    const char16_t slice[3] = {u'a', u'b', u'c'}; // no terminator behind it
    const format_row rows[] = {
        {u"%ls|%ls", {u"a", u"bc"}, u"a|bc"},
        {u"%.*ls", {2, u"abcdef"}, u"ab"},
        {u"%.*ls|", {10, u"ab"}, u"ab|"}, // precision past the end stops at it
        {u"%.*ls|", {0, u"ab"}, u"|"},
        {u"<%.*ls>", {3, slice}, u"<abc>"}, // the precision stops before the end is read
        {u"%-*ls|", {5, u"ab"}, u"ab   |"},
        {u"%*ls|", {5, u"ab"}, u"   ab|"},
        {u"%-*ls|", {1, u"abc"}, u"abc|"}, // width never cuts
        {u"%lc%lc", {char16_t(u'\u00C4'), char16_t(u'x')}, u"\u00C4x"},
        {u"%X", {255u}, u"FF"},
        {u"%X", {-1}, u"FFFFFFFF"},
        {u"%X", {0x1234567890ull}, u"34567890"}, // 32 bits
        {u"%p", {reinterpret_cast<const void *>(0x1234)}, u"0000000000001234"},
        {u"%p", {reinterpret_cast<const void *>(0xFEDCBA9876543210ull)}, u"FEDCBA9876543210"},
        {u"100%%", {}, u"100%"},
        {u"%u/%d", {7u, -5}, u"7/-5"},
        {u"a%lsb", {}, u"ab"},    // missing argument: nothing
        {u"a%Xb", {u"x"}, u"ab"}, // wrong kind: nothing, argument used up
        {u"%X%ls", {u"x", u"y"}, u"y"},
        {u"%ls|", {none}, u"|"}, // null text reads as empty
        {u"%.*ls|", {u"no number", u"abc"}, u"|"},
        {u"%q %", {}, u"%q %"}, // not a conversion: stands as written
        {u"\u00E9\u20AC", {}, u"\u00E9\u20AC"},
    };
    for (const format_row &r : rows) {
        SCOPED_TRACE(to_utf8(r.format));
        EXPECT_EQ(to_utf8(format_whole(r.format, r.args)), to_utf8(r.expected));
    }
}

TEST(FormatTest, TwoStepFormattingNeverCutsAtTheFastPathSize) {
    for (size_t length : {255u, 256u, 257u, 5000u}) {
        SCOPED_TRACE(length);
        std::u16string body(length - 1, u'x');
        char16_t *text = str_printf(u"%lsy", body.c_str());
        EXPECT_EQ(str_len(text), length);
        EXPECT_EQ(text[length - 1], u'y');
        free(text);
    }
}

// Reads back what file_printf wrote to a fresh file.
std::string print_to_file(uint32_t *result, const char *format, const std::vector<fmt_arg> &args) {
    scratch_dir scratch;
    os_handle handle = INVALID_FILE;
    EXPECT_EQ(create_file(scratch.path("out").c_str(), &handle), 0u);
    *result = file_printf_args(handle, format, args.data(), args.size());
    close_file(handle);
    return scratch.read("out");
}

// Each unit is one byte; a unit above 255 fails the whole text, also past the
// fast-path size.
TEST(FormatTest, FilePrintWritesEachUnitAsOneByte) {
    uint32_t result = 1;
    EXPECT_EQ(print_to_file(&result, "%ls=%X\r\n", {u"caf\u00E9", 26u}), "caf\xE9=1A\r\n");
    EXPECT_EQ(result, 0u);
    // The 8-bit format's own bytes pass through untouched.
    EXPECT_EQ(print_to_file(&result, "\xA4%ls", {u"a"}), "\xA4"
                                                         "a");
    // Both sides of the fast path: 255 units fit its buffer with the
    // terminator, 256 do not.
    for (size_t length : {255u, 256u, 257u}) {
        std::u16string long_text(length, u'\u00FF');
        EXPECT_EQ(print_to_file(&result, "%ls", {long_text.c_str()}), std::string(length, '\xFF'));
        EXPECT_EQ(result, 0u);
    }

    EXPECT_EQ(print_to_file(&result, "abc%ls", {u"x\u0100"}), "");
    EXPECT_NE(result, 0u);
    const std::u16string long_text = std::u16string(400, u'a') + u"\U0001D11E";
    result = 0;
    EXPECT_EQ(print_to_file(&result, "%ls", {long_text.c_str()}), "");
    EXPECT_NE(result, 0u);
}

} // namespace
