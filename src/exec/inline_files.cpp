// Inline files (placeholder until they land: command text is kept as it stands).
#include "exec/exec.h"
#include "platform/system.h"

inline_file *inline_list = nullptr;

void scan_command_text(command *cmd, const char16_t *line) {
    cmd->text = str_dup(line);
    cmd->inline_files = nullptr;
}
int add_inline_line(inline_file *, const char16_t *) { return 1; }
void delete_inline_files() {}
void free_inline_files() {}
