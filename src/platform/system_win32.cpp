// System services on Windows: each operation is the Kernel32 call that the
// contract is written against, with its own error codes.
#include <cstdarg>
#include <cstdlib>

#include <malloc.h>

#include "platform/system.h"
#include "platform/win32.h"
#include "run/report.h"

namespace {

constexpr uint32_t CUSTOMER_BIT = 0x20000000;

uint32_t get_last_error() {
    return static_cast<uint32_t>(GetLastError());
}

} // namespace

// The locale's own letter test, the one that IsCharAlphaW makes.
bool is_char_alpha(char16_t c) {
    WORD type = 0;
    return GetStringTypeW(CT_CTYPE1, os_text(&c), 1, &type) && (type & C1_ALPHA);
}

uint32_t decode_bytes(uint32_t code_page, const char *bytes, size_t count, char16_t *out,
                      size_t capacity, size_t *produced) {
    if (produced) *produced = 0;
    if (capacity == 0) return ERR_NO_UNICODE_TRANSLATION;
    int units = 0;
    if (count) {
        // Room for the terminator stays outside what the conversion may fill;
        // a room of 0 would only ask for the size.
        if (capacity == 1) {
            out[0] = 0;
            return ERR_NO_UNICODE_TRANSLATION;
        }
        units = MultiByteToWideChar(code_page, 0, bytes, static_cast<int>(count), os_text(out),
                                    static_cast<int>(capacity - 1));
        if (units <= 0) {
            out[0] = 0;
            return ERR_NO_UNICODE_TRANSLATION;
        }
    }
    out[units] = 0;
    if (produced) *produced = static_cast<size_t>(units);
    return 0;
}

uint32_t write_file(os_handle handle, const void *buffer, size_t count) {
    DWORD written = 0;
    if (!WriteFile(os_handle_of(handle), buffer, static_cast<DWORD>(count), &written, nullptr))
        return get_last_error();
    return written < count ? ERR_WRITE_FAULT : 0;
}

// A console gets the wide text as it is; anything else gets it in the code
// page, with the code page's default character for what it lacks.
uint32_t write_text(os_handle stream, const char16_t *text, uint32_t code_page) {
    if (!text || !*text) return 0;
    HANDLE handle = os_handle_of(stream);
    DWORD mode = 0;
    if (GetFileType(handle) == FILE_TYPE_CHAR && GetConsoleMode(handle, &mode)) {
        const DWORD length = static_cast<DWORD>(str_len(text));
        DWORD written = 0;
        if (!WriteConsoleW(handle, os_text(text), length, &written, nullptr))
            return get_last_error();
        return written < length ? ERR_WRITE_FAULT : 0;
    }
    const int size =
        WideCharToMultiByte(code_page, 0, os_text(text), -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return ERR_NO_UNICODE_TRANSLATION;
    char *bytes = xalloc_array<char>(static_cast<size_t>(size));
    WideCharToMultiByte(code_page, 0, os_text(text), -1, bytes, size, nullptr, nullptr);
    const uint32_t result = write_file(stream, bytes, static_cast<size_t>(size - 1));
    free(bytes);
    return result;
}

uint32_t open_input(const char16_t *name, os_handle *handle) {
    HANDLE file = CreateFileW(os_text(name), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              0, nullptr);
    *handle = reinterpret_cast<os_handle>(file);
    return file == INVALID_HANDLE_VALUE ? get_last_error() : 0;
}

uint32_t create_file(const char16_t *name, os_handle *handle) {
    HANDLE file = CreateFileW(os_text(name), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    *handle = reinterpret_cast<os_handle>(file);
    return file == INVALID_HANDLE_VALUE ? get_last_error() : 0;
}

uint32_t create_temp_file(char16_t **name, os_handle *handle, bool inherit) {
    *name = nullptr;
    if (handle) *handle = INVALID_FILE;
    wchar_t folder[MAX_PATH];
    const DWORD length = GetTempPathW(MAX_PATH, folder);
    if (length == 0) return get_last_error();
    if (length >= MAX_PATH) return ERROR_INSUFFICIENT_BUFFER;
    wchar_t path[MAX_PATH];
    if (!GetTempFileNameW(folder, L"QX", 0, path)) return get_last_error();
    if (handle) {
        SECURITY_ATTRIBUTES security = {sizeof security, nullptr, inherit ? TRUE : FALSE};
        HANDLE file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, &security, OPEN_EXISTING,
                                  0, nullptr);
        if (file == INVALID_HANDLE_VALUE) return get_last_error();
        *handle = reinterpret_cast<os_handle>(file);
    }
    *name = str_dup(our_text(path));
    return 0;
}

uint32_t close_file(os_handle handle) {
    return CloseHandle(reinterpret_cast<HANDLE>(handle)) ? 0 : get_last_error();
}

uint32_t delete_file(const char16_t *name) {
    return DeleteFileW(os_text(name)) ? 0 : get_last_error();
}

uint32_t read_file(os_handle handle, void *buffer, size_t count, size_t *got) {
    DWORD read = 0;
    const BOOL done = ReadFile(reinterpret_cast<HANDLE>(handle), buffer, static_cast<DWORD>(count),
                               &read, nullptr);
    *got = read;
    return done ? 0 : get_last_error();
}

uint32_t file_position(os_handle handle, uint64_t *position) {
    LARGE_INTEGER distance, now;
    distance.QuadPart = 0;
    if (!SetFilePointerEx(reinterpret_cast<HANDLE>(handle), distance, &now, FILE_CURRENT))
        return get_last_error();
    *position = static_cast<uint64_t>(now.QuadPart);
    return 0;
}

uint32_t seek_file(os_handle handle, uint64_t position) {
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(position);
    return SetFilePointerEx(reinterpret_cast<HANDLE>(handle), distance, nullptr, FILE_BEGIN)
               ? 0
               : get_last_error();
}

// A directory look-up: the file is not opened, and a directory has a time too.
uint64_t file_time(const char16_t *name) {
    WIN32_FIND_DATAW data;
    HANDLE search = FindFirstFileW(os_text(name), &data);
    if (search == INVALID_HANDLE_VALUE) return 0;
    FindClose(search);
    return time_of(data.ftLastWriteTime);
}

uint32_t set_file_time(const char16_t *name, uint64_t time) {
    HANDLE file = CreateFileW(os_text(name), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return get_last_error();
    const FILETIME written = filetime_of(time);
    const uint32_t result = SetFileTime(file, nullptr, nullptr, &written) ? 0 : get_last_error();
    CloseHandle(file);
    return result;
}

// Only a sure absence says no; a name that cannot be examined is there.
bool file_exists(const char16_t *name) {
    WIN32_FIND_DATAW data;
    HANDLE search = FindFirstFileW(os_text(name), &data);
    if (search != INVALID_HANDLE_VALUE) {
        FindClose(search);
        return true;
    }
    const DWORD error = GetLastError();
    return !(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
             error == ERROR_NOT_READY);
}

bool is_directory(const char16_t *name) {
    const DWORD attributes = GetFileAttributesW(os_text(name));
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

uint64_t system_time() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return time_of(now);
}

int compare_time(uint64_t a, uint64_t b) {
    const FILETIME x = filetime_of(a), y = filetime_of(b);
    return static_cast<int>(CompareFileTime(&x, &y));
}

// The user's short date and time, as the user's locale writes them. The A
// forms size the buffer; for any locale they need at least as many units.
char16_t *format_date_time(uint64_t time) {
    const FILETIME utc = filetime_of(time);
    FILETIME local;
    SYSTEMTIME fields;
    if (!FileTimeToLocalFileTime(&utc, &local) || !FileTimeToSystemTime(&local, &fields))
        return nullptr;
    const int date_length =
        GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &fields, nullptr, nullptr, 0);
    const int time_length = GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &fields, nullptr, nullptr, 0);
    if (date_length <= 0 || time_length <= 0) return nullptr;
    const size_t size = static_cast<size_t>(date_length + time_length + 2);
    char16_t *text = xalloc_array<char16_t>(size);
    const int date = GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &fields, nullptr,
                                    os_text(text), static_cast<int>(size));
    if (date > 0) {
        size_t used = static_cast<size_t>(date - 1);
        text[used++] = u',';
        text[used++] = u' ';
        if (GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &fields, nullptr, os_text(text + used),
                           static_cast<int>(size - used)) > 0)
            return text;
    }
    free(text);
    return nullptr;
}

char16_t *current_dir() {
    DWORD size = GetCurrentDirectoryW(0, nullptr);
    while (size) {
        char16_t *text = xalloc_array<char16_t>(size);
        const DWORD length = GetCurrentDirectoryW(size, os_text(text));
        if (length && length < size) return text;
        free(text);
        size = length; // the directory grew in between: ask again with its size
    }
    return nullptr;
}

uint32_t change_dir(const char16_t *path) {
    return SetCurrentDirectoryW(os_text(path)) ? 0 : get_last_error();
}

char16_t *get_env(const char16_t *name) {
    DWORD size = 1024;
    for (;;) {
        char16_t *value = xalloc_array<char16_t>(size);
        const DWORD length = GetEnvironmentVariableW(os_text(name), os_text(value), size);
        if (length == 0) { // unset, and an empty value reads the same
            free(value);
            return nullptr;
        }
        if (length < size) return value;
        free(value);
        size = length + 1; // the size needed, with one unit to spare
    }
}

uint32_t set_env(const char16_t *name, const char16_t *value) {
    return SetEnvironmentVariableW(os_text(name), os_text(value)) ? 0 : get_last_error();
}

// The inserts go to the formatter as the machine words of an argument list:
// on this platform a va_list is a pointer to such words, one per insert.
char16_t *format_message(uint32_t id, const fmt_arg *args, size_t count, bool from_system) {
    static_assert(sizeof(va_list) == sizeof(DWORD_PTR *), "a va_list walks an array of words");
    id &= MESSAGE_ID_MASK;
    DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE;
    if (from_system) flags |= FORMAT_MESSAGE_FROM_SYSTEM;
    // A system text may have inserts of its own; with none passed, they are
    // printed as they stand instead of read from words that were not given.
    if (!(id & CUSTOMER_BIT) && count == 0) flags |= FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD_PTR *words = xalloc_array<DWORD_PTR>(count + 1);
    for (size_t i = 0; i < count; ++i)
        words[i] = args[i].kind == fmt_arg::TEXT
                       ? reinterpret_cast<DWORD_PTR>(args[i].text ? args[i].text : u"")
                       : static_cast<DWORD_PTR>(args[i].number);
    va_list list = reinterpret_cast<va_list>(words);
    wchar_t *text = nullptr;
    const DWORD length =
        FormatMessageW(flags, nullptr, id, 0, reinterpret_cast<wchar_t *>(&text), 1, &list);
    free(words);
    if (length == 0) return nullptr;
    char16_t *copy = str_dup_n(our_text(text), length);
    LocalFree(text);
    return copy;
}

size_t allocator_block_size(const void *block) {
    return block ? _msize(const_cast<void *>(block)) : 0;
}

// Output goes straight to the handles, so nothing is left in a buffer that
// the runtime would have to flush.
void exit_process(uint32_t status) {
    ExitProcess(status);
}
