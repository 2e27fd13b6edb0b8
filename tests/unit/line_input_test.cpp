// Encoded line input: byte order marks, line ends in bytes and in 16-bit units,
// the caller's buffer, the end-of-file mark, and files past the read-ahead.
// Every file is written byte for byte and read the way the makefile reader does.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "read/reader.h"
#include "unit/scratch_dir.h"

namespace {

// "FF FE 61 00" -> those four bytes.
std::string hex(const char *digits) {
    std::string out;
    for (const char *p = digits; *p != 0;) {
        if (*p == ' ') {
            p++;
            continue;
        }
        out += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
        p += 2;
    }
    return out;
}

// Printable ASCII as it is, any other unit as <XXXX>.
std::string to_display(const char16_t *text) {
    std::string out;
    for (; *text != 0; text++) {
        if (*text >= 0x20 && *text < 0x7F) {
            out += static_cast<char>(*text);
        } else {
            char unit[8];
            snprintf(unit, sizeof unit, "<%04X>", static_cast<unsigned>(*text));
            out += unit;
        }
    }
    return out;
}

constexpr int DETECT = -1;

class LineInput : public ::testing::Test {
  protected:
    scratch_dir scratch;
    int file_count = 0;

    std::u16string write_bytes(const std::string &bytes) {
        const std::string name = "f" + std::to_string(file_count++);
        scratch.write(name, bytes);
        return scratch.path(name);
    }

    // Reads a file as its callers do, until the first result that is not 0,
    // and shows "encoding [line][line] result". With encoding DETECT the mark
    // decides; otherwise the given encoding is read from the first byte on.
    std::string read_all(const std::string &bytes, size_t capacity = 4096, int encoding = DETECT) {
        os_handle handle = INVALID_FILE;
        if (open_input(write_bytes(bytes).c_str(), &handle) != 0) return "not opened";
        text_encoding used =
            encoding == DETECT ? detect_encoding(handle) : static_cast<text_encoding>(encoding);
        std::string out = std::to_string(used) + " ";
        std::u16string buffer(capacity + 1, u'#');
        uint32_t result = 0;
        for (int lines = 0; lines < 50; lines++) {
            result = read_line(handle, buffer.data(), capacity, used, 0);
            if (result != 0) break;
            out += "[" + to_display(buffer.c_str()) + "]";
        }
        close_file(handle);
        return out + " " + std::to_string(result);
    }
};

struct file_row {
    const char *title;
    std::string bytes;
    const char *expected;
};

TEST_F(LineInput, LineEndsMarksAndEncodings) {
    const file_row rows[] = {
        {"LF CR is two ends", "a\n\rb\n", "1 [a][][b] 38"},
        {"CR CR LF", "a\r\r\nb\n", "1 [a][][b] 38"},
        {"empty lines", "\n\r\n\n", "1 [][][] 38"},
        {"last line without end is lost", "a\nb", "1 [a] 30"},
        {"single line without end", "abc", "1  30"},
        {"blanks and tabs stay", " a\tb \n", "1 [ a<0009>b ] 38"},
        {"UTF-8 with mark", hex("EF BB BF 67 72 C3 A4 6E 0A"), "3 [gr<00E4>n] 38"},
        {"mark is not looked for again", hex("EF BB BF 61 0A EF BB BF 62 0A"), "3 [a][<FEFF>b] 38"},
        {"UTF-16 LE units that look like line ends",
         hex("FF FE 61 00 01 0A 28 0D 0D 00 0A 00 62 00 0A 00 63 00 0D 00"),
         "5 [a<0A01><0D28>][b][c] 38"},
        {"UTF-16 LE non-ASCII", hex("FF FE E4 00 AC 20 0A 00"), "5 [<00E4><20AC>] 38"},
        {"UTF-16 LE LF CR", hex("FF FE 61 00 0A 00 0D 00 62 00 0D 00 0A 00"), "5 [a][][b] 38"},
        {"UTF-16 LE mark not looked for again", hex("FF FE 61 00 0A 00 FF FE 62 00 0A 00"),
         "5 [a][<FEFF>b] 38"},
        {"UTF-16 LE last line without end", hex("FF FE 61 00 0A 00 62 00"), "5 [a] 30"},
        {"FF FE 00 is UTF-16 LE", hex("FF FE 00"), "5  38"},
        {"UTF-32 LE refused", hex("FF FE 00 00 61 00 00 00 0A 00 00 00"), "7  30"},
        // The old end-of-file mark 0x1A ends the readable text: the line in
        // front of it counts, nothing from the mark on does.
        {"mark after a line end", hex("61 0A 1A 62 0A"), "1 [a] 38"},
        {"mark inside a line", hex("61 62 1A 63 0A"), "1 [ab] 38"},
        {"mark first", hex("1A 61 0A"), "1  38"},
        {"UTF-16 mark unit", hex("FF FE 61 00 1A 00 62 00 0A 00"), "5 [a] 38"},
        {"UTF-16 unit holding 1A is no mark", hex("FF FE 1A 01 0A 00"), "5 [<011A>] 38"},
        // A lone last byte of a UTF-16 file is never read as half a line end.
        {"lone byte after the last line end is dropped", hex("FF FE 61 00 0A 00 78"), "5 [a] 38"},
        {"lone byte ends a line without end", hex("FF FE 61 00 0A 00 62 00 78"), "5 [a] 30"},
        {"half a line feed is no line end", hex("FF FE 61 00 0A"), "5  30"},
    };
    for (const file_row &row : rows) {
        EXPECT_EQ(read_all(row.bytes), row.expected) << row.title;
    }
}

TEST_F(LineInput, CallersCapacity) {
    EXPECT_EQ(read_all("a\n", 0), "1  14");
    // Three characters need four places with the terminator.
    EXPECT_EQ(read_all("abc\n", 4), "1 [abc] 38");
    EXPECT_EQ(read_all("abc\n", 3), "1  1113");
    EXPECT_EQ(read_all(hex("FF FE 61 00 62 00 63 00 0A 00"), 4), "5 [abc] 38");
    EXPECT_EQ(read_all(hex("FF FE 61 00 62 00 63 00 0A 00"), 3), "5  30");
    // An empty line needs the terminator only.
    EXPECT_EQ(read_all("\nx\n", 1), "1 [] 1113");
}

// The reader keeps a read-ahead of 64 KiB per file. Lines of 62 units and CR LF,
// behind a first line one longer, put a CR LF pair across each 64 KiB
// boundary; every line still comes whole, and in order.
TEST_F(LineInput, AFileLongerThanTheReadAheadIsReadWhole) {
    std::string bytes;
    std::vector<std::string> lines;
    for (int i = 0; bytes.size() < 200000; ++i) {
        std::string line = (i == 0 ? "first " : "line ") + std::to_string(i);
        line.resize(i == 0 ? 63 : 62, '.');
        lines.push_back(line);
        bytes += line + "\r\n";
    }
    ASSERT_EQ(bytes.substr(65535, 2), "\r\n");
    os_handle handle = INVALID_FILE;
    ASSERT_EQ(open_input(write_bytes(bytes).c_str(), &handle), 0u);
    ASSERT_EQ(detect_encoding(handle), ENC_ANSI);
    char16_t buffer[4096];
    for (const std::string &line : lines) {
        ASSERT_EQ(read_line(handle, buffer, 4096, ENC_ANSI, 0), 0u) << line;
        ASSERT_EQ(to_display(buffer), line);
    }
    EXPECT_EQ(read_line(handle, buffer, 4096, ENC_ANSI, 0), ERR_HANDLE_EOF);
    close_file(handle);
}

} // namespace
