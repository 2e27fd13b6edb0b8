// The counted formatter and the two-step formatting built on it.
//
// A conversion is % [flags - 0] [width digits or *] [. precision digits or *]
// [length h l ll w I64] and one of s S c C d i u x X p %. The arguments come as
// an array of fmt_arg records with their count, so a conversion whose argument
// is missing or of the wrong kind prints nothing, and no conversion ever looks
// past the count. Both the wide and the 8-bit format go through the same code;
// the output is always wide and narrowed afterwards for files.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "platform/system.h"
#include "run/report.h"

namespace {

// Output of one formatting pass: units go to buffer while there is room for
// them and a terminator; length counts every unit, stored or not.
struct sink {
    char16_t *buffer;
    size_t capacity;
    size_t length;
};

void put_unit(sink *out, char16_t c) {
    if (out->length + 1 < out->capacity) out->buffer[out->length] = c;
    ++out->length;
}

void put_repeated(sink *out, char16_t c, size_t n) {
    while (n--)
        put_unit(out, c);
}

// Where the next argument is read from; a missing argument stays missing.
struct arg_reader {
    const fmt_arg *args;
    size_t count;
    size_t next;
};

const fmt_arg *take_arg(arg_reader *reader) {
    return reader->next < reader->count ? &reader->args[reader->next++] : nullptr;
}

struct conversion {
    bool left = false; // '-': pad on the right
    bool zero = false; // '0': pad numbers with zeros
    size_t width = 0;
    bool has_precision = false;
    size_t precision = 0;
    bool wide_number = false; // ll or I64: the number keeps 64 bits
    bool bad = false;         // a * had no number to read
};

// Reads a * field: the next argument as a signed int. A negative width turns
// into left alignment, a negative precision into none.
long read_star(arg_reader *reader, conversion *spec) {
    const fmt_arg *arg = take_arg(reader);
    if (!arg || arg->kind != fmt_arg::NUMBER) {
        spec->bad = true;
        return 0;
    }
    return static_cast<int32_t>(static_cast<uint32_t>(arg->number));
}

void put_padded(sink *out, const conversion *spec, const char16_t *text, size_t n, char16_t pad) {
    size_t fill = spec->width > n ? spec->width - n : 0;
    if (!spec->left) put_repeated(out, pad, fill);
    for (size_t i = 0; i < n; ++i)
        put_unit(out, text[i]);
    if (spec->left) put_repeated(out, u' ', fill);
}

void put_number(sink *out, const conversion *spec, char16_t type, uint64_t value) {
    char16_t digits[24];
    size_t n = 0;
    bool negative = false;
    unsigned base = (type == u'x' || type == u'X' || type == u'p') ? 16 : 10;
    const char16_t *set = type == u'x' ? u"0123456789abcdef" : u"0123456789ABCDEF";
    if (type == u'd' || type == u'i') {
        int64_t v = spec->wide_number ? static_cast<int64_t>(value)
                                      : static_cast<int32_t>(static_cast<uint32_t>(value));
        negative = v < 0;
        value = negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    } else if (!spec->wide_number && type != u'p') {
        value &= 0xFFFFFFFFu;
    }
    do {
        digits[sizeof digits / sizeof digits[0] - 1 - n++] = set[value % base];
        value /= base;
    } while (value);
    size_t min_digits = type == u'p' ? 16 : (spec->has_precision ? spec->precision : 1);
    while (n < min_digits && n < 21)
        digits[sizeof digits / sizeof digits[0] - 1 - n++] = u'0';
    if (negative) digits[sizeof digits / sizeof digits[0] - 1 - n++] = u'-';
    const char16_t *text = digits + sizeof digits / sizeof digits[0] - n;
    if (spec->zero && !spec->left && !spec->has_precision && negative && spec->width > n) {
        put_unit(out, u'-');
        conversion rest = *spec;
        rest.width = spec->width - 1;
        put_padded(out, &rest, text + 1, n - 1, u'0');
        return;
    }
    put_padded(out, spec, text, n, spec->zero && !spec->has_precision ? u'0' : u' ');
}

template <class F> char16_t widen_unit(F c) {
    return static_cast<char16_t>(static_cast<typename std::make_unsigned<F>::type>(c));
}

template <class F>
size_t format_into(sink *out, const F *format, const fmt_arg *args, size_t count) {
    arg_reader reader = {args, count, 0};
    const F *p = format;
    while (p && *p) {
        if (*p != '%') {
            put_unit(out, widen_unit(*p++));
            continue;
        }
        const F *start = p++;
        conversion spec;
        for (;; ++p) {
            if (*p == '-')
                spec.left = true;
            else if (*p == '0')
                spec.zero = true;
            else if (*p != '+' && *p != ' ' && *p != '#')
                break;
        }
        if (*p == '*') {
            long w = read_star(&reader, &spec);
            spec.left = spec.left || w < 0;
            spec.width = static_cast<size_t>(w < 0 ? -w : w);
            ++p;
        } else {
            while (*p >= '0' && *p <= '9')
                spec.width = spec.width * 10 + static_cast<size_t>(*p++ - '0');
        }
        if (*p == '.') {
            ++p;
            spec.has_precision = true;
            if (*p == '*') {
                long prec = read_star(&reader, &spec);
                spec.has_precision = prec >= 0;
                spec.precision = static_cast<size_t>(prec < 0 ? 0 : prec);
                ++p;
            } else {
                while (*p >= '0' && *p <= '9')
                    spec.precision = spec.precision * 10 + static_cast<size_t>(*p++ - '0');
            }
        }
        if (p[0] == 'I' && p[1] == '6' && p[2] == '4') {
            spec.wide_number = true;
            p += 3;
        }
        while (*p == 'h' || *p == 'l' || *p == 'w') {
            if (p[0] == 'l' && p[1] == 'l') spec.wide_number = true;
            ++p;
        }
        char16_t type = widen_unit(*p);
        if (type) ++p;
        switch (type) {
        case u'%':
            put_unit(out, u'%');
            break;
        case u's':
        case u'S': {
            const fmt_arg *arg = take_arg(&reader);
            if (spec.bad || !arg || arg->kind != fmt_arg::TEXT) break;
            const char16_t *text = arg->text ? arg->text : u"";
            size_t n = 0;
            // The precision is tested first: the text may be a slice with no
            // terminator behind it.
            while ((!spec.has_precision || n < spec.precision) && text[n])
                ++n;
            put_padded(out, &spec, text, n, u' ');
            break;
        }
        case u'c':
        case u'C': {
            const fmt_arg *arg = take_arg(&reader);
            if (spec.bad || !arg || arg->kind != fmt_arg::NUMBER) break;
            char16_t c = static_cast<char16_t>(arg->number);
            put_padded(out, &spec, &c, 1, u' ');
            break;
        }
        case u'd':
        case u'i':
        case u'u':
        case u'x':
        case u'X':
        case u'p': {
            const fmt_arg *arg = take_arg(&reader);
            if (spec.bad || !arg || arg->kind != fmt_arg::NUMBER) break;
            put_number(out, &spec, type, arg->number);
            break;
        }
        default:
            // Not a conversion of ours: the text stands as written.
            for (const F *q = start; q < p; ++q)
                put_unit(out, widen_unit(*q));
            break;
        }
    }
    if (out->capacity)
        out->buffer[out->length < out->capacity ? out->length : out->capacity - 1] = 0;
    return out->length;
}

// The fast path of two-step formatting: no text is cut at this size.
constexpr size_t FAST_UNITS = 256;

} // namespace

size_t format_counted(char16_t *buffer, size_t capacity, const char16_t *format,
                      const fmt_arg *args, size_t count) {
    sink out = {buffer, capacity, 0};
    return format_into(&out, format, args, count);
}

char16_t *str_printf_args(const char16_t *format, const fmt_arg *args, size_t count) {
    char16_t fast[FAST_UNITS];
    size_t length = format_counted(fast, FAST_UNITS, format, args, count);
    if (length < FAST_UNITS) return str_dup_n(fast, length);
    char16_t *text = xalloc_array<char16_t>(length + 1);
    format_counted(text, length + 1, format, args, count);
    return text;
}

uint32_t out_printf_args(os_handle stream, const char16_t *format, const fmt_arg *args,
                         size_t count) {
    char16_t *text = str_printf_args(format, args, count);
    uint32_t result = write_text(stream, text, 0);
    free(text);
    return result;
}

uint32_t file_printf_args(os_handle handle, const char *format, const fmt_arg *args, size_t count) {
    char16_t fast[FAST_UNITS];
    sink out = {fast, FAST_UNITS, 0};
    size_t length = format_into(&out, format, args, count);
    char16_t *text = fast;
    if (length >= FAST_UNITS) {
        text = xalloc_array<char16_t>(length + 1);
        out = {text, length + 1, 0};
        format_into(&out, format, args, count);
    }
    // Each unit is its own byte, with no code page between; a unit that does
    // not fit a byte fails the whole text before anything is written.
    char fast_bytes[FAST_UNITS];
    char *bytes = length < FAST_UNITS ? fast_bytes : static_cast<char *>(xmalloc(length));
    uint32_t result = 0;
    for (size_t i = 0; i < length && !result; ++i) {
        if (text[i] > 0xFF) result = ERR_NO_UNICODE_TRANSLATION;
        bytes[i] = static_cast<char>(static_cast<unsigned char>(text[i]));
    }
    if (!result) result = write_file(handle, bytes, length);
    if (text != fast) free(text);
    if (bytes != fast_bytes) free(bytes);
    return result;
}
