// The run driver: everything between the argument vector and the exit status.
// program_entry runs once per process; make is one whole run and is re-entered
// for nested runs through nested_make, with no child process. State of a run
// lives in eight global tables (graph, macros, inline files, now_time) that make
// empties and nested_make saves and restores; everything declared here is
// process-wide and crosses the border of a nested run in both directions.
#pragma once

#include <cstdint>

#include "target/graph.h"

// option_flags: one byte per switch, each 0 or 1. Set once, never undone.
extern uint8_t opt_all;           // /A every evaluated target is out of date
extern uint8_t opt_shell;         // /C every command through the command processor
extern uint8_t opt_time;          // /D time stamp comparison lines
extern uint8_t opt_env;           // cleared by /E: environment macros keep their values
extern uint8_t opt_show_includes; // /G name each !INCLUDE file
extern uint8_t opt_ignore;        // /I, .IGNORE: exit codes ignored
extern uint8_t opt_keep_going;    // /K a failing command fails its target only
extern uint8_t opt_no_exec;       // /N display commands, do not run them
extern uint8_t opt_print;         // /P database dump after reading
extern uint8_t opt_question;      // /Q count commands; the exit status tells
extern uint8_t opt_builtins;      // cleared by /R: no predefined rules and macros
extern uint8_t opt_silent;        // /S, .SILENT: commands not displayed
extern uint8_t opt_touch;         // /T touch instead of running commands

// Process state.
extern volatile uint8_t aborted;    // set once by the console interrupt, never cleared
extern uint32_t pending_count;      // commands that /Q would have run
extern ptr_list passed_macros;      // macro words handed to nested runs; filled once
extern uint32_t passed_macro_count; // entries in passed_macros
extern char16_t *program_name;      // argv[0] as typed; value of MAKE
extern char16_t *start_dir;         // current directory at start, or null; value of MAKEDIR
extern uint64_t now_time;           // taken from the clock at the start of each run

// Entry of the process; ends in make_exit.
[[noreturn]] void program_entry(int argc, char16_t **argv);
void make_init(const char16_t *program);
// One whole run. argv[0] is skipped; argv is null-terminated.
void make(int argc, char16_t **argv);
// make with the run tables saved around it.
void nested_make(int argc, char16_t **argv);
// Removes the run's temporary inline files and releases its tables. May be
// called twice.
void make_free();
// Orderly end: make_free, then the process ends with status.
[[noreturn]] void make_exit(uint32_t status);
struct fault_record;
// Stores a new text describing a processor fault in *text.
void describe_exception(const fault_record *fault, char16_t **text);

// Options. Walks count words; sorts them into the four lists (in-out heads) and
// sets flags. A bad word ends the process through report.
void parse_options(int32_t count, char16_t **words, ptr_list *macro_words, ptr_list *target_words,
                   ptr_list *makefile_words, ptr_list *workspace_words);
// Splits text in place into words; *vector receives a new null-terminated array
// of positions inside text, which the caller frees.
void split_command_line(char16_t *text, uint32_t *count, char16_t ***vector);
// Prints the usage text and ends the process with status 1.
[[noreturn]] void show_usage();
