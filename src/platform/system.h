// System services: the thin layer between TOLMEK and the operating system.
//
// Everything above src/platform sees only what this header promises: wide text
// (16-bit units, null-terminated), 64-bit time stamps in 100 ns units since 1601
// (UTC, 0 = no file), handles as plain integers, and failures as Windows error
// codes (0 = success). Operations report nothing themselves; the caller decides
// between fatal, warning and ignoring. No OS type or header crosses this file.
#pragma once

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------
// Error codes. The numbers are the Windows ones, whatever the host, because
// diagnostics and callers are written against them.
constexpr uint32_t ERR_FILE_NOT_FOUND = 2;
constexpr uint32_t ERR_PATH_NOT_FOUND = 3;
constexpr uint32_t ERR_ACCESS_DENIED = 5;
constexpr uint32_t ERR_INVALID_HANDLE = 6;
constexpr uint32_t ERR_OUT_OF_MEMORY = 14;
constexpr uint32_t ERR_WRITE_FAULT = 29; // short write
constexpr uint32_t ERR_READ_FAULT = 30;  // refused encoding, line without end, line too long
constexpr uint32_t ERR_HANDLE_EOF = 38;  // end of file
constexpr uint32_t ERR_ENVVAR_NOT_FOUND = 203;
constexpr uint32_t ERR_NO_UNICODE_TRANSLATION = 1113;

// ---------------------------------------------------------------------------
// Handles and streams. A stream argument is a handle, or 1 for standard output,
// 2 for standard error.
// Not "file_handle": that name is taken by a struct of the C library.
using os_handle = intptr_t;
constexpr os_handle INVALID_FILE = -1;
constexpr os_handle STREAM_OUT = 1;
constexpr os_handle STREAM_ERR = 2;

// ---------------------------------------------------------------------------
// Character rules: ASCII only; no code unit above 0x7F belongs to any class.
constexpr bool is_space(char16_t c) {
    return c == 0x20 || (c >= 0x09 && c <= 0x0D);
}
constexpr bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}
constexpr bool is_alpha(char16_t c) {
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}
constexpr bool is_alnum(char16_t c) {
    return is_alpha(c) || is_digit(c);
}
constexpr bool is_xdigit(char16_t c) {
    return is_digit(c) || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}
// Folds A-Z to a-z and nothing else.
constexpr char16_t fold_char(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
}
// The locale-aware letter test of the drive check in make_full_path.
bool is_char_alpha(char16_t c);

// ---------------------------------------------------------------------------
// Text primitives. A null text reads as empty wherever a text is read.
size_t str_len(const char16_t *text);
// Returns a new copy; never null.
char16_t *str_dup(const char16_t *text);
// Returns a new text of the first n units of text (n must not pass its end).
char16_t *str_dup_n(const char16_t *text, size_t n);
int str_cmp(const char16_t *a, const char16_t *b);             // exact, unsigned units
int str_ncmp(const char16_t *a, const char16_t *b, size_t n);  // exact, at most n units
int str_icmp(const char16_t *a, const char16_t *b);            // ASCII case folded
int str_nicmp(const char16_t *a, const char16_t *b, size_t n); // folded, at most n units
// Searches return a position inside their argument, or null.
const char16_t *str_chr(const char16_t *text, char16_t c);
const char16_t *str_rchr(const char16_t *text, char16_t c);
const char16_t *str_str(const char16_t *text, const char16_t *part);
const char16_t *str_pbrk(const char16_t *text, const char16_t *set);
inline char16_t *str_chr(char16_t *t, char16_t c) {
    return const_cast<char16_t *>(str_chr(static_cast<const char16_t *>(t), c));
}
inline char16_t *str_rchr(char16_t *t, char16_t c) {
    return const_cast<char16_t *>(str_rchr(static_cast<const char16_t *>(t), c));
}
// Word splitter: skips units of seps, returns the next word, writes a null over
// the separator behind it. With text null, goes on where the last call stopped.
// str_tok keeps that position in hidden process-wide state (not re-entrant);
// str_tok_r keeps it in *pos.
char16_t *str_tok(char16_t *text, const char16_t *seps);
char16_t *str_tok_r(char16_t *text, const char16_t *seps, char16_t **pos);
// Number reader: space, one sign, base 0 (0x hex, leading 0 octal, else decimal).
// Overflow gives 0x7FFFFFFF (0x80000000 with '-') and sets *range_error.
// *end is behind the number, or text when no digit was read.
int32_t str_to_long(const char16_t *text, const char16_t **end, bool *range_error);

// ---------------------------------------------------------------------------
// Formatting. The conversions are %ls, %.*ls, %-*ls, %lc, %X, %p and %%; the
// message formatter reads the same arguments. An argument is a text, a number,
// a character or a pointer; a conversion reads the next argument as it needs it.
struct fmt_arg {
    enum kind_t : uint8_t { TEXT, NUMBER } kind;
    const char16_t *text;
    uint64_t number;
    fmt_arg(const char16_t *t) : kind(TEXT), text(t), number(0) {}
    fmt_arg(char16_t *t) : kind(TEXT), text(t), number(0) {}
    fmt_arg(char16_t c) : kind(NUMBER), text(nullptr), number(c) {}
    fmt_arg(int n)
        : kind(NUMBER), text(nullptr), number(static_cast<uint64_t>(static_cast<int64_t>(n))) {}
    fmt_arg(unsigned n) : kind(NUMBER), text(nullptr), number(n) {}
    fmt_arg(unsigned long n) : kind(NUMBER), text(nullptr), number(n) {}
    fmt_arg(unsigned long long n) : kind(NUMBER), text(nullptr), number(n) {}
    fmt_arg(long n) : kind(NUMBER), text(nullptr), number(static_cast<uint64_t>(n)) {}
    fmt_arg(const void *p) : kind(NUMBER), text(nullptr), number(reinterpret_cast<uintptr_t>(p)) {}
};

// Counted formatter: writes at most capacity-1 units and a terminator (nothing
// when capacity is 0) and returns the full length the result needs.
size_t format_counted(char16_t *buffer, size_t capacity, const char16_t *format,
                      const fmt_arg *args, size_t count);
// Two-step formatting into a new text.
char16_t *str_printf_args(const char16_t *format, const fmt_arg *args, size_t count);
template <class... A> char16_t *str_printf(const char16_t *format, const A &...a) {
    const fmt_arg args[] = {fmt_arg(0), fmt_arg(a)...};
    return str_printf_args(format, args + 1, sizeof...(a));
}
// Formats and writes to a stream with write_text and code page 0.
uint32_t out_printf_args(os_handle stream, const char16_t *format, const fmt_arg *args,
                         size_t count);
template <class... A> uint32_t out_printf(os_handle stream, const char16_t *format, const A &...a) {
    const fmt_arg args[] = {fmt_arg(0), fmt_arg(a)...};
    return out_printf_args(stream, format, args + 1, sizeof...(a));
}
// 8-bit format; %ls takes a wide text whose units must all be below 256, each
// written as one byte. A unit of 256 or above fails the call (non-zero result,
// nothing written).
uint32_t file_printf_args(os_handle handle, const char *format, const fmt_arg *args, size_t count);
template <class... A> uint32_t file_printf(os_handle handle, const char *format, const A &...a) {
    const fmt_arg args[] = {fmt_arg(0), fmt_arg(a)...};
    return file_printf_args(handle, format, args + 1, sizeof...(a));
}

// ---------------------------------------------------------------------------
// Output. write_text converts to the stream's encoding (code page 0: the system
// code page) and writes straight to the OS, unbuffered. An empty text returns 0.
uint32_t write_text(os_handle stream, const char16_t *text, uint32_t code_page);
// Writes count bytes; 29 when fewer were written.
uint32_t write_file(os_handle handle, const void *buffer, size_t count);

// ---------------------------------------------------------------------------
// Text conversion. Decodes bytes of a code page (0 system, 1 OEM, 65001 UTF-8)
// into out, which must leave room for a terminator within capacity. Malformed
// bytes are no failure. Writes the terminator and the unit count to *produced.
// Returns 0, or 1113 when the text does not fit or cannot be converted.
uint32_t decode_bytes(uint32_t code_page, const char *bytes, size_t count, char16_t *out,
                      size_t capacity, size_t *produced);

// ---------------------------------------------------------------------------
// Files. Names may use \ and / alike.
// Opens an existing file for reading. Stores the handle in either case.
uint32_t open_input(const char16_t *name, os_handle *handle);
// Creates or empties a file for reading and writing.
uint32_t create_file(const char16_t *name, os_handle *handle);
// Creates a new, empty, uniquely named temporary file. *name receives a new
// text (null on failure). With handle not null the file is also opened.
uint32_t create_temp_file(char16_t **name, os_handle *handle, bool inherit);
uint32_t close_file(os_handle handle);
uint32_t delete_file(const char16_t *name);
// Reads up to count bytes; *got receives the number read (0 at end of file).
uint32_t read_file(os_handle handle, void *buffer, size_t count, size_t *got);
uint32_t file_position(os_handle handle, uint64_t *position);
// Moves to position bytes from the start of the file.
uint32_t seek_file(os_handle handle, uint64_t position);

// Last-write time of name, or 0 when it cannot be found for any reason. A
// directory has a time too.
uint64_t file_time(const char16_t *name);
// Creates a missing file and sets its last-write time only.
uint32_t set_file_time(const char16_t *name, uint64_t time);
// False only when the name is surely absent (codes 2, 3, 21); a name that
// cannot be examined counts as existing.
bool file_exists(const char16_t *name);
bool is_directory(const char16_t *name);

// Directory search for wildcards (* and ?) in the last component. Names come
// without their directory part, in a stable order. find_first returns null when
// nothing matches; otherwise *name points at the first name, valid until the
// next call on the search.
struct find_state;
find_state *find_first(const char16_t *pattern, const char16_t **name);
bool find_next(find_state *search, const char16_t **name);
void find_close(find_state *search);

// ---------------------------------------------------------------------------
// Time.
uint64_t system_time();
// Negative, zero or positive as a is earlier than, equal to or later than b.
int compare_time(uint64_t a, uint64_t b);
// The local date and time of a time stamp as the user reads them: the short
// date, a comma and a blank, and the time. Null when it cannot be converted.
char16_t *format_date_time(uint64_t time);

// ---------------------------------------------------------------------------
// Directories and environment.
// Returns a new text, or null on failure.
char16_t *current_dir();
uint32_t change_dir(const char16_t *path);
// Returns a new text, or null when the variable is unset or empty.
char16_t *get_env(const char16_t *name);
uint32_t set_env(const char16_t *name, const char16_t *value);

// ---------------------------------------------------------------------------
// Messages. Looks up id in the program's catalogue and, with from_system, among
// the system's error texts too, in the language the system chooses (English or
// Swedish), and applies the inserts. A system text gets no inserts when none
// are passed: what it has of its own is printed as it stands. Returns a new
// text, or null when no text exists.
char16_t *format_message(uint32_t id, const fmt_arg *args, size_t count, bool from_system);

// ---------------------------------------------------------------------------
// Memory: the size in bytes that the allocator holds for block; 0 for null.
size_t allocator_block_size(const void *block);

// ---------------------------------------------------------------------------
// Console interrupt. install_break_handler registers handler for the console
// interrupt; it runs at most once, in a context where only async-safe work is
// allowed, and the next interrupt ends the process. set_break_text stores the
// text that write_break_text writes to standard error from the handler.
bool install_break_handler(void (*handler)(int signal));
void set_break_text(const char16_t *text);
void write_break_text();

// ---------------------------------------------------------------------------
// Fault scope. Runs body(arg) on a thread with a large stack and the stack
// guard, and waits for it. With catch_faults, a processor fault inside it is
// caught and described in *fault, and the result is false; without, no fault
// is caught, for a host that wants a sanitizer's own report of one (a fuzz
// target). True when body returned.
struct fault_record {
    uint32_t code;    // the Windows exception code, such as 0xC0000005
    uint64_t address; // address of the fault
};
bool run_on_work_thread(void (*body)(void *), void *arg, fault_record *fault, bool catch_faults);
inline bool run_fault_scope(void (*body)(void *), void *arg, fault_record *fault) {
    return run_on_work_thread(body, arg, fault, true);
}
inline void run_on_large_stack(void (*body)(void *), void *arg) {
    run_on_work_thread(body, arg, nullptr, false);
}
// Stack guard: true when the thread that runs a fault scope's body has less
// than a safe margin of its stack left, so that a deep recursion can end in a
// diagnostic instead of a fault. Always false on other threads.
bool is_stack_nearly_used();

// ---------------------------------------------------------------------------
// Helper thread, for work beside the caller that only reads the disk. Console
// interrupts never reach it and it has no fault scope. Returns null when no
// thread can be had: the caller then does without. join_helper waits for the
// work to return and releases the thread.
void *start_helper(void (*work)(void *), void *arg);
void join_helper(void *helper);

// ---------------------------------------------------------------------------
// Child processes. Both wait for the child without limit, in this process's
// environment and current directory, and store its exit code (a child ended by
// signal N gives 128 + N). They return 0 when the child ran, whatever its exit
// code, else an error code (2 when the program cannot be found).
// The direct road: command_line is split into words by the rules the start-up
// uses for the program's own command line, and the first word is looked for on
// PATH. No command processor is involved.
uint32_t run_program(const char16_t *command_line, uint32_t *exit_code);
// The command-processor road: text goes whole to shell (null: the platform's
// own command processor) as its command.
uint32_t run_shell(const char16_t *shell, const char16_t *text, uint32_t *exit_code);

// ---------------------------------------------------------------------------
// Process. Ends the process with status, without any further release.
[[noreturn]] void exit_process(uint32_t status);
