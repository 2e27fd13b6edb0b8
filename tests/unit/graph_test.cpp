// The graph store: growing lists, name look-up and the meaning of blocks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run/make.h"
#include "run/report.h"
#include "target/graph.h"
#include "unit/test_text.h"

namespace {

class GraphTest : public testing::Test {
  protected:
    void TearDown() override {
        make_free();
        opt_ignore = opt_silent = 0;
    }
};

// Shows a target as "name: deps | commands".
std::string show(const target *t) {
    std::string out = to_utf8(t->file->name) + ":";
    for (void **d = t->dependents; d && *d; ++d)
        out += " " + to_utf8(static_cast<file_node *>(*d)->name);
    out += " |";
    for (void **c = t->commands; c && *c; ++c)
        out += " " + to_utf8(static_cast<command *>(*c)->text);
    return out;
}

// Builds a local null-terminated list of up to three entries.
struct local_list {
    void *entries[4] = {};
    local_list(void *a = nullptr, void *b = nullptr, void *c = nullptr) {
        entries[0] = a;
        entries[1] = a ? b : nullptr;
        entries[2] = b ? c : nullptr;
    }
    ptr_list get() { return entries; }
};

TEST(PtrList, AddKeepsOrderAndTerminator) {
    ptr_list list = nullptr;
    int values[100];
    for (int i = 0; i < 100; ++i) {
        list = list_add(list, &values[i]);
        ASSERT_EQ(list_count(list), static_cast<uint32_t>(i + 1));
        ASSERT_EQ(list[i + 1], nullptr);
        ASSERT_GE(block_size(list) / sizeof(void *), static_cast<size_t>(i + 2));
    }
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(list[i], &values[i]);
    free(list);
}

TEST(PtrList, MergeCopiesAndLeavesOtherAlone) {
    EXPECT_EQ(list_merge(nullptr, nullptr), nullptr);
    void *empty[1] = {nullptr};
    EXPECT_EQ(list_merge(nullptr, empty), nullptr);
    int a, b, c;
    void *other[3] = {&b, &c, nullptr};
    ptr_list list = list_add(nullptr, &a);
    list = list_merge(list, other);
    ASSERT_EQ(list_count(list), 3u);
    EXPECT_EQ(list[0], &a);
    EXPECT_EQ(list[1], &b);
    EXPECT_EQ(list[2], &c);
    EXPECT_EQ(other[0], &b);
    list = list_add(list, &a); // an exactly full block grows again
    EXPECT_EQ(list_count(list), 4u);
    free(list);
}

TEST(HashName, IsBlindToAsciiCaseOnly) {
    EXPECT_EQ(hash_name(u""), 0u);
    EXPECT_EQ(hash_name(nullptr), 0u);
    EXPECT_EQ(hash_name(u"A"), 1u << 1); // (65 + 0) & 31
    EXPECT_EQ(hash_name(u"Foo.OBJ"), hash_name(u"foo.obj"));
    EXPECT_NE(hash_name(u"ab"), hash_name(u"ac"));
}

TEST_F(GraphTest, NamesAreOneNodeWhateverTheirCase) {
    file_node *a = add_file(u"Foo.OBJ");
    EXPECT_EQ(add_file(u"foo.obj"), a);
    EXPECT_EQ(to_utf8(a->name), "Foo.OBJ");
    EXPECT_NE(add_file(u"\u00c5.obj"), add_file(u"\u00e5.obj")); // no fold above ASCII
    target *t = add_target(u"FOO.obj");
    EXPECT_EQ(t->file, a);
    EXPECT_EQ(t->hash, a->hash);
    EXPECT_EQ(find_target(u"foo.OBJ"), t);
    EXPECT_EQ(find_target(u"bar"), nullptr);
}

TEST_F(GraphTest, ListsRunNewestFirst) {
    add_target(u"one");
    add_target(u"two");
    add_target(u"one");
    EXPECT_EQ(to_utf8(target_list->file->name), "two");
    EXPECT_EQ(to_utf8(target_list->next->file->name), "one");
    EXPECT_EQ(target_list->next->next, nullptr);
}

TEST_F(GraphTest, RuleNamesAreDecidedOnce) {
    struct row {
        const char16_t *name;
        bool rule;
    } rows[] = {
        {u".c.obj", true},     {u".a-b.c", true},  {u"{src}.c.obj", true}, {u"{", true},
        {u".SUFFIXES", false}, {u".PHONY", false}, {u".\\foo.exe", false}, {u"..\\foo.exe", false},
        {u".", false},         {u".-a.b", false},  {u"a.c.obj", false},    {u".c", false},
    };
    for (const row &r : rows)
        EXPECT_EQ(add_target(r.name)->is_rule != 0, r.rule) << to_utf8(r.name);
}

TEST_F(GraphTest, DependentsAddUpAndTheLastCommandsWin) {
    target *a = add_target(u"a");
    file_node *b = add_file(u"b"), *c = add_file(u"c");
    command *one = add_command(u"one"), *two = add_command(u"two");
    local_list targets(a), deps_b(b), deps_c(c), cmds_one(one), cmds_two(two);
    attach_to_targets(targets.get(), deps_b.get(), cmds_one.get());
    attach_to_targets(targets.get(), deps_c.get(), cmds_two.get());
    EXPECT_EQ(show(a), "a: b c | two");
    attach_to_targets(targets.get(), deps_b.get(), nullptr);
    EXPECT_EQ(show(a), "a: b c b | two"); // no commands: the old ones stay
}

TEST_F(GraphTest, SharedCommandsSurviveAReplacement) {
    target *a = add_target(u"a"), *b = add_target(u"b");
    file_node *c = add_file(u"c");
    command *old_cmd = add_command(u"old"), *new_cmd = add_command(u"new");
    local_list both(a, b), only_a(a), deps(c), old_list(old_cmd), new_list(new_cmd);
    attach_to_targets(both.get(), deps.get(), old_list.get());
    attach_to_targets(only_a.get(), nullptr, new_list.get());
    EXPECT_EQ(show(a), "a: c | new");
    EXPECT_EQ(show(b), "b: c | old");
}

TEST_F(GraphTest, DotNamesWithoutDependentsAreEmptied) {
    target *s = add_target(u".SUFFIXES");
    file_node *x = add_file(u".x"), *y = add_file(u".y");
    local_list targets(s), first(x), second(y);
    attach_to_targets(targets.get(), first.get(), nullptr);
    EXPECT_EQ(suffix_target, s);
    attach_to_targets(targets.get(), second.get(), nullptr);
    EXPECT_EQ(show(s), ".SUFFIXES: .x .y |");
    attach_to_targets(targets.get(), nullptr, nullptr);
    EXPECT_EQ(show(s), ".SUFFIXES: |");
    attach_to_targets(targets.get(), second.get(), nullptr);
    EXPECT_EQ(show(s), ".SUFFIXES: .y |");
}

TEST_F(GraphTest, SpecialTargetsSetSwitchesInAnyCase) {
    target *ignore = add_target(u".ignore");
    target *silent = add_target(u".Silent");
    file_node *d = add_file(u"d");
    local_list a(ignore), b(silent), deps(d);
    attach_to_targets(a.get(), deps.get(), nullptr);
    EXPECT_EQ(opt_ignore, 1);
    EXPECT_EQ(show(ignore), ".ignore: d |");
    attach_to_targets(b.get(), nullptr, nullptr);
    EXPECT_EQ(opt_silent, 1);
}

TEST_F(GraphTest, RepeatedTargetInOneBlockGetsDependentsTwiceCommandsOnce) {
    target *a = add_target(u"a");
    file_node *b = add_file(u"b");
    command *cmd = add_command(u"run");
    local_list targets(a, a), deps(b), cmds(cmd);
    attach_to_targets(targets.get(), deps.get(), cmds.get());
    EXPECT_EQ(show(a), "a: b b | run");
}

TEST_F(GraphTest, ReleaseLeavesEmptyLists) {
    add_target(u"x");
    add_command(u"y");
    make_free();
    EXPECT_EQ(target_list, nullptr);
    EXPECT_EQ(file_list, nullptr);
    EXPECT_EQ(command_list, nullptr);
    make_free(); // a second call does nothing
}

} // namespace
