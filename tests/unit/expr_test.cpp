// Conditions of !IF: the values the evaluator computes, the texts that end in
// the fatal report, and the nesting limit.
#include <gtest/gtest.h>

#include <string>

#include "platform/system.h"
#include "read/expression.h"
#include "unit/test_text.h"

namespace {

const char *const FATAL_TEXT = "^TOLMEK: fatal error: Invalid expression for !IF\\.\\s*$";

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
        {u"\"abc\" == 'abc", true}, // a string runs to its quote or the end of the text
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
} // namespace
