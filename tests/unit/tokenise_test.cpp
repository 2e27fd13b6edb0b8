// Words of description lines: next_word's delimiters, quotes, braces and drive
// prefixes, and next_name's wildcard expansion against a real directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "read/reader.h"

namespace {

std::string to_narrow(const char16_t *text) {
    std::string out;
    for (; *text != 0; text++)
        out += static_cast<char>(*text);
    return out;
}

std::u16string to_wide(const std::string &text) {
    std::u16string out;
    for (char c : text)
        out += static_cast<char16_t>(static_cast<unsigned char>(c));
    return out;
}

// Splits line completely with the given splitter and shows the words as
// "[w1][w2]", so an empty word shows as "[]" and the end of the words as the
// end of the text. Stops after 20 words, should the splitter never end.
template <class F> std::string split_with(F split, const std::string &line) {
    std::u16string text = to_wide(line);
    std::string out;
    const char16_t *word = split(text.data());
    for (int i = 0; word != nullptr && i < 20; i++) {
        out += "[" + to_narrow(word) + "]";
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
        {"foo:bar", "[foo][:][bar]"},
        {"a : b", "[a][:][b]"},
        {"a: b", "[a:][b]"},
        {"a:b", "[a:b]"},
        {"ab: c", "[ab][:][c]"},
        {"1: b", "[1][:][b]"},
        {"c:\\x.obj: c:\\x.c", "[c:\\x.obj][:][c:\\x.c]"},
        {"a:b:c", "[a:b][:][c]"},
        {"ab:::c", "[ab][:][:][c]"},
        {":x", "[:][x]"},
        {"xy:", "[xy][:]"},
        {"x:", "[x:]"},
        {"x=1", "[x=1]"},
        {"x = 1", "[x][=][1]"},
        {"a;b,c#d\\e^f", "[a;b,c#d\\e^f]"},
        {"", ""},
        {"   \t ", ""},
        {"  lead  trail  ", "[lead][trail]"},
        {"a\nb", "[a][b]"},
        {"a\tb\r\nc", "[a][b][c]"},
    };
    for (const split_row &row : rows) {
        EXPECT_EQ(words_of(row.line), row.words) << "line: " << row.line;
    }
}

TEST(NextWord, QuotesDelimitNames) {
    const split_row rows[] = {
        {"ab\"c d\"e", "[ab][c d][e]"},
        {"\"  a b  \" c", "[a b][c]"},
        {"\"abc", "[abc]"},
        {"\"  abc  ", "[abc  ]"},
        {"x \"   ", "[x]"},
        {"\"\" x", "[][x]"},
        {"\"   \" x", "[][x]"},
        {"\"\"", "[]"},
        {"'x \"y' z", "[x \"y][z]"},
        {"\"it's\"", "[it's]"},
        {"a'b'", "[a][b]"},
        {"\"a:b\": c", "[a:b][:][c]"},
        {"\"a\"\"b\"", "[a][b]"},
        {"name = \"C:\\Program Files\\x.mak\"", "[name][=][C:\\Program Files\\x.mak]"},
    };
    for (const split_row &row : rows) {
        EXPECT_EQ(words_of(row.line), row.words) << "line: " << row.line;
    }
}

TEST(NextWord, BracesProtectDelimiters) {
    const split_row rows[] = {
        {"{a b}.c{d:e}.obj: x", "[{a b}.c{d:e}.obj][:][x]"},
        {"{a b}.c.obj:", "[{a b}.c.obj][:]"},
        {"{\"q\"}x y", "[{\"q\"}x][y]"},
        {"{a b", "[{a b]"},
        {"{}: x", "[{}][:][x]"},
    };
    for (const split_row &row : rows) {
        EXPECT_EQ(words_of(row.line), row.words) << "line: " << row.line;
    }
}

TEST(NextWord, WordsPointIntoTheText) {
    char16_t text[] = u"foo bar:baz";
    EXPECT_EQ(next_word(text), text);
    EXPECT_EQ(next_word(nullptr), text + 4);
    EXPECT_EQ(text[3], 0);
    // The colon is overwritten while "bar" is out and put back for the next call.
    EXPECT_EQ(text[7], 0);
    EXPECT_EQ(to_narrow(next_word(nullptr)), ":");
    EXPECT_EQ(text[7], u':');
    EXPECT_EQ(next_word(nullptr), text + 8);
}

TEST(NextWord, EndKeepsReturningNull) {
    char16_t text[] = u"a";
    ASSERT_NE(next_word(text), nullptr);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(next_word(nullptr), nullptr) << "call " << i;
}

TEST(NextWord, NewTextForgetsSavedDelimiter) {
    char16_t first[] = u"ab:c";
    EXPECT_EQ(to_narrow(next_word(first)), "ab");
    char16_t second[] = u"xy z";
    EXPECT_EQ(to_narrow(next_word(second)), "xy");
    EXPECT_EQ(to_narrow(next_word(nullptr)), "z");
    EXPECT_EQ(next_word(nullptr), nullptr);
    // The colon kept from the first text was not put back anywhere.
    EXPECT_EQ(first[2], 0);
}

// next_name runs in a fresh directory that is the current directory only while
// the test runs.
class NextName : public ::testing::Test {
  protected:
    std::filesystem::path old_dir;
    std::filesystem::path dir;

    void SetUp() override {
        std::random_device random;
        do {
            dir = std::filesystem::temp_directory_path() /
                  ("tolmek_names_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(dir));
        for (const char *name : {"src/b.c", "src/a.c", "src/c.h", "y.obj", "x.obj", "lib.lib"}) {
            std::filesystem::create_directories((dir / name).parent_path());
            std::ofstream(dir / name) << "x";
        }
        old_dir = std::filesystem::current_path();
        std::filesystem::current_path(dir);
    }

    void TearDown() override {
        // A search left open by a failed test must not outlive the directory.
        static char16_t nothing[1] = {0};
        next_name(nothing);
        std::filesystem::current_path(old_dir);
        std::filesystem::remove_all(dir);
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
    EXPECT_EQ(to_narrow(next_name(first)), "x.obj");
    char16_t second[] = u"z";
    EXPECT_EQ(to_narrow(next_name(second)), "z");
    EXPECT_EQ(next_name(nullptr), nullptr);
}

} // namespace
