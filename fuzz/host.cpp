// The host of the fuzz targets; see host.h.
#include "host.h"

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system.h"
#include "run/make.h"
#include "run/report.h"

extern char **environ;

namespace {

std::string work_folder;
std::string home_folder; // the fuzzer's own current folder, which its file names need
std::vector<std::string> saved_environment;
thread_local std::jmp_buf *landing; // where a fatal end of the input returns to

struct input_call {
    void (*work)(void *);
    void *arg;
};

void run_landed(void *p) {
    const input_call *call = static_cast<const input_call *>(p);
    std::jmp_buf here;
    landing = &here;
    if (setjmp(here) == 0) call->work(call->arg);
    landing = nullptr;
}

// The descriptors open now.
std::vector<int> open_descriptors() {
    std::vector<int> fds;
    DIR *dir = opendir("/proc/self/fd");
    if (!dir) return fds;
    const int own = dirfd(dir);
    while (dirent *entry = readdir(dir))
        if (entry->d_name[0] != '.' && atoi(entry->d_name) != own)
            fds.push_back(atoi(entry->d_name));
    closedir(dir);
    return fds;
}

void restore_state(const std::vector<int> &kept) {
    opt_all = opt_shell = opt_time = opt_show_includes = opt_ignore = opt_keep_going = 0;
    opt_print = opt_question = opt_silent = opt_touch = 0;
    opt_builtins = opt_env = 1;
    opt_no_exec = 1;
    pending_count = 0;
    error_count = 0;
    for (void **m = passed_macros; m && *m; ++m)
        free(*m);
    free(passed_macros);
    passed_macros = nullptr;
    passed_macro_count = 0;
    if (chdir(home_folder.c_str()) != 0) abort();
    clearenv();
    for (const std::string &entry : saved_environment)
        putenv(const_cast<char *>(entry.c_str()));
    // Files that a run leaves open when it ends inside, through close_file,
    // which also releases what the platform keeps for an input file.
    for (int fd : open_descriptors())
        if (std::find(kept.begin(), kept.end(), fd) == kept.end()) close_file(fd);
}

} // namespace

// A fatal end of a run: back to the host instead of out of the process.
void exit_process(uint32_t) {
    std::longjmp(*landing, 1);
}

void start_host() {
    static bool started = false;
    if (started) return;
    started = true;
    char folder[] = "/tmp/tolmek-fuzz-XXXXXX";
    if (!mkdtemp(folder)) abort();
    work_folder = folder;
    char *here = getcwd(nullptr, 0);
    if (!here) abort();
    home_folder = here;
    free(here);
    // Stray output of the runs is no finding: standard output goes nowhere.
    const int null_fd = open("/dev/null", O_WRONLY);
    dup2(null_fd, 1);
    close(null_fd);
    for (char **e = environ; *e; ++e)
        if (strncmp(*e, "MAKEFLAGS=", 10) != 0) saved_environment.emplace_back(*e);
    if (chdir(work_folder.c_str()) != 0) abort();
    make_init(u"tolmek"); // the start directory is the working folder
    restore_state(open_descriptors());
}

void run_input(void (*work)(void *), void *arg) {
    const std::vector<int> kept = open_descriptors();
    if (chdir(work_folder.c_str()) != 0) abort();
    input_call call = {work, arg};
    run_on_large_stack(run_landed, &call);
    restore_state(kept);
}

void write_input_file(const char *name, const uint8_t *data, size_t size) {
    const std::string path = work_folder + "/" + name;
    const size_t slash = path.rfind('/');
    mkdir(path.substr(0, slash).c_str(), 0755); // one level of folder is all a target needs
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) abort();
    if (size && write(fd, data, size) != static_cast<ssize_t>(size)) abort();
    close(fd);
}

std::u16string units_of(const uint8_t *data, size_t size) {
    std::u16string text;
    for (size_t i = 0; i + 1 < size; i += 2)
        text += static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    return text;
}

std::u16string text_of(const uint8_t *data, size_t size) {
    std::u16string text(size + 1, u'\0');
    size_t produced = 0;
    decode_bytes(65001, reinterpret_cast<const char *>(data), size, &text[0], size + 1, &produced);
    text.resize(produced);
    return text;
}
