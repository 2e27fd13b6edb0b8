// Child processes on Windows: the command line goes to CreateProcessW as it
// stands, and the child's own start-up splits it.
#include <cstdlib>

#include "platform/system.h"
#include "platform/win32.h"
#include "run/report.h"

uint32_t run_program(const char16_t *command_line, uint32_t *exit_code) {
    *exit_code = 0;
    STARTUPINFOW startup;
    GetStartupInfoW(&startup);
    char16_t *line = str_dup(command_line); // the system may write into it
    PROCESS_INFORMATION child;
    const BOOL created =
        CreateProcessW(nullptr, os_text(line), nullptr, nullptr, FALSE, CREATE_DEFAULT_ERROR_MODE,
                       nullptr, nullptr, &startup, &child);
    const uint32_t error = created ? 0 : static_cast<uint32_t>(GetLastError());
    free(line);
    if (!created) return error;
    // No time limit: an interrupt reaches the child through the console, and
    // its end is what ends the wait.
    WaitForSingleObject(child.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(child.hProcess, &code);
    *exit_code = code;
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return 0;
}

uint32_t run_shell(const char16_t *shell, const char16_t *text, uint32_t *exit_code) {
    char16_t *line = str_printf(u"%ls /c %ls", shell ? shell : u"cmd.exe", text);
    const uint32_t result = run_program(line, exit_code);
    free(line);
    return result;
}
