// The graph store: growing lists, name look-up, the rule-name decision and the
// corners of blocks that the end-to-end cases do not reach.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "run/make.h"
#include "run/report.h"
#include "target/graph.h"
#include "target/update.h"
#include "unit/scratch_dir.h"
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
    // The list runs newest first and a second add adds nothing.
    add_target(u"two");
    add_target(u"foo.obj");
    EXPECT_EQ(to_utf8(target_list->file->name), "two");
    EXPECT_EQ(target_list->next, t);
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

// A special name in any case sets its switch; a name repeated in one block gets
// the dependents twice and the commands once.
TEST_F(GraphTest, BlocksOfSpecialAndRepeatedNames) {
    target *ignore = add_target(u".ignore");
    target *silent = add_target(u".Silent");
    target *a = add_target(u"a");
    file_node *d = add_file(u"d");
    command *cmd = add_command(u"run");
    local_list first(ignore), second(silent), twice(a, a), deps(d), cmds(cmd);
    attach_to_targets(first.get(), deps.get(), nullptr);
    attach_to_targets(second.get(), nullptr, nullptr);
    EXPECT_EQ(opt_ignore, 1);
    EXPECT_EQ(opt_silent, 1);
    EXPECT_EQ(show(ignore), ".ignore: d |");
    attach_to_targets(twice.get(), deps.get(), cmds.get());
    EXPECT_EQ(show(a), "a: d d | run");
}

// Enough names for the helper thread; every file has a time of its own, so a
// time given to the wrong name shows. A round starts once the update has read
// some times itself; whoever reads a name first, the update gets the disk's
// time. After a stop (the disk changed) nothing read before counts: the next
// round reads the disk anew.
TEST_F(GraphTest, TimesReadAheadAreTheDisksOfTheirRound) {
    scratch_dir scratch;
    const uint64_t second = 10'000'000;
    const uint64_t base = 133'000'000'000'000'000;
    std::vector<std::u16string> names;
    std::vector<file_node *> nodes;
    for (uint64_t i = 0; i < 1000; ++i) {
        names.push_back(scratch.path("f" + std::to_string(i)));
        if (i % 100 != 7) {
            ASSERT_EQ(set_file_time(names.back().c_str(), base + i * second), 0u);
        }
        nodes.push_back(add_file(names.back().c_str()));
    }
    for (size_t i = 0; i < 500; ++i)
        EXPECT_EQ(node_time(nodes[i], names[i].c_str()), i % 100 == 7 ? 0 : base + i * second) << i;
    EXPECT_EQ(node_time(nullptr, names[5].c_str()), base + 5 * second);
    EXPECT_EQ(node_time(nullptr, u"all"), 0u); // phony: the disk is not asked
    stop_read_ahead();
    for (size_t i = 0; i < names.size(); ++i) {
        ASSERT_EQ(set_file_time(names[i].c_str(), base - i * second), 0u);
    }
    for (size_t i = 500; i < names.size(); ++i)
        EXPECT_EQ(node_time(nodes[i], names[i].c_str()), base - i * second) << i;
}

} // namespace
