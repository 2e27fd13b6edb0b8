// Macro expansion: the reference forms in use and definition mode, the file
// name forms of commands, inline file names, the texts of the fatal
// diagnostics, cycles, deep chains and long outputs; and replace_text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

// Releases a new text and hands back its contents.
std::u16string take(char16_t *text) {
    std::u16string out = text ? text : u"";
    free(text);
    return out;
}

std::u16string expand(const char16_t *text, const char16_t *defining_name = nullptr,
                      bool in_command = false) {
    return take(expand_macros(text, defining_name, in_command, nullptr));
}

void define(const char16_t *name, const char16_t *value) {
    set_macro(name, value, 0);
}

// The whole standard error of a run that ends in one fatal diagnostic.
std::string fatal_pattern(const std::string &text) {
    std::string quoted;
    for (char c : "TOLMEK: fatal error: " + text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) quoted += '\\';
        quoted += c;
    }
    return "^" + quoted + "\r\n$";
}

struct expand_row {
    const char16_t *text;
    const char16_t *defining_name;
    bool in_command;
    const char16_t *expected;
};

template <size_t N> void check_rows(const expand_row (&rows)[N]) {
    for (const expand_row &r : rows)
        EXPECT_EQ(to_utf8(expand(r.text, r.defining_name, r.in_command)), to_utf8(r.expected))
            << "text: \"" << to_utf8(r.text)
            << "\" defining: " << (r.defining_name ? to_utf8(r.defining_name) : "(null)")
            << " in_command: " << r.in_command;
}

class ExpandTest : public testing::Test {
  protected:
    void TearDown() override { make_free(); }
};

class ExpandForms : public ExpandTest {
  protected:
    void SetUp() override {
        define(u"A", u"va");
        define(u")", u"paren");
        define(u" ", u"blank");
        define(u"A B", u"ab");
        define(u"**", u"stars");
        define(u"*", u"star");
        define(u"DOLLAR", u"$$x"); // expands to "$x", which is not looked at again
        define(u"TWICE", u"$(A)-$A");
        define(u"PCT", u"50%");
        define(u"SUBJ", u"xyx");
        define(u"CLOSERS", u"x)y}z");
        define(u"DS", u"a$$b"); // expands to "a$b"
        define(u"@D", u"xay");
    }
};

TEST_F(ExpandForms, NullAndEmptyTextsGiveANewEmptyText) {
    char16_t *from_null = expand_macros(nullptr, nullptr, true, nullptr);
    ASSERT_NE(from_null, nullptr);
    EXPECT_EQ(from_null[0], 0);
    free(from_null);
    const char16_t empty[] = u"";
    char16_t *from_empty = expand_macros(empty, u"A", false, nullptr);
    ASSERT_NE(from_empty, nullptr);
    EXPECT_NE(from_empty, empty);
    EXPECT_EQ(from_empty[0], 0);
    free(from_empty);
}

TEST_F(ExpandForms, UseMode) {
    const expand_row rows[] = {
        {u"plain text", nullptr, false, u"plain text"},
        {u"$$", nullptr, false, u"$"},
        {u"$$(A)", nullptr, false, u"$(A)"},
        {u"$A", nullptr, false, u"va"},
        {u"$Ab", nullptr, false, u"vab"},
        {u"$(A)", nullptr, false, u"va"},
        {u"${A}", nullptr, false, u"va"},
        {u"$(a)", nullptr, false, u"va"},
        {u"$)", nullptr, false, u"paren"},
        {u"$))", nullptr, false, u"paren)"},
        {u"$ ", nullptr, false, u"blank"},
        {u"$( )", nullptr, false, u"blank"},
        {u"$(A B)", nullptr, false, u"ab"},
        {u"$(A C)", nullptr, false, u""},
        {u"$(NOPE)", nullptr, false, u""},
        {u"$()", nullptr, false, u""},
        {u"${A)}", nullptr, false, u""},
        {u"$(A})", nullptr, false, u""},
        {u"$**", nullptr, false, u"stars"},
        {u"$(**)", nullptr, false, u"stars"},
        {u"$***", nullptr, false, u"stars*"},
        {u"$*", nullptr, false, u"star"},
        {u"$*x", nullptr, false, u"starx"},
        {u"$DOLLAR", nullptr, false, u"OLLAR"},
        {u"$(DOLLAR)", nullptr, false, u"$x"},
        {u"$(TWICE)", nullptr, false, u"va-va"},
        {u"%s %|F %%", nullptr, false, u"%s %|F %%"},
        {u"$(PCT)", nullptr, true, u"50%"},
        {u"$(PCT) 10%%", nullptr, true, u"50% 10%"},
    };
    check_rows(rows);
}

TEST_F(ExpandForms, Substitutions) {
    const expand_row rows[] = {
        {u"$(SUBJ:x=y)", nullptr, false, u"yyy"},
        {u"${SUBJ:x=y}", nullptr, false, u"yyy"},
        {u"$(SUBJ:x=)", nullptr, false, u"y"},
        {u"$(SUBJ:)", nullptr, false, u"xyx"},
        {u"$(SUBJ:yx=)", nullptr, false, u"x"},
        {u"$(SUBJ:X=q)", nullptr, false, u"xyx"},
        {u"$(SUBJ:xyx=)", nullptr, false, u""},
        {u"$(SUBJ:xyxx=q)", nullptr, false, u"xyx"},
        {u"$(SUBJ::=q)", nullptr, false, u"xyx"},
        {u"$(SUBJ:y=$$)", nullptr, false, u"x$$x"},
        {u"${CLOSERS:)=_}", nullptr, false, u"x_y}z"},
        {u"$(CLOSERS:}=_)", nullptr, false, u"x)y_z"},
        {u"$(DS:$(A)=q)", nullptr, false, u"a$b=q)"},
        {u"$(TWICE:va-v=)", nullptr, false, u"a"},
        {u"$(@D:a=b)", nullptr, true, u"xby"},
        {u"$(@D:a=b)", nullptr, false, u"xby"},
    };
    check_rows(rows);
}

TEST_F(ExpandForms, DefinitionModeKeepsOtherReferencesInOneForm) {
    const expand_row rows[] = {
        {u"a $(B) $C ${D} $$ $(E:p=q) $(E:p)", u"X", false, u"a $(B) $(C) $(D) $ $(E:p=q) $(E:p=)"},
        {u"$A", u"X", false, u"$(A)"},
        {u"$(a)", u"X", false, u"$(a)"},
        {u"$**", u"X", false, u"$(**)"},
        {u"$*", u"X", false, u"$(*)"},
        {u"$***", u"X", false, u"$(**)*"},
        {u"${A:a=b}", u"X", false, u"$(A:a=b)"},
        {u"$(A:a)", u"X", false, u"$(A:a=)"},
        {u"$(A:x=y=z)", u"X", false, u"$(A:x=y=z)"},
        {u"${CLOSERS:)=_}", u"X", false, u"$(CLOSERS:)=_)"},
        {u"$()", u"X", false, u"$()"},
        {u"$ ", u"X", false, u"$( )"},
        {u"$)", u"X", false, u"$())"},
        {u"$$", u"X", false, u"$"},
        {u"$$(A)", u"X", false, u"$(A)"},
        {u"$(@d) $(@X) $(@DD) $(@D) $(<F)", u"X", false, u"$(@d) $(@X) $(@DD) $(@D) $(<F)"},
        {u"%x %| %", u"X", false, u"%x %| %"},
        // The macro being defined is resolved, its name compared ignoring case.
        {u"$(X)", u"X", false, u""},
        {u"[$x]", u"X", false, u"[]"},
        {u"$(A) $(a)", u"A", false, u"va va"},
        {u"$(SUBJ:x=y)", u"subj", false, u"yyy"},
    };
    check_rows(rows);
}

// A reference can't hold another: the first closer ends it, and a $ inside is
// a character of the name (which draws the name warning).
TEST_F(ExpandForms, ReferencesDoNotNest) {
    define(u"INNER", u"A");
    testing::internal::CaptureStderr();
    EXPECT_EQ(to_utf8(expand(u"$(x$(INNER))")), ")");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TOLMEK: warning: The name 'x$(INNER' contains one or more inappropriate "
              "characters.\r\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(to_utf8(expand(u"$(x$(INNER))", u"Y")), "$(x$(INNER))");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ExpandTest, NamesSearchAndReplacementKeepTheirFirst255Characters) {
    const std::u16string name = repeat(u"n", 255);
    define(name.c_str(), u"long");
    const std::u16string longer = u"$(" + name + repeat(u"z", 45) + u")";
    EXPECT_EQ(to_utf8(expand(longer.c_str())), "long");
    EXPECT_EQ(to_utf8(expand(longer.c_str(), u"Y")), to_utf8(u"$(" + name + u")"));
    const std::u16string short_name = u"$(" + repeat(u"n", 254) + u")";
    EXPECT_EQ(to_utf8(expand(short_name.c_str())), "");

    define(u"L", repeat(u"a", 256).c_str());
    const std::u16string search = u"$(L:" + repeat(u"a", 300) + u"=X)";
    EXPECT_EQ(to_utf8(expand(search.c_str())), "Xa");
    define(u"T", u"x");
    const std::u16string replacement = u"$(T:x=" + repeat(u"r", 300) + u")";
    EXPECT_EQ(to_utf8(expand(replacement.c_str())), to_utf8(repeat(u"r", 255)));
}

class ExpandCommand : public ExpandTest {
  protected:
    void SetUp() override {
        define(u"@", u"src\\a.obj");
        define(u"<", u"a.obj");
        define(u"*", u"C:a.obj");
        define(u"!", u"d/e/f.tar.gz");
        define(u"**", u"stars");
    }
};

TEST_F(ExpandCommand, ModifiersTakeParts) {
    const expand_row rows[] = {
        {u"$(@D)", nullptr, true, u"src\\"},     {u"$(<D)", nullptr, true, u"."},
        {u"$(*D)", nullptr, true, u"C:."},       {u"$(!D)", nullptr, true, u"d/e/"},
        {u"$(@B)", nullptr, true, u"a"},         {u"$(@F)", nullptr, true, u"a.obj"},
        {u"$(@R)", nullptr, true, u"src\\a"},    {u"$(*R)", nullptr, true, u"C:a"},
        {u"$(*F)", nullptr, true, u"a.obj"},     {u"$(!B)", nullptr, true, u"f.tar"},
        {u"$(!F)", nullptr, true, u"f.tar.gz"},  {u"$(!R)", nullptr, true, u"d/e/f.tar"},
        {u"${@D}", nullptr, true, u"src\\"},     {u"[$(@D)]", nullptr, true, u"[src\\]"},
        {u"$@D", nullptr, true, u"src\\a.objD"}, {u"$(@)", nullptr, true, u"src\\a.obj"},
        {u"$(**D)", nullptr, true, u""},         {u"$(**)", nullptr, true, u"stars"},
        {u"$(?D)", nullptr, true, u""},          {u"$(@*)", nullptr, true, u""},
    };
    check_rows(rows);
}

TEST_F(ExpandCommand, PercentFormsTakePartsOfTheTarget) {
    define(u"@", u"C:\\dir\\a.obj");
    const expand_row rows[] = {
        {u"%%", nullptr, true, u"%"},
        {u"%%s", nullptr, true, u"%s"},
        {u"%|F", nullptr, true, u"C:\\dir\\a.obj"},
        {u"%|dF", nullptr, true, u"C:"},
        {u"%|pF", nullptr, true, u"\\dir\\"},
        {u"%|dpfeF", nullptr, true, u"C:\\dir\\a.obj"},
        {u"%|FF", nullptr, true, u"C:\\dir\\a.objF"},
        {u"x%|fFy", nullptr, true, u"xay"},
        {u"%|fF.%|eF", nullptr, true, u"a..obj"},
    };
    check_rows(rows);
    // Parts the name lacks give nothing.
    define(u"@", u"a");
    EXPECT_EQ(to_utf8(expand(u"[%|dF%|pF%|eF]", nullptr, true)), "[]");
}

// The target's value is taken as it stands: no rescan, no pending pairs.
TEST_F(ExpandCommand, TargetFormsAreNotRescanned) {
    define(u"@", u"$(Q)\\a.obj");
    define(u"Q", u"q");
    const expand_row rows[] = {
        {u"%s", nullptr, true, u"$(Q)\\a.obj"},
        {u"%|pF", nullptr, true, u"$(Q)\\"},
        {u"$(@D)", nullptr, true, u"$(Q)\\"},
        {u"$(@F)", nullptr, true, u"a.obj"},
    };
    check_rows(rows);
    macro *target = find_macro(u"@", false);
    target->substitutions = list_add(target->substitutions, str_dup(u"a"));
    target->substitutions = list_add(target->substitutions, str_dup(u"b"));
    EXPECT_EQ(to_utf8(expand(u"$(@F)", nullptr, true)), "a.obj");
    EXPECT_EQ(to_utf8(expand(u"$(@)", nullptr, true)), "q\\b.obj");
}

TEST_F(ExpandTest, InlineSentinelsTakeTheNamesOfTheChainInOrder) {
    inline_file second = {};
    second.name = str_dup(u"two.tmp");
    inline_file first = {};
    first.name = str_dup(u"one.tmp");
    first.next_in_command = &second;
    const char16_t text[] = {
        u'a', u' ', INLINE_SENTINEL, u' ', u'b', u' ', INLINE_SENTINEL, u' ', INLINE_SENTINEL, 0};
    EXPECT_EQ(take(expand_macros(text, nullptr, true, &first)),
              (std::u16string{u"a one.tmp b two.tmp "} + INLINE_SENTINEL));
    EXPECT_EQ(first.next_in_command, &second);
    EXPECT_EQ(take(expand_macros(text, nullptr, true, nullptr)), std::u16string(text));
    EXPECT_EQ(take(expand_macros(text, nullptr, true, &second)),
              (std::u16string{u"a two.tmp b "} + INLINE_SENTINEL + u" " + INLINE_SENTINEL));
    const char16_t only[] = {INLINE_SENTINEL, 0};
    EXPECT_EQ(take(expand_macros(only, nullptr, false, &first)), u"one.tmp");
    free(first.name);
    free(second.name);
}

TEST_F(ExpandTest, OutputGrowsToAnyLength) {
    define(u"K", repeat(u"x", 1000).c_str());
    const std::u16string hundred = repeat(u"$(K)", 100);
    EXPECT_EQ(expand(hundred.c_str()), repeat(u"x", 100000));

    const std::u16string big = repeat(u"0123456789", 10000);
    define(u"BIG", big.c_str());
    EXPECT_EQ(expand(u"$(BIG)"), big);
    EXPECT_EQ(expand(u"<$(BIG)>$(BIG)", nullptr, true), u"<" + big + u">" + big);

    const std::u16string ones = repeat(u"$K", 1000);
    for (size_t length = 1; length < 40; ++length) {
        define(u"K", repeat(u"y", length).c_str());
        EXPECT_EQ(expand(ones.substr(0, 2 * length).c_str()), repeat(u"y", length * length))
            << "length " << length;
    }
}

TEST_F(ExpandTest, ValueWithADollarIsRescannedThousandLevelsDeep) {
    for (int i = 0; i < 1000; ++i)
        define(numbered(u"M", i).c_str(), (u"$(" + numbered(u"M", i + 1) + u")").c_str());
    define(u"M1000", u"$$end");
    EXPECT_EQ(to_utf8(expand(u"$(M0)", nullptr, true)), "$end");
    EXPECT_EQ(to_utf8(expand(u"$(M0:e=E)")), "$End");
}

// 10,000 macros each naming the next: the recursion is as deep as the chain,
// deeper than a default stack allows. The fault scope runs its body on a large
// stack, as the run does; the child keeps an overflow from ending the suite.
void expand_long_chain(void *) {
    for (int i = 9999; i >= 0; --i) {
        const std::u16string value = i == 9999 ? u"end" : u"$(" + numbered(u"M", i + 1) + u")";
        define(numbered(u"M", i).c_str(), value.c_str());
    }
    const std::u16string result = expand(u"$(M0)", nullptr, true);
    write_text(STREAM_ERR, result.c_str(), 0);
}

TEST(ExpandDeathTest, ChainOfTenThousandMacrosExpands) {
    EXPECT_EXIT(
        {
            fault_record fault = {};
            if (!run_fault_scope(expand_long_chain, nullptr, &fault)) {
                char16_t *text = str_printf(u"fault %X", fault.code);
                write_text(STREAM_ERR, text, 0);
                exit_process(3);
            }
            exit_process(0);
        },
        testing::ExitedWithCode(0), "^end$");
}

struct fatal_row {
    const char16_t *text;
    bool in_command;
    const char *message;
};

template <size_t N> void check_fatal_rows(const fatal_row (&rows)[N]) {
    for (const fatal_row &r : rows)
        EXPECT_EXIT(take(expand_macros(r.text, nullptr, r.in_command, nullptr)),
                    testing::ExitedWithCode(1), fatal_pattern(r.message))
            << "text: \"" << to_utf8(r.text) << "\" in_command: " << r.in_command;
}

TEST(ExpandDeathTest, UnfinishedFormsNameWhatWasRead) {
    const fatal_row rows[] = {
        {u"x $", true, "Invalid macro: $."},
        {u"$(A) $(B", false, "Invalid macro: $(B."},
        {u"${AB", false, "Invalid macro: ${AB."},
        {u"$(A:x", false, "Invalid macro: $(A:x."},
        {u"${A:x=y)", false, "Invalid macro: ${A:x=y)."},
        {u"$(A}", false, "Invalid macro: $(A}."},
    };
    check_fatal_rows(rows);
}

class ExpandFatalDeathTest : public ExpandTest {};

TEST_F(ExpandFatalDeathTest, FileNameFormsInCommands) {
    define(u"@", u"a.obj");
    define(u"PCT", u"$(NOPE) 50%");
    define(u"OPEN", u"$(NOPE");
    const fatal_row rows[] = {
        {u"%|dpfe", true, "Invalid macro: %|."},
        {u"50%", true, "Invalid filename part: ."},
        {u"echo %VAR%", true, "Invalid filename part: VAR%."},
        {u"%|pD", true, "Invalid filename part: D."},
        {u"$(PCT)", true, "Invalid filename part: ."},
        {u"$(OPEN)", false, "Invalid macro: $(NOPE."},
    };
    check_fatal_rows(rows);
}

TEST_F(ExpandFatalDeathTest, ModifiersOutsideTheirForms) {
    define(u"@", u"a.obj");
    const fatal_row rows[] = {
        {u"$(@d)", true, "Invalid meta symbol part: d."},
        {u"$(<Dx)", true, "Invalid meta symbol part: Dx."},
        {u"${!b}", true, "Invalid meta symbol part: b."},
        {u"$(* )", true, "Invalid meta symbol part:  ."},
        {u"$(*B)", false, "Invalid meta symbol part: B."},
    };
    check_fatal_rows(rows);
}

TEST(ExpandDeathTest, TargetFormsWithoutTheirMacroAreInternalErrors) {
    const fatal_row rows[] = {
        {u"%s", true, "Internal error (expand_macros())."},
        {u"%|fF", true, "Internal error (expand_macros())."},
        {u"$(<F)", true, "Internal error (expand_macros())."},
    };
    check_fatal_rows(rows);
}

// Cycles have no finite expansion; the run ends naming the macros of the loop,
// from the first one met again.
TEST_F(ExpandFatalDeathTest, CyclesNameTheirMacros) {
    ASSERT_EQ(parse_macro_line(u"A = $(B)"), 1);
    ASSERT_EQ(parse_macro_line(u"B = $(A)"), 1);
    ASSERT_EQ(parse_macro_line(u"SELF = $$(SELF)"), 1);
    ASSERT_EQ(to_utf8(find_macro(u"SELF", false)->value), "$(SELF)");
    ASSERT_EQ(parse_macro_line(u"OUTER = x$(C)"), 1);
    ASSERT_EQ(parse_macro_line(u"C = $(D:a=b)"), 1);
    ASSERT_EQ(parse_macro_line(u"D = $(E)"), 1);
    ASSERT_EQ(parse_macro_line(u"E = $(c)"), 1);
    const fatal_row rows[] = {
        {u"$(A)", true, "Invalid macro: $(A) -> $(B) -> $(A)."},
        {u"$(B)", false, "Invalid macro: $(B) -> $(A) -> $(B)."},
        {u"$(SELF)", true, "Invalid macro: $(SELF) -> $(SELF)."},
        {u"$(SELF:x=y)", false, "Invalid macro: $(SELF) -> $(SELF)."},
        {u"$(OUTER)", true, "Invalid macro: $(C) -> $(D) -> $(E) -> $(C)."},
    };
    check_fatal_rows(rows);
    EXPECT_EXIT(take(expand_macros(u"$(SELF) x", u"SELF", false, nullptr)),
                testing::ExitedWithCode(1), fatal_pattern("Invalid macro: $(SELF) -> $(SELF)."));
}

// A macro met twice side by side, or at two depths of one branch, is no cycle.
TEST_F(ExpandTest, RepeatedReferencesAreNoCycle) {
    define(u"LEAF", u"$$");
    define(u"MID", u"$(LEAF)$(LEAF)");
    define(u"TOP", u"$(MID)-$(MID)-$(LEAF)");
    EXPECT_EQ(to_utf8(expand(u"$(TOP) $(TOP)")), "$$-$$-$ $$-$$-$");
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
    EXPECT_EQ(take(replace_text(nullptr, u"a", u"b")), u"");
    const std::u16string many = repeat(u"ab", 5000);
    EXPECT_EQ(take(replace_text(many.c_str(), u"b", u"xyz")), repeat(u"axyz", 5000));
}

} // namespace
