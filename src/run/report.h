// Diagnostics: report places a diagnostic and decides what follows it;
// show_message prints one catalogue message. Callers pass a message code and
// inserts, never a sentence. Also the allocation wrappers, whose only failure is
// a fatal report, and the console interrupt action.
//
// A message code: bits 31-30 severity (0 none, 2 warning, 3 error), bit 29 the
// catalogue (customer) bit, bit 15 the fatal flag, bits 14-0 the number. With the
// customer bit clear the number is a system error code.
#pragma once

#include <cstddef>
#include <cstdint>

#include "messages.h"
#include "platform/system.h"

constexpr uint32_t FATAL = 0x8000;        // added to an id: the process ends after the text
constexpr uint32_t WARNING = 0x80000000u; // added to an id: severity warning
constexpr uint32_t MESSAGE_ID_MASK = 0x20007FFF;

extern uint32_t error_count; // diagnostics of severity error so far

// Prints "TOLMEK: ", the position of the open makefile, the severity word(s)
// and the text. Does not return when the fatal flag is set and the id is not 0.
void report_args(uint32_t code, const fmt_arg *args, size_t count);
template <class... A> void report(uint32_t code, const A &...a) {
    const fmt_arg args[] = {fmt_arg(0), fmt_arg(a)...};
    report_args(code, args + 1, sizeof...(a));
}
// Prints catalogue message id (no flags) with its inserts on stream.
void show_message_args(os_handle stream, uint32_t id, const fmt_arg *args, size_t count);
template <class... A> void show_message(os_handle stream, uint32_t id, const A &...a) {
    const fmt_arg args[] = {fmt_arg(0), fmt_arg(a)...};
    show_message_args(stream, id, args + 1, sizeof...(a));
}

// Allocation never fails for a caller: on exhaustion the run ends with the
// system's text for code 14. Blocks are released with free(), which takes null.
void *xmalloc(size_t size);
void *xcalloc(size_t size);
void *xrealloc(void *block, size_t size);
// The size the allocator holds for block, which can exceed what was asked; 0 for null.
size_t block_size(const void *block);
// Typed conveniences over the wrappers above.
template <class T> T *xalloc_array(size_t count) {
    return static_cast<T *>(xmalloc(count * sizeof(T)));
}
template <class T> T *xcalloc_record() {
    return static_cast<T *>(xcalloc(sizeof(T)));
}

// Every deep recursion calls this at each level: a fatal diagnostic when the
// stack is nearly used up, instead of a fault once it is.
void check_stack();

// Action of the console interrupt: sets aborted and prints the abort line once.
void on_console_break(int signal);
