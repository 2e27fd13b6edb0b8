// Words of a description line (and of a workspace line).
//
// The delimiters are white space, the colon and the two quote characters;
// {...} protects a stretch from all of them. Nothing else is special: = ; , #
// \ and ^ are ordinary here (the line joiner has already dealt with # and ^).
//
// One text is split at a time, in place: terminators are written into the
// caller's text, and a word is a pointer into it, the constant ":" or, from
// next_name, a name of the directory search valid until the next call.
#include "read/reader.h"

namespace {

char16_t empty_text[1] = {0};
// Returned for every colon word, so "::" and ":" read the same.
char16_t colon_word[2] = {u':', 0};

// Where the next word is looked for. Until a text is given it is empty, so a
// call that goes on with no text yields null.
char16_t *word_pos = empty_text;
// The quote or colon that the last word's terminator overwrote; 0 when none.
// It is put back on the next call, where it starts the next word.
char16_t saved_char = 0;

// Wildcard search of next_name still handing out names; null when none.
find_state *find_handle = nullptr;

bool is_quote(char16_t c) {
    return c == u'"' || c == u'\'';
}

// A quoted name: quote stands at the start of a word. Blanks just inside the
// quotes are dropped, so "  " gives an empty (not null) word. Without a closing
// quote the rest of the text is the word.
char16_t *take_quoted(char16_t *quote) {
    char16_t q = *quote;
    char16_t *start = quote + 1;
    while (is_space(*start))
        start++;
    char16_t *p = start;
    while (*p != 0 && *p != q)
        p++;
    if (*p == 0) {
        word_pos = p;
        return p > start ? start : nullptr;
    }
    word_pos = p + 1;
    char16_t *end = p;
    while (end > start && is_space(end[-1]))
        end--;
    *end = 0;
    return start;
}

} // namespace

char16_t *next_word(char16_t *text) {
    if (text != nullptr) {
        word_pos = text;
        saved_char = 0;
    }
    char16_t *p = word_pos;
    if (saved_char != 0) {
        *p = saved_char;
        saved_char = 0;
    }
    while (is_space(*p))
        p++;
    char16_t *start = p;
    if (*p == 0) {
        word_pos = p;
        return nullptr;
    }
    for (;;) {
        char16_t c = *p;
        if (c == 0) {
            word_pos = p;
            return p > start ? start : nullptr;
        }
        if (is_space(c)) {
            *p = 0;
            word_pos = p + 1;
            return start;
        }
        if (c == u':' && p == start + 1 && is_alpha(*start)) {
            // A letter and a colon are a drive prefix, so "a: b" has no colon word.
            p++;
            continue;
        }
        if ((is_quote(c) || c == u':') && p > start) {
            // The word ends without a blank; the delimiter is kept aside and put
            // back next time, where it starts the following word.
            saved_char = c;
            *p = 0;
            word_pos = p;
            return start;
        }
        if (is_quote(c)) return take_quoted(p);
        if (c == u':') {
            word_pos = p[1] == u':' ? p + 2 : p + 1;
            return colon_word;
        }
        if (c == u'{') {
            while (*p != 0 && *p != u'}')
                p++;
            // The closing brace, or the end of the text, is looked at as usual.
            continue;
        }
        p++;
    }
}

const char16_t *next_name(char16_t *text) {
    if (find_handle != nullptr) {
        const char16_t *find_data = nullptr;
        if (text == nullptr && find_next(find_handle, &find_data)) return find_data;
        find_close(find_handle);
        find_handle = nullptr;
    }
    char16_t *word = next_word(text);
    if (word == nullptr) return nullptr;
    if (str_pbrk(word, u"*?") == nullptr) return word;
    // Each name found stands in the word's place: next_word does not move on
    // until the search is used up. A pattern matching nothing is the name itself.
    const char16_t *find_data = nullptr; // the name found, valid until the next call
    find_handle = find_first(word, &find_data);
    if (find_handle == nullptr) return word;
    return find_data;
}
