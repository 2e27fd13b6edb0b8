// Diagnostics, the allocation wrappers and the console interrupt action.
#include "run/report.h"

#include <cstdlib>

#include "platform/paths.h"
#include "read/reader.h"
#include "run/make.h"

uint32_t error_count = 0;

namespace {

constexpr const char16_t *PROGRAM_WORD = u"TOLMEK";

// Formats message id with its inserts and writes it; a missing text writes
// nothing. The result of the write is not looked at: there is no second way of
// reporting. Only the text of a diagnostic may come from the system's table.
void write_message(os_handle stream, uint32_t id, const fmt_arg *args, size_t count,
                   bool from_system) {
    char16_t *text = format_message(id, args, count, from_system);
    if (text) {
        write_text(stream, text, 0);
        free(text);
    }
}

// Out of memory ends the run with the system's text for code 14. Should the
// text itself find no memory, the process ends with status 1 and no text,
// rather than recursing.
[[noreturn]] void fail_allocation() {
    static bool failing = false;
    if (!failing) {
        failing = true;
        report(ERR_OUT_OF_MEMORY + FATAL);
    }
    exit_process(1);
}

} // namespace

void show_message_args(os_handle stream, uint32_t id, const fmt_arg *args, size_t count) {
    write_message(stream, id, args, count, false);
}

void report_args(uint32_t code, const fmt_arg *args, size_t count) {
    const uint32_t id = code & MESSAGE_ID_MASK;
    if (id == 0) return; // callers may add a severity to a status that is 0
    show_message(STREAM_ERR, MSG_PROGRAM, PROGRAM_WORD);
    if (current_frame)
        show_message(STREAM_ERR, MSG_POSITION, base_name(current_frame->file_name),
                     current_frame->line_number);
    const bool fatal = (code & FATAL) != 0;
    const uint32_t severity = code >> 30;
    if (fatal) show_message(STREAM_ERR, MSG_FATAL_WORD);
    if (severity == 3) show_message(STREAM_ERR, MSG_ERROR_WORD);
    if (severity == 2) show_message(STREAM_ERR, MSG_WARNING_WORD);
    write_message(STREAM_ERR, id, args, count, true);
    if (fatal) make_exit(1);
    if (severity == 3) ++error_count;
}

void *xmalloc(size_t size) {
    void *block = malloc(size ? size : 1);
    if (!block) fail_allocation();
    return block;
}

void *xcalloc(size_t size) {
    void *block = calloc(1, size ? size : 1);
    if (!block) fail_allocation();
    return block;
}

void *xrealloc(void *block, size_t size) {
    void *moved = realloc(block, size ? size : 1);
    if (!moved) fail_allocation();
    return moved;
}

size_t block_size(const void *block) {
    return block ? allocator_block_size(block) : 0;
}

void check_stack() {
    if (is_stack_nearly_used())
        report(MSG_USER_ERROR + FATAL, u"Nesting too deep: the stack is nearly used up");
}

// Runs in signal context: it may only set the flag and write the text that
// make_init prepared.
void on_console_break(int) {
    if (aborted) return;
    aborted = 1;
    write_break_text();
}
