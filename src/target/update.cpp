// Target update: the depth-first recursion that decides, name by name, what is
// out of date and brings it up to date.
//
// The stored time of a file_node is the only memo: above 0, the name is settled
// for this run. While a name is being worked out its stored time is still 0, so
// the memo cannot stop a cycle; the names in progress are kept aside for that.
#include <cstdlib>
#include <cstring>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/paths.h"
#include "run/make.h"
#include "run/report.h"
#include "target/update.h"

namespace {

// The names being updated, innermost last, for cycle detection and for the
// diagnostic that names the cycle. A name with a file_node is marked in its
// node; a name without one (a rule's source) is looked for among the names of
// the run in progress, from span_start on. A nested run opens a span of its own.
struct progress_stack {
    const char16_t **names = nullptr;
    file_node **nodes = nullptr;
    size_t count = 0;
    size_t capacity = 0;
    size_t span_start = 0;
};
progress_stack progress;

[[noreturn]] void fail_cycle(const char16_t *name) {
    size_t first = progress.count;
    while (first > progress.span_start && str_icmp(progress.names[first - 1], name) != 0)
        --first;
    char16_t *chain = str_dup(u"Dependency cycle:");
    for (size_t i = first ? first - 1 : 0; i < progress.count; ++i) {
        char16_t *longer = str_printf(u"%ls %ls ->", chain, progress.names[i]);
        free(chain);
        chain = longer;
    }
    char16_t *text = str_printf(u"%ls %ls", chain, name);
    report(MSG_USER_ERROR + FATAL, text);
    exit_process(1); // not reached
}

bool is_in_progress(const file_node *node, const char16_t *name) {
    if (node) return node->updating != 0;
    for (size_t i = progress.count; i > progress.span_start; --i)
        if (!progress.nodes[i - 1] && str_icmp(progress.names[i - 1], name) == 0) return true;
    return false;
}

// Marks name as being updated for the lifetime of the guard.
struct progress_guard {
    explicit progress_guard(file_node *node, const char16_t *name) {
        if (is_in_progress(node, name)) fail_cycle(name);
        if (progress.count == progress.capacity) {
            progress.capacity = progress.capacity ? 2 * progress.capacity : 256;
            progress.names = static_cast<const char16_t **>(
                xrealloc(progress.names, progress.capacity * sizeof(char16_t *)));
            progress.nodes = static_cast<file_node **>(
                xrealloc(progress.nodes, progress.capacity * sizeof(file_node *)));
        }
        progress.names[progress.count] = name;
        progress.nodes[progress.count] = node;
        ++progress.count;
        if (node) node->updating = 1;
    }
    ~progress_guard() {
        --progress.count;
        if (file_node *node = progress.nodes[progress.count]) node->updating = 0;
    }
    progress_guard(const progress_guard &) = delete;
    progress_guard &operator=(const progress_guard &) = delete;
};

// The words of $** or $?: a text that grows by doubling, so that the lists of
// a target with many dependents cost no more than their length.
struct word_list {
    char16_t *text = nullptr;
    size_t length = 0;
    size_t capacity = 0;
    ~word_list() { free(text); }
};

// Adds word behind a blank, in double quotes when it holds a blank.
void append_word(word_list *list, const char16_t *word) {
    const bool quote = str_chr(word, u' ') != nullptr;
    const size_t n = str_len(word);
    const size_t need = list->length + 1 + n + 2 + 1;
    if (need > list->capacity) {
        list->capacity = need > 2 * list->capacity ? need : 2 * list->capacity;
        list->text =
            static_cast<char16_t *>(xrealloc(list->text, list->capacity * sizeof(char16_t)));
    }
    char16_t *p = list->text + list->length;
    if (list->length) *p++ = u' ';
    if (quote) *p++ = u'"';
    memcpy(p, word, n * sizeof(char16_t));
    p += n;
    if (quote) *p++ = u'"';
    *p = 0;
    list->length = static_cast<size_t>(p - list->text);
}

uint32_t update_known_target(target *t, const char16_t *name, bool must_exist) {
    const uint64_t own = node_time(t->file, name);
    uint64_t newest = 1;
    bool failed = false;
    for (void **d = t->dependents; d && *d; ++d) {
        file_node *dep = static_cast<file_node *>(*d);
        check_name(dep->name); // the look-up that the node saves would warn
        if (update_node(dep, dep->name, must_exist) == UPDATE_FAILED) {
            report(MSG_BUILD_FAILED + WARNING, dep->name);
            failed = true;
        } else if (compare_time(newest, dep->time) < 0) {
            newest = dep->time;
        }
        if (opt_time) show_time_compare(name, own, dep->name, dep->time);
    }
    if (failed) return UPDATE_FAILED;
    const bool stale = opt_all || compare_time(newest, own) > 0;
    if (!t->commands || !t->commands[0]) {
        if (t->dependents && t->dependents[0])
            return apply_inference_to(t, t->file, name, is_phony(name) ? false : must_exist, stale);
        t->file->time = now_time;
        return UPDATE_CURRENT;
    }
    if (!stale) {
        t->file->time = own;
        return UPDATE_CURRENT;
    }
    if (opt_touch) {
        if (!touch_target(name)) return UPDATE_FAILED;
    } else {
        char16_t *stem = str_printf(u"%.*ls", static_cast<int>(stem_length(name)), name);
        set_automatic_macros(stem, u"", name, t);
        free(stem);
        if (!run_commands(t->commands)) return UPDATE_FAILED;
    }
    t->file->time = opt_no_exec ? now_time : target_time(name);
    return UPDATE_BUILT;
}

} // namespace

uint64_t target_time(const char16_t *name) {
    return is_phony(name) ? 0 : file_time(name);
}

bool touch_target(const char16_t *name) {
    show_message(STREAM_OUT, MSG_TOUCH, name);
    note_disk_change();
    return set_file_time(name, now_time) == 0;
}

// Every time stamp read asks, so the dependents of .PHONY are marked on their
// nodes (mark_phony_names) instead of walked: a name is one of them when the
// node of its name is marked and spelled exactly so, since a node stands for
// every spelling of its name.
bool is_phony(const char16_t *name) {
    if (str_cmp(name, u"all") == 0) return true;
    const file_node *f = phony_target ? look_up_file(name) : nullptr;
    return f && f->phony && str_cmp(f->name, name) == 0;
}

void make_target(const char16_t *name) {
    const uint32_t result = update_target(name, true);
    if (result == UPDATE_CURRENT) {
        if (!opt_question) show_message(STREAM_OUT, MSG_UP_TO_DATE, name);
    } else if (result == UPDATE_FAILED && !is_phony(name)) {
        report(MSG_BUILD_FAILED + WARNING, name);
    }
}

uint32_t update_target(const char16_t *name, bool must_exist) {
    return update_node(find_file(name), name, must_exist);
}

uint32_t update_node(file_node *f, const char16_t *name, bool must_exist) {
    if (f && compare_time(f->time, 0) > 0) return UPDATE_CURRENT;
    check_stack();
    progress_guard guard(f, name);
    check_name(name); // the target look-up that the node's owner saves
    target *t = f ? f->owner : nullptr;
    if (!t) return apply_inference_to(nullptr, f, name, must_exist, false);
    return update_known_target(t, name, must_exist);
}

void abandon_updates() {
    progress.count = progress.span_start = 0;
}

size_t begin_update_span() {
    const size_t saved = progress.span_start;
    progress.span_start = progress.count;
    return saved;
}

void end_update_span(size_t saved) {
    progress.span_start = saved;
}

void set_automatic_macros(const char16_t *stem, const char16_t *source, const char16_t *name,
                          target *t) {
    set_macro(u"*", stem, 0);
    set_macro(u"<", source, 0);
    set_macro(u"@", name, 0);
    const bool has_dependents = t && t->dependents && t->dependents[0];
    set_macro(u"!", has_dependents ? static_cast<file_node *>(t->dependents[0])->name : u"", 0);
    if (!t) return;
    // The stored time is still 0 here, so under /A every settled dependent is newer.
    const uint64_t base = opt_all ? 0 : file_time(name);
    word_list all, newer;
    for (void **d = t->dependents; d && *d; ++d) {
        const file_node *dep = static_cast<file_node *>(*d);
        append_word(&all, dep->name);
        if (compare_time(dep->time, base) > 0) append_word(&newer, dep->name);
    }
    if (all.text) set_macro(u"**", all.text, 0);
    if (newer.text) set_macro(u"?", newer.text, 0);
}
