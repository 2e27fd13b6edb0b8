// The command runner: carries out one block of command lines with the
// directory guard, the ! repetition, prefixes, echo and the exit-code rules.
#include <cstdlib>

#include "exec/exec.h"
#include "macro/macro.h"
#include "run/make.h"
#include "run/report.h"

uint64_t disk_changes = 0;

void note_disk_change() {
    stop_read_ahead();
    ++disk_changes;
}

namespace {

constexpr uint32_t NO_LIMIT = 0xFFFFFFFF;

// Reads decimal digits into limit (wrapping); returns the position behind them.
const char16_t *parse_number(const char16_t *text, uint32_t *limit) {
    if (!is_digit(*text)) return text;
    *limit = 0;
    for (; is_digit(*text); ++text)
        *limit = *limit * 10 + static_cast<uint32_t>(*text - u'0');
    return text;
}

// Echoes line as "\tline\r\n" on standard output.
void echo_line(const char16_t *line) {
    out_printf(STREAM_OUT, u"\t%ls\r\n", line);
}

} // namespace

uint32_t run_command(const char16_t *text, inline_file *inline_files, const char16_t *make_value) {
    if (opt_question) {
        ++pending_count;
        return 0;
    }
    char16_t *line = expand_macros(text, nullptr, true, inline_files);
    uint32_t limit = NO_LIMIT;
    bool dash = false, at = false, plus = false;
    const char16_t *p = line;
    for (;; ++p) {
        if (*p == u' ' || *p == u'!' || *p == u'\t') continue;
        if (*p == u'+') {
            plus = true;
        } else if (*p == u'@') {
            at = true;
        } else if (*p == u'-') {
            dash = true;
            p = parse_number(p + 1, &limit) - 1;
        } else {
            break;
        }
    }
    if (!*p) {
        free(line);
        return 0;
    }
    const bool echoed = opt_no_exec || (!at && !opt_silent);
    if (echoed) echo_line(line);
    uint32_t exit_code = 0;
    note_disk_change();
    const uint32_t failed = spawn_command(p, &exit_code, plus, make_value);
    if (failed) {
        if (!opt_no_exec && !echoed) echo_line(line);
        report(failed + FATAL);
    }
    if (exit_code != 0) {
        if (dash && exit_code <= limit) exit_code = 0;
        if (opt_ignore) exit_code = 0;
        if (exit_code != 0 && !opt_keep_going) report(MSG_EXIT_CODE + FATAL, line, exit_code);
    }
    free(line);
    return exit_code;
}

// A line that starts with ! and names exactly one of $** and $? runs once for
// each word of that macro, with the macro holding just that word.
bool run_for_each(const char16_t *text, uint32_t *exit_code, const char16_t *make_value) {
    while (is_space(*text))
        ++text;
    if (*text != u'!') return false;
    const char16_t *rest = text + 1;
    const bool all = str_str(rest, u"$**") != nullptr;
    const bool newer = str_str(rest, u"$?") != nullptr;
    if (all == newer) return false;
    macro *m = find_macro(all ? u"**" : u"?", false);
    if (!m) return false;
    char16_t *kept = m->value;
    const size_t kept_length = m->value_length;
    char16_t *words = str_dup(kept);
    char16_t *position = nullptr;
    for (char16_t *word = str_tok_r(words, u" ", &position); word;
         word = str_tok_r(nullptr, u" ", &position)) {
        // Directly, without set_macro and its side effects. A block of its own,
        // since a fatal end releases the table with this value in it.
        keep_value(m, str_dup(word));
        *exit_code = run_command(rest, nullptr, make_value);
        free(m->value);
        m->value = kept;
        m->value_length = kept_length;
        if (*exit_code != 0) break;
    }
    free(words);
    return true;
}

bool run_commands(ptr_list commands) {
    // A copy: a set command of the block may replace the macro's value.
    const macro *make_macro = find_macro(u"MAKE", false);
    char16_t *make_value = str_dup(make_macro ? make_macro->value : nullptr);
    char16_t *saved = current_dir();
    uint32_t exit_code = 0;
    for (void **c = commands; c && *c; ++c) {
        if (aborted) break;
        const command *cmd = static_cast<command *>(*c);
        if (!cmd->inline_files && run_for_each(cmd->text, &exit_code, make_value)) {
            if (exit_code != 0) break;
            continue;
        }
        write_inline_files(cmd->inline_files);
        exit_code = run_command(cmd->text, cmd->inline_files, make_value);
        if (exit_code != 0) break;
    }
    // A cd in a command lasts to the end of its block and no further.
    if (saved)
        if (const uint32_t failed = change_dir(saved)) report(failed + WARNING);
    free(saved);
    free(make_value);
    return exit_code == 0;
}
