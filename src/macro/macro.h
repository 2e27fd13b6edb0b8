// Macros: the macro table with its tie to the environment, and the expansion
// engine. A name the table does not know is imported from the environment on
// first sight; a macro tied to the environment writes every new value through.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/system.h"

#include "target/graph.h"

constexpr uint8_t self_referenced = 1; // referred to while its own definition expanded
constexpr uint8_t exported = 2;        // tied to the environment
constexpr uint8_t being_expanded = 4;  // its value is being expanded: met again, it is a cycle

struct macro {
    macro *next;            // next older macro
    char16_t *name;         // owned; as first written, also the environment name
    char16_t *value;        // owned; unexpanded references kept; null only when created by look-up
    size_t value_length;    // units of value, so that += appends without measuring it
    ptr_list substitutions; // pending pairs: search, replacement, ...; texts owned
    uint8_t flags;          // self_referenced, exported, being_expanded
    uint32_t hash;          // hash_name(name)
};

// Stores the owned text value (not null) as m's value, with its length; what
// becomes of the old value is the caller's.
inline void keep_value(macro *m, char16_t *value) {
    m->value = value;
    m->value_length = str_len(value);
}

extern macro *macro_list;      // run table: all macros, newest first
extern name_index macro_index; // index beside macro_list, saved with it

// Returns the macro, importing it from the environment; null when unknown and
// create is false.
macro *find_macro(const char16_t *name, bool create);
void set_macro(const char16_t *name, const char16_t *value, uint8_t mode);
// 1 when line was a macro definition and was carried out, else 0.
int parse_macro_line(const char16_t *line);
void clear_macro_mark(const char16_t *name);
void undefine_macro(const char16_t *name);
void free_macros();

// Returns a new text: text with every match of search replaced, left to right,
// matches not overlapping and replacements never rescanned.
char16_t *replace_text(const char16_t *text, const char16_t *search, const char16_t *replacement);
// Applies the macro's pending pairs in stored order. Releases text and returns a
// new text when there are pairs; otherwise returns text itself.
char16_t *apply_substitutions(const macro *m, char16_t *text);
void clear_substitutions(macro *m);

// Forgets the macros being expanded, when a run ends inside an expansion.
void abandon_expansions();

// The one expansion routine. Returns a new text; text is not changed.
char16_t *expand_macros(const char16_t *text, const char16_t *defining_name, bool in_command,
                        inline_file *inline_chain);
