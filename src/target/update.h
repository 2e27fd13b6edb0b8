// Target update and its companions: predefined definitions, the update
// recursion, inference rules, automatic macros and the /P and /D reports.
#pragma once

#include <cstdint>

#include "target/graph.h"

// Update results.
constexpr uint32_t UPDATE_FAILED = 0;
constexpr uint32_t UPDATE_BUILT = 1;
constexpr uint32_t UPDATE_CURRENT = 0xFFFFFFFF;

void define_builtins();
void make_target(const char16_t *name);
uint32_t update_target(const char16_t *name, bool must_exist);
uint32_t apply_inference(target *t, const char16_t *name, bool must_exist, bool stale);
void set_automatic_macros(const char16_t *stem, const char16_t *source, const char16_t *name,
                          target *t);
bool is_phony(const char16_t *name);

void show_database();
void show_target(const target *t);
void show_time_compare(const char16_t *name1, uint64_t time1, const char16_t *name2,
                       uint64_t time2);
char16_t *format_time(uint64_t time);
