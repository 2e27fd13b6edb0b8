// The graph store: growing lists, times read ahead, and the depth of a chain
// that the update walks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/system.h"

#include "run/make.h"
#include "run/report.h"
#include "target/graph.h"
#include "target/update.h"
#include "unit/scratch_dir.h"
#include "unit/test_text.h"

namespace {

class GraphTest : public testing::Test {
  protected:
    scratch_dir scratch; // outlives the read-ahead, which TearDown stops
    void TearDown() override {
        make_free();
        opt_ignore = opt_silent = 0;
    }
};

// Each pair of units, the terminator counting as the last, sets bit
// (c[i] + c[i+1]) mod 32, so the mask is blind to ASCII case.
TEST(HashName, PairsOfUnitsSetBits) {
    EXPECT_EQ(hash_name(u""), 0u);
    EXPECT_EQ(hash_name(nullptr), 0u);
    EXPECT_EQ(hash_name(u"A"), 1u << 1);
    EXPECT_EQ(hash_name(u"ab"), (1u << ((97 + 98) & 31)) | (1u << (98 & 31)));
    EXPECT_EQ(hash_name(u"aB"), hash_name(u"Ab"));
    EXPECT_EQ(hash_name(u"\u00E5"), 1u << (0xE5 & 31));
}

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

// A special name in any case sets its switch, to 1; a name repeated in one
// block gets the dependents twice and the commands once.
TEST_F(GraphTest, BlocksOfSpecialAndRepeatedNames) {
    target *ignore = add_target(u".ignore");
    target *silent = add_target(u".Silent");
    target *a = add_target(u"a");
    void *first[] = {ignore, nullptr}, *second[] = {silent, nullptr}, *twice[] = {a, a, nullptr};
    void *deps[] = {add_file(u"d"), nullptr}, *cmds[] = {add_command(u"run"), nullptr};
    attach_to_targets(first, deps, nullptr);
    attach_to_targets(second, nullptr, nullptr);
    EXPECT_EQ(opt_ignore, 1);
    EXPECT_EQ(opt_silent, 1);
    attach_to_targets(twice, deps, cmds);
    EXPECT_EQ(list_count(a->dependents), 2u);
    EXPECT_EQ(list_count(a->commands), 1u);
}

TEST_F(GraphTest, TimesReadAheadAreTheDisksOfTheirRound) {
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

// A chain of 30,000 names, each with the next as its dependent: the update
// recurses as deep as the chain, on the large stack of the fault scope.
void update_long_chain(void *result) {
    constexpr int length = 30000;
    for (int i = 0; i < length - 1; ++i) {
        void *targets[2] = {add_target(numbered(u"n", i).c_str()), nullptr};
        void *dependents[2] = {add_file(numbered(u"n", i + 1).c_str()), nullptr};
        attach_to_targets(targets, dependents, nullptr);
    }
    add_target(numbered(u"n", length - 1).c_str());
    *static_cast<uint32_t *>(result) = update_target(u"n0", true);
}

TEST_F(GraphTest, AChainOf30000NamesIsWalkedToItsEnd) {
    uint32_t result = 0;
    fault_record fault = {};
    ASSERT_TRUE(run_fault_scope(update_long_chain, &result, &fault)) << fault.code;
    EXPECT_EQ(result, 0xFFFFFFFFu);
}

} // namespace
