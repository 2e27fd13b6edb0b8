// Macro expansion: one character-by-character state machine that turns a text
// with references into a new text.
//
// In definition mode (defining_name set) only references to the macro being
// defined are resolved; every other reference is written back in the uniform
// form $(NAME) or $(NAME:search=replacement). In use mode every reference is
// resolved, recursively through macro values that hold a $.
//
//   TEXT --$--> DOLLAR --(/{--> NAME --closer--> LOOKUP or META --> COPY --> TEXT
//                      \--char--> LOOKUP          \--:--> SEARCH --=--> REPLACEMENT
//                                                           \--closer----> SUBSTITUTE --> COPY
//   TEXT --%--> PERCENT --|--> PARTS --F--> COPY       (commands only)
//   TEXT --sentinel--> INLINE --> COPY                  (when an inline chain is given)
#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/paths.h"
#include "run/report.h"

namespace {

enum expand_state {
    STATE_TEXT,        // copy plain characters
    STATE_DOLLAR,      // behind a $
    STATE_NAME,        // reading the name of a bracketed form
    STATE_LOOKUP,      // resolve a plain reference
    STATE_PERCENT,     // behind a % in a command
    STATE_PARTS,       // letters of %|...F
    STATE_META,        // modifier B D F R on * < @ !
    STATE_SEARCH,      // search text of a substitution
    STATE_REPLACEMENT, // replacement text of a substitution
    STATE_SUBSTITUTE,  // resolve a reference with a substitution
    STATE_INLINE,      // name of the next inline file
    STATE_COPY,        // copy the prepared text
};

constexpr size_t PART_UNITS = 256; // at most 255 characters of a name, search or replacement

// A fixed buffer for one part of a reference; characters past 255 are skipped.
struct part_buffer {
    char16_t text[PART_UNITS];
    size_t length;
    void clear() {
        length = 0;
        text[0] = 0;
    }
    void add(char16_t c) {
        if (length < PART_UNITS - 1) text[length++] = c;
        text[length] = 0;
    }
};

// The macros whose values are being expanded, outermost first: a macro met
// again while it is on this stack refers to itself through a cycle. Each of
// them carries being_expanded, so that meeting one again is found at once,
// however long the chain; the stack is walked only to name the cycle.
const macro **expanding = nullptr;
size_t expanding_count = 0;
size_t expanding_capacity = 0;

[[noreturn]] void fail_cycle(const macro *m) {
    size_t first = 0;
    while (expanding[first] != m)
        ++first;
    char16_t *chain = str_dup(u"");
    for (size_t i = first; i <= expanding_count; ++i) {
        const macro *link = i < expanding_count ? expanding[i] : m;
        char16_t *longer =
            str_printf(i == first ? u"%ls$(%ls)" : u"%ls -> $(%ls)", chain, link->name);
        free(chain);
        chain = longer;
    }
    report(MSG_BAD_MACRO + FATAL, chain);
    exit_process(1); // not reached
}

// Expands the value of m, which holds a $, guarding against cycles.
char16_t *expand_value(macro *m, const char16_t *defining_name, bool in_command) {
    if (m->flags & being_expanded) fail_cycle(m);
    check_stack();
    if (expanding_count == expanding_capacity) {
        expanding_capacity = expanding_capacity ? expanding_capacity * 2 : 64;
        expanding =
            static_cast<const macro **>(xrealloc(expanding, expanding_capacity * sizeof(macro *)));
    }
    expanding[expanding_count++] = m;
    m->flags |= being_expanded;
    char16_t *result = expand_macros(m->value, defining_name, in_command, nullptr);
    m->flags &= static_cast<uint8_t>(~being_expanded);
    --expanding_count;
    return result;
}

} // namespace

void abandon_expansions() {
    expanding_count = 0;
}

namespace {

// The macro that a %-form or a modifier needs; fatal when it does not exist.
const char16_t *required_value(const char16_t *name) {
    macro *m = find_macro(name, false);
    if (!m) report(MSG_INTERNAL + FATAL, u"expand_macros()");
    return m->value ? m->value : u"";
}

char16_t *append_text(char16_t *text, const char16_t *part) {
    char16_t *longer = str_printf(u"%ls%ls", text ? text : u"", part);
    free(text);
    return longer;
}

// All state of one call of expand_macros.
struct expansion {
    const char16_t *pos;
    const char16_t *defining_name;
    bool in_command;
    inline_file *inline_chain;
    char16_t *output;
    size_t used;
    size_t capacity;
    size_t need;
    expand_state state;
    char16_t closer;
    part_buffer name_buffer, search_buffer, replacement_buffer;
    const char16_t *prepared; // text for STATE_COPY
    char16_t *temporary;      // owned prepared text, or null

    void prepare(const char16_t *text) {
        prepared = text ? text : u"";
        need = str_len(prepared);
        state = STATE_COPY;
    }
    void prepare_owned(char16_t *text) {
        temporary = text;
        prepare(text);
    }
    void put(char16_t c) { output[used++] = c; }
    char16_t opening() const { return closer == u')' ? u'(' : u'{'; }
};

void step_dollar(expansion &x) {
    ++x.pos;
    const char16_t c = *x.pos;
    x.name_buffer.clear();
    if (c == 0) report(MSG_BAD_MACRO + FATAL, u"$");
    if (c == u'$') {
        x.put(u'$');
        ++x.pos;
        x.state = STATE_TEXT;
    } else if (c == u'(' || c == u'{') {
        x.closer = c == u'(' ? u')' : u'}';
        ++x.pos;
        x.state = STATE_NAME;
    } else if (c == u'*' && x.pos[1] == u'*') {
        x.name_buffer.add(u'*');
        x.name_buffer.add(u'*');
        x.pos += 2;
        x.state = STATE_LOOKUP;
    } else {
        x.name_buffer.add(c);
        ++x.pos;
        x.state = STATE_LOOKUP;
    }
}

// Decides at the closing bracket whether a name is a modifier form.
expand_state test_meta_symbol(const expansion &x) {
    const char16_t *n = x.name_buffer.text;
    if (!str_chr(u"*<@!", n[0]) || n[0] == 0) return STATE_LOOKUP;
    if (n[1] == 0 || n[1] == u'*') return STATE_LOOKUP;
    if (str_chr(u"BDFR", n[1]) && n[2] == 0 && x.in_command) return STATE_META;
    report(MSG_BAD_META + FATAL, n + 1);
    return STATE_LOOKUP; // not reached
}

void step_name(expansion &x) {
    const char16_t c = *x.pos++;
    if (c == x.closer) {
        x.state = x.defining_name ? STATE_LOOKUP : test_meta_symbol(x);
    } else if (c == u':') {
        x.search_buffer.clear();
        x.state = STATE_SEARCH;
    } else {
        x.name_buffer.add(c);
    }
}

bool differs_from_definition(const expansion &x) {
    return x.defining_name && str_icmp(x.defining_name, x.name_buffer.text) != 0;
}

void step_lookup(expansion &x) {
    if (differs_from_definition(x)) {
        x.prepare_owned(str_printf(u"$(%ls)", x.name_buffer.text));
        return;
    }
    macro *m = find_macro(x.name_buffer.text, false);
    if (!m || !m->value) {
        x.prepare(u"");
        return;
    }
    if (str_chr(m->value, u'$'))
        x.prepare_owned(expand_value(m, x.defining_name, x.in_command));
    else
        x.prepare(m->value);
    if (x.defining_name) {
        m->flags |= self_referenced;
    } else if (m->substitutions) {
        char16_t *text = x.temporary ? x.temporary : str_dup(m->value);
        x.prepare_owned(apply_substitutions(m, text));
    }
}

void step_substitute(expansion &x) {
    if (differs_from_definition(x)) {
        x.prepare_owned(str_printf(u"$(%ls:%ls=%ls)", x.name_buffer.text, x.search_buffer.text,
                                   x.replacement_buffer.text));
        return;
    }
    macro *m = find_macro(x.name_buffer.text, false);
    if (!m || !m->value) {
        x.prepare(u"");
        return;
    }
    if (!str_chr(m->value, u'$')) {
        x.prepare_owned(replace_text(m->value, x.search_buffer.text, x.replacement_buffer.text));
    } else {
        // The parts live in this call's buffers, so the recursion does not touch them.
        char16_t *t = expand_value(m, x.defining_name, x.in_command);
        if (x.defining_name && str_chr(t, u'$')) {
            m->substitutions = list_add(m->substitutions, str_dup(x.search_buffer.text));
            m->substitutions = list_add(m->substitutions, str_dup(x.replacement_buffer.text));
            x.prepare_owned(t);
        } else {
            x.prepare_owned(replace_text(t, x.search_buffer.text, x.replacement_buffer.text));
            free(t);
        }
    }
    if (x.defining_name)
        m->flags |= self_referenced;
    else if (m->substitutions)
        x.prepare_owned(apply_substitutions(m, x.temporary));
}

void step_percent(expansion &x) {
    ++x.pos;
    const char16_t c = *x.pos;
    if (c == u'%') {
        x.put(u'%');
        ++x.pos;
        x.state = STATE_TEXT;
    } else if (c == u'|') {
        ++x.pos;
        x.temporary = nullptr;
        x.state = STATE_PARTS;
    } else if (c == u's') {
        ++x.pos;
        x.prepare(required_value(u"@"));
    } else {
        report(MSG_BAD_FILE_PART + FATAL, x.pos);
    }
}

// The two steps that take a path apart hold its parts in buffers of their own;
// kept out of line, those buffers are on the stack only while the step runs,
// not in every level of a deep expansion.
[[gnu::noinline]] void step_parts(expansion &x) {
    const char16_t *value = required_value(u"@");
    const char16_t c = *x.pos;
    if (c == u'F') {
        ++x.pos;
        if (x.temporary)
            x.prepare(x.temporary);
        else
            x.prepare(value);
        return;
    }
    char16_t drive[3], directory[PATH_PART], base[PATH_PART], extension[PATH_PART];
    split_path(value, drive, directory, base, extension);
    const char16_t *part = c == u'd'   ? drive
                           : c == u'p' ? directory
                           : c == u'f' ? base
                           : c == u'e' ? extension
                                       : nullptr;
    if (!part) report(MSG_BAD_FILE_PART + FATAL, x.pos);
    x.temporary = append_text(x.temporary, part);
    ++x.pos;
}

[[gnu::noinline]] void step_meta(expansion &x) {
    const char16_t symbol[2] = {x.name_buffer.text[0], 0};
    const char16_t *value = required_value(symbol);
    char16_t drive[3], directory[PATH_PART], base[PATH_PART], extension[PATH_PART];
    split_path(value, drive, directory, base, extension);
    switch (x.name_buffer.text[1]) {
    case u'B':
        x.prepare_owned(str_dup(base));
        break;
    case u'D':
        x.prepare_owned(str_printf(u"%ls%ls", drive, directory[0] ? directory : u"."));
        break;
    case u'F':
        x.prepare_owned(str_printf(u"%ls%ls", base, extension));
        break;
    default:
        x.prepare_owned(str_printf(u"%ls%ls%ls", drive, directory, base));
        break;
    }
}

void step(expansion &x) {
    switch (x.state) {
    case STATE_TEXT: {
        const char16_t c = *x.pos;
        if (c == u'$')
            x.state = STATE_DOLLAR;
        else if (c == u'%' && x.in_command)
            x.state = STATE_PERCENT;
        else if (c == INLINE_SENTINEL && x.inline_chain)
            x.state = STATE_INLINE;
        else {
            x.put(c);
            ++x.pos;
        }
        break;
    }
    case STATE_DOLLAR:
        step_dollar(x);
        break;
    case STATE_NAME:
        step_name(x);
        break;
    case STATE_LOOKUP:
        step_lookup(x);
        break;
    case STATE_PERCENT:
        step_percent(x);
        break;
    case STATE_PARTS:
        step_parts(x);
        break;
    case STATE_META:
        step_meta(x);
        break;
    case STATE_SEARCH: {
        const char16_t c = *x.pos++;
        if (c == u'=') {
            x.replacement_buffer.clear();
            x.state = STATE_REPLACEMENT;
        } else if (c == x.closer) {
            x.replacement_buffer.clear();
            x.state = STATE_SUBSTITUTE;
        } else {
            x.search_buffer.add(c);
        }
        break;
    }
    case STATE_REPLACEMENT: {
        const char16_t c = *x.pos++;
        if (c == x.closer)
            x.state = STATE_SUBSTITUTE;
        else
            x.replacement_buffer.add(c);
        break;
    }
    case STATE_SUBSTITUTE:
        step_substitute(x);
        break;
    case STATE_INLINE:
        ++x.pos;
        x.prepare(x.inline_chain->name ? x.inline_chain->name : u"<<");
        x.inline_chain = x.inline_chain->next_in_command;
        break;
    case STATE_COPY:
        for (size_t i = 0; i < x.need; ++i)
            x.put(x.prepared[i]);
        free(x.temporary);
        x.temporary = nullptr;
        x.need = 1;
        x.state = STATE_TEXT;
        break;
    }
}

// The insert of "Invalid macro: %1." for a form that the text ends inside.
void fail_unfinished(const expansion &x) {
    char16_t *insert = nullptr;
    switch (x.state) {
    case STATE_NAME:
        insert = str_printf(u"$%lc%ls", x.opening(), x.name_buffer.text);
        break;
    case STATE_PARTS:
        insert = str_dup(u"%|");
        break;
    case STATE_SEARCH:
        insert = str_printf(u"$%lc%ls:%ls", x.opening(), x.name_buffer.text, x.search_buffer.text);
        break;
    case STATE_REPLACEMENT:
        insert = str_printf(u"$%lc%ls:%ls=%ls", x.opening(), x.name_buffer.text,
                            x.search_buffer.text, x.replacement_buffer.text);
        break;
    default:
        insert = str_dup(u"$");
        break;
    }
    report(MSG_BAD_MACRO + FATAL, insert);
}

constexpr bool needs_no_input(expand_state s) {
    return s == STATE_LOOKUP || s == STATE_META || s == STATE_SUBSTITUTE || s == STATE_INLINE ||
           s == STATE_COPY;
}

} // namespace

char16_t *expand_macros(const char16_t *text, const char16_t *defining_name, bool in_command,
                        inline_file *inline_chain) {
    if (!text || !text[0]) return str_dup(u"");
    expansion x;
    x.pos = text;
    x.defining_name = defining_name;
    x.in_command = in_command;
    x.inline_chain = inline_chain;
    x.capacity = (str_len(text) + 7) & ~static_cast<size_t>(7);
    x.output = static_cast<char16_t *>(xmalloc((x.capacity + 1) * sizeof(char16_t)));
    x.used = 0;
    x.need = 1;
    x.state = STATE_TEXT;
    x.closer = u')';
    x.name_buffer.clear();
    x.search_buffer.clear();
    x.replacement_buffer.clear();
    x.prepared = nullptr;
    x.temporary = nullptr;
    for (;;) {
        if (x.used + x.need > x.capacity) {
            x.capacity = 2 * x.capacity + ((x.need + 7) & ~static_cast<size_t>(7));
            x.output =
                static_cast<char16_t *>(xrealloc(x.output, (x.capacity + 1) * sizeof(char16_t)));
        }
        step(x);
        if (*x.pos != 0) continue;
        if (!needs_no_input(x.state)) break;
    }
    x.output[x.used] = 0;
    if (x.state != STATE_TEXT) fail_unfinished(x);
    return x.output;
}

char16_t *replace_text(const char16_t *text, const char16_t *search, const char16_t *replacement) {
    const size_t search_length = str_len(search);
    if (search_length == 0 || str_cmp(search, replacement) == 0) return str_dup(text);
    const size_t replacement_length = str_len(replacement);
    size_t capacity = str_len(text) + 1;
    char16_t *out = static_cast<char16_t *>(xmalloc(capacity * sizeof(char16_t)));
    size_t used = 0;
    for (const char16_t *p = text; p && *p;) {
        const bool match =
            *p == search[0] && (search_length == 1 || str_ncmp(p, search, search_length) == 0);
        const size_t add = match ? replacement_length : 1;
        if (used + add + 1 > capacity) {
            capacity = 2 * capacity + add;
            out = static_cast<char16_t *>(xrealloc(out, capacity * sizeof(char16_t)));
        }
        if (match) {
            for (size_t i = 0; i < replacement_length; ++i)
                out[used++] = replacement[i];
            p += search_length;
        } else {
            out[used++] = *p++;
        }
    }
    out[used] = 0;
    return out;
}

char16_t *apply_substitutions(const macro *m, char16_t *text) {
    for (void **pair = m->substitutions; pair && pair[0] && pair[1]; pair += 2) {
        char16_t *next =
            replace_text(text, static_cast<char16_t *>(pair[0]), static_cast<char16_t *>(pair[1]));
        free(text);
        text = next;
    }
    return text;
}

void clear_substitutions(macro *m) {
    for (void **p = m->substitutions; p && *p; ++p)
        free(*p);
    free(m->substitutions);
    m->substitutions = nullptr;
}
