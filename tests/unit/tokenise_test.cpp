// Words of description lines: next_word's delimiters, quotes, braces and drive
// prefixes.
#include <gtest/gtest.h>

#include <string>

#include "read/reader.h"
#include "unit/test_text.h"

namespace {

// Splits line completely with the given splitter and shows the words as
// "[w1][w2]", so an empty word shows as "[]" and the end of the words as the
// end of the text. Stops after 20 words, should the splitter never end.
template <class F> std::string split_with(F split, const std::string &line) {
    std::u16string text = widen(line);
    std::string out;
    const char16_t *word = split(text.data());
    for (int i = 0; word != nullptr && i < 20; i++) {
        out += "[" + to_utf8(word) + "]";
        word = split(nullptr);
    }
    return out;
}

std::string words_of(const std::string &line) {
    return split_with(next_word, line);
}

struct split_row {
    const char *line;
    const char *words;
};

TEST(NextWord, SplitsLinesIntoWords) {
    const split_row rows[] = {
        {"foo: bar", "[foo][:][bar]"},
        {"foo:: bar", "[foo][:][bar]"},
        {"a: b", "[a:][b]"},
        {"a:b", "[a:b]"},
        {"1: b", "[1][:][b]"},
        {"c:\\x.obj: c:\\x.c", "[c:\\x.obj][:][c:\\x.c]"},
        {"a:b:c", "[a:b][:][c]"},
        {"ab:::c", "[ab][:][:][c]"},
        {":x", "[:][x]"},
        {"x:", "[x:]"},
        {"x = 1", "[x][=][1]"},
        {"a;b,c#d\\e^f", "[a;b,c#d\\e^f]"},
        {"   \t ", ""},
        {"a\tb\r\nc", "[a][b][c]"},
        // Quotes delimit names and lose the blanks just inside them.
        {"ab\"c d\"e", "[ab][c d][e]"},
        {"\"  a b  \" c", "[a b][c]"},
        {"\"  abc  ", "[abc  ]"},
        {"x \"   ", "[x]"},
        {"\"   \" x", "[][x]"},
        {"'x \"y' z", "[x \"y][z]"},
        {"a'b'", "[a][b]"},
        {"\"a:b\": c", "[a:b][:][c]"},
        {"\"a\"\"b\"", "[a][b]"},
        // Braces protect every delimiter.
        {"{a b}.c{d:e}.obj: x", "[{a b}.c{d:e}.obj][:][x]"},
        {"{\"q\"}x y", "[{\"q\"}x][y]"},
        {"{a b", "[{a b]"},
    };
    for (const split_row &row : rows) {
        EXPECT_EQ(words_of(row.line), row.words) << "line: " << row.line;
    }
}

} // namespace
