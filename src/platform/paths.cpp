// Taking paths apart and joining them, on wide text and without the disk.
// Both \ and / separate; a drive colon ends the directory part only where the
// header says so.
#include <cstdlib>
#include <cstring>

#include "platform/paths.h"
#include "platform/system.h"
#include "run/report.h"

namespace {

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// The work buffer of make_full_path; the result keeps one unit for the null.
constexpr size_t FULL_PATH_UNITS = 4096;
constexpr size_t FULL_PATH_LIMIT = FULL_PATH_UNITS - 1;

// Copies at most PATH_PART - 1 units of text into part, when part is wanted.
void copy_part(char16_t *part, const char16_t *text, size_t n) {
    if (!part) return;
    if (n > PATH_PART - 1) n = PATH_PART - 1;
    memcpy(part, text, n * sizeof(char16_t));
    part[n] = 0;
}

} // namespace

const char16_t *base_name(const char16_t *path) {
    if (!path) return u"";
    const char16_t *behind = path;
    for (const char16_t *p = path; *p; ++p)
        if (is_separator(*p) || *p == u':') behind = p + 1;
    return behind;
}

size_t stem_length(const char16_t *name) {
    size_t length = str_len(name);
    for (size_t i = length; i > 0; --i) {
        char16_t c = name[i - 1];
        if (c == u'.') return i - 1;
        if (is_separator(c)) break;
    }
    return length;
}

char16_t *dir_of_path(const char16_t *path) {
    if (!path) return nullptr;
    const char16_t *p = base_name(path);
    if (p - path >= 2 && is_separator(p[-1]) && p[-2] != u':') --p;
    return str_dup_n(path, static_cast<size_t>(p - path));
}

char16_t *make_full_path(const char16_t *name, const char16_t *base) {
    if (!name) name = u"";
    if (is_separator(name[0]) || (is_char_alpha(name[0]) && name[1] == u':')) return str_dup(name);

    char16_t buffer[FULL_PATH_UNITS];
    char16_t *current = base ? nullptr : current_dir();
    const char16_t *start = base ? base : current;
    size_t used = str_len(start);
    if (used > FULL_PATH_LIMIT) used = FULL_PATH_LIMIT;
    if (used) memcpy(buffer, start, used * sizeof(char16_t));
    free(current);

    const char16_t *p = name;
    while (*p) {
        const char16_t *segment = p;
        while (*p && !is_separator(*p))
            ++p;
        size_t n = static_cast<size_t>(p - segment);
        if (*p) ++p;
        if (n == 0 || (n == 1 && segment[0] == u'.')) continue;
        if (n == 2 && segment[0] == u'.' && segment[1] == u'.') {
            if (used == 0) {
                // Above the top there is only the root: the rest of name is dropped.
                buffer[used++] = u'\\';
                break;
            }
            // At least one step, so a root's own separator is all that a
            // trailing separator loses and the drive survives.
            do
                --used;
            while (used > 0 && !is_separator(buffer[used]));
            continue;
        }
        if (used > 0 && !is_separator(buffer[used - 1]) && used < FULL_PATH_LIMIT)
            buffer[used++] = u'\\';
        for (size_t i = 0; i < n && used < FULL_PATH_LIMIT; ++i)
            buffer[used++] = segment[i];
    }
    return str_dup_n(buffer, used);
}

void split_path(const char16_t *path, char16_t *drive, char16_t *directory, char16_t *base,
                char16_t *extension) {
    if (!path) path = u"";
    const char16_t *rest = path;
    if (path[0] && path[1] == u':') {
        if (drive) {
            drive[0] = path[0];
            drive[1] = path[1];
            drive[2] = 0;
        }
        rest = path + 2;
    } else if (drive) {
        drive[0] = 0;
    }
    const char16_t *behind_separator = rest;
    const char16_t *last_dot = nullptr;
    const char16_t *end = rest;
    for (; *end; ++end) {
        if (is_separator(*end))
            behind_separator = end + 1;
        else if (*end == u'.')
            last_dot = end;
    }
    copy_part(directory, rest, static_cast<size_t>(behind_separator - rest));
    if (last_dot && last_dot >= behind_separator) {
        copy_part(base, behind_separator, static_cast<size_t>(last_dot - behind_separator));
        copy_part(extension, last_dot, static_cast<size_t>(end - last_dot));
    } else {
        copy_part(base, behind_separator, static_cast<size_t>(end - behind_separator));
        copy_part(extension, end, 0);
    }
}
