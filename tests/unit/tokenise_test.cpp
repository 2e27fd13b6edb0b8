// Words of description lines: next_word's delimiters, quotes, braces and drive
// prefixes, and next_name's wildcard expansion against a real directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "read/reader.h"
#include "unit/scratch_dir.h"
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
std::string names_of(const std::string &line) {
    return split_with(next_name, line);
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

// A delimiter kept aside from one text is not put back into the next, and
// the end keeps giving null.
TEST(NextWord, NewTextForgetsSavedDelimiter) {
    char16_t first[] = u"ab:c";
    EXPECT_EQ(to_utf8(next_word(first)), "ab");
    char16_t second[] = u"xy z";
    EXPECT_EQ(to_utf8(next_word(second)), "xy");
    EXPECT_EQ(to_utf8(next_word(nullptr)), "z");
    EXPECT_EQ(next_word(nullptr), nullptr);
    EXPECT_EQ(next_word(nullptr), nullptr);
    EXPECT_EQ(first[2], 0);
}

// next_name runs in a fresh directory that is the current directory only while
// the test runs.
class NextName : public ::testing::Test {
  protected:
    scratch_dir scratch;
    std::filesystem::path old_dir = std::filesystem::current_path();

    void SetUp() override {
        for (const char *name : {"src/b.c", "src/a.c", "src/c.h", "y.obj", "x.obj", "lib.lib"})
            scratch.write(name, "x");
        std::filesystem::current_path(scratch.dir);
    }

    void TearDown() override {
        // A search left open by a failed test must not outlive the directory.
        static char16_t nothing[1] = {0};
        next_name(nothing);
        std::filesystem::current_path(old_dir);
    }
};

TEST_F(NextName, ExpandsWildcardsInPlace) {
    const split_row rows[] = {
        {"*.obj", "[x.obj][y.obj]"},
        {"?.obj", "[x.obj][y.obj]"},
        {"first *.obj last", "[first][x.obj][y.obj][last]"},
        {"app.exe: *.obj *.lib", "[app.exe][:][x.obj][y.obj][lib.lib]"},
        {"src\\*.c", "[a.c][b.c]"},
        {"src/*.c", "[a.c][b.c]"},
        {"\"src\\*.c\" x", "[a.c][b.c][x]"},
        {"*.none x", "[*.none][x]"},
        {"nodir\\*.c", "[nodir\\*.c]"},
        {"plain.c: x.obj", "[plain.c][:][x.obj]"},
    };
    for (const split_row &row : rows) {
        EXPECT_EQ(names_of(row.line), row.words) << "line: " << row.line;
    }
}

TEST_F(NextName, NewTextClosesOpenSearch) {
    char16_t first[] = u"*.obj tail";
    EXPECT_EQ(to_utf8(next_name(first)), "x.obj");
    char16_t second[] = u"z";
    EXPECT_EQ(to_utf8(next_name(second)), "z");
    EXPECT_EQ(next_name(nullptr), nullptr);
}

} // namespace
