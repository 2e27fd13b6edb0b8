// The split of one command line into argument words, by the rules a Windows
// program's start-up applies to its own command line. The Windows start-up
// splits its command line with it, and the POSIX direct road hands a child the
// vector that a Windows program would have made of its line.
#include "platform/process.h"
#include "platform/system.h"
#include "run/report.h"

namespace {

bool is_blank(char16_t c) {
    return c == u' ' || c == u'\t';
}

// Words never grow in the split, so a word has room for the rest of the line.
char16_t *start_word(const char16_t *from) {
    return xalloc_array<char16_t>(str_len(from) + 1);
}

// Reads the program word at p into a new text; returns the position behind it.
const char16_t *take_program_word(const char16_t *p, char16_t **word) {
    const char16_t *start = p;
    const char16_t *end;
    if (*p == u'"') {
        start = ++p;
        while (*p && *p != u'"')
            ++p;
        end = p;
        if (*p) ++p;
    } else {
        while (*p && !is_blank(*p))
            ++p;
        end = p;
    }
    *word = str_dup_n(start, static_cast<size_t>(end - start));
    return p;
}

// Reads one argument word at p, which is not blank, into a new text; returns
// the position behind it.
const char16_t *take_argument_word(const char16_t *p, char16_t **word) {
    char16_t *out = start_word(p);
    size_t n = 0;
    bool quoted = false;
    while (*p && (quoted || !is_blank(*p))) {
        if (*p == u'\\') {
            size_t slashes = 0;
            while (*p == u'\\') {
                ++slashes;
                ++p;
            }
            if (*p != u'"') {
                while (slashes--)
                    out[n++] = u'\\';
                continue;
            }
            for (size_t i = 0; i < slashes / 2; ++i)
                out[n++] = u'\\';
            if (slashes % 2) {
                out[n++] = u'"';
                ++p;
            }
            // An even run leaves the quote to the quote rules below.
            continue;
        }
        if (*p == u'"') {
            if (quoted && p[1] == u'"') {
                out[n++] = u'"';
                p += 2;
                quoted = false;
            } else {
                quoted = !quoted;
                ++p;
            }
            continue;
        }
        out[n++] = *p++;
    }
    out[n] = 0;
    *word = out;
    return p;
}

} // namespace

char16_t **split_program_arguments(const char16_t *line, size_t *count) {
    size_t n = 0;
    size_t slots = 8;
    char16_t **words = xalloc_array<char16_t *>(slots);
    const char16_t *p = line ? line : u"";
    while (is_blank(*p))
        ++p;
    if (*p) p = take_program_word(p, &words[n++]);
    for (;;) {
        while (is_blank(*p))
            ++p;
        if (!*p) break;
        if (n + 1 == slots) {
            slots += 8;
            words = static_cast<char16_t **>(xrealloc(words, slots * sizeof(char16_t *)));
        }
        p = take_argument_word(p, &words[n++]);
    }
    words[n] = nullptr;
    *count = n;
    return words;
}
