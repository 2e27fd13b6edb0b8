// Macro expansion at depth: long chains of references, the cycles that have no
// finite expansion, and replace_text, which substitutions are made of.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "macro/macro.h"
#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

std::string expand(const char16_t *text, const char16_t *defining_name = nullptr,
                   bool in_command = false) {
    char16_t *result = expand_macros(text, defining_name, in_command, nullptr);
    std::string out = to_utf8(result);
    free(result);
    return out;
}

void define(const char16_t *name, const char16_t *value) {
    set_macro(name, value, 0);
}

std::string quote_regex(const std::string &text) {
    std::string quoted;
    for (char c : text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) quoted += '\\';
        quoted += c;
    }
    return quoted;
}

class ExpandTest : public testing::Test {
  protected:
    void TearDown() override { make_free(); }
};

// Macros each naming the next: the recursion is as deep as the chain, deeper
// than a default stack allows, so it runs on the fault scope's stack, as a run
// does. A value with a $ is rescanned at each level, substitutions included.
void expand_long_chain(void *results) {
    for (int i = 9999; i >= 0; --i) {
        const std::u16string value = i == 9999 ? u"$$end" : u"$(" + numbered(u"M", i + 1) + u")";
        define(numbered(u"M", i).c_str(), value.c_str());
    }
    static_cast<std::string *>(results)[0] = expand(u"$(M0)", nullptr, true);
    static_cast<std::string *>(results)[1] = expand(u"$(M9000:e=E)");
}

TEST_F(ExpandTest, ChainOfTenThousandMacrosExpands) {
    std::string results[2];
    fault_record fault = {};
    ASSERT_TRUE(run_fault_scope(expand_long_chain, results, &fault)) << fault.code;
    EXPECT_EQ(results[0], "$end");
    EXPECT_EQ(results[1], "$End");
}

// Cycles end the run naming the macros of the loop, from the first one met
// again; a macro met twice side by side is no cycle.
TEST_F(ExpandTest, CyclesNameTheirMacros) {
    for (const char16_t *line : {u"A = $(B)", u"B = $(A)", u"SELF = $$(SELF)", u"OUTER = x$(C)",
                                 u"C = $(D:a=b)", u"D = $(E)", u"E = $(c)"})
        ASSERT_EQ(parse_macro_line(line), 1);
    define(u"TWO", u"$(L)$(L)");
    define(u"L", u"$$");
    EXPECT_EQ(expand(u"$(TWO) $(TWO)"), "$$ $$");
    const struct {
        const char16_t *text;
        const char16_t *defining_name;
        const char *chain;
    } rows[] = {
        {u"$(A)", nullptr, "$(A) -> $(B) -> $(A)"},
        {u"$(B)", nullptr, "$(B) -> $(A) -> $(B)"},
        {u"$(SELF)", nullptr, "$(SELF) -> $(SELF)"},
        {u"$(SELF:x=y)", nullptr, "$(SELF) -> $(SELF)"},
        {u"$(OUTER)", nullptr, "$(C) -> $(D) -> $(E) -> $(C)"},
        {u"$(SELF) x", u"SELF", "$(SELF) -> $(SELF)"},
    };
    for (const auto &r : rows)
        EXPECT_EXIT(expand(r.text, r.defining_name), testing::ExitedWithCode(1),
                    "^TOLMEK: fatal error: Invalid macro: " + quote_regex(r.chain) + "\\.\\s*$")
            << to_utf8(r.text);
}

struct replace_row {
    const char16_t *text;
    const char16_t *search;
    const char16_t *replacement;
    const char16_t *expected;
};

TEST(ReplaceText, ReplacesLeftToRightWithoutRescanning) {
    const replace_row rows[] = {
        {u"abc", u"", u"x", u"abc"},
        {u"abc", u"b", u"b", u"abc"},
        {u"abab", u"ab", u"ab", u"abab"},
        {u"abc", u"b", u"", u"ac"},
        {u"abc", u"b", u"xyz", u"axyzc"},
        {u"ab", u"b", u"cd", u"acd"}, // fills the first block to the last unit
        {u"aaa", u"a", u"b", u"bbb"},
        {u"aaa", u"aa", u"b", u"ba"},
        {u"aaaa", u"aa", u"b", u"bb"},
        {u"aa", u"a", u"aa", u"aaaa"},
        {u"xyx", u"x", u"xyx", u"xyxyxyx"},
        {u"abc", u"c", u"xyz", u"abxyz"},
        {u"abc", u"bc", u"", u"a"},
        {u"abc", u"abc", u"", u""},
        {u"ab", u"abc", u"z", u"ab"},
        {u"xab", u"abc", u"z", u"xab"},
        {u"aab", u"ab", u"X", u"aX"},
        {u"abd abc", u"abc", u"X", u"abd X"},
        {u"Ab", u"a", u"x", u"Ab"},
        {u"ab", u"A", u"x", u"ab"},
        {u"a.b.c", u".", u"\\", u"a\\b\\c"},
        {u"", u"a", u"b", u""},
        {u"a", u"a", u"", u""},
        {u"$(x)", u"$", u"%", u"%(x)"},
    };
    for (const replace_row &r : rows) {
        char16_t *result = replace_text(r.text, r.search, r.replacement);
        EXPECT_NE(result, r.text);
        EXPECT_EQ(to_utf8(result), to_utf8(r.expected))
            << "text \"" << to_utf8(r.text) << "\" search \"" << to_utf8(r.search)
            << "\" replacement \"" << to_utf8(r.replacement) << "\"";
        free(result);
    }
    char16_t *from_null = replace_text(nullptr, u"a", u"b");
    EXPECT_EQ(to_utf8(from_null), "");
    free(from_null);
    const std::u16string many = repeat(u"ab", 5000);
    char16_t *grown = replace_text(many.c_str(), u"b", u"xyz");
    EXPECT_EQ(grown, repeat(u"axyz", 5000));
    free(grown);
}

} // namespace
