// Text primitives on wide text. Nothing here touches the operating system, so
// both builds share this file.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/system.h"
#include "run/report.h"

namespace {

const char16_t empty_text[1] = {0};

const char16_t *resolve_text(const char16_t *text) {
    return text ? text : empty_text;
}

int compare_units(char16_t a, char16_t b) {
    return static_cast<int>(a) - static_cast<int>(b);
}

char16_t *tok_position; // where str_tok goes on when called with a null text

// The value of one digit in any base up to 16, or 16 for a non-digit.
unsigned get_digit_value(char16_t c) {
    if (c >= u'0' && c <= u'9') return static_cast<unsigned>(c - u'0');
    if (c >= u'a' && c <= u'f') return static_cast<unsigned>(c - u'a' + 10);
    if (c >= u'A' && c <= u'F') return static_cast<unsigned>(c - u'A' + 10);
    return 16;
}

} // namespace

namespace {

constexpr uint64_t UNIT_ONES = 0x0001000100010001ull;
constexpr uint64_t UNIT_HIGHS = 0x8000800080008000ull;

// True when one of the four units of word is 0.
constexpr bool has_zero_unit(uint64_t word) {
    return ((word - UNIT_ONES) & ~word & UNIT_HIGHS) != 0;
}

// The first unit at or behind p that is 0 or c. Long texts (a macro's value
// read at every definition that refers to it) are scanned four units a word;
// an aligned word never crosses into a page of its own, but may read past the
// end of the text's block, which the address sanitizer is told to allow.
__attribute__((no_sanitize("address"))) const char16_t *find_unit(const char16_t *p, char16_t c) {
    for (; reinterpret_cast<uintptr_t>(p) % sizeof(uint64_t); ++p)
        if (*p == c || !*p) return p;
    const uint64_t pattern = UNIT_ONES * c;
    for (;; p += 4) {
        uint64_t word;
        memcpy(&word, p, sizeof word);
        if (has_zero_unit(word) || has_zero_unit(word ^ pattern)) break;
    }
    while (*p != c && *p)
        ++p;
    return p;
}

} // namespace

size_t str_len(const char16_t *text) {
    return text ? static_cast<size_t>(find_unit(text, 0) - text) : 0;
}

char16_t *str_dup(const char16_t *text) {
    return str_dup_n(text, str_len(text));
}

char16_t *str_dup_n(const char16_t *text, size_t n) {
    char16_t *copy = xalloc_array<char16_t>(n + 1);
    if (n) memcpy(copy, text, n * sizeof(char16_t));
    copy[n] = 0;
    return copy;
}

int str_cmp(const char16_t *a, const char16_t *b) {
    a = resolve_text(a);
    b = resolve_text(b);
    while (*a && *a == *b)
        ++a, ++b;
    return compare_units(*a, *b);
}

int str_ncmp(const char16_t *a, const char16_t *b, size_t n) {
    a = resolve_text(a);
    b = resolve_text(b);
    for (; n; --n, ++a, ++b)
        if (*a != *b || !*a) return compare_units(*a, *b);
    return 0;
}

int str_icmp(const char16_t *a, const char16_t *b) {
    a = resolve_text(a);
    b = resolve_text(b);
    while (*a && fold_char(*a) == fold_char(*b))
        ++a, ++b;
    return compare_units(fold_char(*a), fold_char(*b));
}

int str_nicmp(const char16_t *a, const char16_t *b, size_t n) {
    a = resolve_text(a);
    b = resolve_text(b);
    for (; n; --n, ++a, ++b) {
        char16_t fa = fold_char(*a), fb = fold_char(*b);
        if (fa != fb || !fa) return compare_units(fa, fb);
    }
    return 0;
}

const char16_t *str_chr(const char16_t *text, char16_t c) {
    if (!text) return nullptr;
    const char16_t *p = find_unit(text, c);
    return *p == c ? p : nullptr;
}

const char16_t *str_rchr(const char16_t *text, char16_t c) {
    if (!text) return nullptr;
    const char16_t *found = nullptr;
    for (;; ++text) {
        if (*text == c) found = text;
        if (!*text) return found;
    }
}

const char16_t *str_str(const char16_t *text, const char16_t *part) {
    if (!text) return nullptr;
    size_t n = str_len(part);
    if (!n) return text;
    for (; *text; ++text)
        if (*text == part[0] && str_ncmp(text, part, n) == 0) return text;
    return nullptr;
}

const char16_t *str_pbrk(const char16_t *text, const char16_t *set) {
    if (!text || !set) return nullptr;
    for (; *text; ++text)
        if (str_chr(set, *text)) return text;
    return nullptr;
}

char16_t *str_tok_r(char16_t *text, const char16_t *seps, char16_t **pos) {
    char16_t *p = text ? text : *pos;
    if (!p) return nullptr;
    while (*p && str_chr(seps, *p))
        ++p;
    if (!*p) {
        *pos = p;
        return nullptr;
    }
    char16_t *word = p;
    while (*p && !str_chr(seps, *p))
        ++p;
    if (*p) *p++ = 0;
    *pos = p;
    return word;
}

char16_t *str_tok(char16_t *text, const char16_t *seps) {
    return str_tok_r(text, seps, &tok_position);
}

int32_t str_to_long(const char16_t *text, const char16_t **end, bool *range_error) {
    if (range_error) *range_error = false;
    if (end) *end = text;
    if (!text) return 0;
    const char16_t *p = text;
    while (is_space(*p))
        ++p;
    bool negative = false;
    if (*p == u'+' || *p == u'-') negative = *p++ == u'-';
    unsigned base = 10;
    if (p[0] == u'0' && (p[1] == u'x' || p[1] == u'X') && get_digit_value(p[2]) < 16) {
        base = 16;
        p += 2;
    } else if (p[0] == u'0') {
        base = 8;
    }
    // The magnitude is gathered unsigned and tested against the limit of its
    // sign, so "-2147483648" is in range and "2147483648" is not.
    const uint64_t limit = negative ? 0x80000000u : 0x7FFFFFFFu;
    uint64_t value = 0;
    bool overflow = false;
    const char16_t *digits = p;
    for (unsigned d; (d = get_digit_value(*p)) < base; ++p) {
        if (overflow) continue;
        value = value * base + d;
        if (value > limit) overflow = true;
    }
    if (p == digits) return 0;
    if (end) *end = p;
    if (overflow) {
        if (range_error) *range_error = true;
        return negative ? INT32_MIN : INT32_MAX;
    }
    return negative ? static_cast<int32_t>(-static_cast<int64_t>(value))
                    : static_cast<int32_t>(value);
}
