// Conditions of !IF: the token stream of the lexer, the values the evaluator
// computes, its primaries over directories and commands, the nesting limit and
// the texts that end in the fatal report.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/system.h"
#include "read/expression.h"
#include "unit/scratch_dir.h"
#include "unit/test_text.h"

namespace {

const char *const FATAL_TEXT = "^TOLMEK: fatal error: Invalid expression for !IF\\.\r\n$";

const char *token_name(uint32_t token) {
    static const char *const names[] = {
        "INV", "NUM",  "STR", "NOT", "COMPL", "MUL", "DIV", "MOD",     "ADD",    "SUB",
        "SHL", "SHR",  "LT",  "LE",  "GT",    "GE",  "EQ",  "NE",      "ANDAND", "AND",
        "XOR", "OROR", "OR",  "LP",  "RP",    "LB",  "RB",  "DEFINED", "EXIST",  "END",
    };
    return token < sizeof names / sizeof names[0] ? names[token] : "?";
}

// Scans text to its end and shows the tokens as "[NUM 12][LE][STR a b][END]".
// Stops after 600 tokens, should the lexer never reach the end.
std::string tokens_of(const std::u16string &text) {
    expr_lexer lexer;
    init_lexer(&lexer, text.c_str());
    std::string out;
    for (int i = 0; i < 600; i++) {
        const uint32_t token = next_token(&lexer);
        out += "[";
        out += token_name(token);
        if (token == TOK_NUMBER || token == TOK_STRING) out += " " + to_utf8(lexer.token_text);
        out += "]";
        if (token == TOK_END) break;
    }
    return out;
}

struct token_row {
    std::u16string text;
    std::string tokens;
};

TEST(ExprLexer, SplitsConditionsIntoTokens) {
    const std::string a255(255, 'a');
    const std::u16string wide_a255 = widen(a255);
    const token_row rows[] = {
        {u"", "[END]"},
        {u" \t ", "[END]"},
        {u"12 <= \"a b\"", "[NUM 12][LE][STR a b][END]"},
        // Strings: either quote, the other one ordinary, no escapes.
        {u"'a b'", "[STR a b][END]"},
        {u"\"it's\"", "[STR it's][END]"},
        {u"'say \"hi\"'", "[STR say \"hi\"][END]"},
        {u"\"a", "[STR a][END]"},
        {u"\"\"", "[STR ][END]"},
        {u"'", "[STR ][END]"},
        {u"\"\u00C5 \t\n\"", "[STR \u00C5 \t\n][END]"},
        {u"\"" + wide_a255 + u"\"1", "[STR " + a255 + "][NUM 1][END]"},
        // One unit too many: the cut string goes on as expression text, and
        // its closing quote opens an empty string.
        {u"\"" + wide_a255 + u"a\"", "[STR " + a255 + "][INV][STR ][END]"},
        {u"'" + wide_a255 + u"1'", "[STR " + a255 + "][NUM 1][STR ][END]"},
        // Operators: the longest form wins, a lone '=' is invalid.
        {u"<=<", "[LE][LT][END]"},
        {u"!==", "[NE][INV][END]"},
        {u"&&&", "[ANDAND][AND][END]"},
        {u"|||", "[OROR][OR][END]"},
        {u"<<<", "[SHL][LT][END]"},
        {u">>=", "[SHR][INV][END]"},
        {u"= =", "[INV][INV][END]"},
        {u"! =", "[NOT][INV][END]"},
        {u"~*/%+-()[]^", "[COMPL][MUL][DIV][MOD][ADD][SUB][LP][RP][LB][RB][XOR][END]"},
        {u">=>==<", "[GE][GE][INV][LT][END]"},
        // Numbers: digits only, checked later; a letter behind is a token of its own.
        {u"0x1F 0XaB 017 08 0", "[NUM 0x1F][NUM 0XaB][NUM 017][NUM 08][NUM 0][END]"},
        {u"0x", "[NUM 0x][END]"},
        {u"0xg", "[NUM 0x][INV][END]"},
        {u"12ab", "[NUM 12][INV][INV][END]"},
        {u"0x1f0x2", "[NUM 0x1f0][INV][NUM 2][END]"},
        {u"00x1", "[NUM 00][INV][NUM 1][END]"},
        {repeat(u"1", 300),
         "[NUM " + std::string(255, '1') + "][NUM " + std::string(45, '1') + "][END]"},
        {u"0x" + repeat(u"f", 254), "[NUM 0x" + std::string(253, 'f') + "][INV][END]"},
        // Keywords: any case, and only in front of '(', a blank or a tab.
        {u"DEFINED(X)", "[DEFINED][LP][INV][RP][END]"},
        {u"dEfInEd(", "[DEFINED][LP][END]"},
        {u"definedx", "[INV][INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"defined", "[INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"defined\n(", "[INV][INV][INV][INV][INV][INV][INV][INV][LP][END]"},
        {u"EXISTS(a)", "[EXIST][LP][INV][RP][END]"},
        {u"ExIsT\t(", "[EXIST][LP][END]"},
        {u"existing", "[INV][INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"existsx(", "[INV][INV][INV][INV][INV][INV][INV][LP][END]"},
        // Everything else starts nothing: control characters, non-ASCII, bare words.
        {u"1\n2", "[NUM 1][INV][NUM 2][END]"},
        {u"\r\v\f\x7F", "[INV][INV][INV][INV][END]"},
        {u"\u00C5\u00E4 \u3042", "[INV][INV][INV][END]"},
        {u"#$,.:;?@\\_`{}",
         "[INV][INV][INV][INV][INV][INV][INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"abc", "[INV][INV][INV][END]"},
    };
    for (const token_row &row : rows)
        EXPECT_EQ(tokens_of(row.text), row.tokens) << "text: " << to_utf8(row.text);
}

TEST(ExprLexer, HoldsEveryPeekedTokenInvalidOnesIncluded) {
    const char16_t text[] = u"@ 1";
    expr_lexer lexer;
    init_lexer(&lexer, text);
    EXPECT_EQ(peek_token(&lexer), TOK_INVALID);
    EXPECT_TRUE(lexer.held);
    EXPECT_EQ(peek_token(&lexer), TOK_INVALID);
    EXPECT_EQ(lexer.pos, text + 1);
    EXPECT_EQ(next_token(&lexer), TOK_INVALID);
    EXPECT_FALSE(lexer.held);
    EXPECT_EQ(peek_token(&lexer), TOK_NUMBER);
    EXPECT_EQ(next_token(&lexer), TOK_NUMBER);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(next_token(&lexer), TOK_END);
        EXPECT_EQ(lexer.pos, text + 3);
    }
    EXPECT_EQ(peek_token(&lexer), TOK_END);
    EXPECT_TRUE(lexer.held);
}

struct value_row {
    const char16_t *condition;
    bool expected;
};

void expect_values(const value_row *rows, size_t count) {
    for (size_t i = 0; i < count; i++)
        EXPECT_EQ(eval_condition(rows[i].condition) != 0, rows[i].expected)
            << "condition: " << to_utf8(rows[i].condition);
}

// Precedence, division and the number forms are checked end to end; these rows
// hold the wrapping, the shifts, the unary operators and the comparisons.
TEST(ExprEval, ComputesThirtyTwoBitValues) {
    const value_row rows[] = {
        {u"  42\t", true},
        {u"10 - 2 - 3 == 5", true},
        {u"100 / 10 / 5 == 2", true},
        {u"--1 == 1", true},
        {u"-7 / 2", true},
        {u"7 / -1 == -7", true},
        // Wrapping.
        {u"0x7FFFFFFF + 1 == -2147483647 - 1", true},
        {u"0x7FFFFFFF * 2 == -2", true},
        {u"65536 * 65536", false},
        {u"-2147483647 - 2 == 2147483647", true},
        {u"-(-2147483647 - 1) == -2147483647 - 1", true},
        // Shifts count modulo 32; >> copies the sign.
        {u"(1 << 32) == 1", true},
        {u"(1 << 33) == 2", true},
        {u"(1 << -1) == -2147483647 - 1", true},
        {u"(-1 >> 31) == -1", true},
        {u"(-8 >> 1) == -4", true},
        {u"(-16 >> 33) == -8", true},
        {u"(0x7FFFFFFF >> 30) == 1", true},
        {u"(0x40000000 >> 32) == 0x40000000", true},
        {u"000000000000000000000000000000000000001", true},
        // Bits, logic and unary operators.
        {u"(6 ^ 3) == 5", true},
        {u"(2 && 3) == 1", true},
        {u"(0 || -5) == 1", true},
        {u"!!5", true},
        {u"!5", false},
        {u"-~0", true},
        {u"~-1", false},
        {u"((0))", false},
        {u"-1 * -1 == 1", true},
        // Comparisons chain from the left; numbers compare signed.
        {u"1 < 2 < 3", true},
        {u"3 > 2 > 1", false},
        {u"-1 < 0x7FFFFFFF", true},
        {u"1 <= 1", true},
        {u"1 >= 2", false},
        // Texts compare by units, case counting.
        {u"\"abc\" == 'abc'", true},
        {u"\"abc\" == \"ABC\"", false},
        {u"\"a\" < \"ab\"", true},
        {u"\"b\" > \"abc\"", true},
        {u"\"\" == ''", true},
        {u"\"a\" <= \"a\"", true},
        {u"\"a\" >= \"b\"", false},
        {u"\"Z\" < \"a\"", true},
        {u"\"\uFF21\" > \"z\"", true},
        {u"(\"a\") == \"a\"", true},
        {u"\"a\" == \"a\" == 1", true},
        {u"\"x y\" == \"x y\" && \"1\" != \"01\"", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

TEST(ExprEvalDeath, RejectsTextsThatAreNoExpression) {
    const char16_t *const conditions[] = {
        u"   ",
        u"\"a\" = \"a\"",
        u"+1",
        u"1 +",
        u"1 2",
        u"1 ! 2",
        u"0 && 7 / 0",
        u"(7 % 0) || 1",
        u"0xFFFFFFFF",
        u"2147483648",
        u"99999999999999999999",
        u"08",
        u"0x",
        u"12ab",
        u"()",
        u"1)",
        u"((1)",
        u"\"a\" && 1",
        u"!\"a\"",
        u"1 == \"1\"",
        u"\"a\" < 1",
        u"1 < 2 < \"a\"",
        u"defined(X Y)",
        u"defined()",
        u"defined(X",
        u"exist(\"\")",
        u"exist x",
        u"exist(\"a\" b)",
        u"1 @",
        u"1 @ + 2",
        u"1 \u00C5",
        u"[ ]",
    };
    for (const char16_t *condition : conditions)
        EXPECT_EXIT(eval_condition(condition), testing::ExitedWithCode(1), FATAL_TEXT)
            << "condition: " << to_utf8(condition);
}

// Each '(' and each unary operator is a level; 1000 levels are accepted, and
// any deeper text is fatal before it can run out of stack.
TEST(ExprEvalDeath, NestingStopsAtAThousandLevels) {
    EXPECT_NE(eval_condition((repeat(u"(", 1000) + u"1" + repeat(u")", 1000)).c_str()), 0);
    EXPECT_EQ(eval_condition((repeat(u"!", 1000) + u"0").c_str()), 0);
    EXPECT_NE(eval_condition((repeat(u"-(", 500) + u"1" + repeat(u")", 500)).c_str()), 0);
    const std::u16string parens = repeat(u"(", 100000);
    const std::u16string nots = repeat(u"!", 100000);
    EXPECT_EXIT(eval_condition(parens.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    EXPECT_EXIT(eval_condition(nots.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    const std::u16string closed = repeat(u"(", 1001) + u"1" + repeat(u")", 1001);
    EXPECT_EXIT(eval_condition(closed.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    const std::u16string negations = repeat(u"-", 1001) + u"1";
    EXPECT_EXIT(eval_condition(negations.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
}

// Conditions over a private folder: directories for exist, files left behind
// by bracketed commands.
class ExprFiles : public ::testing::Test {
  protected:
    scratch_dir scratch;
    std::u16string base = scratch.path("");

    void SetUp() override {
        std::filesystem::create_directory(scratch.dir / "sub dir");
        std::filesystem::create_directory(scratch.dir / "src");
        scratch.write("plain", "x");
    }
};

TEST_F(ExprFiles, ExistTestsForADirectoryWithBlanksQuotedOrNot) {
    struct row {
        const char16_t *before, *path, *after;
        bool expected;
    } rows[] = {
        {u"exist(", u"src", u")", true},
        {u"EXISTS (", u"src", u")", true},
        {u"exist( \t", u"src", u")", true},
        {u"exist(", u"plain", u")", false},
        {u"!exist(", u"missing", u")", true},
        {u"exist(\"", u"sub dir", u"\")", true},
        {u"exist('", u"sub dir", u"' )", true},
        {u"exist(", u"sub dir", u")", true},
        {u"exist(", u"src ", u")", false}, // without quotes a trailing blank is part of the name
        {u"!exist(\"", u"missing", u"\") && 1", true},
    };
    for (const row &r : rows) {
        const std::u16string condition = r.before + base + r.path + r.after;
        EXPECT_EQ(eval_condition(condition.c_str()) != 0, r.expected) << to_utf8(condition);
    }
    const std::u16string unclosed = u"exist(\"" + base + u"src";
    EXPECT_EXIT(eval_condition(unclosed.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
}

TEST_F(ExprFiles, CommandValueIsTheExitCodeAndEveryCommandRuns) {
    const value_row rows[] = {
        {u"[true] == 0", true},
        {u"[false] == 1", true},
        {u"[exit 0]", false},
        {u"[ \t exit 3 ]== 3", true},
        // Prefixes are stepped over; '+' sends the command to the processor.
        {u"[@-+ @exit 2] == 2", true},
        {u"[-true] == 0", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
    // No short circuit: both commands leave their file.
    const std::u16string mark = u"echo x> " + base;
    EXPECT_TRUE(eval_condition((u"1 || [" + mark + u"or]").c_str()));
    EXPECT_FALSE(eval_condition((u"0 && [" + mark + u"and]").c_str()));
    EXPECT_TRUE(std::filesystem::exists(scratch.dir / "or"));
    EXPECT_TRUE(std::filesystem::exists(scratch.dir / "and"));
}

} // namespace
