// Encoded line input: byte order marks, line ends in bytes and in 16-bit units,
// the limits of one chunk and of the caller's buffer, and the end-of-file mark.
// Every file is written byte for byte and read the way the makefile reader does.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

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

TEST_F(LineInput, EncodingsWithoutMarkGivenByCaller) {
    EXPECT_EQ(read_all("gr\xC3\xA4n\n", 4096, ENC_UTF8), "4 [gr<00E4>n] 38");
    EXPECT_EQ(read_all("a\n", 4096, ENC_UNKNOWN), "0  30");
    EXPECT_EQ(read_all("", 4096, ENC_UTF16BE), "6  38");
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

TEST_F(LineInput, ChunkAndBufferLimits) {
    std::string ok_line = std::string(4095, 'x') + "\n";
    EXPECT_EQ(read_all(ok_line), "1 [" + std::string(4095, 'x') + "] 38");
    EXPECT_EQ(read_all(std::string(4096, 'x') + "\n"), "1  1113");

    // 2729 three-byte characters and two more bytes: 8189 bytes in front of the
    // line end, which fit the chunk while their 2731 characters fit the buffer.
    std::string euros;
    for (int i = 0; i < 2729; i++)
        euros += "\xE2\x82\xAC";
    std::string mark = hex("EF BB BF");
    std::string shown;
    for (int i = 0; i < 2729; i++)
        shown += "<20AC>";
    EXPECT_EQ(read_all(mark + euros + "ab\nz\n"), "3 [" + shown + "ab][z] 38");
    EXPECT_EQ(read_all(mark + euros + "abc\nz\n"), "3  30");

    // The chunk holds 4095 units: 4094 and the line end fit, 4095 do not.
    std::string units_4094 = hex("FF FE");
    for (int i = 0; i < 4094; i++)
        units_4094 += hex("79 00");
    EXPECT_EQ(read_all(units_4094 + hex("0A 00")), "5 [" + std::string(4094, 'y') + "] 38");
    EXPECT_EQ(read_all(units_4094 + hex("79 00 0A 00")), "5  30");

    // A CR that ends the first, short read is still joined by its LF.
    const std::string first_piece(509, 'x');
    EXPECT_EQ(read_all(first_piece + "\r\nb\n"), "1 [" + first_piece + "][b] 38");
}

struct bom_row {
    std::string bytes;
    size_t count;
    text_encoding encoding;
    size_t mark_length;
};

TEST(ClassifyBom, FirstFittingRuleDecides) {
    const bom_row rows[] = {
        {hex("FF FE 00 00"), 4, ENC_UTF32LE, 4},
        {hex("FF FE 00 00"), 3, ENC_UTF16LE, 2},
        {hex("FF FE 00 01"), 4, ENC_UTF16LE, 2},
        {hex("00 00 FE FF"), 4, ENC_UTF32BE, 4},
        {hex("00 00 FE FF"), 3, ENC_ANSI, 0},
        {hex("EF BB BF 00"), 3, ENC_UTF8_BOM, 3},
        {hex("EF BB BF"), 2, ENC_ANSI, 0},
        {hex("FF FE"), 2, ENC_UTF16LE, 2},
        {hex("FE FF 00 00"), 4, ENC_UTF16BE, 2},
        {hex("FF"), 1, ENC_ANSI, 0},
        {"", 0, ENC_ANSI, 0},
        {"abcd", 4, ENC_ANSI, 0},
    };
    int index = 0;
    for (const bom_row &row : rows) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(row.bytes.data());
        text_encoding found = classify_bom(bytes, row.count);
        EXPECT_EQ(found, row.encoding) << "row " << index;
        EXPECT_EQ(bom_of_encoding(found), row.mark_length) << "row " << index;
        index++;
    }
    EXPECT_EQ(bom_of_encoding(ENC_UNKNOWN), 0u);
    EXPECT_EQ(bom_of_encoding(ENC_OEM), 0u);
    EXPECT_EQ(bom_of_encoding(ENC_UTF8), 0u);
}

} // namespace
