// The graph store: lists of targets, names and commands, and the meaning of a
// description block.
#include "target/graph.h"

#include <cstdlib>
#include <new>

#include "exec/exec.h"
#include "run/make.h"
#include "run/report.h"

target *target_list = nullptr;
file_node *file_list = nullptr;
command *command_list = nullptr;
target *first_target = nullptr;
target *suffix_target = nullptr;
uint32_t suffix_list_changes = 1;
target *phony_target = nullptr;
target *default_target = nullptr;
target *rule_list = nullptr;
name_index target_index = {};
name_index file_index = {};

namespace {

constexpr size_t ENTRY = sizeof(void *);

// Inference rules: "{..." whatever follows, or ".x....": a dot, a letter or
// digit, and a further dot somewhere behind the first one.
bool is_rule_name(const char16_t *name) {
    if (name[0] == u'{') return true;
    return name[0] == u'.' && is_alnum(name[1]) && str_chr(name + 1, u'.') != nullptr;
}

} // namespace

uint32_t list_count(ptr_list list) {
    uint32_t n = 0;
    if (list)
        while (list[n])
            ++n;
    return n;
}

namespace {

// Clears the slots from count up to the block's capacity. Lists made here keep
// every slot behind the terminator null, so their end can be found by halving.
ptr_list clear_tail(ptr_list list, size_t count) {
    const size_t capacity = block_size(list) / ENTRY;
    for (size_t i = count; i < capacity; ++i)
        list[i] = nullptr;
    return list;
}

// The number of entries of a list made by list_add or list_merge: the entries
// come first, then nothing but nulls.
uint32_t count_entries(ptr_list list, size_t capacity) {
    size_t low = 0, high = capacity - 1; // list[high] is null: there is always a terminator
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (list[middle])
            low = middle + 1;
        else
            high = middle;
    }
    return static_cast<uint32_t>(low);
}

} // namespace

ptr_list list_add(ptr_list list, void *entry) {
    uint32_t count = 0;
    if (!list) {
        list = clear_tail(static_cast<ptr_list>(xmalloc(2 * ENTRY)), 0);
    } else {
        const size_t capacity = block_size(list) / ENTRY;
        count = count_entries(list, capacity);
        if (count + 1 >= capacity)
            list = clear_tail(static_cast<ptr_list>(xrealloc(list, capacity * 2 * ENTRY)), count);
    }
    list[count] = entry;
    list[count + 1] = nullptr;
    return list;
}

// Merging again and again into one list (the dependents of a target named in
// many blocks) must cost no more in all than the list's length, so the block
// grows to at least twice its size; its unused tail is kept null, as
// count_entries needs.
ptr_list list_merge(ptr_list list, ptr_list other) {
    if (!other || !other[0]) return list;
    const uint32_t n = list_count(other) + 1;
    const size_t capacity = list ? block_size(list) / ENTRY : 0;
    const uint32_t count = list ? count_entries(list, capacity) : 0;
    const bool grows = count + n > capacity;
    if (grows) {
        const size_t wanted = count + n > 2 * capacity ? count + n : 2 * capacity;
        list = static_cast<ptr_list>(xrealloc(list, wanted * ENTRY));
    }
    for (uint32_t i = 0; i < n; ++i)
        list[count + i] = other[i];
    return grows ? clear_tail(list, count + n) : list;
}

uint32_t hash_name(const char16_t *name) {
    uint32_t mask = 0;
    if (!name || !name[0]) return 0;
    for (size_t i = 0; name[i]; ++i)
        mask |= 1u << ((name[i] + name[i + 1]) & 31);
    return mask;
}

namespace {

// The characters that names should not hold, and the same set as a bit mask
// for a test that costs one shift per character.
constexpr char16_t bad_name_chars[] = u"\t\"'#$%+=";

constexpr uint64_t mask_of(const char16_t *set) {
    uint64_t mask = 0;
    for (; *set; ++set)
        mask |= 1ull << *set;
    return mask;
}

} // namespace

void check_name(const char16_t *name) {
    constexpr uint64_t bad = mask_of(bad_name_chars);
    for (const char16_t *p = name; *p; ++p)
        if (*p < 64 && (bad >> *p) & 1) {
            report(MSG_BAD_NAME + WARNING, name);
            return;
        }
}

target *find_target(const char16_t *name, uint32_t *out_hash) {
    check_name(name);
    if (out_hash) *out_hash = hash_name(name);
    return find_indexed<target>(target_index, name, [](const target *t) { return t->file->name; });
}

file_node *find_file(const char16_t *name, uint32_t *out_hash) {
    check_name(name);
    if (out_hash) *out_hash = hash_name(name);
    return look_up_file(name);
}

file_node *look_up_file(const char16_t *name) {
    return find_indexed<file_node>(file_index, name, [](const file_node *f) { return f->name; });
}

file_node *add_file(const char16_t *name) {
    uint32_t hash = 0;
    if (file_node *found = find_file(name, &hash)) return found;
    file_node *f = new (xcalloc(sizeof(file_node))) file_node(); // the atomic begins its life
    f->hash = hash;
    f->name = str_dup(name);
    f->next = file_list;
    file_list = f;
    add_indexed(file_index, name, f);
    return f;
}

target *add_target(const char16_t *name) {
    uint32_t hash = 0;
    if (target *found = find_target(name, &hash)) return found;
    file_node *node = add_file(name);
    target *t = xcalloc_record<target>();
    t->hash = hash;
    t->is_rule = is_rule_name(name);
    t->file = node;
    node->owner = t;
    t->next = target_list;
    target_list = t;
    if (t->is_rule) {
        t->next_rule = rule_list;
        rule_list = t;
    }
    add_indexed(target_index, name, t);
    return t;
}

command *add_command(const char16_t *text) {
    command *c = xcalloc_record<command>();
    scan_command_text(c, text);
    c->next = command_list;
    command_list = c;
    return c;
}

void attach_to_targets(ptr_list targets, ptr_list dependents, ptr_list commands) {
    if (!targets) return;
    const bool has_dependents = list_count(dependents) != 0;
    const bool has_commands = list_count(commands) != 0;
    for (void **entry = targets; *entry; ++entry) {
        target *t = static_cast<target *>(*entry);
        const char16_t *name = t->file->name;
        if (name[0] == u'.') {
            if (str_icmp(name, u".IGNORE") == 0)
                opt_ignore = 1;
            else if (str_icmp(name, u".SILENT") == 0)
                opt_silent = 1;
            else if (str_icmp(name, u".SUFFIXES") == 0) {
                suffix_target = t;
                ++suffix_list_changes;
            } else if (str_icmp(name, u".PHONY") == 0)
                phony_target = t; // saves a look-up for every time stamp read
            else if (str_icmp(name, u".DEFAULT") == 0)
                default_target = t;
            if (!has_dependents) {
                free(t->dependents);
                t->dependents = nullptr;
            }
        }
        if (has_commands && t->commands) {
            // The old records stay on command_list: other targets may share them.
            free(t->commands);
            t->commands = nullptr;
        }
        t->dependents = list_merge(t->dependents, dependents);
        t->commands = list_merge(t->commands, commands);
    }
}

void mark_phony_names() {
    for (void **d = phony_target ? phony_target->dependents : nullptr; d && *d; ++d)
        static_cast<file_node *>(*d)->phony = 1;
}

void free_targets() {
    clear_index(target_index);
    rule_list = nullptr;
    phony_target = nullptr;
    default_target = nullptr;
    while (target *t = target_list) {
        target_list = t->next;
        free(t->dependents);
        free(t->commands);
        free(t->from_suffixes);
        free(t);
    }
}

void free_files() {
    clear_index(file_index);
    while (file_node *f = file_list) {
        file_list = f->next;
        free(f->name);
        free(f);
    }
}

void free_commands() {
    while (command *c = command_list) {
        command_list = c->next;
        free(c->text);
        free(c);
    }
}
