// Shared by the POSIX files of the platform layer only.
#pragma once

#include <cstdint>

// The Windows error code for an errno value; 31 for one with no counterpart.
uint32_t map_errno(int error);
