// Encoded line input: text files line by line as wide text, whatever their
// encoding.
//
// read_line keeps no state of its own; the file position is the whole state.
// Each call reads a fresh chunk from the current position, delivers the first
// line in it and moves the position to the first byte behind that line's end.
// Text is therefore read again for every line a chunk holds, which keeps the
// reader free of buffers that would have to survive an !INCLUDE or a nested run.
//
// Line ends are CR, LF and 0x1A: bytes for the byte encodings, whole 16-bit
// units for UTF-16, so a unit such as 0x0A01 ends no line. CR LF is one line
// end; LF CR is two, the second giving an empty line.
//
// Two points the format leaves open, decided here:
//  - 0x1A is the old end-of-file mark. The line in front of it is delivered and
//    the position left on the 0x1A itself; a call whose chunk begins with 0x1A
//    returns 38 (end of file). So everything from a 0x1A on is ignored, and a
//    file of nothing but 0x1A bytes reads as an empty file. Stepping over the
//    mark instead would make it a plain line end; never moving would make the
//    callers read the same empty line for ever.
//  - UTF-16 with an odd number of bytes: the line end search never looks at a
//    byte beyond those read. A chunk of fewer than 2 bytes (a lone byte behind
//    the last line end) returns 38, so the lone byte is dropped silently. A lone
//    byte at the end of a last line without line end is part of that line,
//    which gives 30 like any last line without line end.
#include <cstdlib>

#include "read/reader.h"
#include "run/report.h"

namespace {

constexpr size_t CHUNK_BUFFER_BYTES = 8192;
constexpr size_t FIRST_PIECE_BYTES = 510; // even, so that UTF-16 units never split
constexpr uint32_t OEM_CODE_PAGE = 1;
constexpr uint32_t UTF8_CODE_PAGE = 65001;

constexpr char16_t CR = 13;
constexpr char16_t LF = 10;
constexpr char16_t EOF_MARK = 26;

bool is_line_end(char16_t c) {
    return c == CR || c == LF || c == EOF_MARK;
}

// Releases the chunk on every way out of read_line.
struct chunk_guard {
    char *bytes;
    ~chunk_guard() { free(bytes); }
};

// What the search of one chunk found. The chunk is seen as units of unit_size
// bytes (1 or 2); positions count units.
struct line_span {
    size_t length;   // units in front of the line end
    size_t end_size; // units of the line end that are stepped over
    char16_t end;    // the first unit of the line end; 0 when none was found
};

char16_t get_unit(const char *chunk, size_t index, size_t unit_size) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(chunk);
    if (unit_size == 1) return bytes[index];
    return static_cast<char16_t>(bytes[2 * index] | (bytes[2 * index + 1] << 8));
}

line_span find_line_end(const char *chunk, size_t units, size_t unit_size) {
    line_span span = {units, 0, 0};
    for (size_t i = 0; i < units; i++) {
        char16_t c = get_unit(chunk, i, unit_size);
        if (!is_line_end(c)) continue;
        span.length = i;
        span.end = c;
        if (c == LF) {
            span.end_size = 1;
        } else if (c == CR) {
            span.end_size = (i + 1 < units && get_unit(chunk, i + 1, unit_size) == LF) ? 2 : 1;
        }
        // The end-of-file mark is not stepped over: the next call starts on it.
        return span;
    }
    return span;
}

} // namespace

text_encoding classify_bom(const uint8_t *bytes, size_t count) {
    if (count >= 4 && bytes[0] == 0xFF && bytes[1] == 0xFE && bytes[2] == 0 && bytes[3] == 0) {
        return ENC_UTF32LE;
    }
    if (count >= 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0xFE && bytes[3] == 0xFF) {
        return ENC_UTF32BE;
    }
    if (count >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
        return ENC_UTF8_BOM;
    }
    if (count >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) return ENC_UTF16LE;
    if (count >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) return ENC_UTF16BE;
    return ENC_ANSI;
}

size_t bom_of_encoding(text_encoding encoding) {
    switch (encoding) {
    case ENC_UTF8_BOM:
        return 3;
    case ENC_UTF16LE:
    case ENC_UTF16BE:
        return 2;
    case ENC_UTF32LE:
    case ENC_UTF32BE:
        return 4;
    default:
        return 0;
    }
}

// Called on a file just opened: the bytes read are the first of the file.
text_encoding detect_encoding(os_handle handle) {
    uint8_t bytes[4];
    size_t got = 0;
    if (read_file(handle, bytes, sizeof bytes, &got) != 0) return ENC_UNKNOWN;
    text_encoding encoding = classify_bom(bytes, got);
    // Its result has no way out of here; a seek back into bytes just read
    // does not fail.
    seek_file(handle, bom_of_encoding(encoding));
    return encoding;
}

// The chunk is read in growing pieces, so that a short line costs a short
// read; the result is the same as one read of CHUNK_BYTES, since the search
// for the line end never looks beyond the bytes it has.
uint32_t read_line(os_handle handle, char16_t *buffer, size_t capacity, text_encoding encoding,
                   uint32_t code_page) {
    if (capacity == 0) return ERR_OUT_OF_MEMORY;
    chunk_guard chunk = {static_cast<char *>(xmalloc(CHUNK_BUFFER_BYTES))};

    uint64_t start = 0;
    uint32_t result = file_position(handle, &start);
    if (result != 0) return result;
    if (encoding == ENC_OEM) {
        code_page = OEM_CODE_PAGE;
    } else if (encoding == ENC_UTF8_BOM || encoding == ENC_UTF8) {
        code_page = UTF8_CODE_PAGE;
    }
    const size_t unit_size = encoding == ENC_UTF16LE ? 2 : 1;

    size_t got = 0;
    size_t want = FIRST_PIECE_BYTES;
    line_span span = {0, 0, 0};
    for (;;) {
        size_t piece = 0;
        result = read_file(handle, chunk.bytes + got, want - got, &piece);
        if (result != 0) return result;
        const bool at_end = piece < want - got; // nothing more to read
        got += piece;
        if (got == 0) return ERR_HANDLE_EOF;
        if (encoding < ENC_ANSI || encoding > ENC_UTF16LE) return ERR_READ_FAULT;
        if (got < unit_size) return ERR_HANDLE_EOF; // a lone byte behind the last line end
        span = find_line_end(chunk.bytes, got / unit_size, unit_size);
        const bool complete = at_end || want == CHUNK_BYTES;
        // A CR as the last unit read may still be followed by an LF.
        const bool open_cr = span.end == CR && span.length + 1 == got / unit_size;
        if (complete || (span.end != 0 && !open_cr)) break;
        want = want * 4 < CHUNK_BYTES ? want * 4 : CHUNK_BYTES;
    }
    if (span.end == 0) return ERR_READ_FAULT;
    if (span.end == EOF_MARK && span.length == 0) return ERR_HANDLE_EOF;

    if (span.length == 0) {
        buffer[0] = 0;
    } else if (unit_size == 2) {
        if (span.length >= capacity) return ERR_READ_FAULT;
        for (size_t i = 0; i < span.length; i++)
            buffer[i] = get_unit(chunk.bytes, i, 2);
        buffer[span.length] = 0;
    } else {
        size_t produced = 0;
        if (decode_bytes(code_page, chunk.bytes, span.length, buffer, capacity, &produced) != 0) {
            return ERR_NO_UNICODE_TRANSLATION;
        }
    }
    uint64_t used = (span.length + span.end_size) * unit_size;
    return seek_file(handle, start + used);
}
