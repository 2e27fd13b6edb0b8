// Target update and its companions: predefined definitions, the update
// recursion, inference rules, automatic macros and the /P and /D reports.
#pragma once

#include <cstddef>
#include <cstdint>

#include "target/graph.h"

// Update results.
constexpr uint32_t UPDATE_FAILED = 0;
constexpr uint32_t UPDATE_BUILT = 1;
constexpr uint32_t UPDATE_CURRENT = 0xFFFFFFFF;

void define_builtins();
void make_target(const char16_t *name);
uint32_t update_target(const char16_t *name, bool must_exist);
// update_target for a name whose node has been found already (null: it has
// none), so that the look-ups are not made again; the name warnings still are.
uint32_t update_node(file_node *node, const char16_t *name, bool must_exist);
// Returns a new text, the source name that rule derives for stem and extension
// (extension with its dot), or null when the rule does not fit.
char16_t *match_inference_rule(target *rule, const char16_t *stem, const char16_t *extension);
uint32_t apply_inference(target *t, const char16_t *name, bool must_exist, bool stale);
// apply_inference for a name whose node is known (null: it has none).
uint32_t apply_inference_to(target *t, file_node *node, const char16_t *name, bool must_exist,
                            bool stale);
void set_automatic_macros(const char16_t *stem, const char16_t *source, const char16_t *name,
                          target *t);
bool is_phony(const char16_t *name);
// 0 for a phony name, else the file's time; looks at the disk each time.
uint64_t target_time(const char16_t *name);
// Shows "touch NAME." and sets the file's time to now_time; true on success.
bool touch_target(const char16_t *name);
// Cycle detection looks only at the names of the run in progress: a nested run
// opens a span of its own and closes it when it returns.
size_t begin_update_span();
void end_update_span(size_t saved);
// Forgets the names in progress, when a run ends inside its update.
void abandon_updates();

void show_database();
void show_target(const target *t);
void show_time_compare(const char16_t *name1, uint64_t time1, const char16_t *name2,
                       uint64_t time2);
char16_t *format_time(uint64_t time);
