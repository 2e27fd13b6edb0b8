// Child processes on a host whose programs take an argument vector: the one
// command line that the direct road hands over is cut into that vector here,
// by the rules a Windows program's start-up applies to its own command line.
#pragma once

#include <cstddef>

// Splits line into argument words. The first word runs to the next double
// quote when it starts with one, else to the next blank or tab, and takes
// nothing else specially. In the other words blanks and tabs separate outside
// quotes; 2n backslashes before a double quote give n backslashes and the quote
// toggles quoting; 2n+1 give n backslashes and a literal quote; two double
// quotes inside quotes give one literal quote and end the quoted stretch; any
// other backslash is literal. "" makes an empty word.
// Returns a new null-terminated vector of new texts, *count the number of
// words; the caller frees each word and the vector.
char16_t **split_program_arguments(const char16_t *line, size_t *count);
