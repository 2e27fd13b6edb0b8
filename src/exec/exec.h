// Command execution: command blocks, the choice of how a command is carried
// out, and inline files.
#pragma once

#include <cstdint>

#include "target/graph.h"

constexpr char16_t INLINE_SENTINEL = 0xDFFF; // stands in a stored command for each <<

constexpr uint8_t INLINE_UNICODE = 1;
constexpr uint8_t INLINE_KEEP = 2;
constexpr uint8_t INLINE_WRITTEN = 4; // the file exists on disk and name is final

struct inline_file {
    inline_file *next;            // next in inline_list, newest first
    inline_file *next_in_command; // next of the same command, in << order
    char16_t *name;               // owned; null: a temporary file with no name yet
    char16_t *text;               // owned captured lines, unexpanded; null until the first
    uint64_t used;                // units in text without the terminator
    uint8_t flags;                // INLINE_UNICODE, INLINE_KEEP, INLINE_WRITTEN
};

extern inline_file *inline_list; // run table: all inline files of the run
// Commands handed on to be carried out, and touches, so far in the process. A
// time stamp read while this count stays the same cannot have changed because
// of the run, so it need not be read again.
extern uint64_t disk_changes;
// Comes before anything of the run that may change the disk: counts the change
// and ends the reading ahead of times, which would go stale.
void note_disk_change();

// Runs a block; true when the last line carried out ended with exit code 0.
bool run_commands(ptr_list commands);
// Handles a line with the ! prefix over the words of $** or $?; true when it
// took the line over, with the last exit code stored.
bool run_for_each(const char16_t *text, uint32_t *exit_code, const char16_t *make_value);
// Expands, reads prefixes, echoes and dispatches one line; returns the exit code
// after the ignore rules, 0 when it counts as success.
uint32_t run_command(const char16_t *text, inline_file *inline_files, const char16_t *make_value);
// Carries out one expanded command text; returns 0 or an OS error code.
uint32_t spawn_command(const char16_t *text, uint32_t *exit_code, bool plus,
                       const char16_t *make_value);

// Stores line as the command's text, with a sentinel for each << and an
// inline_file record for each.
void scan_command_text(command *cmd, const char16_t *line);
inline_file *add_inline_file(command *cmd, char16_t *name);
// Creates the inline files of one command (nothing under /N); failures are fatal.
void write_inline_files(inline_file *chain);
// 1 when line was the end mark of the file.
int add_inline_line(inline_file *file, const char16_t *line);
void delete_inline_files();
void free_inline_files();
