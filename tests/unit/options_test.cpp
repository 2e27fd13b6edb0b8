// Splitting MAKEFLAGS and command texts into words, and the two diagnostics of
// the option parse. What each option does is checked end to end.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run/make.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

// Splits text and shows the words as "[a][b c]".
std::string split(const std::u16string &text, uint32_t *count = nullptr, size_t *slots = nullptr) {
    std::u16string copy = text;
    uint32_t n = 0;
    char16_t **vector = nullptr;
    split_command_line(copy.data(), &n, &vector);
    std::string shown;
    for (uint32_t i = 0; i < n; ++i)
        shown += "[" + to_utf8(vector[i]) + "]";
    EXPECT_EQ(vector[n], nullptr);
    if (count) *count = n;
    if (slots) *slots = block_size(vector) / sizeof(char16_t *);
    free(vector);
    return shown;
}

TEST(SplitCommandLine, Words) {
    struct row {
        const char16_t *text;
        const char *words;
    } rows[] = {
        {u"a b", "[a][b]"},
        {u"\"a b\" c", "[a b][c]"},
        {u"\"a b\"c", "[a b][c]"},
        {u"ab\"c d\"e f", "[abc d][e][f]"},
        {u"ab\"\"cd", "[ab][cd]"},
        {u"ab\"cd", "[abcd]"},
        {u"\"abc", "[abc]"},
        {u"\"\" x", "[x]"},
        {u"X=\" b c\" d", "[X= b c][d]"},
        {u"a\\\"b c\"", "[a\\b c]"},
        {u"", ""},
        {u" \t  ", ""},
        {u"\ta\t\tb ", "[a][b]"},
        {u"a\nb", "[a\nb]"}, // only space and tab are blanks
        {u"\"\"", ""},
    };
    for (const row &r : rows)
        EXPECT_EQ(split(r.text), r.words) << to_utf8(r.text);
}

TEST(SplitCommandLine, VectorGrowsByEightKeepingRoomForTheTerminator) {
    uint32_t count = 0;
    size_t slots = 0;
    split(u"1 2 3 4 5 6 7", &count, &slots);
    EXPECT_EQ(count, 7u);
    EXPECT_GE(slots, 8u);
    split(u"1 2 3 4 5 6 7 8", &count, &slots);
    EXPECT_EQ(count, 8u);
    EXPECT_GE(slots, 16u);
    split(u"1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20", &count, &slots);
    EXPECT_EQ(count, 20u);
}

// Parses a command line given as one text.
void parse(std::u16string line) {
    uint32_t n = 0;
    char16_t **vector = nullptr;
    split_command_line(line.data(), &n, &vector);
    ptr_list m = nullptr, t = nullptr, f = nullptr, w = nullptr;
    parse_options(static_cast<int32_t>(n), vector, &m, &t, &f, &w);
}

TEST(ParseOptionsDeath, BadLetterAndMixedWorkspaceAreFatal) {
    // F must end its cluster: the letter is reported as typed.
    EXPECT_EXIT(parse(u"/Fn x"), testing::ExitedWithCode(1),
                "^TOLMEK: fatal error: Unrecognized option '/F'\\.\r\n$");
    // A macro word alone is enough to collide with /W.
    EXPECT_EXIT(parse(u"/W ws A=1"), testing::ExitedWithCode(1),
                "^TOLMEK: fatal error: Can't mix option /W with /F, \r\n"
                "Invalid combination of options and arguments.\r\n$");
}

} // namespace
