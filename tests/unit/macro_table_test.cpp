// The macro table: definition lines, many names found through the index, and
// the tie to the environment in both directions.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "macro/macro.h"
#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

std::string value_of(const char16_t *name) {
    const macro *m = find_macro(name, false);
    if (!m) return "(no macro)";
    return m->value ? "\"" + to_utf8(m->value) + "\"" : "(null)";
}

std::string env_of(const char16_t *name) {
    char16_t *value = get_env(name);
    std::string out = value ? "\"" + to_utf8(value) + "\"" : "(unset)";
    free(value);
    return out;
}

// Shows the table newest first as "name=value name=value".
std::string table() {
    std::string out;
    for (const macro *m = macro_list; m; m = m->next)
        out += (out.empty() ? "" : " ") + to_utf8(m->name) + "=" +
               (m->value ? to_utf8(m->value) : "(null)");
    return out;
}

struct saved_variable {
    std::u16string name;
    bool was_set;
    std::u16string value;
};

class MacroTable : public testing::Test {
  protected:
    uint8_t saved_opt_env = 0;
    std::vector<saved_variable> saved;

    void SetUp() override {
        saved_opt_env = opt_env;
        opt_env = 1;
    }
    void TearDown() override {
        make_free();
        opt_env = saved_opt_env;
        for (auto it = saved.rbegin(); it != saved.rend(); ++it)
            set_env(it->name.c_str(), it->was_set ? it->value.c_str() : nullptr);
    }
    // Remembers the variable as it is now, for TearDown, and sets it (null: unsets it).
    void set_variable(const char16_t *name, const char16_t *value) {
        char16_t *old = get_env(name);
        saved.push_back({name, old != nullptr, old ? old : u""});
        free(old);
        ASSERT_EQ(set_env(name, value), 0u);
    }
};

struct definition_row {
    const char16_t *lines[3]; // carried out in order; the last one's result is checked
    int result;
    const char16_t *name;
    const char *value; // value_of(name)
};

TEST_F(MacroTable, ParseMacroLine) {
    const definition_row rows[] = {
        {{u"A = 1 ", u"A +=  2  "}, 1, u"A", "\"12\""},
        {{u"a=1", u"A+=2", u"a+=3"}, 1, u"A", "\"123\""},
        {{u"A =", u"A += 2"}, 1, u"A", "\"2\""},
        {{u"A="}, 1, u"A", "\"\""},
        {{u"A=x", u"A="}, 1, u"A", "\"\""},
        {{u"A\t=\tx"}, 1, u"A", "\"x\""},
        {{u"A = $(B)x  "}, 1, u"A", "\"$(B)x\""},
        {{u"A = x \t\r\n"}, 1, u"A", "\"x\""},
        {{u"A = a  b"}, 1, u"A", "\"a  b\""},
        {{u"A = $(A) "}, 1, u"A", "\"\""},
        {{u"A = $(A)\t"}, 1, u"A", "\"\""},
        {{u"A = foo", u"A = $(A) x"}, 1, u"A", "\"foo x\""},
        {{u"A = x$$y"}, 1, u"A", "\"x$y\""},
        {{u"A = \"q\" # no comment"}, 1, u"A", "\"\"q\" # no comment\""},
        {{u"A = b=c"}, 1, u"A", "\"b=c\""},
        {{u"A:=b"}, 1, u"A:", "\"b\""},
        {{u"foo:bar=baz"}, 1, u"foo:bar", "\"baz\""},
        {{u"A.B-c/d=e"}, 1, u"A.B-c/d", "\"e\""},
        {{u"A+B = c"}, 0, u"A", "(no macro)"},
        {{u"A + = c"}, 0, u"A", "(no macro)"},
        {{u"A ++= c"}, 0, u"A", "(no macro)"},
        {{u"foo: bar=baz"}, 0, u"foo:", "(no macro)"},
        {{u" A = c"}, 0, u"A", "(no macro)"},
        {{u"=c"}, 0, u"", "(no macro)"},
        {{u"+=c"}, 0, u"", "(no macro)"},
        {{u"A "}, 0, u"A", "(no macro)"},
        {{u"A +"}, 0, u"A", "(no macro)"},
        {{u""}, 0, u"", "(no macro)"},
        {{u"A = 1", u"A B = 2"}, 0, u"A", "\"1\""},
    };
    for (const definition_row &r : rows) {
        int result = -1;
        for (const char16_t *line : r.lines)
            if (line) result = parse_macro_line(line);
        EXPECT_EQ(result, r.result) << "lines from " << to_utf8(r.lines[0]);
        EXPECT_EQ(value_of(r.name), r.value) << "lines from " << to_utf8(r.lines[0]);
        make_free();
    }
}

// Many names, and names taken out and put back, are all found again; a name
// taken out doesn't hide the names stored after it.
TEST_F(MacroTable, ManyNamesAndChurnStayFindable) {
    const int count = 3000;
    for (int i = 0; i < count; ++i)
        set_macro(numbered(u"N", i).c_str(), numbered(u"v", i).c_str(), 0);
    for (int i = 0; i < count; i += 3)
        undefine_macro(numbered(u"n", i).c_str());
    for (int i = 0; i < count; ++i) {
        const macro *m = find_macro(numbered(u"n", i).c_str(), false);
        if (i % 3 == 0) {
            EXPECT_EQ(m, nullptr) << i;
        } else {
            ASSERT_NE(m, nullptr) << i;
            EXPECT_EQ(to_utf8(m->value), to_utf8(numbered(u"v", i))) << i;
        }
    }
    for (int round = 0; round < 20; ++round)
        for (int i = 0; i < count; i += 3) {
            set_macro(numbered(u"N", i).c_str(), numbered(u"w", i).c_str(), 0);
            if (round % 2 == 0) undefine_macro(numbered(u"n", i).c_str());
        }
    int records = 0;
    for (const macro *m = macro_list; m; m = m->next)
        ++records;
    EXPECT_EQ(records, count);
    for (int i = 0; i < count; ++i) {
        const macro *m = find_macro(numbered(u"n", i).c_str(), false);
        ASSERT_NE(m, nullptr) << i;
        EXPECT_EQ(to_utf8(m->value), to_utf8(numbered(i % 3 ? u"v" : u"w", i))) << i;
    }
}

TEST_F(MacroTable, LookUpImportsFromTheEnvironment) {
    set_variable(u"TOLMEK_MT_IMPORT", nullptr);
    EXPECT_EQ(find_macro(u"tolmek_mt_import", false), nullptr);
    // An unknown name asks the environment again on every look-up.
    ASSERT_EQ(set_env(u"TOLMEK_MT_IMPORT", u"from env"), 0u);
    const macro *m = find_macro(u"tolmek_mt_import", false);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->flags, exported);
    EXPECT_EQ(table(), "tolmek_mt_import=from env");
    // Once imported, the record is the truth.
    ASSERT_EQ(set_env(u"TOLMEK_MT_IMPORT", u"changed"), 0u);
    EXPECT_EQ(find_macro(u"TOLMEK_MT_IMPORT", true), m);
    EXPECT_EQ(value_of(u"TOLMEK_MT_IMPORT"), "\"from env\"");
}

TEST_F(MacroTable, AlwaysExportedNamesExistWithoutTheEnvironment) {
    set_variable(u"LIB", nullptr);
    set_variable(u"INCLUDE", nullptr);
    const macro *lib = find_macro(u"lib", false);
    ASSERT_NE(lib, nullptr);
    EXPECT_EQ(lib->value, nullptr);
    EXPECT_EQ(lib->flags, exported);
    const macro *include = find_macro(u"INCLUDE", false);
    ASSERT_NE(include, nullptr);
    EXPECT_EQ(include->flags, exported);
    EXPECT_EQ(table(), "INCLUDE=(null) lib=(null)");
    const macro *path = find_macro(u"Path", false);
    ASSERT_NE(path, nullptr);
    EXPECT_TRUE(path->flags & exported);
    EXPECT_EQ(find_macro(u"LIBS", false), nullptr);

    ASSERT_EQ(parse_macro_line(u"LIB += x"), 1);
    EXPECT_EQ(value_of(u"LIB"), "\"x\"");
    EXPECT_EQ(env_of(u"LIB"), "\"x\"");
}

} // namespace
