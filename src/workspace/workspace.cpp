// Workspaces (placeholder until they land).
#include "workspace/workspace.h"

void read_workspace(const char16_t *) {}
