// Command-line splitting and option parsing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

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

struct parsed {
    std::vector<std::string> macros, targets, makefiles, workspaces;
};

std::vector<std::string> list_words(ptr_list list) {
    std::vector<std::string> out;
    for (void **p = list; p && *p; ++p)
        out.push_back(to_utf8(static_cast<char16_t *>(*p)));
    free(list);
    return out;
}

// Parses a command line given as one text; the flags stay set afterwards, as
// they do in the process.
parsed parse(std::u16string line) {
    uint32_t n = 0;
    char16_t **vector = nullptr;
    split_command_line(line.data(), &n, &vector);
    ptr_list m = nullptr, t = nullptr, f = nullptr, w = nullptr;
    parse_options(static_cast<int32_t>(n), vector, &m, &t, &f, &w);
    parsed p{list_words(m), list_words(t), list_words(f), list_words(w)};
    free(vector);
    return p;
}

using words = std::vector<std::string>;

TEST(ParseOptions, SortsWordsIntoFourListsInOrder) {
    parsed p = parse(u"bb CFLAGS=/O2 /F a.mak aa =x /F b.mak ''");
    EXPECT_EQ(p.macros, (words{"CFLAGS=/O2", "=x"}));
    EXPECT_EQ(p.targets, (words{"bb", "aa", "''"}));
    EXPECT_EQ(p.makefiles, (words{"a.mak", "b.mak"}));
    EXPECT_TRUE(p.workspaces.empty());
    parsed w = parse(u"/W ws.txt /I /W two");
    EXPECT_EQ(w.workspaces, (words{"ws.txt", "two"}));
    opt_ignore = 0;
}

TEST(ParseOptionsDeath, MixingWorkspaceWithOtherWordsIsFatalAfterTheParse) {
    EXPECT_EXIT(parse(u"/W ws clean"), testing::ExitedWithCode(1),
                "^TOLMEK: fatal error: Can't mix option /W with /F, \r\n"
                "Invalid combination of options and arguments.\r\n$");
}

TEST(ParseOptions, ClustersSetFlagsInBothCases) {
    opt_ignore = opt_no_exec = opt_keep_going = 0;
    parse(u"/nI -k");
    EXPECT_EQ(opt_no_exec, 1);
    EXPECT_EQ(opt_ignore, 1);
    EXPECT_EQ(opt_keep_going, 1);
    opt_ignore = opt_no_exec = opt_keep_going = 0;
}

TEST(ParseOptions, NologoAndLoneSwitchCharactersDoNothing) {
    opt_no_exec = 0;
    parsed p = parse(u"-nologo /NOLOGO /NoLogo / -");
    EXPECT_EQ(opt_no_exec, 0);
    EXPECT_TRUE(p.targets.empty());
}

TEST(ParseOptions, FileNameAfterFMayLookLikeAnOption) {
    parsed p = parse(u"/NF -x /f /W");
    EXPECT_EQ(p.makefiles, (words{"-x", "/W"}));
    opt_no_exec = 0;
}

TEST(ParseOptionsDeath, BadLettersAreFatalAsTyped) {
    struct row {
        const char16_t *line;
        const char *letter;
    } rows[] = {
        {u"/F", "F"},       {u"/f", "f"},    {u"/FN x", "F"}, {u"--x", "-"}, {u"/usr/x", "u"},
        {u"/nologox", "o"}, {u"/X /?", "X"}, {u"-z", "z"},    {u"/NW", "W"}, {u"/Fx y", "F"},
    };
    for (const row &r : rows) {
        const std::string expected =
            std::string("^TOLMEK: fatal error: Unrecognized option '/") + r.letter + "'\\.\r\n$";
        EXPECT_EXIT(parse(r.line), testing::ExitedWithCode(1), expected) << to_utf8(r.line);
    }
}

TEST(ParseOptionsDeath, QuestionMarkPrintsUsageAndEndsWithOne) {
    EXPECT_EXIT({ parse(u"/N /?"); }, testing::ExitedWithCode(1), "");
}

} // namespace
