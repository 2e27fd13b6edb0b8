// A workspace file as input, read and built under /N; the projects a.mak and
// sub/b.mak exist, any other name is a project whose makefile is missing.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host.h"
#include "run/make.h"

namespace {

void run_workspace(void *) {
    char16_t *argv[] = {const_cast<char16_t *>(u"tolmek"), const_cast<char16_t *>(u"/N"),
                        const_cast<char16_t *>(u"/W"), const_cast<char16_t *>(u"in.ws"), nullptr};
    make(4, argv);
}

void write_text_file(const char *name, const char *text) {
    write_input_file(name, reinterpret_cast<const uint8_t *>(text), strlen(text));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start_host();
    write_text_file("a.mak", "a:\n\techo a\n");
    write_text_file("sub/b.mak", "b: c\n\techo b\nc:\n");
    write_input_file("in.ws", data, size);
    run_input(run_workspace, nullptr);
    return 0;
}
