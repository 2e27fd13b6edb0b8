// File times read ahead on a helper thread.
//
// The helper walks the names newest first, the update usually oldest first, so
// the two meet somewhere in the middle and each name costs one stat. Every
// helper works in a round of its own, and a node's ahead_time counts only when
// its ahead_round is the round going on: the times of a round that a command
// ended are left in the nodes and mean nothing. The update claims a name it
// reads itself (TAKEN), so that the helper skips it. The helper reads only what
// nobody changes during the update: the list links and the names.
#include <atomic>

#include "target/update.h"

namespace {

// Below this, a thread costs more than it saves.
constexpr size_t READ_AHEAD_MIN_NAMES = 256;
// Times the update reads itself after a round has ended before it starts the
// next one: a build that runs a command every few names does not start a
// thread for each.
constexpr uint32_t OWN_READS_BEFORE_ROUND = 256;
constexpr uint64_t TAKEN = UINT64_MAX;

struct read_ahead_run {
    bool enabled = false;        // the run in progress reads ahead
    file_node *newest = nullptr; // its names, newest first
    uint32_t own_reads = 0;      // since the last round ended
    void *helper = nullptr;      // null: no round going on
    uint32_t round = 0;          // of the round going on, or of the last one
    std::atomic<bool> stopping{false};
};
read_ahead_run ahead;

void read_times_ahead(void *) {
    const uint32_t round = ahead.round;
    for (file_node *f = ahead.newest; f; f = f->next) {
        if (ahead.stopping.load(std::memory_order_relaxed)) return;
        if (f->ahead_round.load(std::memory_order_relaxed) == round) continue;
        f->ahead_time.store(file_time(f->name), std::memory_order_relaxed);
        f->ahead_round.store(round, std::memory_order_release);
    }
}

void start_round() {
    ahead.own_reads = 0;
    // Rounds only ever grow, also across nested runs, so a node never holds a
    // time of an earlier round under the number of the current one.
    ++ahead.round;
    ahead.stopping.store(false);
    ahead.helper = start_helper(read_times_ahead, nullptr);
}

} // namespace

void resume_read_ahead() {
    stop_read_ahead();
    size_t count = 0;
    for (const file_node *f = file_list; f && count < READ_AHEAD_MIN_NAMES; f = f->next)
        ++count;
    ahead.enabled = count == READ_AHEAD_MIN_NAMES;
    ahead.newest = file_list;
    ahead.own_reads = 0;
}

void start_read_ahead() {
    resume_read_ahead();
    if (ahead.enabled) start_round();
}

void stop_read_ahead() {
    if (!ahead.helper) return;
    ahead.stopping.store(true);
    join_helper(ahead.helper);
    ahead.helper = nullptr;
}

void end_read_ahead() {
    stop_read_ahead();
    ahead.enabled = false;
    ahead.newest = nullptr;
}

uint64_t node_time(file_node *node, const char16_t *name) {
    if (is_phony(name)) return 0;
    if (!node || !ahead.enabled) return file_time(name);
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
