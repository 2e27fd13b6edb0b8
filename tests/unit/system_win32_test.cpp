// What the Win32 layer takes from the system itself: catalogue texts with
// their inserts through FormatMessageW, system texts with inserts of their own,
// and code pages.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "messages.h"
#include "platform/system.h"
#include "unit/test_text.h"

namespace {

std::string take_text(char16_t *text) {
    std::string out = text ? to_utf8(text) : "(null)";
    free(text);
    return out;
}

TEST(MessageTest, InsertsGoToTheFormatterAsWords) {
    const fmt_arg position[] = {fmt_arg(u"x.mak"), fmt_arg(4000000000u)};
    EXPECT_EQ(take_text(format_message(MSG_POSITION, position, 2, false)), "x.mak(4000000000): ");
    const fmt_arg letter(char16_t(u'\u00E5'));
    EXPECT_EQ(take_text(format_message(MSG_BAD_OPTION + 0x8000, &letter, 1, true)),
              "Unrecognized option '/\u00E5'.\r\n");
    // Only a diagnostic's text is looked for among the system's.
    EXPECT_EQ(take_text(format_message(2, nullptr, 0, false)), "(null)");
    EXPECT_NE(take_text(format_message(2, nullptr, 0, true)), "(null)");
    EXPECT_EQ(take_text(format_message(MSG_LAST + 1, nullptr, 0, true)), "(null)");
}

// The text of a program of the wrong format names the file through %1; with
// no insert passed, it is printed as it stands.
TEST(MessageTest, ASystemTextKeepsInsertsThatWereNotPassed) {
    const std::string text = take_text(format_message(193, nullptr, 0, true));
    EXPECT_NE(text.find("%1"), std::string::npos) << text;
}

TEST(CodecTest, CodePagesDecideTheUnits) {
    char16_t out[8];
    size_t produced = 0;
    EXPECT_EQ(decode_bytes(65001, "\xC3\xA5\xFF", 3, out, 8, &produced), 0u);
    EXPECT_EQ(to_utf8(out), "\u00E5\uFFFD");
    EXPECT_EQ(decode_bytes(1252, "\xE5\x80", 2, out, 8, &produced), 0u);
    EXPECT_EQ(to_utf8(out), "\u00E5\u20AC");
    EXPECT_EQ(decode_bytes(1252, "abc", 3, out, 3, &produced), ERR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(decode_bytes(1252, "", 0, out, 1, &produced), 0u);
    EXPECT_EQ(produced, 0u);
}

} // namespace
