// The end of the process on POSIX, in a file of its own, so that a host that
// goes on after a run's end (the fuzz targets) can put its own in its place.
#include <unistd.h>

#include "platform/system.h"

// Output goes straight to the descriptors, so nothing is left in a buffer that
// an orderly exit would have to flush.
void exit_process(uint32_t status) {
    _exit(static_cast<int>(status));
}
