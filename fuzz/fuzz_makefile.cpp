// A makefile as input: reading with its directives and conditions, macros and
// their expansion, the update under /N. The first byte chooses more switches.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host.h"
#include "run/make.h"

namespace {

struct makefile_input {
    uint8_t switches;
};

void run_makefile(void *p) {
    const makefile_input *input = static_cast<const makefile_input *>(p);
    std::vector<char16_t *> argv = {const_cast<char16_t *>(u"tolmek"),
                                    const_cast<char16_t *>(u"/N")};
    // Each switch that changes what a run does under /N.
    const char16_t *const choices[] = {u"/P", u"/D", u"/A", u"/R", u"/K", u"/I", u"/E", u"/G"};
    for (int bit = 0; bit < 8; ++bit)
        if (input->switches & (1 << bit)) argv.push_back(const_cast<char16_t *>(choices[bit]));
    argv.push_back(const_cast<char16_t *>(u"/F"));
    argv.push_back(const_cast<char16_t *>(u"in.mak"));
    argv.push_back(nullptr);
    make(static_cast<int>(argv.size() - 1), argv.data());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start_host();
    if (size == 0) return 0;
    makefile_input input = {data[0]};
    write_input_file("in.mak", data + 1, size - 1);
    run_input(run_makefile, &input);
    return 0;
}
