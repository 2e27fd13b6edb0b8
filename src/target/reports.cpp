// What the system knows, shown: the database dump of /P and the time lines of /D.
// Headings and time lines are catalogue texts; every other row is a fixed format.
#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "run/report.h"
#include "target/update.h"

namespace {

int width_of_names() {
    size_t width = 0;
    for (const macro *m = macro_list; m; m = m->next) {
        const size_t n = str_len(m->name);
        if (n > width) width = n;
    }
    return static_cast<int>(width);
}

void show_macro(const macro *m, int width) {
    if (!m->substitutions) {
        out_printf(STREAM_OUT, u"%-*ls = %ls\r\n", width, m->name, m->value ? m->value : u"");
        return;
    }
    // One row per pending pair, the name on the first only, then the value.
    const char16_t *label = m->name;
    for (void **pair = m->substitutions; pair[0] && pair[1]; pair += 2) {
        out_printf(STREAM_OUT, u"%-*ls = $(%ls:%ls=%ls)\r\n", width, label, m->name,
                   static_cast<char16_t *>(pair[0]), static_cast<char16_t *>(pair[1]));
        label = u"";
    }
    out_printf(STREAM_OUT, u"%-*ls = %ls\r\n", width, u"", m->value ? m->value : u"");
}

} // namespace

void show_database() {
    show_message(STREAM_OUT, MSG_MACROS_HEADING);
    const int width = width_of_names();
    for (const macro *m = macro_list; m; m = m->next)
        show_macro(m, width);
    write_text(STREAM_OUT, u"\r\n", 0);
    show_message(STREAM_OUT, MSG_RULES_HEADING);
    for (const target *t = rule_list; t; t = t->next_rule)
        show_target(t);
    show_target(suffix_target); // the suffix list closes the rules section
    write_text(STREAM_OUT, u"\r\n", 0);
    show_message(STREAM_OUT, MSG_TARGETS_HEADING);
    for (const target *t = target_list; t; t = t->next)
        if (!t->is_rule && t != suffix_target) show_target(t);
}

void show_target(const target *t) {
    if (!t) return;
    out_printf(STREAM_OUT, u"%ls:\r\n", t->file->name);
    for (void **d = t->dependents; d && *d; ++d)
        out_printf(STREAM_OUT, u"\t%ls\r\n", static_cast<file_node *>(*d)->name);
    for (void **c = t->commands; c && *c; ++c) {
        const command *cmd = static_cast<command *>(*c);
        out_printf(STREAM_OUT, u"\t%ls\r\n", cmd->text);
        for (const inline_file *f = cmd->inline_files; f; f = f->next_in_command) {
            write_text(STREAM_OUT, u"# inline file\r\n", 0);
            if (f->text) write_text(STREAM_OUT, f->text, 0);
            out_printf(STREAM_OUT, u"<<%ls\r\n", (f->flags & INLINE_KEEP) ? u"Keep" : u"");
        }
    }
    write_text(STREAM_OUT, u"\r\n", 0);
}

void show_time_compare(const char16_t *name1, uint64_t time1, const char16_t *name2,
                       uint64_t time2) {
    char16_t *text1 = format_time(time1);
    char16_t *text2 = format_time(time2);
    const int order = compare_time(time1, time2);
    const uint32_t id = order < 0 ? MSG_OLDER : order > 0 ? MSG_NEWER : MSG_SAME;
    show_message(STREAM_OUT, id, name1, text1, name2, text2);
    free(text1);
    free(text2);
}

char16_t *format_time(uint64_t time) {
    char16_t *text = compare_time(time, 0) > 0 ? format_date_time(time) : nullptr;
    return text ? text : str_dup(u"*");
}
