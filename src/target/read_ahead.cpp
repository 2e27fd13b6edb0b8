// File times read ahead on a helper thread.
//
// The helper walks the names newest first, the update usually oldest first, so
// the two meet somewhere in the middle and each name costs one stat. A node's
// ahead_time holds the time plus one: 0 while nobody has read it, TAKEN once
// the update has gone to the disk for it itself, which tells the helper to
// skip it. The helper reads only what no one changes during the update: the
// list links and the names.
#include <atomic>

#include "target/update.h"

namespace {

// Below this, a thread costs more than it saves.
constexpr size_t READ_AHEAD_MIN_NAMES = 256;
constexpr uint64_t TAKEN = UINT64_MAX;

struct read_ahead_run {
    file_node *newest = nullptr;
    std::atomic<bool> stopping{false};
    void *helper = nullptr; // null: no read-ahead going on
};
read_ahead_run ahead;

void read_times_ahead(void *) {
    for (file_node *f = ahead.newest; f; f = f->next) {
        if (ahead.stopping.load(std::memory_order_relaxed)) return;
        if (f->ahead_time.load(std::memory_order_relaxed) != 0) continue;
        const uint64_t time = file_time(f->name) + 1;
        uint64_t unread = 0;
        f->ahead_time.compare_exchange_strong(unread, time, std::memory_order_release,
                                              std::memory_order_relaxed);
    }
}

} // namespace

// Once per run: the graph's nodes start unread, and their times are left in
// them when the read-ahead stops, good for nothing after.
void start_read_ahead() {
    stop_read_ahead();
    size_t count = 0;
    for (const file_node *f = file_list; f && count < READ_AHEAD_MIN_NAMES; f = f->next)
        ++count;
    if (count < READ_AHEAD_MIN_NAMES) return;
    ahead.newest = file_list;
    ahead.stopping.store(false);
    ahead.helper = start_helper(read_times_ahead, nullptr);
}

void stop_read_ahead() {
    if (!ahead.helper) return;
    ahead.stopping.store(true);
    join_helper(ahead.helper);
    ahead.helper = nullptr;
}

uint64_t node_time(file_node *node, const char16_t *name) {
    if (is_phony(name)) return 0;
    if (ahead.helper && node) {
        uint64_t seen = 0;
        if (!node->ahead_time.compare_exchange_strong(seen, TAKEN, std::memory_order_acquire,
                                                      std::memory_order_acquire) &&
            seen != TAKEN)
            return seen - 1;
    }
    return file_time(name);
}
