// Inline files: the text behind a command line with <<, captured while the
// makefile is read and written just before each run of the command.
//
// A command's stored text holds the sentinel 0xDFFF for each <<; expand_macros
// puts the file names in their places, in the order of the chain.
#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "run/make.h"
#include "run/report.h"

inline_file *inline_list = nullptr;

namespace {

constexpr size_t GROW_BYTES = 8192;

[[noreturn]] void fail_inline(const char16_t *name) {
    report(MSG_INLINE_FILE + FATAL, name ? name : u"?");
    exit_process(1); // not reached
}

// Writes text as UTF-16 little-endian behind a byte order mark.
uint32_t write_unicode(os_handle handle, const char16_t *text) {
    const size_t length = str_len(text);
    uint8_t *bytes = static_cast<uint8_t *>(xmalloc(2 * length + 2));
    bytes[0] = 0xFF;
    bytes[1] = 0xFE;
    for (size_t i = 0; i < length; ++i) {
        bytes[2 + 2 * i] = static_cast<uint8_t>(text[i] & 0xFF);
        bytes[3 + 2 * i] = static_cast<uint8_t>(text[i] >> 8);
    }
    const uint32_t result = write_file(handle, bytes, 2 * length + 2);
    free(bytes);
    return result;
}

} // namespace

inline_file *add_inline_file(command *cmd, char16_t *name) {
    inline_file *file = xcalloc_record<inline_file>();
    file->name = name;
    inline_file **link = &cmd->inline_files;
    while (*link)
        link = &(*link)->next_in_command;
    *link = file;
    file->next = inline_list;
    inline_list = file;
    return file;
}

void scan_command_text(command *cmd, const char16_t *line) {
    char16_t *text = xalloc_array<char16_t>(str_len(line) + 1);
    char16_t *out = text;
    for (const char16_t *p = line; *p;) {
        if (p[0] != u'<' || p[1] != u'<') {
            *out++ = *p++;
            continue;
        }
        p += 2;
        *out++ = INLINE_SENTINEL;
        const char16_t *name = p;
        while (*p && !is_space(*p))
            ++p;
        add_inline_file(cmd, p > name ? str_dup_n(name, static_cast<size_t>(p - name)) : nullptr);
    }
    *out = 0;
    cmd->text = text;
}

int add_inline_line(inline_file *file, const char16_t *line) {
    if (line[0] == u'<' && line[1] == u'<') {
        char16_t *words = expand_macros(line + 2, nullptr, false, nullptr);
        char16_t *position = nullptr;
        for (char16_t *w = str_tok_r(words, u" \t", &position); w;
             w = str_tok_r(nullptr, u" \t", &position)) {
            if (str_icmp(w, u"KEEP") == 0)
                file->flags |= INLINE_KEEP;
            else if (str_icmp(w, u"NOKEEP") == 0)
                file->flags &= static_cast<uint8_t>(~INLINE_KEEP);
            else if (str_icmp(w, u"UNICODE") == 0)
                file->flags |= INLINE_UNICODE;
            else
                report(MSG_INLINE_WORD + WARNING, w);
        }
        free(words);
        return 1;
    }
    while (is_space(*line))
        ++line;
    if (!*line) return 0; // no empty line ever reaches the file
    const size_t length = str_len(line);
    const size_t need = (file->used + length) * 2 + 6;
    size_t size = block_size(file->text);
    if (need > size) {
        while (need > size)
            size += GROW_BYTES;
        file->text = static_cast<char16_t *>(xrealloc(file->text, size));
    }
    char16_t *end = file->text + file->used;
    for (size_t i = 0; i < length; ++i)
        end[i] = line[i];
    end[length] = u'\r';
    end[length + 1] = u'\n';
    end[length + 2] = 0;
    file->used += length + 2;
    return 0;
}

void write_inline_files(inline_file *chain) {
    if (opt_no_exec) return;
    for (inline_file *f = chain; f; f = f->next_in_command) {
        os_handle handle = INVALID_FILE;
        if (f->name) {
            if (!(f->flags & INLINE_WRITTEN)) {
                // A name is expanded once only, at the first writing.
                char16_t *expanded = expand_macros(f->name, nullptr, false, nullptr);
                free(f->name);
                f->name = expanded;
            }
            if (create_file(f->name, &handle) != 0) fail_inline(f->name);
        } else if (create_temp_file(&f->name, &handle, false) != 0) {
            fail_inline(f->name);
        }
        char16_t *text = expand_macros(f->text, nullptr, true, nullptr);
        const uint32_t written = (f->flags & INLINE_UNICODE) ? write_unicode(handle, text)
                                                             : file_printf(handle, "%ls", text);
        free(text);
        const uint32_t closed = close_file(handle);
        if (written != 0 || closed != 0) fail_inline(f->name);
        f->flags |= INLINE_WRITTEN;
    }
}

void delete_inline_files() {
    if (opt_no_exec) return;
    for (inline_file *f = inline_list; f; f = f->next)
        if ((f->flags & INLINE_WRITTEN) && !(f->flags & INLINE_KEEP)) {
            delete_file(f->name);
            f->flags &= static_cast<uint8_t>(~INLINE_WRITTEN);
        }
}

void free_inline_files() {
    while (inline_file *f = inline_list) {
        inline_list = f->next;
        free(f->name);
        free(f->text);
        free(f);
    }
}
