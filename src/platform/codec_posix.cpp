// Byte text and wide text on POSIX, where every code page is UTF-8: the system,
// OEM and UTF-8 pages all read the same way, and so does any other number.
#include <cstdint>
#include <cstdlib>

#include "platform/posix.h"
#include "platform/system.h"
#include "run/report.h"

namespace {

constexpr char16_t REPLACEMENT = 0xFFFD;

bool is_continuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

// Length of the valid, shortest-form sequence at bytes[0], or 0 when the byte
// does not start one. Encoded surrogates and values above U+10FFFF are not
// valid, and neither is a sequence cut short by the end of the input.
size_t measure_sequence(const unsigned char *bytes, size_t left, uint32_t *code) {
    unsigned char b = bytes[0];
    if (b < 0x80) {
        *code = b;
        return 1;
    }
    size_t n;
    unsigned char low = 0x80, high = 0xBF; // bounds of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
        n = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
        n = 3;
        if (b == 0xE0) low = 0xA0;
        if (b == 0xED) high = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
        n = 4;
        if (b == 0xF0) low = 0x90;
        if (b == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (left < n || bytes[1] < low || bytes[1] > high) return 0;
    uint32_t value = b & (0x7Fu >> n);
    for (size_t i = 1; i < n; ++i) {
        if (!is_continuation(bytes[i])) return 0;
        value = (value << 6) | (bytes[i] & 0x3Fu);
    }
    *code = value;
    return n;
}

} // namespace

// The locale's letter test of the drive check, in one fixed locale: the ASCII letters; the Latin-1
// letters 0xC0-0xFF apart from the two operators 0xD7 and 0xF7; the ordinal indicators and micro
// sign 0xAA, 0xB5 and 0xBA. Every unit from 0x100 on that is not a surrogate counts as a letter,
// which errs on the side of a drive for scripts beyond Latin-1 (a path that
// starts with such a character and a colon is taken as complete).
bool is_char_alpha(char16_t c) {
    if (c < 0x80) return is_alpha(c);
    if (c < 0x100) {
        if (c == 0xAA || c == 0xB5 || c == 0xBA) return true;
        return c >= 0xC0 && c != 0xD7 && c != 0xF7;
    }
    return c < 0xD800 || c > 0xDFFF;
}

uint32_t decode_bytes(uint32_t code_page, const char *bytes, size_t count, char16_t *out,
                      size_t capacity, size_t *produced) {
    (void)code_page;
    size_t used = 0;
    const unsigned char *in = reinterpret_cast<const unsigned char *>(bytes);
    for (size_t i = 0; i < count;) {
        uint32_t code = REPLACEMENT;
        size_t n = measure_sequence(in + i, count - i, &code);
        if (n == 0) {
            code = REPLACEMENT;
            n = 1;
        }
        size_t units = code >= 0x10000 ? 2 : 1;
        if (used + units + 1 > capacity) {
            if (capacity) out[0] = 0;
            if (produced) *produced = 0;
            return ERR_NO_UNICODE_TRANSLATION;
        }
        if (units == 2) {
            code -= 0x10000;
            out[used++] = static_cast<char16_t>(0xD800 + (code >> 10));
            out[used++] = static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        } else {
            out[used++] = static_cast<char16_t>(code);
        }
        i += n;
    }
    if (capacity == 0) {
        if (produced) *produced = 0;
        return ERR_NO_UNICODE_TRANSLATION;
    }
    out[used] = 0;
    if (produced) *produced = used;
    return 0;
}

char *encode_text(const char16_t *text, size_t *length) {
    size_t units = str_len(text);
    // Three bytes per unit covers every case: a pair takes four bytes for two units.
    char *bytes = static_cast<char *>(xmalloc(units * 3 + 1));
    size_t n = 0;
    for (size_t i = 0; i < units; ++i) {
        uint32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = REPLACEMENT; // a lone half of a pair has no encoding
        }
        if (c < 0x80) {
            bytes[n++] = static_cast<char>(c);
        } else if (c < 0x800) {
            bytes[n++] = static_cast<char>(0xC0 | (c >> 6));
            bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            bytes[n++] = static_cast<char>(0xE0 | (c >> 12));
            bytes[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
        } else {
            bytes[n++] = static_cast<char>(0xF0 | (c >> 18));
            bytes[n++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            bytes[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            bytes[n++] = static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    bytes[n] = 0;
    if (length) *length = n;
    return bytes;
}
