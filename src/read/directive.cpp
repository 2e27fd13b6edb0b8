// Directives and the conditional stack.
//
// Each open makefile has its own ten level bytes (level 0 and nine levels of
// !IF), so a file sees only its own conditionals: an included file starts
// outside any, cannot close or continue one of the including file, and an !IF
// still open at its end is forgotten with the file.
//
// The life of one level under an active parent:
//   !IF true      -> ACTIVE TAKEN OPEN        lines processed
//   !IF false     -> OPEN                      lines skipped
//   !ELSEIF true  -> ACTIVE TAKEN (if none taken yet), else not ACTIVE
//   !ELSE         -> ELSE_SEEN, ACTIVE exactly when nothing was taken
//   !ENDIF        -> TAKEN, OPEN, ELSE_SEEN cleared; back to the level below
// Under an inactive parent ACTIVE stays clear and TAKEN is never set.
#include <cstdlib>

#include "macro/macro.h"
#include "read/expression.h"
#include "read/reader.h"
#include "run/report.h"

namespace {

constexpr size_t COND_LEVELS = 10;
constexpr uint8_t COND_ACTIVE = 1;    // lines at this level are processed
constexpr uint8_t COND_TAKEN = 2;     // a branch of this chain has been chosen
constexpr uint8_t COND_OPEN = 4;      // this level was opened by an !IF form
constexpr uint8_t COND_ELSE_SEEN = 8; // !ELSE has been seen at this level

enum directive_kind {
    KIND_UNKNOWN = 0,
    KIND_ERROR = 1,
    KIND_MESSAGE = 2,
    KIND_INCLUDE = 3,
    KIND_IF = 4,
    KIND_IFDEF = 5,
    KIND_IFNDEF = 6,
    KIND_ELSE = 7,
    KIND_ELSEIF = 8,
    KIND_ELSEIFDEF = 9,
    KIND_ELSEIFNDEF = 10,
    KIND_ENDIF = 11,
    KIND_UNDEF = 12,
};

struct directive_name {
    const char16_t *name;
    directive_kind kind;
};

// Compared in this order, whole word, ignoring case.
constexpr directive_name directive_names[] = {
    {u"error", KIND_ERROR},           {u"message", KIND_MESSAGE},
    {u"include", KIND_INCLUDE},       {u"ifndef", KIND_IFNDEF},
    {u"ifdef", KIND_IFDEF},           {u"if", KIND_IF},
    {u"elseifndef", KIND_ELSEIFNDEF}, {u"elseifdef", KIND_ELSEIFDEF},
    {u"elseif", KIND_ELSEIF},         {u"else", KIND_ELSE},
    {u"endif", KIND_ENDIF},           {u"undef", KIND_UNDEF},
};

char16_t *skip_space(char16_t *p) {
    while (is_space(*p))
        ++p;
    return p;
}

// "!ELSE IF", "!ELSE IFDEF" and "!ELSE IFNDEF" are the ELSEIF forms; the letters
// are found with no regard to what follows them.
directive_kind read_else_form(char16_t **rest) {
    struct form {
        const char16_t *word;
        directive_kind kind;
    };
    static constexpr form forms[] = {
        {u"ifndef", KIND_ELSEIFNDEF}, {u"ifdef", KIND_ELSEIFDEF}, {u"if", KIND_ELSEIF}};
    for (const form &f : forms) {
        const size_t n = str_len(f.word);
        if (str_nicmp(*rest, f.word, n) == 0) {
            *rest = skip_space(*rest + n);
            return f.kind;
        }
    }
    return KIND_ELSE;
}

// Decides the condition of an !IF or !ELSEIF form at the level byte b.
void choose(uint8_t &b, uint8_t parent, directive_kind kind, const char16_t *rest) {
    if (!(parent & COND_ACTIVE)) {
        b &= static_cast<uint8_t>(~COND_ACTIVE); // nothing is evaluated under an inactive parent
        return;
    }
    if (!*rest) report(MSG_IF_MISSING + FATAL);
    bool result;
    if (kind == KIND_IFDEF || kind == KIND_ELSEIFDEF)
        result = find_macro(rest, false) != nullptr;
    else if (kind == KIND_IFNDEF || kind == KIND_ELSEIFNDEF)
        result = find_macro(rest, false) == nullptr;
    else
        result = eval_condition(rest) != 0; // evaluated even behind a chosen branch
    if (result && !(b & COND_TAKEN))
        b |= COND_ACTIVE | COND_TAKEN;
    else
        b &= static_cast<uint8_t>(~COND_ACTIVE);
}

} // namespace

uint8_t *new_cond_stack() {
    uint8_t *levels = static_cast<uint8_t *>(xcalloc(COND_LEVELS));
    levels[0] = COND_ACTIVE;
    return levels;
}

void do_directive(char16_t *text) {
    include_frame *frame = current_frame;
    uint32_t level = frame->cond_level;
    // Expanded before anything is recognised, in skipped sections too.
    char16_t *expanded = expand_macros(text, nullptr, false, nullptr);
    char16_t *name = skip_space(expanded);
    char16_t *rest = name;
    while (*rest && !is_space(*rest))
        ++rest;
    if (*rest) *rest++ = 0;
    rest = skip_space(rest);

    directive_kind kind = KIND_UNKNOWN;
    for (const directive_name &d : directive_names)
        if (str_icmp(name, d.name) == 0) {
            kind = d.kind;
            break;
        }
    if (kind == KIND_ELSE) kind = read_else_form(&rest);

    uint8_t *levels = frame->cond_stack;
    const bool skipping = frame->skipping != 0;
    switch (kind) {
    case KIND_UNKNOWN:
        report(MSG_UNKNOWN_DIRECTIVE + FATAL, name);
        break;
    case KIND_ERROR:
        if (!skipping) report(MSG_USER_ERROR + FATAL, rest);
        break;
    case KIND_MESSAGE:
        if (!skipping) {
            write_text(STREAM_OUT, rest, 0);
            write_text(STREAM_OUT, u"\r\n", 0);
        }
        break;
    case KIND_INCLUDE:
        if (!skipping) do_include(rest);
        break;
    case KIND_UNDEF:
        if (!skipping) undefine_macro(rest);
        break;
    case KIND_IF:
    case KIND_IFDEF:
    case KIND_IFNDEF:
        if (++level == COND_LEVELS) report(MSG_IF_TOO_DEEP + FATAL);
        levels[level] |= COND_OPEN;
        choose(levels[level], levels[level - 1], kind, rest);
        break;
    case KIND_ELSEIF:
    case KIND_ELSEIFDEF:
    case KIND_ELSEIFNDEF:
        if (!(levels[level] & COND_OPEN) || (levels[level] & COND_ELSE_SEEN))
            report(MSG_UNEXPECTED_ELSE + FATAL);
        choose(levels[level], levels[level - 1], kind, rest);
        break;
    case KIND_ELSE: {
        if (*rest) report(MSG_DIRECTIVE_SYNTAX + FATAL);
        if (level == 0) report(MSG_UNEXPECTED_ELSE + FATAL);
        uint8_t &b = levels[level];
        if (b & COND_ELSE_SEEN) report(MSG_ELSE_SEEN + FATAL);
        b |= COND_ELSE_SEEN;
        if (b & COND_TAKEN)
            b &= static_cast<uint8_t>(~COND_ACTIVE);
        else if (levels[level - 1] & COND_ACTIVE)
            b |= COND_ACTIVE;
        break;
    }
    case KIND_ENDIF:
        levels[level] &= static_cast<uint8_t>(~(COND_TAKEN | COND_OPEN | COND_ELSE_SEEN));
        if (*rest) report(MSG_DIRECTIVE_SYNTAX + FATAL);
        if (level == 0) report(MSG_UNEXPECTED_ENDIF + FATAL);
        --level;
        break;
    }
    // The frame may be the including file's after an !INCLUDE; it is the same
    // record, whose own bytes the included file never touched.
    frame->skipping = (levels[level] & COND_ACTIVE) ? 0 : 1;
    frame->cond_level = level;
    free(expanded);
}

void do_include(char16_t *text) {
    const char16_t quote = text[0];
    if (quote == u'"' || quote == u'\'') {
        char16_t *last = str_rchr(text + 1, quote);
        if (last) {
            char16_t *start = text + 1;
            while (*start == u' ')
                ++start;
            char16_t *end = last;
            while (end > start && end[-1] == u' ')
                --end;
            *end = 0;
            include_file(start);
            return;
        }
    }
    include_file(text);
}
