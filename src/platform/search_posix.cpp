// Wildcard search on POSIX: the names of one directory that match the last
// component of a pattern, as the Windows directory search gives them: ASCII
// case ignored, names starting with a dot not hidden, sorted by name with ASCII
// case folded so that every run sees the same order.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <sys/stat.h>

#include "platform/posix.h"
#include "platform/system.h"
#include "run/report.h"

// The matches of one search, read and sorted at its start.
struct find_state {
    char *directory; // OS form, with its trailing / ("" for the current directory)
    char16_t **names;
    size_t count;
    size_t next;
};

namespace {

// Matches name[0, ne) against pattern[0, pe): ASCII case ignored, * any run
// of units, ? exactly one.
bool match_wildcard(const char16_t *p, const char16_t *pe, const char16_t *n, const char16_t *ne) {
    const char16_t *star = nullptr, *resume = nullptr;
    while (n < ne) {
        if (p < pe && *p == u'*') {
            star = ++p;
            resume = n;
        } else if (p < pe && (*p == u'?' || fold_char(*p) == fold_char(*n))) {
            ++p;
            ++n;
        } else if (star) {
            p = star;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pe && *p == u'*')
        ++p;
    return p == pe;
}

// A pattern that ends in ".*" also takes names without a dot, so "*.*" takes
// every name, as the command prompt has it.
bool match_name(const char16_t *pattern, const char16_t *name) {
    size_t pl = str_len(pattern), nl = str_len(name);
    if (match_wildcard(pattern, pattern + pl, name, name + nl)) return true;
    return pl >= 2 && pattern[pl - 2] == u'.' && pattern[pl - 1] == u'*' && !str_chr(name, u'.') &&
           match_wildcard(pattern, pattern + pl - 2, name, name + nl);
}

int compare_found(const void *a, const void *b) {
    const char16_t *x = *static_cast<const char16_t *const *>(a);
    const char16_t *y = *static_cast<const char16_t *const *>(b);
    int folded = str_icmp(x, y);
    return folded ? folded : str_cmp(x, y);
}

void free_search(find_state *search) {
    for (size_t i = 0; i < search->count; ++i)
        free(search->names[i]);
    free(search->names);
    free(search->directory);
    free(search);
}

// Reads the directory of pattern and keeps the names that match its last
// component. Returns 0 with *out set, or an error code (2 when nothing matches).
uint32_t start_search(const char16_t *pattern, find_state **out) {
    *out = nullptr;
    const char16_t *last = pattern;
    for (const char16_t *p = pattern; p && *p; ++p)
        if (*p == u'\\' || *p == u'/') last = p + 1;
    char16_t *directory = str_dup_n(pattern, static_cast<size_t>(last - pattern));
    char *os_directory = encode_os_name(directory);
    free(directory);
    DIR *dir = opendir(*os_directory ? os_directory : ".");
    if (!dir) {
        uint32_t error = map_errno(errno);
        free(os_directory);
        return error == ERR_FILE_NOT_FOUND ? ERR_PATH_NOT_FOUND : error;
    }
    find_state *search = xcalloc_record<find_state>();
    search->directory = os_directory;
    size_t capacity = 0;
    while (dirent *entry = readdir(dir)) {
        char16_t *name = decode_os_text(entry->d_name, strlen(entry->d_name));
        if (!match_name(last, name)) {
            free(name);
            continue;
        }
        if (search->count == capacity) {
            capacity = capacity ? capacity * 2 : 16;
            search->names =
                static_cast<char16_t **>(xrealloc(search->names, capacity * sizeof(char16_t *)));
        }
        search->names[search->count++] = name;
    }
    closedir(dir);
    if (!search->count) {
        free_search(search);
        return ERR_FILE_NOT_FOUND;
    }
    qsort(search->names, search->count, sizeof(char16_t *), compare_found);
    *out = search;
    return 0;
}

} // namespace

bool has_wildcard(const char16_t *name) {
    return str_pbrk(name, u"*?") != nullptr;
}

// The time of the first match of a wildcard name, or 0.
uint64_t get_first_match_time(const char16_t *pattern) {
    find_state *search = nullptr;
    if (start_search(pattern, &search)) return 0;
    char *name = encode_text(search->names[0], nullptr);
    size_t dl = strlen(search->directory), nl = strlen(name);
    char *path = static_cast<char *>(xmalloc(dl + nl + 1));
    memcpy(path, search->directory, dl);
    memcpy(path + dl, name, nl + 1);
    struct stat info;
    uint64_t time = stat_entry(path, &info) == 0 ? get_stat_time(&info) : 0;
    free(path);
    free(name);
    free_search(search);
    return time;
}

uint32_t search_error(const char16_t *pattern) {
    find_state *search = nullptr;
    const uint32_t error = start_search(pattern, &search);
    if (search) free_search(search);
    return error;
}

find_state *find_first(const char16_t *pattern, const char16_t **name) {
    find_state *search = nullptr;
    if (start_search(pattern, &search)) return nullptr;
    *name = search->names[search->next++];
    return search;
}

bool find_next(find_state *search, const char16_t **name) {
    if (!search || search->next >= search->count) return false;
    *name = search->names[search->next++];
    return true;
}

void find_close(find_state *search) {
    if (search) free_search(search);
}
