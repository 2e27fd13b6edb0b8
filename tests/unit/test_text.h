// Small conversions for tests: wide text to UTF-8 for messages and comparisons.
#pragma once

#include <string>

inline std::string to_utf8(const char16_t *text) {
    std::string out;
    for (const char16_t *p = text; p && *p; ++p) {
        unsigned c = *p;
        if (c >= 0xD800 && c < 0xDC00 && p[1] >= 0xDC00 && p[1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (*++p - 0xDC00);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

inline std::string to_utf8(const std::u16string &text) {
    return to_utf8(text.c_str());
}

// Each byte as one unit: ASCII and Latin-1 texts for tests.
inline std::u16string widen(const std::string &text) {
    std::u16string out;
    for (char c : text)
        out += static_cast<char16_t>(static_cast<unsigned char>(c));
    return out;
}

inline std::u16string repeat(const std::u16string &part, size_t count) {
    std::u16string out;
    for (size_t i = 0; i < count; ++i)
        out += part;
    return out;
}

// prefix followed by n in decimal, such as N42.
inline std::u16string numbered(const char16_t *prefix, int n) {
    return prefix + widen(std::to_string(n));
}
