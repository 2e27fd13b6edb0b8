// The run driver: the process from the argument vector to the exit status, and
// make, one whole run, which nested runs re-enter in the same process.
#include "run/make.h"

#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "read/reader.h"
#include "run/report.h"
#include "target/update.h"
#include "workspace/workspace.h"

volatile uint8_t aborted = 0;
uint32_t pending_count = 0;
ptr_list passed_macros = nullptr;
uint32_t passed_macro_count = 0;
char16_t *program_name = nullptr;
char16_t *start_dir = nullptr;
uint64_t now_time = 0;

namespace {

struct run_arguments {
    int argc;
    char16_t **argv;
};

void run_make(void *arg) {
    const run_arguments *a = static_cast<const run_arguments *>(arg);
    make(a->argc, a->argv);
}

// Runs the commands of a special target such as .INIT; the result is not looked at.
void run_special_target(const char16_t *name) {
    if (target *t = find_target(name)) run_commands(t->commands);
}

} // namespace

void program_entry(int argc, char16_t **argv) {
    make_init(argv[0]);
    run_arguments arguments = {argc, argv};
    fault_record fault = {};
    // The one fault scope: a processor fault anywhere in a run, nested runs
    // included, becomes a fatal diagnostic instead of a crash.
    if (!run_fault_scope(run_make, &arguments, &fault)) {
        char16_t *text = nullptr;
        describe_exception(&fault, &text);
        report(MSG_INTERNAL + FATAL, text);
    }
    if (error_count != 0 || aborted) make_exit(1);
    // Not 1, so that /Q can tell "something to do" from a failure.
    if (opt_question) make_exit(pending_count != 0 ? 255 : 0);
    make_exit(0);
}

void make_init(const char16_t *program) {
    // The abort line is formatted now, because the interrupt action may do no
    // more than write it.
    const fmt_arg name(u"TOLMEK");
    if (char16_t *text = format_message(MSG_ABORTED, &name, 1, false)) {
        set_break_text(text);
        free(text);
    }
    if (!install_break_handler(on_console_break)) report(MSG_INTERNAL + FATAL, u"make_init()");
    opt_builtins = 1;
    opt_env = 1;
    program_name = str_dup(program);
    start_dir = current_dir();
}

void make(int argc, char16_t **argv) {
    target_list = nullptr;
    file_list = nullptr;
    macro_list = nullptr;
    command_list = nullptr;
    first_target = nullptr;
    suffix_target = nullptr;
    inline_list = nullptr;
    rule_list = nullptr;
    phony_target = nullptr;
    default_target = nullptr;
    target_index = file_index = macro_index = name_index{};
    ptr_list macro_words = nullptr;
    ptr_list target_words = nullptr;
    ptr_list makefile_words = nullptr;
    ptr_list workspace_words = nullptr;
    now_time = system_time();

    // The words of MAKEFLAGS point into this copy, which lives as long as the lists.
    char16_t *makeflags = get_env(u"MAKEFLAGS");
    char16_t **flag_words = nullptr;
    if (makeflags) {
        uint32_t count = 0;
        split_command_line(makeflags, &count, &flag_words);
        parse_options(static_cast<int32_t>(count), flag_words, &macro_words, &target_words,
                      &makefile_words, &workspace_words);
    }
    parse_options(argc - 1, argv + 1, &macro_words, &target_words, &makefile_words,
                  &workspace_words);
    if (opt_question) opt_no_exec = 1;
    if (opt_no_exec) {
        opt_silent = 0;
        opt_touch = 0;
    }

    if (workspace_words) {
        for (void **w = workspace_words; *w && !aborted; ++w)
            read_workspace(static_cast<char16_t *>(*w));
        free(workspace_words);
        free(flag_words);
        free(makeflags);
        return;
    }

    if (opt_builtins) define_builtins();
    for (void **w = macro_words; w && *w; ++w)
        parse_macro_line(static_cast<char16_t *>(*w));
    first_target = nullptr;

    bool makefile_read = false;
    if (makefile_words) {
        for (void **w = makefile_words; *w && !aborted; ++w) {
            include_file(static_cast<char16_t *>(*w));
            makefile_read = true;
        }
        free(makefile_words);
    } else if (file_exists(u"makefile")) {
        include_file(u"makefile");
        makefile_read = true;
    }
    if (aborted) return; // the tables are simply left
    if (opt_print) show_database();
    if (!makefile_read) {
        if (!opt_print) report(MSG_FILE_NOT_FOUND + FATAL, u"makefile");
        make_exit(1);
    }

    if (macro_words) {
        for (void **w = macro_words; *w; ++w)
            parse_macro_line(static_cast<char16_t *>(*w));
        if (!passed_macros) {
            for (void **w = macro_words; *w; ++w) {
                passed_macros = list_add(passed_macros, str_dup(static_cast<char16_t *>(*w)));
                ++passed_macro_count;
            }
        }
        free(macro_words);
    }

    mark_phony_names();
    run_special_target(u".INIT");
    if (target_words) {
        for (void **w = target_words; *w && !aborted; ++w)
            make_target(static_cast<char16_t *>(*w));
        free(target_words);
    } else if (first_target) {
        make_target(first_target->file->name);
    }
    run_special_target(u".DONE");
    free(flag_words);
    free(makeflags);
    make_free();
}

// A makefile whose commands start the same run again would otherwise recurse
// until the stack runs out.
constexpr uint32_t MAX_NESTED_RUNS = 200;

namespace {
uint32_t nested_depth = 0;
} // namespace

void nested_make(int argc, char16_t **argv) {
    if (nested_depth == MAX_NESTED_RUNS)
        report(MSG_USER_ERROR + FATAL, u"Nested runs too deep: more than 200 levels");
    check_stack();
    ++nested_depth;
    target *saved_targets = target_list;
    file_node *saved_files = file_list;
    macro *saved_macros = macro_list;
    command *saved_commands = command_list;
    target *saved_first = first_target;
    target *saved_suffixes = suffix_target;
    inline_file *saved_inline = inline_list;
    const uint64_t saved_now = now_time;
    target *saved_rules = rule_list;
    target *saved_phony = phony_target;
    target *saved_default = default_target;
    const name_index saved_indexes[3] = {target_index, file_index, macro_index};
    const size_t saved_span = begin_update_span();
    make(argc, argv);
    end_update_span(saved_span);
    target_list = saved_targets;
    file_list = saved_files;
    macro_list = saved_macros;
    command_list = saved_commands;
    first_target = saved_first;
    suffix_target = saved_suffixes;
    inline_list = saved_inline;
    now_time = saved_now;
    rule_list = saved_rules;
    phony_target = saved_phony;
    default_target = saved_default;
    target_index = saved_indexes[0];
    file_index = saved_indexes[1];
    macro_index = saved_indexes[2];
    --nested_depth;
}

// Deletion walks inline_list, so it comes before the records are released.
void make_free() {
    stop_read_ahead();
    free_targets();
    free_files();
    free_commands();
    free_macros();
    delete_inline_files();
    free_inline_files();
}

void make_exit(uint32_t status) {
    make_free();
    // Nothing of the run is left half done, for a host that goes on after the
    // end (a fuzz target, whose exit_process returns to it): no makefile open,
    // no update, expansion or nested run under way.
    close_open_makefiles();
    abandon_updates();
    abandon_expansions();
    nested_depth = 0;
    exit_process(status);
}

void describe_exception(const fault_record *fault, char16_t **text) {
    if (!fault || fault->code == 0) {
        *text = str_dup(u"Unknown exception");
        return;
    }
    struct known_fault {
        uint32_t code;
        const char16_t *format;
    };
    static constexpr known_fault known[] = {
        {0xC0000005, u"\"Access violation\" at %p"},
        {0x80000002, u"\"Datatype misalignment\" at %p"},
        {0xC0000094, u"\"Integer divide by zero\" at %p"},
        {0xC0000095, u"\"Integer overflow\" at %p"},
        {0xC0000006, u"\"In page error\" at %p"},
        {0xC00000FD, u"\"Stack overflow\" at %p"},
        {0xC0000026, u"\"Invalid disposition\" at %p"},
        {0x80000001, u"\"Guard page violation\" at %p"},
    };
    for (const known_fault &k : known)
        if (k.code == fault->code) {
            *text = str_printf(k.format, static_cast<unsigned long long>(fault->address));
            return;
        }
    *text = str_printf(u"\"Exception 0x%X\" at %p", fault->code,
                       static_cast<unsigned long long>(fault->address));
}
