// Workspaces: a workspace file names project makefiles and their order; each
// project runs as a nested run from its own directory.
#pragma once

// Reads, builds and releases one workspace file.
void read_workspace(const char16_t *name);
