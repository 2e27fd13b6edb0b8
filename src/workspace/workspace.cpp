// The workspace file: a stream of blank-separated words read by a ten-state
// machine; lines matter only for comments. The state outlives a line, the first
// name of a DEPENDENCY does not.
//
//   0 QEX_WORKSPACE_VERSION  1 =  2 1.00  3
//   3 PROJECT     4 =  5 name -> add_project                      -> 3
//   3 DEPENDENCY  6 =  7 name  8 ON  9 name -> add_project_dependency -> 3
#include "workspace/workspace.h"

#include <cstdlib>

#include "platform/paths.h"
#include "read/reader.h"
#include "run/report.h"
#include "workspace/project.h"

namespace {

constexpr size_t LINE_UNITS = 4096;

[[noreturn]] void fail_syntax() {
    report(MSG_WORKSPACE_SYNTAX + FATAL);
    exit_process(1); // not reached
}

// Turns a name word into an absolute path; strips a second pair of quotes.
char16_t *resolve_name(char16_t *word, const char16_t *workspace_dir) {
    const char16_t quote = word[0];
    if (quote == u'"' || quote == u'\'') {
        char16_t *last = str_rchr(word + 1, quote);
        if (last) {
            char16_t *start = word + 1;
            while (*start == u' ')
                ++start;
            char16_t *end = last;
            while (end > start && end[-1] == u' ')
                --end;
            // Text behind the closing quote stays, joined to the name.
            size_t n = 0;
            for (const char16_t *p = start; p < end; ++p)
                word[n++] = *p;
            for (const char16_t *p = last + 1; *p; ++p)
                word[n++] = *p;
            word[n] = 0;
        }
    }
    if (!word[0]) fail_syntax();
    return make_full_path(word, workspace_dir);
}

struct workspace_reader {
    int state = 0;
    const char16_t *workspace_dir = nullptr;
    project *projects = nullptr;
    char16_t *first_name = nullptr; // lasts for one line only
};

void feed_word(workspace_reader &w, char16_t *word) {
    auto is = [word](const char16_t *keyword) { return str_icmp(word, keyword) == 0; };
    const bool equals = str_cmp(word, u"=") == 0;
    switch (w.state) {
    case 0:
        if (!is(u"QEX_WORKSPACE_VERSION")) fail_syntax();
        w.state = 1;
        break;
    case 1:
    case 4:
    case 6:
        if (!equals) fail_syntax();
        ++w.state;
        break;
    case 2:
        if (str_cmp(word, u"1.00") != 0) fail_syntax();
        w.state = 3;
        break;
    case 3:
        if (is(u"PROJECT"))
            w.state = 4;
        else if (is(u"DEPENDENCY"))
            w.state = 6;
        else
            fail_syntax();
        break;
    case 5:
        add_project(&w.projects, resolve_name(word, w.workspace_dir));
        w.state = 3;
        break;
    case 7:
        w.first_name = resolve_name(word, w.workspace_dir);
        w.state = 8;
        break;
    case 8:
        if (!is(u"ON")) fail_syntax();
        w.state = 9;
        break;
    case 9: {
        // A DEPENDENCY whose names stand on different lines has lost its first
        // name at the line end: that is a syntax error, not a silent drop.
        if (!w.first_name) fail_syntax();
        char16_t *second = resolve_name(word, w.workspace_dir);
        add_project_dependency(w.projects, w.first_name, second);
        free(second);
        free(w.first_name);
        w.first_name = nullptr;
        w.state = 3;
        break;
    }
    }
}

} // namespace

void read_workspace(const char16_t *name) {
    char16_t *workspace_path = make_full_path(name, nullptr);
    char16_t *workspace_dir = dir_of_path(workspace_path);
    const os_handle file = open_text_file(workspace_path);
    const text_encoding encoding = detect_encoding(file);
    char16_t line[LINE_UNITS]; // on the stack: a run that ends inside leaves nothing behind
    workspace_reader w;
    w.workspace_dir = workspace_dir;
    uint32_t result;
    while ((result = read_line(file, line, LINE_UNITS, encoding, 0)) == 0) {
        char16_t *start = line;
        while (is_space(*start))
            ++start;
        if (!*start || *start == u'#') continue;
        w.first_name = nullptr;
        for (char16_t *word = next_word(start); word; word = next_word(nullptr))
            feed_word(w, word);
        free(w.first_name);
        w.first_name = nullptr;
    }
    if (result != ERR_HANDLE_EOF) report(result + WARNING);
    close_file(file);
    free(workspace_path);
    free(workspace_dir);
    build_projects(&w.projects);
}
