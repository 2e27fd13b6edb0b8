// The name index beside the lists of targets, names and macros.
#include "target/name_index.h"

namespace {

void place(name_index &index, uint32_t key, void *record) {
    const size_t mask = index.capacity - 1;
    size_t i = key & mask;
    while (index.slots[i].key)
        i = (i + 1) & mask;
    index.slots[i] = index_slot{key, record};
}

void grow(name_index &index) {
    name_index old = index;
    index.capacity = old.capacity ? 2 * old.capacity : 64;
    index.slots = static_cast<index_slot *>(xcalloc(index.capacity * sizeof(index_slot)));
    index.count = 0;
    for (size_t i = 0; i < old.capacity; ++i)
        if (old.slots[i].record) {
            place(index, old.slots[i].key, old.slots[i].record);
            ++index.count;
        }
    free(old.slots);
}

} // namespace

void add_indexed(name_index &index, const char16_t *name, void *record) {
    if (2 * (index.count + 1) > index.capacity) grow(index);
    place(index, fold_hash(name), record);
    ++index.count;
}

void remove_indexed(name_index &index, const char16_t *name, const void *record) {
    if (!index.capacity) return;
    const uint32_t key = fold_hash(name);
    const size_t mask = index.capacity - 1;
    for (size_t i = key & mask; index.slots[i].key; i = (i + 1) & mask)
        if (index.slots[i].record == record) {
            index.slots[i].record = nullptr; // the key stays, so probes pass over it
            return;
        }
}

void clear_index(name_index &index) {
    free(index.slots);
    index = name_index{};
}
