// File times read ahead on a helper thread.
//
// The helper walks the names newest first, the update usually oldest first, so
// the two meet somewhere in the middle and each name costs one stat. Every
// helper works in a round of its own, and a node's ahead_time counts only when
// its ahead_round is the round going on: the times of a round that a change to
// the disk ended are left in the nodes and mean nothing. The update claims a
// name it reads itself (TAKEN), so that the helper skips it. The helper reads
// only what nobody changes during the update: the list links and the names.
//
// A round starts only from node_time, that is while the update walks the
// graph of the run in progress; a nested run comes after a command, and so
// after the stop.
#include <atomic>

#include "target/update.h"

namespace {

// Below this many names, a thread costs more than it saves.
constexpr size_t READ_AHEAD_MIN_NAMES = 256;
// Times the update reads itself before it starts a round: a run that needs
// few times, or runs a command every few names, starts no thread for them.
constexpr uint32_t OWN_READS_BEFORE_ROUND = 256;
constexpr uint64_t TAKEN = UINT64_MAX;

struct read_ahead_run {
    uint32_t own_reads = 0; // since the last round ended
    void *helper = nullptr; // null: no round going on
    uint32_t round = 0;     // of the round going on, or of the last one
    std::atomic<bool> stopping{false};
};
read_ahead_run ahead;

void read_times_ahead(void *newest) {
    const uint32_t round = ahead.round;
    for (file_node *f = static_cast<file_node *>(newest); f; f = f->next) {
        if (ahead.stopping.load(std::memory_order_relaxed)) return;
        if (f->ahead_round.load(std::memory_order_relaxed) == round) continue;
        f->ahead_time.store(file_time(f->name), std::memory_order_relaxed);
        f->ahead_round.store(round, std::memory_order_release);
    }
}

void start_round() {
    ahead.own_reads = 0;
    size_t count = 0;
    for (const file_node *f = file_list; f && count < READ_AHEAD_MIN_NAMES; f = f->next)
        ++count;
    if (count < READ_AHEAD_MIN_NAMES) return;
    // Rounds only ever grow, also across nested runs, so a node never holds a
    // time of an earlier round under the number of the current one.
    ++ahead.round;
    ahead.stopping.store(false);
    ahead.helper = start_helper(read_times_ahead, file_list);
}

} // namespace

void stop_read_ahead() {
    ahead.own_reads = 0;
    if (!ahead.helper) return;
    ahead.stopping.store(true);
    join_helper(ahead.helper);
    ahead.helper = nullptr;
}

uint64_t node_time(file_node *node, const char16_t *name) {
    if (!node || is_phony(name)) return target_time(name);
    if (!ahead.helper && ++ahead.own_reads > OWN_READS_BEFORE_ROUND) start_round();
    if (!ahead.helper) return file_time(name);
    // The helper stores the time before the round, so a round that matches
    // brings its time along; or the round is the update's own claim, and the
    // time is TAKEN or what the helper read in this round after all.
    if (node->ahead_round.load(std::memory_order_acquire) == ahead.round) {
        const uint64_t time = node->ahead_time.load(std::memory_order_relaxed);
        if (time != TAKEN) return time;
    } else {
        node->ahead_time.store(TAKEN, std::memory_order_relaxed);
        node->ahead_round.store(ahead.round, std::memory_order_release);
    }
    return file_time(name);
}
