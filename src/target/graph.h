// The graph store: what the makefiles say about targets. Singly linked lists of
// plain records, newest first, which is the order of rule search and of the /P
// dump. A record never moves and lives until make_free. Look-ups compare names
// with ASCII case folded, behind a hash_name filter.
#pragma once

#include <atomic>
#include <cstdint>

#include "target/name_index.h"

struct inline_file;

// A null-terminated growing array of pointers, held by a plain pointer; null is
// an empty list. It stores no count: the capacity is read back from the
// allocator. Any addition may move it, so callers store the returned list.
// Lists that list_add grows must come from list_add or list_merge, which keep
// every slot behind the terminator null so that the end is found by halving.
using ptr_list = void **;

// One per distinct name that occurs as a target or a dependent.
struct file_node {
    file_node *next; // next older node
    char16_t *name;  // owned; spelled as first seen
    uint64_t time;   // stored time: 0 = not settled; above 0 = settled this run (the only memo)
    uint32_t hash;   // hash_name(name)
    std::atomic<uint32_t> ahead_round; // the read-ahead round that ahead_time belongs to
    uint8_t updating;     // the update recursion is working on this name now (cycle guard)
    uint8_t phony;        // a dependent of .PHONY, marked once the makefiles are read
    struct target *owner; // the target of this name, or null: find_target without a search
    std::atomic<uint64_t> ahead_time; // the time read ahead in that round
};

// One per distinct name that stood left of a colon (or that is predefined).
struct target {
    target *next;        // next older target
    file_node *file;     // the node of the target's name; not owned
    ptr_list dependents; // of file_node, makefile order, duplicates kept; array owned
    ptr_list commands;   // of command, shared with the other targets of a block; array owned
    uint32_t hash;       // equals file->hash
    uint8_t is_rule;     // the name has the form of an inference rule
    target *next_rule;   // next older inference rule, when is_rule is set
    // Of a rule: the suffixes that begin its text behind the frompath, in list
    // order, and the suffix_list_changes they were found at (0: not yet).
    ptr_list from_suffixes;
    uint32_t from_suffixes_at;
};

// One per command line; owned by command_list.
struct command {
    command *next;             // next older command
    char16_t *text;            // stored unexpanded, one 0xDFFF sentinel per <<
    inline_file *inline_files; // first inline file of this command, or null
};

// Run tables of the graph.
extern target *target_list;    // all targets and inference rules of the run
extern file_node *file_list;   // all names that occurred as target or dependent
extern command *command_list;  // all commands of the run
extern target *first_target;   // built when no target is named
extern target *suffix_target;  // the record of .SUFFIXES, or null
extern target *phony_target;   // the record of .PHONY, or null
extern target *default_target; // the record of .DEFAULT, or null
// Counts the blocks that named .SUFFIXES, in any run, from 1: what a rule keeps
// of the suffix list holds while this has not changed.
extern uint32_t suffix_list_changes;
// The inference rules of target_list, in the same order, so that the rule
// search visits rules only. Part of the run's tables, saved with them.
extern target *rule_list;
// Indexes beside target_list and file_list: part of the run's tables, emptied
// and saved with them.
extern name_index target_index;
extern name_index file_index;

// Appends entry; returns the list, possibly moved.
ptr_list list_add(ptr_list list, void *entry);
// Appends the entries of other (which stays the caller's); returns the list.
ptr_list list_merge(ptr_list list, ptr_list other);
// Number of entries before the terminator.
uint32_t list_count(ptr_list list);

// 32-bit mask of a name, blind to ASCII case; the filter of every name compare.
uint32_t hash_name(const char16_t *name);
// Warns when name holds a character that names should not hold.
void check_name(const char16_t *name);

target *find_target(const char16_t *name, uint32_t *out_hash = nullptr);
file_node *find_file(const char16_t *name, uint32_t *out_hash = nullptr);
// find_file without the name check: for a node that the language does not look
// up at that point, only the disk.
file_node *look_up_file(const char16_t *name);
// Return the existing record or a new one; the store copies the name.
target *add_target(const char16_t *name);
file_node *add_file(const char16_t *name);
command *add_command(const char16_t *text);
// Gives one description block its meaning: special targets, dependents that add
// up over blocks, commands of the last block that has commands. Only reads the
// three lists.
void attach_to_targets(ptr_list targets, ptr_list dependents, ptr_list commands);
// Marks the dependents of .PHONY on their nodes, once the makefiles are read,
// so that is_phony asks the node of a name instead of walking the list.
void mark_phony_names();

// File times read ahead. Once the update has read a number of times itself, a
// helper thread reads the times of the graph's names while the update walks
// them, so that a large build waits for the disk on two processors. The times
// are good while the disk is as it was: stop_read_ahead, which every change to
// the disk and the release of the names come after, drops them, and the count
// starts again. A graph of few names is never read ahead.
void stop_read_ahead();
// target_time, for a name whose node is known (null: it has none), from the
// times read ahead when they hold it.
uint64_t node_time(file_node *node, const char16_t *name);

void free_targets();
void free_files();
void free_commands();
