// Conditions of !IF: the input is the text of the condition, with macros and a
// folder for defined() and exist(); under /N a bracketed command starts nothing.
#include <cstddef>
#include <cstdint>
#include <string>

#include "host.h"
#include "macro/macro.h"
#include "read/expression.h"
#include "run/make.h"

namespace {

void run_condition(void *p) {
    const std::u16string *text = static_cast<const std::u16string *>(p);
    set_macro(u"X", u"1", 0);
    set_macro(u"EMPTY", u"", 0);
    if (!text->empty()) eval_condition(text->c_str());
    make_free();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start_host();
    std::u16string text = text_of(data, size);
    run_input(run_condition, &text);
    return 0;
}
