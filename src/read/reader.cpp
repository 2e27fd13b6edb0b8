// The makefile reader: one pass over a file's physical lines, each decided by a
// fixed order of tests (directive, skipped, comment, inline text, command,
// macro, description). There is no parse stage: each logical line acts on the
// tables the moment it is complete.
#include "read/reader.h"

#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/paths.h"
#include "run/make.h"
#include "run/report.h"
#include "target/graph.h"

include_frame *current_frame = nullptr;

namespace {

constexpr size_t LINE_UNITS = 4096; // a physical line holds at most 4095 characters
constexpr size_t GROW_BYTES = 8192; // logical lines grow in steps of this size
// A makefile that includes itself would otherwise recurse until files or stack
// run out; each level holds an open file and its buffers.
constexpr uint32_t MAX_INCLUDE_DEPTH = 200;

} // namespace

// Working state of one call of read_makefile. An open description block of an
// including file stays open across an !INCLUDE, invisible to the included file.
struct reader_state {
    char16_t *physical_line = nullptr;
    char16_t *directive_text = nullptr;
    size_t directive_pos = 0;
    char16_t *logical_text = nullptr;
    size_t logical_pos = 0;
    ptr_list block_targets = nullptr;
    ptr_list block_dependents = nullptr;
    ptr_list block_commands = nullptr;
    inline_file *pending_inline = nullptr;
};

namespace {

// Releases what one read_makefile holds: its buffers and block, its file and
// its frame. The block's lists are released as they stand, not attached.
void release_frame(include_frame *frame) {
    reader_state &r = *frame->reader;
    free(r.directive_text);
    free(r.logical_text);
    free(r.physical_line);
    free(r.block_targets);
    free(r.block_dependents);
    free(r.block_commands);
    close_file(frame->file);
    free(frame->cond_stack);
    free(frame->file_name);
    free(frame);
}

// Closes the open description block, if any.
void close_block(reader_state &r) {
    if (!r.block_targets) return;
    attach_to_targets(r.block_targets, r.block_dependents, r.block_commands);
    free(r.block_targets);
    free(r.block_dependents);
    free(r.block_commands);
    r.block_targets = r.block_dependents = r.block_commands = nullptr;
}

const char16_t *skip_space(const char16_t *p) {
    while (is_space(*p))
        ++p;
    return p;
}

// Splits an expanded description line into targets and dependents.
void read_description(reader_state &r, const char16_t *line) {
    char16_t *text = expand_macros(line, nullptr, false, nullptr);
    const char16_t *word = next_name(text);
    for (; word && str_cmp(word, u":") != 0; word = next_name(nullptr)) {
        target *t = add_target(word);
        r.block_targets = list_add(r.block_targets, t);
        if (!first_target && word[0] != u'.' && !t->is_rule) first_target = t;
    }
    if (word) {
        for (word = next_name(nullptr); word; word = next_name(nullptr))
            r.block_dependents = list_add(r.block_dependents, add_file(word));
    }
    free(text);
}

// Acts on one physical line, in the fixed order of tests.
void read_physical_line(reader_state &r) {
    char16_t *line = r.physical_line;
    if (line[0] == u'!' || r.directive_pos != 0) {
        r.directive_pos = join_line(&r.directive_text, r.directive_pos, line);
        if (r.directive_pos != 0) return;
        char16_t *p = r.directive_text;
        while (is_space(*p))
            ++p;
        if (*p != u'!') report(MSG_INTERNAL + FATAL, u"apple != apple");
        ++p;
        while (is_space(*p))
            ++p;
        do_directive(p);
        return;
    }
    if (current_frame->skipping) return;
    if (line[0] == u'#') return;
    if (r.pending_inline) {
        if (add_inline_line(r.pending_inline, line))
            r.pending_inline = r.pending_inline->next_in_command;
        return;
    }
    r.logical_pos = join_line(&r.logical_text, r.logical_pos, line);
    if (r.logical_pos != 0) return;
    const char16_t *start = skip_space(r.logical_text);
    if (!*start) return; // a blank line neither ends a block nor does anything else
    if (is_space(r.logical_text[0])) {
        if (!r.block_targets) report(MSG_NO_TARGET + FATAL);
        command *c = add_command(start);
        r.block_commands = list_add(r.block_commands, c);
        r.pending_inline = c->inline_files;
        return;
    }
    // A macro line ends a block just as a description line does.
    close_block(r);
    if (parse_macro_line(start)) return;
    read_description(r, start);
}

} // namespace

void include_file(const char16_t *name) {
    char16_t *path = nullptr;
    if (!current_frame) {
        path = make_full_path(name, nullptr);
    } else {
        // Directory of the including file, then of the file that included it,
        // out to the outermost makefile; else the name as written.
        for (include_frame *f = current_frame; f && !path; f = f->outer) {
            char16_t *dir = dir_of_path(f->file_name);
            char16_t *candidate = make_full_path(name, dir);
            free(dir);
            if (file_exists(candidate))
                path = candidate;
            else
                free(candidate);
        }
        if (!path) path = str_dup(name);
        if (opt_show_includes) show_message(STREAM_OUT, MSG_INCLUDED, path);
    }
    read_makefile(path);
    free(path);
}

os_handle open_text_file(const char16_t *path) {
    os_handle file = INVALID_FILE;
    const uint32_t opened = open_input(path, &file);
    if (opened == ERR_FILE_NOT_FOUND || opened == ERR_PATH_NOT_FOUND)
        report(MSG_FILE_NOT_FOUND + FATAL, path);
    else if (opened != 0)
        report(opened + FATAL);
    return file;
}

void read_makefile(const char16_t *path) {
    uint32_t depth = 0;
    for (const include_frame *f = current_frame; f; f = f->outer)
        ++depth;
    if (depth == MAX_INCLUDE_DEPTH)
        report(MSG_USER_ERROR + FATAL, u"Makefiles included too deeply: more than 200 levels");
    check_stack();
    const os_handle file = open_text_file(path);
    const text_encoding encoding = detect_encoding(file);

    reader_state r;
    include_frame *frame = xcalloc_record<include_frame>();
    frame->file_name = str_dup(path);
    frame->cond_stack = new_cond_stack();
    frame->file = file;
    frame->reader = &r;
    frame->outer = current_frame;
    current_frame = frame;

    r.physical_line = xalloc_array<char16_t>(LINE_UNITS);
    uint32_t result;
    while ((result = read_line(file, r.physical_line, LINE_UNITS, encoding, 0)) == 0) {
        if (aborted) break;
        ++frame->line_number;
        read_physical_line(r);
    }
    // After an interrupt the result is 0, which report ignores.
    if (result != ERR_HANDLE_EOF) report(result + WARNING);
    if (r.pending_inline) report(MSG_INLINE_EOF + FATAL);
    close_block(r);
    current_frame = frame->outer;
    release_frame(frame);
}

void close_open_makefiles() {
    while (include_frame *frame = current_frame) {
        current_frame = frame->outer;
        release_frame(frame);
    }
}

size_t join_line(char16_t **buffer, size_t position, const char16_t *line) {
    const size_t full = str_len(line);
    size_t end = full;
    while (end > 0 && is_space(line[end - 1]))
        --end;
    const size_t need = 2 * (position + end) + 2;
    if (need > block_size(*buffer)) {
        const size_t grown = block_size(*buffer) + GROW_BYTES;
        *buffer = static_cast<char16_t *>(xrealloc(*buffer, need > grown ? need : grown));
    }
    char16_t *out = *buffer + position;
    bool continued = false;
    bool comment = false;
    for (size_t i = 0; i < end; ++i) {
        const char16_t c = line[i];
        if (c == u'#') {
            comment = true;
            break;
        }
        if (c == u'^' && i + 1 < full) {
            *out++ = line[++i]; // the escaped character may be a trimmed blank
        } else if (c == u'^') {
            *out++ = u'\n';
            continued = true;
        } else if (c == u'\\' && i + 1 == end) {
            *out++ = u' ';
            continued = true;
        } else {
            *out++ = c;
        }
    }
    if (comment)
        while (out > *buffer + position && is_space(out[-1]))
            --out;
    *out = 0;
    return continued ? static_cast<size_t>(out - *buffer) : 0;
}
