// Start-up on Windows: the arguments come from the one wide command line of the
// process, split by the rules of a program's start-up.
#include <windows.h>

#include "platform/process.h"
#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"

extern "C" int wmain(int, wchar_t **);

int wmain(int, wchar_t **) {
    size_t count = 0;
    char16_t **argv =
        split_program_arguments(reinterpret_cast<const char16_t *>(GetCommandLineW()), &count);
    if (count == 0) {
        // An empty command line: the program's name is its module's file name.
        wchar_t module[MAX_PATH];
        const DWORD length = GetModuleFileNameW(nullptr, module, MAX_PATH);
        argv = static_cast<char16_t **>(xrealloc(argv, 2 * sizeof(char16_t *)));
        argv[0] = str_dup_n(reinterpret_cast<const char16_t *>(module), length);
        argv[1] = nullptr;
        count = 1;
    }
    program_entry(static_cast<int>(count), argv);
}
