// Paths: taking names apart and joining them, on wide text, without the disk
// (make_full_path may ask for the current directory). \ and / are both
// separators; a drive colon ends a directory part for base_name and dir_of_path.
#pragma once

#include <cstddef>

// Returns a position inside path, behind the last \, / or :. A null path gives
// an empty text that the caller does not own.
const char16_t *base_name(const char16_t *path);
// Length of name without its extension (the text from the last dot of the last
// path segment), in code units.
size_t stem_length(const char16_t *name);
// Returns a new text: the directory part of path, without its trailing
// separator unless it is a drive root. A name without directory gives "".
char16_t *dir_of_path(const char16_t *path);
// Returns a new text: name made absolute against base (or the current directory
// when base is null), with . and .. folded and separators from name written as
// \. An absolute name comes back unchanged. At most 4095 units.
char16_t *make_full_path(const char16_t *name, const char16_t *base);

constexpr size_t PATH_PART = 260; // buffer size for each part of split_path
// Splits path into drive (3 units), directory, base and extension (PATH_PART
// units each, cut to 259 without a message). Any output may be null.
void split_path(const char16_t *path, char16_t *drive, char16_t *directory, char16_t *base,
                char16_t *extension);
