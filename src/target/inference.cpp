// Inference rules: making a name that has no commands of its own from a rule
// {frompath}.from{topath}.to, or with .DEFAULT, or deciding that it can't be made.
#include <cstdlib>

#include "exec/exec.h"
#include "platform/paths.h"
#include "run/make.h"
#include "run/report.h"
#include "target/update.h"

namespace {

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// Tests the topath group at *cursor (behind its '{') against the stem's directory.
bool fits_topath(const char16_t *stem, const char16_t **cursor) {
    const char16_t *j = *cursor;
    if (*j == u'}') {
        *cursor = j + 1;
        return true;
    }
    const char16_t *base = base_name(stem);
    if (base == stem || !is_separator(base[-1])) return false;
    const char16_t *sep = base - 1;
    const char16_t *i = stem;
    while (i < sep && *j && *j != u'}' && *i == *j) {
        ++i;
        ++j;
    }
    if (is_separator(*j)) {
        ++i;
        ++j;
    }
    if (*j != u'}' || i < sep) return false;
    *cursor = j + 1;
    return true;
}

// The rest of the rule text behind the from-extension: topath and to-extension.
bool fits_rest(const char16_t *rest, const char16_t *stem, const char16_t *extension) {
    if (*rest == u'{') {
        ++rest;
        if (!fits_topath(stem, &rest)) return false;
    }
    return str_icmp(rest, extension) == 0;
}

// The entries of the suffix list that begin the rule text at from, in list
// order. A name tries every rule, and a rule would otherwise walk the whole
// list each time; the list does not change while names are made.
ptr_list find_from_suffixes(target *rule, const char16_t *from) {
    if (rule->from_suffixes_at == suffix_list_changes) return rule->from_suffixes;
    free(rule->from_suffixes);
    rule->from_suffixes = nullptr;
    for (void **s = suffix_target->dependents; *s; ++s) {
        const char16_t *suffix = static_cast<file_node *>(*s)->name;
        if (str_nicmp(from, suffix, str_len(suffix)) == 0)
            rule->from_suffixes = list_add(rule->from_suffixes, *s);
    }
    rule->from_suffixes_at = suffix_list_changes;
    return rule->from_suffixes;
}

} // namespace

// The suffix walk does not stop at the first entry that is a prefix of the rule
// text: when the rest of the rule does not fit behind it, a later entry gets its
// turn. So with the predefined list, where .c stands in front of .cpp and .cxx,
// the rules .cpp.obj and .cxx.obj still work.
char16_t *match_inference_rule(target *rule, const char16_t *stem, const char16_t *extension) {
    // The rule text ends in the to-extension: a cheap test before the walk.
    const char16_t *text = rule->file->name;
    const size_t text_length = str_len(text), extension_length = str_len(extension);
    if (text_length < extension_length ||
        str_icmp(text + text_length - extension_length, extension) != 0)
        return nullptr;
    const char16_t *cursor = text;
    const char16_t *frompath = u"";
    size_t frompath_length = 0;
    if (*cursor == u'{') {
        const char16_t *close = str_chr(cursor, u'}');
        if (!close) return nullptr;
        frompath = cursor + 1;
        frompath_length = static_cast<size_t>(close - frompath);
        cursor = close + 1;
    }
    if (!suffix_target || !suffix_target->dependents || !suffix_target->dependents[0])
        return nullptr;
    for (void **s = find_from_suffixes(rule, cursor); s && *s; ++s) {
        const char16_t *suffix = static_cast<file_node *>(*s)->name;
        if (!fits_rest(cursor + str_len(suffix), stem, extension)) continue;
        const bool joined = frompath_length == 0 || is_separator(frompath[frompath_length - 1]);
        return str_printf(joined ? u"%.*ls%ls%ls" : u"%.*ls\\%ls%ls",
                          static_cast<int>(frompath_length), frompath, base_name(stem), suffix);
    }
    return nullptr;
}

uint32_t apply_inference(target *t, const char16_t *name, bool must_exist, bool stale) {
    return apply_inference_to(t, find_file(name), name, must_exist, stale);
}

// The node is looked up at the end in the spec of things; it cannot appear in
// between, since nothing adds names while targets are updated.
uint32_t apply_inference_to(target *t, file_node *node, const char16_t *name, bool must_exist,
                            bool stale) {
    const size_t n = stem_length(name);
    const char16_t *extension = name + n;
    char16_t *stem = str_dup_n(name, n);
    const uint64_t own = node_time(node, name);
    const uint64_t changes_at_own = disk_changes;
    uint32_t rc = UPDATE_FAILED;

    if (*extension && suffix_target) {
        for (target *rule = rule_list; rule; rule = rule->next_rule) {
            char16_t *source = match_inference_rule(rule, stem, extension);
            if (!source) continue;
            // The source's time comes from the disk (or its node, which caches
            // it); only a source that is updated is looked up by name.
            file_node *source_node = look_up_file(source);
            uint64_t source_time = node_time(source_node, source);
            const uint64_t changes_at_source = disk_changes;
            if (source_time != 0 || stale) {
                check_name(source);
                rc = update_node(source_node, source, false);
            }
            if (disk_changes != changes_at_source) source_time = target_time(source);
            const bool fires = compare_time(source_time, own) > 0 || (stale && rc != 0);
            if (fires) {
                if (opt_time) show_time_compare(name, own, source, source_time);
                if (opt_touch) {
                    rc = touch_target(name) ? UPDATE_BUILT : UPDATE_FAILED;
                } else {
                    set_automatic_macros(stem, source, name, t);
                    rc = run_commands(rule->commands) ? UPDATE_BUILT : UPDATE_FAILED;
                }
            } else if (opt_time && source_time != 0) {
                show_time_compare(name, own, source, source_time);
            }
            free(source);
            if (rc != UPDATE_FAILED) break;
        }
    }
    if (rc == UPDATE_FAILED) {
        if (target *fallback = default_target) {
            set_automatic_macros(stem, u"", name, t);
            rc = run_commands(fallback->commands) ? UPDATE_BUILT : UPDATE_FAILED;
        } else if (t && !*extension && own == 0 && must_exist) {
            rc = UPDATE_CURRENT; // a target without extension, file or commands counts as done
        } else if (own == 0 && must_exist) {
            report(MSG_CANNOT_MAKE + FATAL, name);
        }
    }
    free(stem);
    check_name(name); // the closing look-up of the node, which is known
    if (file_node *f = node) {
        if (rc == UPDATE_BUILT && opt_no_exec)
            f->time = now_time;
        else
            f->time = disk_changes == changes_at_own ? own : target_time(name);
    }
    if (rc != UPDATE_FAILED) return rc;
    return own != 0 ? UPDATE_CURRENT : UPDATE_FAILED;
}
