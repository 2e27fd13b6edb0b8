// System services on POSIX. The contract is the Windows one: handles are file
// descriptors, failures come back as Windows error codes, names may use \ for
// a separator, time stamps count 100 ns units since 1601, and environment names
// and wildcard matches ignore ASCII case.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include "messages.h"
#include "platform/message_format.h"
#include "platform/posix.h"
#include "platform/system.h"
#include "run/report.h"

extern char **environ;

namespace {

// Seconds from 1601-01-01 to 1970-01-01, and time stamp units per second.
constexpr int64_t EPOCH_DIFFERENCE = 11644473600;
constexpr uint64_t UNITS_PER_SECOND = 10000000;

constexpr uint32_t ERR_DEVICE_NOT_READY = 21;
constexpr uint32_t ERR_FILE_EXISTS = 80;
constexpr uint32_t ERR_INVALID_PARAMETER = 87;

uint32_t get_last_error() {
    return map_errno(errno);
}

uint32_t write_all(int fd, const char *bytes, size_t count) {
    while (count) {
        ssize_t n = write(fd, bytes, count);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return get_last_error();
        if (n == 0) return ERR_WRITE_FAULT;
        bytes += n;
        count -= static_cast<size_t>(n);
    }
    return 0;
}

} // namespace

// A name on its way to the OS: UTF-8, with every \ turned into /. Caller frees.
char *encode_os_name(const char16_t *name) {
    char *bytes = encode_text(name, nullptr);
    for (char *p = bytes; *p; ++p)
        if (*p == '\\') *p = '/';
    return bytes;
}

// A new wide text of n bytes of UTF-8 from the OS.
char16_t *decode_os_text(const char *bytes, size_t n) {
    char16_t *text = xalloc_array<char16_t>(n + 1);
    size_t produced = 0;
    decode_bytes(65001, bytes, n, text, n + 1, &produced);
    return text;
}

uint64_t get_stat_time(const struct stat *info) {
    int64_t seconds = static_cast<int64_t>(info->st_mtim.tv_sec) + EPOCH_DIFFERENCE;
    if (seconds < 0) return 0;
    return static_cast<uint64_t>(seconds) * UNITS_PER_SECOND +
           static_cast<uint64_t>(info->st_mtim.tv_nsec) / 100;
}

// stat, or for a link that leads nowhere the link itself: the entry is there.
// The link is asked for first, so that a missing name, which the rule search
// asks about most, costs one call.
int stat_entry(const char *name, struct stat *info) {
    if (lstat(name, info) != 0) return errno;
    if (S_ISLNK(info->st_mode)) {
        struct stat target;
        if (stat(name, &target) == 0) *info = target;
    }
    return 0;
}

uint32_t map_errno(int error) {
    switch (error) {
    case 0:
        return 0;
    case ENOENT:
        return ERR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
        return ERR_ACCESS_DENIED;
    case EBADF:
        return ERR_INVALID_HANDLE;
    case ENOMEM:
    case EAGAIN:
        return ERR_OUT_OF_MEMORY;
    case EROFS:
        return 19;
    case ENXIO:
    case ENODEV:
        return ERR_DEVICE_NOT_READY;
    case ENOSPC:
        return 112;
    case EDQUOT:
        return 39;
    case EEXIST:
        return ERR_FILE_EXISTS;
    case ENOTEMPTY:
        return 145;
    case ENAMETOOLONG:
    case E2BIG:
        return 206;
    case EMFILE:
    case ENFILE:
        return 4;
    case EBUSY:
    case ETXTBSY:
        return 32;
    case EINVAL:
        return ERR_INVALID_PARAMETER;
    case EPIPE:
        return 109;
    case ELOOP:
        return 123;
    case ENOEXEC:
        return 193;
    case EIO:
        return 1117;
    default:
        return 31; // a device attached to the system is not functioning
    }
}

namespace {

// The first entry whose name equals name with ASCII case ignored, skipping an
// exact spelling when other_only is set. Returns the entry ("NAME=value") or null.
const char *find_env_entry(const char *name, bool other_only) {
    size_t n = strlen(name);
    for (char **e = environ; e && *e; ++e) {
        const char *entry = *e;
        size_t i = 0;
        while (i < n && entry[i] && entry[i] != '=' &&
               fold_char(static_cast<unsigned char>(entry[i])) ==
                   fold_char(static_cast<unsigned char>(name[i])))
            ++i;
        if (i == n && entry[i] == '=' && !(other_only && strncmp(entry, name, n) == 0))
            return entry;
    }
    return nullptr;
}

bool is_env_name(const char16_t *name) {
    return name && *name && !str_chr(name, u'=');
}

} // namespace

uint32_t write_file(os_handle handle, const void *buffer, size_t count) {
    return write_all(static_cast<int>(handle), static_cast<const char *>(buffer), count);
}

uint32_t write_text(os_handle stream, const char16_t *text, uint32_t code_page) {
    (void)code_page; // every code page is UTF-8 here, terminal or not
    if (!text || !*text) return 0;
    size_t length = 0;
    char *bytes = encode_text(text, &length);
    uint32_t result = write_all(static_cast<int>(stream), bytes, length);
    free(bytes);
    return result;
}

namespace {

// Makefiles are read a line at a time, each line with a position query, a read
// and a seek back behind the line. A read-ahead buffer per input handle serves
// all three from memory, so a makefile costs a few system calls in all. Only
// handles of open_input have one; the others go straight to the OS.
constexpr size_t READ_AHEAD_BYTES = 64 * 1024;
constexpr int MAX_CACHED_FD = 1024;

struct input_cache {
    char buffer[READ_AHEAD_BYTES];
    uint64_t start;    // file offset of buffer[0]
    size_t length;     // valid bytes in buffer
    uint64_t position; // the handle's logical file position
};

input_cache *input_caches[MAX_CACHED_FD];

input_cache *cache_of(os_handle handle) {
    return handle >= 0 && handle < MAX_CACHED_FD ? input_caches[handle] : nullptr;
}

uint32_t read_cached(input_cache *cache, int fd, char *out, size_t count, size_t *got) {
    *got = 0;
    while (count > 0) {
        if (cache->position < cache->start || cache->position >= cache->start + cache->length) {
            ssize_t n;
            do {
                n = pread(fd, cache->buffer, READ_AHEAD_BYTES, static_cast<off_t>(cache->position));
            } while (n < 0 && errno == EINTR);
            if (n < 0) return get_last_error();
            cache->start = cache->position;
            cache->length = static_cast<size_t>(n);
            if (n == 0) return 0; // end of file
        }
        const size_t offset = static_cast<size_t>(cache->position - cache->start);
        size_t take = cache->length - offset;
        if (take > count) take = count;
        memcpy(out, cache->buffer + offset, take);
        out += take;
        count -= take;
        *got += take;
        cache->position += take;
    }
    return 0;
}

} // namespace

uint32_t open_input(const char16_t *name, os_handle *handle) {
    *handle = INVALID_FILE;
    char *os_name = encode_os_name(name);
    int fd = open(os_name, O_RDONLY | O_CLOEXEC);
    uint32_t error = fd < 0 ? get_last_error() : 0;
    free(os_name);
    if (error) return error;
    struct stat info;
    if (fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
        close(fd); // a directory is no input file, as on a system that refuses to open one
        return ERR_ACCESS_DENIED;
    }
    *handle = fd;
    if (fd < MAX_CACHED_FD)
        input_caches[fd] = static_cast<input_cache *>(xcalloc(sizeof(input_cache)));
    return 0;
}

uint32_t create_file(const char16_t *name, os_handle *handle) {
    *handle = INVALID_FILE;
    char *os_name = encode_os_name(name);
    int fd = open(os_name, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    uint32_t error = fd < 0 ? get_last_error() : 0;
    free(os_name);
    if (!error) *handle = fd;
    return error;
}

uint32_t create_temp_file(char16_t **name, os_handle *handle, bool inherit) {
    *name = nullptr;
    if (handle) *handle = INVALID_FILE;
    char16_t *folder = get_env(u"TMP");
    if (!folder) folder = get_env(u"TEMP");
    if (!folder) folder = get_env(u"TMPDIR");
    if (!folder) folder = str_dup(u"/tmp");
    // A folder that ends in a separator gets no second one.
    size_t fl = str_len(folder);
    const char16_t *joint = fl && (folder[fl - 1] == u'/' || folder[fl - 1] == u'\\') ? u"" : u"/";
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    unsigned start = static_cast<unsigned>(getpid()) * 2654435761u ^
                     static_cast<unsigned>(now.tv_nsec) ^ static_cast<unsigned>(now.tv_sec);
    int flags = O_RDWR | O_CREAT | O_EXCL | (inherit ? 0 : O_CLOEXEC);
    uint32_t error = ERR_FILE_EXISTS;
    for (unsigned i = 0; i < 0x10000; ++i) {
        unsigned number = (start + i) & 0xFFFF;
        char16_t *full = str_printf(u"%ls%lsQX%X.TMP", folder, joint, number);
        char *os_name = encode_os_name(full);
        int fd = open(os_name, flags, 0666);
        error = fd < 0 ? get_last_error() : 0;
        free(os_name);
        if (error == ERR_FILE_EXISTS) {
            free(full);
            continue;
        }
        if (error) {
            free(full);
            break;
        }
        if (handle)
            *handle = fd;
        else
            close(fd);
        *name = full;
        break;
    }
    free(folder);
    return error;
}

uint32_t close_file(os_handle handle) {
    if (input_cache *cache = cache_of(handle)) {
        free(cache);
        input_caches[handle] = nullptr;
    }
    return close(static_cast<int>(handle)) == 0 ? 0 : get_last_error();
}

uint32_t delete_file(const char16_t *name) {
    char *os_name = encode_os_name(name);
    uint32_t error = unlink(os_name) == 0 ? 0 : get_last_error();
    free(os_name);
    return error;
}

uint32_t read_file(os_handle handle, void *buffer, size_t count, size_t *got) {
    if (input_cache *cache = cache_of(handle))
        return read_cached(cache, static_cast<int>(handle), static_cast<char *>(buffer), count,
                           got);
    *got = 0;
    for (;;) {
        ssize_t n = read(static_cast<int>(handle), buffer, count);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return get_last_error();
        *got = static_cast<size_t>(n);
        return 0;
    }
}

uint32_t file_position(os_handle handle, uint64_t *position) {
    if (input_cache *cache = cache_of(handle)) {
        *position = cache->position;
        return 0;
    }
    off_t at = lseek(static_cast<int>(handle), 0, SEEK_CUR);
    if (at < 0) return get_last_error();
    *position = static_cast<uint64_t>(at);
    return 0;
}

uint32_t seek_file(os_handle handle, uint64_t position) {
    if (position > static_cast<uint64_t>(INT64_MAX)) return ERR_INVALID_PARAMETER;
    if (input_cache *cache = cache_of(handle)) {
        cache->position = position;
        return 0;
    }
    off_t at = lseek(static_cast<int>(handle), static_cast<off_t>(position), SEEK_SET);
    return at < 0 ? get_last_error() : 0;
}

uint64_t file_time(const char16_t *name) {
    if (has_wildcard(name)) return get_first_match_time(name);
    char *os_name = encode_os_name(name);
    struct stat info;
    uint64_t time = stat_entry(os_name, &info) == 0 ? get_stat_time(&info) : 0;
    free(os_name);
    return time;
}

uint32_t set_file_time(const char16_t *name, uint64_t time) {
    char *os_name = encode_os_name(name);
    int fd = open(os_name, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    uint32_t error = fd < 0 ? get_last_error() : 0;
    free(os_name);
    if (error) return error;
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT; // the last-access time stays as it is
    times[1].tv_sec =
        static_cast<time_t>(static_cast<int64_t>(time / UNITS_PER_SECOND) - EPOCH_DIFFERENCE);
    times[1].tv_nsec = static_cast<long>(time % UNITS_PER_SECOND) * 100;
    if (futimens(fd, times) != 0) error = get_last_error();
    if (close(fd) != 0 && !error) error = get_last_error();
    return error;
}

bool file_exists(const char16_t *name) {
    uint32_t error = 0;
    if (has_wildcard(name)) {
        error = search_error(name);
    } else {
        char *os_name = encode_os_name(name);
        struct stat info;
        error = map_errno(stat_entry(os_name, &info));
        free(os_name);
    }
    // Only a sure absence says no; a name that cannot be examined is there.
    return !(error == ERR_FILE_NOT_FOUND || error == ERR_PATH_NOT_FOUND ||
             error == ERR_DEVICE_NOT_READY);
}

bool is_directory(const char16_t *name) {
    char *os_name = encode_os_name(name);
    struct stat info;
    bool directory = stat(os_name, &info) == 0 && S_ISDIR(info.st_mode);
    free(os_name);
    return directory;
}

uint64_t system_time() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(static_cast<int64_t>(now.tv_sec) + EPOCH_DIFFERENCE) *
               UNITS_PER_SECOND +
           static_cast<uint64_t>(now.tv_nsec) / 100;
}

int compare_time(uint64_t a, uint64_t b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

// The user's short date and time, in one fixed pattern on this platform:
// 2026-01-31, 14:05:09, in local time.
char16_t *format_date_time(uint64_t time) {
    time_t seconds =
        static_cast<time_t>(static_cast<int64_t>(time / UNITS_PER_SECOND) - EPOCH_DIFFERENCE);
    struct tm fields;
    if (!localtime_r(&seconds, &fields)) return nullptr;
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02d, %02d:%02d:%02d", fields.tm_year + 1900,
             fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return decode_os_text(text, strlen(text));
}

char16_t *current_dir() {
    for (size_t size = 256;; size *= 2) {
        char *bytes = static_cast<char *>(xmalloc(size));
        if (getcwd(bytes, size)) {
            char16_t *text = decode_os_text(bytes, strlen(bytes));
            free(bytes);
            return text;
        }
        free(bytes);
        if (errno != ERANGE) return nullptr;
    }
}

uint32_t change_dir(const char16_t *path) {
    char *os_name = encode_os_name(path);
    uint32_t error = chdir(os_name) == 0 ? 0 : get_last_error();
    free(os_name);
    return error;
}

char16_t *get_env(const char16_t *name) {
    if (!is_env_name(name)) return nullptr;
    char *bytes = encode_text(name, nullptr);
    const char *value = getenv(bytes);
    if (!value) {
        const char *entry = find_env_entry(bytes, false);
        if (entry) value = entry + strlen(bytes) + 1;
    }
    free(bytes);
    if (!value || !*value) return nullptr; // an empty value reads as unset
    return decode_os_text(value, strlen(value));
}

uint32_t set_env(const char16_t *name, const char16_t *value) {
    if (!is_env_name(name)) return ERR_INVALID_PARAMETER;
    char *bytes = encode_text(name, nullptr);
    // Names ignore case, so one in another spelling is the same variable and
    // gives way; the new spelling is the one that stays.
    for (;;) {
        const char *entry = find_env_entry(bytes, true);
        if (!entry) break;
        size_t n = strlen(bytes);
        char *other = static_cast<char *>(xmalloc(n + 1));
        memcpy(other, entry, n);
        other[n] = 0;
        unsetenv(other);
        free(other);
    }
    uint32_t error = 0;
    if (!value) {
        if (unsetenv(bytes) != 0) error = get_last_error();
    } else {
        char *value_bytes = encode_text(value, nullptr);
        if (setenv(bytes, value_bytes, 1) != 0) error = get_last_error();
        free(value_bytes);
    }
    free(bytes);
    return error;
}

uint16_t user_language() {
    const char *names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    for (const char *name : names) {
        const char *value = getenv(name);
        if (value && *value) return strncmp(value, "sv", 2) == 0 ? LANG_SWEDISH : LANG_ENGLISH;
    }
    return LANG_ENGLISH;
}

char16_t *format_message(uint32_t id, const fmt_arg *args, size_t count, bool from_system) {
    id &= MESSAGE_ID_MASK;
    uint16_t language = user_language();
    const char16_t *text = (id & 0x20000000) ? catalogue_text(id, language)
                           : from_system     ? system_error_text(id, language)
                                             : nullptr;
    return text ? apply_inserts(text, args, count) : nullptr;
}

size_t allocator_block_size(const void *block) {
    return block ? malloc_usable_size(const_cast<void *>(block)) : 0;
}
