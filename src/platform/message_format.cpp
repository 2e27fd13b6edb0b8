// The insert rules of message templates, for platforms that keep their texts in
// tables of their own. The template language:
//
//   %1 .. %99        insert N, a wide text
//   %N!format!       insert N through the counted formatter, e.g. !u! !lu! !c! !X!
//   %0               end of the text, so no line end follows
//   %% %n %r %t      percent, CR LF, CR, tab
//   %. %! %blank     the character alone
//
// Anything else after a % stands as written.
#include <cstdlib>
#include <cstring>

#include "platform/message_format.h"
#include "run/report.h"

namespace {

struct text_buffer {
    char16_t *text;
    size_t length;
    size_t capacity;
};

void append_units(text_buffer *out, const char16_t *units, size_t n) {
    if (out->length + n + 1 > out->capacity) {
        while (out->length + n + 1 > out->capacity)
            out->capacity *= 2;
        out->text = static_cast<char16_t *>(xrealloc(out->text, out->capacity * sizeof(char16_t)));
    }
    memcpy(out->text + out->length, units, n * sizeof(char16_t));
    out->length += n;
}

void append_unit(text_buffer *out, char16_t c) {
    append_units(out, &c, 1);
}

// Formats insert number (1-based) with a printf-like format of the counted
// formatter. The insert's successors follow it, so a * in the format takes the
// next insert, as the system formatter does.
void append_insert(text_buffer *out, const char16_t *format, size_t format_length,
                   const fmt_arg *args, size_t count, size_t number) {
    char16_t spec[40];
    spec[0] = u'%';
    if (!format_length) {
        spec[1] = u's';
        spec[2] = 0;
    } else {
        memcpy(spec + 1, format, format_length * sizeof(char16_t));
        spec[format_length + 1] = 0;
    }
    char16_t *text = str_printf_args(spec, args + number - 1, count - (number - 1));
    append_units(out, text, str_len(text));
    free(text);
}

} // namespace

char16_t *apply_inserts(const char16_t *tmpl, const fmt_arg *args, size_t count) {
    text_buffer out = {xalloc_array<char16_t>(64), 0, 64};
    const char16_t *p = tmpl ? tmpl : u"";
    while (*p) {
        if (*p != u'%') {
            append_unit(&out, *p++);
            continue;
        }
        char16_t c = p[1];
        if (c == u'0') break;
        if (c >= u'1' && c <= u'9') {
            const char16_t *q = p + 2;
            size_t number = static_cast<size_t>(c - u'0');
            if (is_digit(*q)) number = number * 10 + static_cast<size_t>(*q++ - u'0');
            const char16_t *format = nullptr;
            size_t format_length = 0;
            if (*q == u'!') {
                const char16_t *close = str_chr(q + 1, u'!');
                if (close && close - q - 1 < 38) {
                    format = q + 1;
                    format_length = static_cast<size_t>(close - format);
                    q = close + 1;
                }
            }
            if (number > count)
                append_units(&out, p, static_cast<size_t>(q - p));
            else
                append_insert(&out, format, format_length, args, count, number);
            p = q;
            continue;
        }
        switch (c) {
        case u'%':
        case u'.':
        case u'!':
        case u' ':
            append_unit(&out, c);
            break;
        case u'n':
            append_units(&out, u"\r\n", 2);
            break;
        case u'r':
            append_unit(&out, u'\r');
            break;
        case u't':
            append_unit(&out, u'\t');
            break;
        case 0:
            append_unit(&out, u'%');
            p += 1;
            continue;
        default:
            append_unit(&out, u'%');
            append_unit(&out, c);
            break;
        }
        p += 2;
    }
    out.text[out.length] = 0;
    return out.text;
}
