// Child processes on POSIX. The direct road has one command line to hand over,
// as a Windows program would get it; here the line is cut into an argument
// vector by the rules that program's start-up would have applied, and the
// program is looked for on PATH as execvp looks. No shell is involved on that
// road: a file that is no executable fails as it would on Windows.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <spawn.h>
#include <sys/wait.h>

#include "platform/posix.h"
#include "platform/process.h"
#include "platform/system.h"
#include "run/report.h"

extern char **environ;

namespace {

// Starts file with argv and waits for it to end.
uint32_t spawn_and_wait(const char *file, char *const argv[], uint32_t *exit_code) {
    *exit_code = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // The child gets the standard handles and nothing else of ours.
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
#endif
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // Output here goes straight to descriptors and a closed pipe must show as a
    // failed write, not end the program; a child is not to inherit that choice.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    sigset_t mask;
    sigemptyset(&mask);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    pid_t child = 0;
    int error = posix_spawnp(&child, file, &actions, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error) return map_errno(error);

    // The wait has no limit; an interrupt that reaches this process reaches the
    // child too, and its end is what ends the wait.
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return 0; // the child ran; its status is lost
    if (WIFEXITED(status))
        *exit_code = static_cast<uint32_t>(WEXITSTATUS(status));
    else if (WIFSIGNALED(status))
        *exit_code = 128 + static_cast<uint32_t>(WTERMSIG(status));
    return 0;
}

} // namespace

uint32_t run_program(const char16_t *command_line, uint32_t *exit_code) {
    *exit_code = 0;
    size_t count = 0;
    char16_t **words = split_program_arguments(command_line, &count);
    uint32_t result = ERR_FILE_NOT_FOUND;
    if (count && words[0][0]) {
        char **argv = xalloc_array<char *>(count + 1);
        for (size_t i = 0; i < count; ++i)
            argv[i] = encode_text(words[i], nullptr);
        argv[count] = nullptr;
        // A program named with a separator, of either kind, is a path and is
        // not looked for on PATH.
        char *file = encode_text(words[0], nullptr);
        for (char *c = file; *c; ++c)
            if (*c == '\\') *c = '/';
        result = spawn_and_wait(file, argv, exit_code);
        free(file);
        for (size_t i = 0; i < count; ++i)
            free(argv[i]);
        free(argv);
    }
    for (size_t i = 0; i < count; ++i)
        free(words[i]);
    free(words);
    return result;
}

uint32_t run_shell(const char16_t *shell, const char16_t *text, uint32_t *exit_code) {
    char *program = encode_text(shell ? shell : u"/bin/sh", nullptr);
    char *command = encode_text(text, nullptr);
    char option[] = "-c";
    char *argv[] = {program, option, command, nullptr};
    uint32_t result = spawn_and_wait(program, argv, exit_code);
    free(command);
    free(program);
    return result;
}
