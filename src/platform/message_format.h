// Message texts on a platform without message tables: the insert rules of the
// message formatter, and the system's own error texts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/system.h"

// Applies the inserts of a message template and returns a new text.
// %1 to %99 take that insert: with no format a wide text, with a format between
// exclamation marks as that format says (!u! and !lu! an unsigned 32-bit number,
// !c! a character, and the other conversions of the counted formatter). An
// insert beyond count is printed as it stands in the template, so a text with
// inserts of its own reads nothing that the caller did not pass. %0 ends the
// text at once; %% gives %, %n CR LF, %r CR, %t a tab, %. %! and %blank the
// character alone.
char16_t *apply_inserts(const char16_t *tmpl, const fmt_arg *args, size_t count);

// The text of a system error code in language (1033 or 1053), ending in CR LF.
// Never null: a code without a text of its own gets a generic sentence with the
// number in it, held in a buffer that the next call overwrites.
const char16_t *system_error_text(uint32_t code, uint16_t language);
