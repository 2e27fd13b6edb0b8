// Command dispatch: how one expanded command text, free of prefixes, is
// carried out. In order, the first that fits decides: a nested run in this
// process, a child started directly, the in-process forms of cd, chdir and
// set, the command processor, and the command processor with a response file.
#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "run/make.h"
#include "run/report.h"

namespace {

// Longest text that goes to the command processor as it stands; a longer one
// would overflow the processor's own line, so its arguments go into a file.
constexpr size_t SHELL_TEXT_LIMIT = 4000;

// Commands that exist only inside the command processor, so no program of the
// name can be started directly.
constexpr const char16_t *shell_words[] = {
    u"assoc",  u"break", u"call",   u"cd",       u"chdir", u"cls",      u"color",  u"copy",
    u"date",   u"del",   u"dir",    u"dpath",    u"echo",  u"endlocal", u"erase",  u"exit",
    u"for",    u"ftype", u"goto",   u"if",       u"md",    u"mkdir",    u"mklink", u"move",
    u"path",   u"pause", u"popd",   u"prompt",   u"pushd", u"rd",       u"rem",    u"ren",
    u"rename", u"rmdir", u"set",    u"setlocal", u"shift", u"start",    u"time",   u"title",
    u"type",   u"ver",   u"verify", u"vol",
};
static_assert(sizeof shell_words / sizeof shell_words[0] == 44, "the processor's own commands");

bool is_shell_word(const char16_t *word) {
    for (const char16_t *name : shell_words)
        if (str_icmp(word, name) == 0) return true;
    return false;
}

// plus, a redirection or pipe character anywhere (quotes give no shelter), or
// a command of the processor's own.
bool needs_shell(const char16_t *text, const char16_t *first_word, bool plus) {
    return plus || str_pbrk(text, u"<|>") != nullptr || is_shell_word(first_word);
}

uint32_t spawn_direct(const char16_t *text, uint32_t *exit_code) {
    return run_program(text, exit_code);
}

uint32_t spawn_shell(const char16_t *text, uint32_t *exit_code) {
    char16_t *shell = get_env(u"COMSPEC"); // unset: the platform's own processor
    const uint32_t result = run_shell(shell, text, exit_code);
    free(shell);
    return result;
}

// Writes the arguments behind the first, one a line, as they stand: the split
// has taken their quotes off. Returns the new file's name.
char16_t *write_response_file(char16_t *const *arguments) {
    char16_t *name = nullptr;
    os_handle handle = INVALID_FILE;
    if (create_temp_file(&name, &handle, false))
        report(MSG_RESPONSE_FILE + FATAL, name ? name : u"?");
    for (char16_t *const *argument = arguments + 1; *argument; ++argument)
        if (file_printf(handle, "%ls\r\n", *argument)) report(MSG_RESPONSE_FILE + FATAL, name);
    if (close_file(handle)) report(MSG_RESPONSE_FILE + FATAL, name);
    return name;
}

// The words of the command become the nested run's argument vector, its first
// word standing as the program's name; the macros passed to every nested run
// go last, so they win over the same names among the words.
void run_nested(uint32_t count, char16_t **words) {
    ptr_list arguments = nullptr;
    for (uint32_t i = 0; i < count; ++i)
        arguments = list_add(arguments, words[i]);
    arguments = list_merge(arguments, passed_macros);
    const uint32_t total = list_count(arguments);
    char16_t **argv = xalloc_array<char16_t *>(total + 1);
    for (uint32_t i = 0; i < total; ++i)
        argv[i] = static_cast<char16_t *>(arguments[i]);
    argv[total] = nullptr;
    free(arguments);
    nested_make(static_cast<int>(count + passed_macro_count), argv);
    free(argv);
}

// set NAME=value in this process: the environment, then the macro, which is
// tied to the environment from now on. The value is stored as written.
uint32_t set_in_process(char16_t *word) {
    char16_t *equal = str_chr(word, u'=');
    if (!equal) return ERR_ENVVAR_NOT_FOUND;
    *equal = 0;
    const char16_t *value = equal + 1;
    if (const uint32_t failed = set_env(word, value)) return failed;
    macro *m = find_macro(word, true);
    free(m->value);
    m->flags |= exported;
    keep_value(m, str_dup(value));
    return 0;
}

uint32_t dispatch(const char16_t *text, uint32_t count, char16_t **words, uint32_t *exit_code,
                  bool plus, const char16_t *make_value) {
    // A nested run comes first: /N, /C, + and redirections have no say in it.
    if (make_value && str_icmp(words[0], make_value) == 0) {
        run_nested(count, words);
        return 0;
    }
    if (!needs_shell(text, words[0], plus) && !opt_shell)
        return opt_no_exec ? 0 : spawn_direct(text, exit_code);

    // Only the two-word forms act on this process, and they do so under /N too;
    // with more or fewer words the processor's child has the effect and loses it.
    if (count == 2) {
        if (str_icmp(words[0], u"cd") == 0 || str_icmp(words[0], u"chdir") == 0)
            return change_dir(words[1]);
        if (str_icmp(words[0], u"set") == 0) return set_in_process(words[1]);
    }
    if (opt_no_exec) return 0;
    if (str_len(text) <= SHELL_TEXT_LIMIT) return spawn_shell(text, exit_code);

    char16_t *name = write_response_file(words);
    char16_t *line = str_printf(u"%ls @%ls", words[0], name);
    const uint32_t result = spawn_shell(line, exit_code);
    delete_file(name);
    free(line);
    free(name);
    return result;
}

} // namespace

uint32_t spawn_command(const char16_t *text, uint32_t *exit_code, bool plus,
                       const char16_t *make_value) {
    *exit_code = 0;
    char16_t *copy = str_dup(text);
    uint32_t count = 0;
    char16_t **words = nullptr;
    split_command_line(copy, &count, &words);
    const uint32_t result = count ? dispatch(text, count, words, exit_code, plus, make_value) : 0;
    free(words);
    free(copy);
    return result;
}
