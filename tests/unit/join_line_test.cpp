// Folding physical lines into logical lines: continuation, comments, escapes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "read/reader.h"
#include "run/report.h"
#include "unit/test_text.h"

namespace {

// Joins the physical lines until one completes the logical line; returns the
// logical line shown with \n for a stored line feed, and how many physical
// lines were used.
std::string join(const std::vector<std::u16string> &lines, size_t *used = nullptr) {
    char16_t *buffer = nullptr;
    size_t position = 0;
    size_t n = 0;
    for (const std::u16string &line : lines) {
        ++n;
        position = join_line(&buffer, position, line.c_str());
        if (position == 0) break;
    }
    std::string out = to_utf8(buffer);
    if (position != 0) out += "<pending>";
    free(buffer);
    if (used) *used = n;
    return out;
}

TEST(JoinLine, SingleLines) {
    struct row {
        const char16_t *line;
        const char *logical;
    } rows[] = {
        {u"abc", "abc"},
        {u"abc   \t", "abc"},
        {u"  lead", "  lead"},
        {u"a # comment", "a"},
        {u"# all comment", ""},
        {u"a#b", "a"},
        {u"a ^# b", "a # b"},
        {u"a ^^ b", "a ^ b"},
        {u"a ^\\", "a \\"},      // an escaped backslash continues nothing
        {u"x^ ", "x "},          // a caret escapes the blank trimmed off the end
        {u"x^   ", "x "},        // ... and only that one
        {u"a \\ # b", "a \\"},   // a backslash before a comment continues nothing
        {u"\"#\" quoted", "\""}, // quotes do not protect a number sign
        {u"", ""},
        {u"   ", ""},
    };
    for (const row &r : rows)
        EXPECT_EQ(join({r.line}), r.logical) << to_utf8(r.line);
}

TEST(JoinLine, Continuation) {
    struct row {
        std::vector<std::u16string> lines;
        const char *logical;
    } rows[] = {
        {{u"a \\", u"   b"}, "a     b"},
        {{u"a\\", u"b"}, "a b"},
        {{u"a \\   ", u"b"}, "a  b"},    // trailing blanks do not stop a backslash
        {{u"one^", u"two"}, "one\ntwo"}, // a final caret stores a line feed
        {{u"a \\", u"b \\", u"c"}, "a  b  c"},
        {{u"a \\", u""}, "a  "},       // a blank line ends it, trailing blank kept
        {{u"a \\", u"# x \\"}, "a  "}, // a comment line adds nothing and ends it
        // The blank stored for the backslash belongs to the first line and stays.
        {{u"a \\", u"   # c"}, "a  "},
        {{u"a \\"}, "a  <pending>"},
    };
    for (const row &r : rows) {
        size_t used = 0;
        EXPECT_EQ(join(r.lines, &used), r.logical) << to_utf8(r.lines[0]);
        EXPECT_EQ(used, r.lines.size()) << to_utf8(r.lines[0]);
    }
}

TEST(JoinLine, LongLinesGrowTheBufferInSteps) {
    char16_t *buffer = nullptr;
    std::u16string line(4095, u'x');
    line.back() = u'\\';
    size_t position = 0;
    for (int i = 0; i < 5; ++i)
        position = join_line(&buffer, position, line.c_str());
    EXPECT_EQ(position, 5u * 4095u);
    EXPECT_GE(block_size(buffer), 2 * position + 2);
    EXPECT_EQ(join_line(&buffer, position, u"end"), 0u);
    EXPECT_EQ(str_len(buffer), 5u * 4095u + 3u);
    free(buffer);
}

} // namespace
