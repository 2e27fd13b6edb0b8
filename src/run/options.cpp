// Options: words of the command line and of MAKEFLAGS into flags and four word
// lists. Both sources go through parse_options, so they have one syntax.
#include <cstdlib>

#include "run/make.h"
#include "run/report.h"

uint8_t opt_all = 0;
uint8_t opt_shell = 0;
uint8_t opt_time = 0;
uint8_t opt_env = 0; // make_init sets it
uint8_t opt_show_includes = 0;
uint8_t opt_ignore = 0;
uint8_t opt_keep_going = 0;
uint8_t opt_no_exec = 0;
uint8_t opt_print = 0;
uint8_t opt_question = 0;
uint8_t opt_builtins = 0; // make_init sets it
uint8_t opt_silent = 0;
uint8_t opt_touch = 0;

namespace {

[[noreturn]] void fail_option(char16_t letter) {
    report(MSG_BAD_OPTION + FATAL, letter);
    exit_process(1); // not reached: a fatal report ends the process
}

// Acts on one letter of a cluster. F and W are handled by the caller.
void set_option(char16_t letter) {
    switch (fold_char(letter)) {
    case u'a':
        opt_all = 1;
        break;
    case u'c':
        opt_shell = 1;
        break;
    case u'd':
        opt_time = 1;
        break;
    case u'e':
        opt_env = 0;
        break;
    case u'g':
        opt_show_includes = 1;
        break;
    case u'i':
        opt_ignore = 1;
        break;
    case u'k':
        opt_keep_going = 1;
        break;
    case u'n':
        opt_no_exec = 1;
        break;
    case u'p':
        opt_print = 1;
        break;
    case u'q':
        opt_question = 1;
        break;
    case u'r':
        opt_builtins = 0;
        break;
    case u's':
        opt_silent = 1;
        break;
    case u't':
        opt_touch = 1;
        break;
    case u'?':
        show_usage();
    default:
        fail_option(letter);
    }
}

} // namespace

void parse_options(int32_t count, char16_t **words, ptr_list *macro_words, ptr_list *target_words,
                   ptr_list *makefile_words, ptr_list *workspace_words) {
    for (; count > 0 && *words; --count, ++words) {
        char16_t *word = *words;
        if (word[0] == u'-' || word[0] == u'/') {
            if (str_icmp(word + 1, u"nologo") == 0) continue; // no banner is ever printed
            for (const char16_t *p = word + 1; *p; ++p) {
                const char16_t letter = fold_char(*p);
                if (letter != u'f' && letter != u'w') {
                    set_option(*p);
                    continue;
                }
                // F and W take the next word, whatever it looks like, and end the cluster.
                if (p[1] != 0 || count < 2 || words[1] == nullptr) fail_option(*p);
                --count;
                ++words;
                if (letter == u'f')
                    *makefile_words = list_add(*makefile_words, *words);
                else
                    *workspace_words = list_add(*workspace_words, *words);
                break;
            }
        } else if (str_chr(word, u'=')) {
            *macro_words = list_add(*macro_words, word);
        } else {
            *target_words = list_add(*target_words, word);
        }
    }
    if (*workspace_words && (*makefile_words || *target_words || *macro_words))
        report(MSG_MIXED_WORKSPACE + FATAL);
}

// Blanks are the space and the tab only; a backslash has no meaning. Each word
// has at most one quoted stretch, and it ends the word.
void split_command_line(char16_t *text, uint32_t *count_out, char16_t ***vector_out) {
    size_t slots = 8;
    uint32_t count = 0;
    char16_t **vector = static_cast<char16_t **>(xmalloc(slots * sizeof(char16_t *)));
    char16_t *p = text;
    auto is_blank = [](char16_t c) { return c == u' ' || c == u'\t'; };
    while (p && *p) {
        while (is_blank(*p))
            ++p;
        if (!*p) break;
        char16_t *word;
        if (*p == u'"') {
            word = ++p;
            while (*p && *p != u'"')
                ++p;
            if (*p) *p++ = 0;
        } else {
            word = p;
            while (*p && !is_blank(*p) && *p != u'"')
                ++p;
            if (*p == u'"') {
                // Join the quoted stretch to the word by moving it over the quote.
                char16_t *to = p;
                char16_t *from = p + 1;
                while (*from && *from != u'"')
                    *to++ = *from++;
                p = *from ? from + 1 : from;
                *to = 0;
            } else if (*p) {
                *p++ = 0;
            }
        }
        if (count + 1 == slots) {
            slots += 8;
            vector = static_cast<char16_t **>(xrealloc(vector, slots * sizeof(char16_t *)));
        }
        if (*word) vector[count++] = word;
    }
    vector[count] = nullptr;
    *count_out = count;
    *vector_out = vector;
}

void show_usage() {
    show_message(STREAM_OUT, MSG_BANNER);
    show_message(STREAM_OUT, MSG_MAKER);
    show_message(STREAM_OUT, MSG_USAGE, u"TOLMEK");
    make_exit(1); // also when nothing but the usage text was asked for
}
