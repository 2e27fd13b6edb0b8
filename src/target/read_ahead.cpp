// File times read ahead on a helper thread.
//
// The helper walks the names newest first, the update usually oldest first, so
// the two meet somewhere in the middle and each name costs one stat. A slot
// holds the time plus one; 0 while nobody has read it, and TAKEN once the
// update has gone to the disk for it itself, which tells the helper to skip it.
#include <atomic>
#include <cstdlib>
#include <new>

#include "run/report.h"
#include "target/update.h"

namespace {

// Below this, a thread costs more than it saves.
constexpr size_t READ_AHEAD_MIN_NAMES = 256;
constexpr uint64_t TAKEN = UINT64_MAX;

struct read_ahead_run {
    const char16_t **names = nullptr;  // of the nodes, newest first; the nodes own them
    std::atomic<uint64_t> *slots = nullptr;
    size_t count = 0;
    std::atomic<bool> stopping{false};
    void *helper = nullptr; // null: no read-ahead going on
};
read_ahead_run ahead;

void read_times_ahead(void *) {
    for (size_t i = 0; i < ahead.count; ++i) {
        if (ahead.stopping.load(std::memory_order_relaxed)) return;
        if (ahead.slots[i].load(std::memory_order_relaxed) != 0) continue;
        const uint64_t time = file_time(ahead.names[i]) + 1;
        uint64_t unread = 0;
        ahead.slots[i].compare_exchange_strong(unread, time, std::memory_order_release,
                                               std::memory_order_relaxed);
    }
}

} // namespace

void start_read_ahead() {
    stop_read_ahead();
    size_t count = 0;
    for (const file_node *f = file_list; f; f = f->next)
        ++count;
    if (count < READ_AHEAD_MIN_NAMES || count >= UINT32_MAX) return;
    ahead.names = xalloc_array<const char16_t *>(count);
    ahead.slots = xalloc_array<std::atomic<uint64_t>>(count);
    size_t i = 0;
    for (file_node *f = file_list; f; f = f->next, ++i) {
        ahead.names[i] = f->name;
        new (&ahead.slots[i]) std::atomic<uint64_t>(0);
        f->ahead_slot = static_cast<uint32_t>(i + 1);
    }
    ahead.count = count;
    ahead.stopping.store(false);
    ahead.helper = start_helper(read_times_ahead, nullptr);
    if (!ahead.helper) stop_read_ahead();
}

void stop_read_ahead() {
    if (ahead.helper) {
        ahead.stopping.store(true);
        join_helper(ahead.helper);
        ahead.helper = nullptr;
    }
    free(ahead.names);
    free(ahead.slots);
    ahead.names = nullptr;
    ahead.slots = nullptr;
    ahead.count = 0;
}

uint64_t node_time(file_node *node, const char16_t *name) {
    if (is_phony(name)) return 0;
    // A slot number stays in the node after its run's read-ahead has ended; it
    // counts only while one is going on, and every run numbers its own nodes.
    if (ahead.helper && node && node->ahead_slot) {
        uint64_t seen = 0;
        if (!ahead.slots[node->ahead_slot - 1].compare_exchange_strong(
                seen, TAKEN, std::memory_order_acquire, std::memory_order_acquire) &&
            seen != TAKEN)
            return seen - 1;
    }
    return file_time(name);
}
