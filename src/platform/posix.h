// Shared by the POSIX files of the platform layer only.
#pragma once

#include <cstddef>
#include <cstdint>

// Languages of the catalogue, and the one the user's locale chooses.
constexpr uint16_t LANG_ENGLISH = 1033;
constexpr uint16_t LANG_SWEDISH = 1053;
uint16_t user_language();

// Encodes wide text as UTF-8; returns a new byte text (null-terminated, caller
// frees) and its length in *length.
char *encode_text(const char16_t *text, size_t *length);

// The Windows error code for an errno value; 31 for one with no counterpart.
uint32_t map_errno(int error);

struct stat;

// A name on its way to the OS: UTF-8, with every \ turned into /. Caller frees.
char *encode_os_name(const char16_t *name);
// A new wide text of n bytes of UTF-8 from the OS.
char16_t *decode_os_text(const char *bytes, size_t n);
// The modification time of a stat record as a time stamp.
uint64_t get_stat_time(const struct stat *info);
// stat, or for a link that leads nowhere the link itself: 0 or the errno value.
int stat_entry(const char *name, struct stat *info);

// Wildcard search (search_posix.cpp).
bool has_wildcard(const char16_t *name);
// 0 when something matches pattern, else the error code of the search.
uint32_t search_error(const char16_t *pattern);
// The time of the first match of a wildcard name, or 0.
uint64_t get_first_match_time(const char16_t *pattern);
