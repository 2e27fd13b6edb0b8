// Macro expansion: the input is the text, in 16-bit units behind a first byte
// that chooses the mode; a few macros stand ready, the automatic ones among
// them, some referring to others and to themselves.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "exec/exec.h"
#include "host.h"
#include "macro/macro.h"
#include "run/make.h"

namespace {

struct expand_input {
    uint8_t mode;
    std::u16string text;
};

void run_expand(void *p) {
    const expand_input *input = static_cast<const expand_input *>(p);
    const char16_t *const definitions[] = {
        u"A = a$(B)",    u"B = b",    u"C = $(A:a=c) $$", u"S = x $(S) y",
        u"D = $(D:x=y)", u"P = 50%%", u"L = a b c",
    };
    for (const char16_t *line : definitions)
        parse_macro_line(line);
    set_macro(u"@", u"dir\\name.ext", 0);
    set_macro(u"<", u"c:src.c", 0);
    set_macro(u"*", u"dir\\name", 0);
    set_macro(u"**", u"x \"a b\" y", 0);
    inline_file second = {};
    second.name = const_cast<char16_t *>(u"two.tmp");
    inline_file first = {};
    first.name = const_cast<char16_t *>(u"one.tmp");
    first.next_in_command = &second;
    const bool in_command = input->mode & 1;
    const char16_t *defining = input->mode & 2 ? u"A" : nullptr;
    char16_t *result = expand_macros(input->text.c_str(), defining, in_command,
                                     input->mode & 4 ? &first : nullptr);
    free(result);
    if (input->mode & 8) parse_macro_line(input->text.c_str());
    make_free();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start_host();
    if (size == 0) return 0;
    expand_input input = {data[0], units_of(data + 1, size - 1)};
    run_input(run_expand, &input);
    return 0;
}
