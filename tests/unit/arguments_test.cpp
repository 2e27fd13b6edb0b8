// The start-up rules of a program's own command line, by which the Windows
// start-up reads its arguments and the POSIX direct road hands a child its
// vector.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/process.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

// Shows the words as "[a][b c]".
std::string split(const char16_t *line) {
    size_t count = 99;
    char16_t **words = split_program_arguments(line, &count);
    std::string shown;
    for (size_t i = 0; i < count; ++i) {
        shown += "[" + to_utf8(words[i]) + "]";
        free(words[i]);
    }
    EXPECT_EQ(words[count], nullptr) << to_utf8(line);
    free(words);
    return shown;
}

TEST(SplitProgramArguments, StartUpRules) {
    struct row {
        const char16_t *line;
        const char *words;
    } rows[] = {
        {u"", ""},
        {u" \t ", ""},
        {u"prog a b", "[prog][a][b]"},
        {u"  prog\ta\t\tb ", "[prog][a][b]"},
        // The program word: quotes only at its start, backslashes always literal.
        {u"\"C:\\Program Files\\x.exe\" a", "[C:\\Program Files\\x.exe][a]"},
        {u"\"prog\"x y", "[prog][x][y]"},
        {u"pro\"g x\" y", "[pro\"g][x y]"},
        {u"\"prog", "[prog]"},
        {u"\"\" a", "[][a]"},
        {u"p\\\"q a", "[p\\\"q][a]"},
        // Quotes group and are taken off.
        {u"p \"a b\" c", "[p][a b][c]"},
        {u"p a\"b c\"d e", "[p][ab cd][e]"},
        {u"p \"a\tb\"", "[p][a\tb]"},
        {u"p \"unterminated x", "[p][unterminated x]"},
        {u"p a\"", "[p][a]"},
        {u"p \"\" x", "[p][][x]"},
        {u"p a \"\"", "[p][a][]"},
        // Backslashes count only in front of a quote.
        {u"p a\\b\\\\c\\", "[p][a\\b\\\\c\\]"},
        {u"p a\\\"b", "[p][a\"b]"},
        {u"p a\\\\\"b c\"", "[p][a\\b c]"},
        {u"p a\\\\\\\"b c", "[p][a\\\"b][c]"},
        {u"p a\\\\\\\\\"b c\"", "[p][a\\\\b c]"},
        {u"p \\\"", "[p][\"]"},
        {u"p \"a\\\" b\"", "[p][a\" b]"},
        // Two quotes inside quotes: one literal quote, and the stretch ends.
        {u"p \"a\"\"b c\" d", "[p][a\"b][c d]"},
        {u"p \"a\"\"b\" c", "[p][a\"b c]"},
        {u"p \"\"\"\"", "[p][\"]"},
        // Outside quotes a pair opens and closes an empty stretch.
        {u"p a\"\"b c", "[p][ab][c]"},
    };
    for (const row &r : rows)
        EXPECT_EQ(split(r.line), r.words) << "line: " << to_utf8(r.line);
}

TEST(SplitProgramArguments, ManyWordsGrowTheVector) {
    std::u16string line = u"p";
    std::string expected = "[p]";
    for (int i = 0; i < 40; ++i) {
        line += u" w" + std::u16string(1, static_cast<char16_t>(u'A' + i % 26));
        expected += std::string("[w") + static_cast<char>('A' + i % 26) + "]";
    }
    EXPECT_EQ(split(line.c_str()), expected);
}

} // namespace
