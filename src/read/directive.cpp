// Directives and the conditional stack.
#include "read/reader.h"

#include "run/report.h"

namespace {
constexpr size_t COND_LEVELS = 10;  // level 0 and nine levels of !IF
constexpr uint8_t COND_ACTIVE = 1;
} // namespace

uint8_t *new_cond_stack() {
    uint8_t *levels = static_cast<uint8_t *>(xcalloc(COND_LEVELS));
    levels[0] = COND_ACTIVE;
    return levels;
}

// Placeholder until the directives land: the line is accepted and does nothing.
void do_directive(char16_t *) {}

void do_include(char16_t *text) { include_file(text); }
