// The macro table and its tie to the environment, and the syntax of a macro
// definition line.
#include <cstdlib>
#include <cstring>

#include "macro/macro.h"
#include "run/make.h"
#include "run/report.h"

macro *macro_list = nullptr;
name_index macro_index = {};

namespace {

// Tied to the environment whether or not the environment holds them.
constexpr const char16_t *always_exported_names[] = {u"PATH", u"LIB", u"INCLUDE"};

macro *lookup(const char16_t *name) {
    return find_indexed<macro>(macro_index, name, [](const macro *m) { return m->name; });
}

} // namespace

macro *find_macro(const char16_t *name, bool create) {
    check_name(name);
    if (macro *m = lookup(name)) return m;
    macro *m = xcalloc_record<macro>();
    m->hash = hash_name(name);
    m->name = str_dup(name);
    if (char16_t *value = get_env(name)) {
        keep_value(m, value);
        m->flags |= exported;
    }
    if (!(m->flags & exported))
        for (const char16_t *always : always_exported_names)
            if (str_icmp(name, always) == 0) m->flags |= exported;
    if (!create && !(m->flags & exported)) {
        free(m->name);
        free(m);
        return nullptr;
    }
    m->next = macro_list;
    macro_list = m;
    add_indexed(macro_index, m->name, m);
    return m;
}

namespace {

// The environment gets the expansion as of now; the table keeps references.
void write_through(const macro *m) {
    char16_t *expanded = expand_macros(m->value, nullptr, true, nullptr);
    const uint32_t failed = set_env(m->name, expanded);
    free(expanded);
    if (failed) report(failed + FATAL);
}

// set_macro(name, old value followed by tail, 0) for a macro that has a value:
// the value grows in place, by doubling, so that a macro appended to line by
// line costs no more than its length.
void append_to_macro(const char16_t *name, const char16_t *tail) {
    macro *m = find_macro(name, true);
    if ((m->flags & exported) && !opt_env) return; // the whole effect of /E
    const size_t n = str_len(tail);
    const size_t need = (m->value_length + n + 1) * sizeof(char16_t);
    const size_t room = block_size(m->value);
    if (need > room)
        m->value = static_cast<char16_t *>(xrealloc(m->value, need > 2 * room ? need : 2 * room));
    memcpy(m->value + m->value_length, tail, (n + 1) * sizeof(char16_t));
    m->value_length += n;
    clear_substitutions(m);
    if (m->flags & exported) write_through(m);
}

} // namespace

void set_macro(const char16_t *name, const char16_t *value, uint8_t mode) {
    macro *m = find_macro(name, true);
    if ((m->flags & exported) && !opt_env) return; // the whole effect of /E
    free(m->value);
    m->value_length = str_len(value);
    m->value = str_dup_n(value, m->value_length);
    if (mode != 1 || !(m->flags & self_referenced)) clear_substitutions(m);
    if (m->flags & exported) write_through(m);
}

int parse_macro_line(const char16_t *line) {
    const char16_t *p = line;
    while (*p && !is_space(*p) && *p != u'+' && *p != u'=')
        ++p;
    const size_t name_length = static_cast<size_t>(p - line);
    if (name_length == 0) return 0;
    while (is_space(*p))
        ++p;
    const bool append = *p == u'+';
    if (append) ++p;
    if (*p != u'=') return 0;
    ++p;
    while (is_space(*p))
        ++p;

    char16_t *name = str_dup_n(line, name_length);
    clear_macro_mark(name);
    char16_t *value = expand_macros(p, name, false, nullptr);
    size_t end = str_len(value);
    while (end > 0 && is_space(value[end - 1]))
        --end;
    value[end] = 0;
    macro *old = append ? find_macro(name, false) : nullptr;
    if (old && old->value) {
        append_to_macro(name, value);
    } else {
        set_macro(name, value, 1);
    }
    free(value);
    free(name);
    return 1;
}

void clear_macro_mark(const char16_t *name) {
    if (macro *m = find_macro(name, false)) m->flags &= static_cast<uint8_t>(~self_referenced);
}

// The environment is not touched, so a name it holds comes back on the next look-up.
void undefine_macro(const char16_t *name) {
    check_name(name);
    macro *found = lookup(name);
    for (macro **link = &macro_list; found && *link; link = &(*link)->next) {
        macro *m = *link;
        if (m == found) {
            *link = m->next;
            remove_indexed(macro_index, m->name, m);
            clear_substitutions(m);
            free(m->name);
            free(m->value);
            free(m);
            return;
        }
    }
}

void free_macros() {
    clear_index(macro_index);
    while (macro *m = macro_list) {
        macro_list = m->next;
        clear_substitutions(m);
        free(m->name);
        free(m->value);
        free(m);
    }
}
