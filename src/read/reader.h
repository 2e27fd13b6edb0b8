// Reading makefiles: from a file's bytes to table entries, line by line, with
// directives and conditions. read_makefile is the one consumer of a makefile's
// physical lines; by a fixed order of tests each line goes to a directive, to
// inline text, to a command, a macro definition or a description line.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/system.h"

// One per open makefile, innermost first through current_frame.
struct include_frame {
    include_frame *outer;        // frame of the including file; null for the outermost
    char16_t *file_name;         // owned; the path read_makefile was given
    uint32_t line_number;        // physical lines read so far
    uint32_t cond_level;         // conditional level of this file
    uint8_t skipping;            // nonzero inside an inactive conditional section
    uint8_t *cond_stack;         // this file's own level bytes (see directive.cpp)
    os_handle file;              // the open makefile
    struct reader_state *reader; // the working state of its read_makefile
};

extern include_frame *current_frame; // null when no makefile is open

// Closes the makefiles still open and releases their frames and buffers, when
// a run ends while it reads them.
void close_open_makefiles();

// Resolves name by the include search order and reads the file; failures are fatal.
void include_file(const char16_t *name);
void read_makefile(const char16_t *path);
// Folds physical line into the logical line in *buffer from position; returns 0
// when the logical line is complete, else the count of units now held.
size_t join_line(char16_t **buffer, size_t position, const char16_t *line);

// Directives: text is the logical line behind the ! and its blanks.
void do_directive(char16_t *text);
void do_include(char16_t *text);
// Allocates the level bytes of a new frame.
uint8_t *new_cond_stack();

// Words of a description line. next_word splits text in place (null: go on
// with the current text); next_name adds wildcard expansion. A word points
// into the text, is the constant ":", or (next_name) a name valid until the
// next call.
char16_t *next_word(char16_t *text);
const char16_t *next_name(char16_t *text);

// Opens a text file (makefile or workspace) for reading; a missing file is
// fatal "File not found", any other failure fatal with the system's text.
os_handle open_text_file(const char16_t *path);

// Encoded line input.
enum text_encoding : uint32_t {
    ENC_UNKNOWN = 0,  // first bytes could not be read: refused
    ENC_ANSI = 1,     // no mark: bytes in the caller's code page
    ENC_OEM = 2,      // bytes in the OEM code page
    ENC_UTF8_BOM = 3, // EF BB BF
    ENC_UTF8 = 4,     // UTF-8 without mark
    ENC_UTF16LE = 5,  // FF FE
    ENC_UTF16BE = 6,  // FE FF: refused
    ENC_UTF32LE = 7,  // FF FE 00 00: refused
    ENC_UTF32BE = 8,  // 00 00 FE FF: refused
};
constexpr size_t CHUNK_BYTES = 8190; // the most one read_line reads

text_encoding classify_bom(const uint8_t *bytes, size_t count);
size_t bom_of_encoding(text_encoding encoding);
// Leaves the file position behind the mark.
text_encoding detect_encoding(os_handle handle);
// Delivers the next line (without its line end) into buffer. Result 0, 14, 30,
// 38 (end of file), 1113, or the code of a failed read or seek.
uint32_t read_line(os_handle handle, char16_t *buffer, size_t capacity, text_encoding encoding,
                   uint32_t code_page);
