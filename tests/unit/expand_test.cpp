// Macro expansion at depth: long chains of references, and the cycles that
// have no finite expansion.
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

} // namespace
