// Option words: the input's first line is the value of MAKEFLAGS, the rest the
// command line, split as a command text is. A makefile stands in the folder,
// and /N comes first, so that nothing runs whatever the words ask.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host.h"
#include "platform/system.h"
#include "run/make.h"

namespace {

struct options_input {
    std::u16string makeflags;
    std::u16string line;
};

void run_options(void *p) {
    options_input *input = static_cast<options_input *>(p);
    if (!input->makeflags.empty()) set_env(u"MAKEFLAGS", input->makeflags.c_str());
    uint32_t count = 0;
    char16_t **words = nullptr;
    split_command_line(&input->line[0], &count, &words);
    std::vector<char16_t *> argv = {const_cast<char16_t *>(u"tolmek"),
                                    const_cast<char16_t *>(u"/N")};
    for (uint32_t i = 0; i < count; ++i)
        argv.push_back(words[i]);
    argv.push_back(nullptr);
    free(words);
    make(static_cast<int>(argv.size() - 1), argv.data());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start_host();
    const char *text = "all: x\nx:\n\techo $@\n";
    write_input_file("makefile", reinterpret_cast<const uint8_t *>(text), strlen(text));
    const uint8_t *end = static_cast<const uint8_t *>(memchr(data, '\n', size));
    const size_t first = end ? static_cast<size_t>(end - data) : 0;
    options_input input = {text_of(data, first),
                           text_of(data + (end ? first + 1 : 0), size - (end ? first + 1 : 0))};
    input.line.reserve(input.line.size() + 1);
    run_input(run_options, &input);
    return 0;
}
