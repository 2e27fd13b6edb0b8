// An index beside a list of named records, so that a look-up by name costs one
// probe instead of a walk. The list stays the truth and keeps every observable
// order (rule search, the /P dump); the index only answers "which record has
// this name", and a name has at most one record.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "platform/system.h"
#include "run/report.h"

// One slot: the folded hash of a name and its record, side by side so that a
// probe touches one cache line. A key with no record is a removed entry.
struct index_slot {
    uint32_t key; // 0: the slot was never used
    void *record;
};

struct name_index {
    index_slot *slots; // open addressing, power-of-two capacity
    size_t capacity;   // 0 while nothing was added
    size_t count;      // slots in use, removed entries included
};

// Hash of a name with ASCII case folded, never 0.
inline uint32_t fold_hash(const char16_t *name) {
    uint32_t h = 2166136261u;
    for (; *name; ++name)
        h = (h ^ fold_char(*name)) * 16777619u;
    return h ? h : 1;
}

// Returns the record whose name (read with name_of) equals name ignoring case.
template <class T, class F>
T *find_indexed(const name_index &index, const char16_t *name, F name_of) {
    if (!index.capacity) return nullptr;
    const uint32_t key = fold_hash(name);
    const size_t mask = index.capacity - 1;
    for (size_t i = key & mask;; i = (i + 1) & mask) {
        const index_slot &slot = index.slots[i];
        if (!slot.key) return nullptr;
        if (slot.key == key && slot.record) {
            T *record = static_cast<T *>(slot.record);
            if (str_icmp(name_of(record), name) == 0) return record;
        }
    }
}

// Adds a record under name, growing the table to keep it at most half full.
void add_indexed(name_index &index, const char16_t *name, void *record);
// Takes the record of name out (its slot stays a tombstone).
void remove_indexed(name_index &index, const char16_t *name, const void *record);
void clear_index(name_index &index);
