// Conditions of !IF: the token stream of the lexer, the values the evaluator
// computes, its primaries over macros, directories and commands, and the
// texts that end in the fatal report.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "macro/macro.h"
#include "platform/system.h"
#include "read/expression.h"
#include "test_text.h"

namespace {

const char *const FATAL_TEXT = "^TOLMEK: fatal error: Invalid expression for !IF\\.\r\n$";

std::u16string to_wide(const std::string &text) {
    std::u16string out;
    for (char c : text)
        out += static_cast<char16_t>(static_cast<unsigned char>(c));
    return out;
}

std::u16string repeat(const std::u16string &part, size_t count) {
    std::u16string out;
    for (size_t i = 0; i < count; i++)
        out += part;
    return out;
}

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
    const std::u16string wide_a255 = to_wide(a255);
    const token_row rows[] = {
        {u"", "[END]"},
        {u" \t ", "[END]"},
        {u"12 <= \"a b\"", "[NUM 12][LE][STR a b][END]"},
        // Strings: either quote, the other one ordinary, no escapes.
        {u"'a b'", "[STR a b][END]"},
        {u"\"it's\"", "[STR it's][END]"},
        {u"'say \"hi\"'", "[STR say \"hi\"][END]"},
        {u"\"a\\\"", "[STR a\\][END]"},
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
        {u"> >", "[GT][GT][END]"},
        {u"= =", "[INV][INV][END]"},
        {u"!=!", "[NE][NOT][END]"},
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
        {u"1.5", "[NUM 1][INV][NUM 5][END]"},
        {u"1-2", "[NUM 1][SUB][NUM 2][END]"},
        {repeat(u"1", 300),
         "[NUM " + std::string(255, '1') + "][NUM " + std::string(45, '1') + "][END]"},
        {u"0x" + repeat(u"f", 254), "[NUM 0x" + std::string(253, 'f') + "][INV][END]"},
        // Keywords: any case, and only in front of '(', a blank or a tab.
        {u"DEFINED(X)", "[DEFINED][LP][INV][RP][END]"},
        {u"Defined (X)", "[DEFINED][LP][INV][RP][END]"},
        {u"defined\t(X)", "[DEFINED][LP][INV][RP][END]"},
        {u"dEfInEd(", "[DEFINED][LP][END]"},
        {u"definedx", "[INV][INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"defined", "[INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"defined\n(", "[INV][INV][INV][INV][INV][INV][INV][INV][LP][END]"},
        {u"EXISTS(a)", "[EXIST][LP][INV][RP][END]"},
        {u"exist (a)", "[EXIST][LP][INV][RP][END]"},
        {u"ExIsT\t(", "[EXIST][LP][END]"},
        {u"existing", "[INV][INV][INV][INV][INV][INV][INV][INV][END]"},
        {u"exists", "[INV][INV][INV][INV][INV][INV][END]"},
        {u"existsx(", "[INV][INV][INV][INV][INV][INV][INV][LP][END]"},
        {u"1 defined(", "[NUM 1][DEFINED][LP][END]"},
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

TEST(ExprLexer, LeavesPosDirectlyBehindKeywordsAndOpeners) {
    const char16_t text[] = u"defined (X) exists\t[ a ]";
    expr_lexer lexer;
    init_lexer(&lexer, text);
    EXPECT_EQ(next_token(&lexer), TOK_DEFINED);
    EXPECT_EQ(lexer.pos, text + 7);
    EXPECT_EQ(next_token(&lexer), TOK_LPAREN);
    EXPECT_EQ(lexer.pos, text + 9);
    next_token(&lexer);
    next_token(&lexer);
    EXPECT_EQ(next_token(&lexer), TOK_EXIST);
    EXPECT_EQ(lexer.pos, text + 18);
    EXPECT_EQ(next_token(&lexer), TOK_LBRACKET);
    EXPECT_EQ(lexer.pos, text + 20);
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

TEST(ExprEval, ComputesThirtyTwoBitArithmetic) {
    const value_row rows[] = {
        {u"1", true},
        {u"0", false},
        {u"  42\t", true},
        {u"2 * 3 + 4 == 10", true},
        {u"2 + 3 * 4 == 14", true},
        {u"(2 + 3) * 4 == 20", true},
        {u"10 - 2 - 3 == 5", true},
        {u"100 / 10 / 5 == 2", true},
        {u"1-1", false},
        {u"--1 == 1", true},
        // Division truncates toward zero; the remainder takes the sign of a.
        {u"-7 / 2 == -3", true},
        {u"-7 / 2", true},
        {u"(-7 % 2) == -1", true},
        {u"7 % -2 == 1", true},
        {u"7 % -1", false},
        {u"7 / -1 == -7", true},
        // Wrapping, and the one quotient that does not fit.
        {u"0x7FFFFFFF + 1", true},
        {u"0x7FFFFFFF + 1 == -2147483647 - 1", true},
        {u"0x7FFFFFFF * 2 == -2", true},
        {u"65536 * 65536", false},
        {u"-2147483647 - 2 == 2147483647", true},
        {u"-(-2147483647 - 1) == -2147483647 - 1", true},
        {u"(-2147483647 - 1) / -1 == -2147483647 - 1", true},
        {u"(-2147483647 - 1) % -1 == 0", true},
        // Shifts count modulo 32; >> copies the sign.
        {u"1 << 32", true},
        {u"(1 << 32) == 1", true},
        {u"(1 << 33) == 2", true},
        {u"(1 << 31) == -2147483647 - 1", true},
        {u"(1 << -1) == -2147483647 - 1", true},
        {u"(-1 >> 31) == -1", true},
        {u"(-8 >> 1) == -4", true},
        {u"(-16 >> 33) == -8", true},
        {u"(0x7FFFFFFF >> 30) == 1", true},
        {u"(0x40000000 >> 32) == 0x40000000", true},
        // Number forms.
        {u"0x7FFFFFFF == 2147483647", true},
        {u"010 == 8", true},
        {u"017 == 15", true},
        {u"00", false},
        {u"0xff == 255", true},
        {u"0XFF == 0xFf", true},
        {u"000000000000000000000000000000000000001", true},
        // Bits and logic.
        {u"(6 & 3) == 2", true},
        {u"(6 | 3) == 7", true},
        {u"(6 ^ 3) == 5", true},
        {u"(2 && 3) == 1", true},
        {u"(0 || -5) == 1", true},
        {u"0 && 1", false},
        {u"0 || 0", false},
        // Unary operators stack and bind tighter than any binary one.
        {u"!!5", true},
        {u"!5", false},
        {u"!0", true},
        {u"-~0", true},
        {u"~0 == -1", true},
        {u"~-1", false},
        {u"!(1 == 2)", true},
        {u"((1))", true},
        {u"((0))", false},
        {u"-1 * -1 == 1", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

TEST(ExprEval, BindsByElevenLevels) {
    const value_row rows[] = {
        {u"1 || 0 && 0", true},
        {u"1 ^ 1 | 1", true},
        {u"(2 ^ 3 & 1) == 3", true},
        {u"2 & 2 == 2", false},
        {u"1 < 2 == 1", true},
        {u"(1 << 2 < 5) == 1", true},
        {u"1 + 2 << 1 == 6", true},
        {u"(7 - 2 * 3) == 1", true},
        // Comparisons chain from the left.
        {u"1 < 2 < 3", true},
        {u"3 > 2 > 1", false},
        {u"3 > 2 == 1", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

TEST(ExprEval, ComparesNumbersSignedAndTextsByUnits) {
    const value_row rows[] = {
        {u"-1 < 1", true},
        {u"-1 < 0x7FFFFFFF", true},
        {u"1 <= 1", true},
        {u"1 >= 2", false},
        {u"1 != 2", true},
        {u"2 > 1", true},
        {u"\"abc\" == \"abc\"", true},
        {u"\"abc\" == 'abc'", true},
        {u"\"abc\" == \"ABC\"", false},
        {u"\"abc\" != \"ABC\"", true},
        {u"\"a\" < \"b\"", true},
        {u"\"a\" < \"ab\"", true},
        {u"\"ab\" > \"a\"", true},
        {u"\"b\" > \"abc\"", true},
        {u"\"\" < \"a\"", true},
        {u"\"\" == ''", true},
        {u"\"a\" <= \"a\"", true},
        {u"\"a\" >= \"b\"", false},
        {u"\"Z\" < \"a\"", true},
        {u"\"\uFF21\" > \"z\"", true},
        {u"\"\u00E9\" > \"e\"", true},
        {u"(\"a\") == \"a\"", true},
        {u"\"a\" == \"a\" == 1", true},
        {u"\"x y\" == \"x y\" && \"1\" != \"01\"", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

TEST(ExprEval, AcceptsNestingUpToAThousandLevels) {
    EXPECT_NE(eval_condition((repeat(u"(", 1000) + u"1" + repeat(u")", 1000)).c_str()), 0);
    EXPECT_EQ(eval_condition((repeat(u"!", 1000) + u"0").c_str()), 0);
    EXPECT_NE(eval_condition((repeat(u"-(", 500) + u"1" + repeat(u")", 500)).c_str()), 0);
}

TEST(ExprEvalDeath, RejectsTextsThatAreNoExpression) {
    const char16_t *const conditions[] = {
        u"abc",
        u"\"abc\"",
        u"   ",
        u"1 = 1",
        u"\"a\" = \"a\"",
        u"+1",
        u"1 +",
        u"1 2",
        u"1 ! 2",
        u"7 / 0",
        u"7 % 0",
        u"0 && 7 / 0",
        u"(7 % 0) || 1",
        u"0x80000000",
        u"0xFFFFFFFF",
        u"2147483648",
        u"-2147483648",
        u"99999999999999999999",
        u"08",
        u"0x",
        u"0x1g",
        u"12ab",
        u"()",
        u"(1",
        u"1)",
        u"((1)",
        u"\"a\" + \"b\"",
        u"\"a\" && 1",
        u"-\"a\"",
        u"!\"a\"",
        u"~\"a\"",
        u"1 == \"1\"",
        u"\"1\" == 1",
        u"\"a\" < 1",
        u"1 < 2 < \"a\"",
        u"defined X",
        u"defined(X Y)",
        u"defined()",
        u"defined( )",
        u"defined(X",
        u"definedX",
        u"exist()",
        u"exist(\"\")",
        u"exist x",
        u"exist(\"a\" b)",
        u"1 @",
        u"1 @ + 2",
        u"@",
        u"1\n",
        u"1 \u00C5",
        u"[ ]",
        u"[]",
        u"[\t]",
    };
    for (const char16_t *condition : conditions)
        EXPECT_EXIT(eval_condition(condition), testing::ExitedWithCode(1), FATAL_TEXT)
            << "condition: " << to_utf8(condition);
}

TEST(ExprEvalDeath, StopsRunawayNestingWithoutCrashing) {
    const std::u16string parens = repeat(u"(", 100000);
    const std::u16string nots = repeat(u"!", 100000);
    EXPECT_EXIT(eval_condition(parens.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    EXPECT_EXIT(eval_condition(nots.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    const std::u16string closed = repeat(u"(", 1001) + u"1" + repeat(u")", 1001);
    EXPECT_EXIT(eval_condition(closed.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    const std::u16string negations = repeat(u"-", 1001) + u"1";
    EXPECT_EXIT(eval_condition(negations.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
}

// A command that cannot start warns before the condition fails.
TEST(ExprEvalDeath, CommandWithoutClosingBracketIsFatal) {
    EXPECT_EXIT(eval_condition(u"[x"), testing::ExitedWithCode(1),
                "TOLMEK: fatal error: Invalid expression for !IF\\.\r\n$");
}

class ExprMacros : public ::testing::Test {
  protected:
    void SetUp() override {
        set_macro(u"EXPR_TEST_MACRO", u"", 0);
        set_env(u"EXPR_TEST_ENV", u"1");
    }
    void TearDown() override {
        set_env(u"EXPR_TEST_ENV", nullptr);
        free_macros();
    }
};

TEST_F(ExprMacros, DefinedFindsTableAndEnvironment) {
    const value_row rows[] = {
        {u"defined(EXPR_TEST_MACRO)", true},
        {u"DEFINED(EXPR_TEST_MACRO)", true},
        {u"defined (expr_test_macro)", true},
        {u"defined\t(\t EXPR_TEST_MACRO  )", true},
        {u"defined(EXPR_TEST_NONE)", false},
        {u"defined(EXPR_TEST_ENV)", true},
        {u"!defined(EXPR_TEST_NONE) && defined(EXPR_TEST_MACRO)", true},
        {u"defined(EXPR_TEST_MACRO) + defined(EXPR_TEST_ENV) == 2", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

class ExprExist : public ::testing::Test {
  protected:
    std::filesystem::path dir;
    std::u16string base;

    void SetUp() override {
        std::random_device random;
        do {
            dir = std::filesystem::temp_directory_path() /
                  ("tolmek_expr_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(dir));
        std::filesystem::create_directory(dir / "sub dir");
        std::filesystem::create_directory(dir / "src");
        std::ofstream(dir / "plain") << "x";
        base = dir.u16string() + u"/";
    }

    void TearDown() override { std::filesystem::remove_all(dir); }

    bool eval(const std::u16string &before, const std::u16string &path,
              const std::u16string &after) {
        return eval_condition((before + base + path + after).c_str()) != 0;
    }
};

TEST_F(ExprExist, TestsForADirectory) {
    EXPECT_TRUE(eval(u"exist(", u"src", u")"));
    EXPECT_TRUE(eval(u"EXISTS (", u"src", u")"));
    EXPECT_TRUE(eval(u"exist( \t", u"src", u")"));
    EXPECT_FALSE(eval(u"exist(", u"plain", u")"));
    EXPECT_FALSE(eval(u"exist(", u"missing", u")"));
    EXPECT_TRUE(eval(u"!exist(", u"missing", u")"));
}

TEST_F(ExprExist, TakesBlanksIntoThePathQuotedOrNot) {
    EXPECT_TRUE(eval(u"exist(\"", u"sub dir", u"\")"));
    EXPECT_TRUE(eval(u"exist('", u"sub dir", u"' )"));
    EXPECT_TRUE(eval(u"exist(", u"sub dir", u")"));
    // Without quotes a trailing blank belongs to the name.
    EXPECT_FALSE(eval(u"exist(", u"src ", u")"));
    EXPECT_TRUE(eval(u"!exist(\"", u"missing", u"\") && 1"));
}

TEST_F(ExprExist, UnclosedQuotedPathIsFatal) {
    const std::u16string condition = u"exist(\"" + base + u"src";
    EXPECT_EXIT(eval_condition(condition.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
}

class ExprCommand : public ::testing::Test {
  protected:
    std::filesystem::path dir;

    void SetUp() override {
        std::random_device random;
        do {
            dir = std::filesystem::temp_directory_path() /
                  ("tolmek_expr_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(dir));
    }

    void TearDown() override { std::filesystem::remove_all(dir); }

    // A command that leaves a file behind, so that a test sees it ran.
    std::u16string mark_command(const char *name) { return u"echo x> " + (dir / name).u16string(); }
    bool ran(const char *name) { return std::filesystem::exists(dir / name); }
};

TEST_F(ExprCommand, ValueIsTheExitCode) {
    const value_row rows[] = {
        {u"[true] == 0", true},
        {u"[false]", true},
        {u"[false] == 1", true},
        {u"[exit 7] == 7", true},
        {u"[exit 0]", false},
        {u"[ \t exit 3 ]== 3", true},
        // Prefixes are stepped over; '+' sends the command to the processor.
        {u"[@-+ @exit 2] == 2", true},
        {u"[-true] == 0", true},
    };
    expect_values(rows, sizeof rows / sizeof rows[0]);
}

TEST_F(ExprCommand, RunsEveryCommandItMeets) {
    EXPECT_TRUE(eval_condition((u"1 || [" + mark_command("or") + u"]").c_str()));
    EXPECT_FALSE(eval_condition((u"0 && [" + mark_command("and") + u"]").c_str()));
    EXPECT_TRUE(ran("or"));
    EXPECT_TRUE(ran("and"));
}

TEST_F(ExprCommand, CommandWithoutClosingBracketRunsAndIsFatal) {
    const std::u16string condition = u"[" + mark_command("open");
    EXPECT_EXIT(eval_condition(condition.c_str()), testing::ExitedWithCode(1), FATAL_TEXT);
    EXPECT_TRUE(ran("open"));
}

TEST_F(ExprCommand, CommandThatCannotStartWarnsAndGives255) {
    EXPECT_EXIT(
        {
            const int value = eval_condition(u"[tolmek_expr_no_such_program] == 255");
            std::exit(value ? 3 : 4);
        },
        testing::ExitedWithCode(3), "^TOLMEK: warning: .+\r\n$");
}

} // namespace
