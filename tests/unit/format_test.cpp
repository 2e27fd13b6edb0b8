// The counted formatter, two-step formatting, 8-bit file output and the insert
// rules of message templates.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "platform/message_format.h"
#include "platform/system.h"
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

TEST(FormatTest, CountedFormatterCutsButCountsEverything) {
    char16_t buffer[4] = {u'#', u'#', u'#', u'#'};
    const fmt_arg arg(u"cdef");
    EXPECT_EQ(format_counted(buffer, 4, u"ab%ls", &arg, 1), 6u);
    EXPECT_EQ(std::u16string(buffer), u"abc");
    EXPECT_EQ(format_counted(nullptr, 0, u"ab%ls", &arg, 1), 6u);
    char16_t one[1] = {u'#'};
    EXPECT_EQ(format_counted(one, 1, u"xyz", nullptr, 0), 3u);
    EXPECT_EQ(one[0], 0);
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

// Reads back what file_printf wrote to a fresh temporary file.
std::string print_to_file(uint32_t *result, const char *format, const std::vector<fmt_arg> &args) {
    char name[] = "/tmp/tolmek-format-XXXXXX";
    int fd = mkstemp(name);
    *result = file_printf_args(fd, format, args.data(), args.size());
    std::string bytes;
    lseek(fd, 0, SEEK_SET);
    char chunk[512];
    for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;)
        bytes.append(chunk, static_cast<size_t>(n));
    close(fd);
    unlink(name);
    return bytes;
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
    std::u16string long_text(300, u'\u00FF');
    EXPECT_EQ(print_to_file(&result, "%ls", {long_text.c_str()}), std::string(300, '\xFF'));
    EXPECT_EQ(result, 0u);

    EXPECT_EQ(print_to_file(&result, "abc%ls", {u"x\u0100"}), "");
    EXPECT_NE(result, 0u);
    long_text = std::u16string(400, u'a') + u"\U0001D11E";
    result = 0;
    EXPECT_EQ(print_to_file(&result, "%ls", {long_text.c_str()}), "");
    EXPECT_NE(result, 0u);
}

#ifndef _WIN32
TEST(FormatTest, InsertsFollowTheMessageTemplateRules) {
    const format_row rows[] = {
        {u"%1 and %2", {u"a", u"b"}, u"a and b"},
        {u"%2%1", {u"a", u"b"}, u"ba"},
        {u"(%2!u!)", {u"f", 42u}, u"(42)"},
        {u"%1!lu!", {4000000000u}, u"4000000000"},
        {u"'/%1!c!'", {char16_t(u'\u00E5')}, u"'/\u00E5'"},
        {u"%1!04X!|%1!s!", {255u}, u"00FF|"}, // wrong kind for !s!: nothing
        {u"%1!s!", {u"t"}, u"t"},
        {u"%1!-4s!|", {u"ab"}, u"ab  |"},
        {u"%1!*s!|", {3, u"a"}, u"  a|"}, // * takes the next insert
        {u"%10", {u"a"}, u"%10"},         // two digits: insert 10
        {u"%1", {}, u"%1"},               // inserts not passed are not read
        {u"%1!u! is %2", {}, u"%1!u! is %2"},
        {u"%3", {u"a", u"b"}, u"%3"},
        {u"%1!u", {u"t"}, u"t!u"}, // no closing mark: no format
        {u"a%0b\r\n", {}, u"a"},
        {u"line\r\n%0", {}, u"line\r\n"},
        {u"50%% %. %! % x", {}, u"50% . !  x"},
        {u"x%ny%rz%t", {}, u"x\r\ny\rz\t"},
        {u"%q%", {}, u"%q%"},
        {u"%1|", {static_cast<const char16_t *>(nullptr)}, u"|"},
    };
    for (const format_row &r : rows) {
        SCOPED_TRACE(to_utf8(r.format));
        char16_t *text = apply_inserts(r.format, r.args.data(), r.args.size());
        EXPECT_EQ(to_utf8(text), to_utf8(r.expected));
        free(text);
    }
}
#endif

} // namespace
