// Start-up on POSIX: the arguments arrive as UTF-8 bytes and go on as wide text.
#include <csignal>
#include <cstring>

#include <malloc.h>

#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"

int main(int argc, char **argv) {
    // The run works on a thread of its own (see the fault scope); one arena
    // keeps its allocations in the main heap instead of a thread heap that
    // grows a page range at a time.
    mallopt(M_ARENA_MAX, 1);
    // A write to a closed pipe fails, as it does on Windows, instead of ending
    // the process; children get the default action back when they start.
    signal(SIGPIPE, SIG_IGN);
    char16_t **wide = xalloc_array<char16_t *>(static_cast<size_t>(argc) + 1);
    for (int i = 0; i < argc; ++i) {
        // A byte never gives more than one unit, so the first buffer is big
        // enough; it is cut to the exact size afterwards.
        size_t count = strlen(argv[i]), produced = 0;
        char16_t *text = xalloc_array<char16_t>(count + 1);
        decode_bytes(65001, argv[i], count, text, count + 1, &produced);
        wide[i] = static_cast<char16_t *>(xrealloc(text, (produced + 1) * sizeof(char16_t)));
    }
    wide[argc] = nullptr;
    program_entry(argc, wide);
}
