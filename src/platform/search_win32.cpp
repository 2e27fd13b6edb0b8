// Wildcard search on Windows: the directory search of the system, whose names
// and order are taken as they come.
#include <cstdlib>

#include "platform/system.h"
#include "platform/win32.h"
#include "run/report.h"

struct find_state {
    HANDLE handle;
    WIN32_FIND_DATAW data;
};

find_state *find_first(const char16_t *pattern, const char16_t **name) {
    find_state *search = xcalloc_record<find_state>();
    search->handle = FindFirstFileW(os_text(pattern), &search->data);
    if (search->handle == INVALID_HANDLE_VALUE) {
        free(search);
        return nullptr;
    }
    *name = our_text(search->data.cFileName);
    return search;
}

bool find_next(find_state *search, const char16_t **name) {
    if (!search || !FindNextFileW(search->handle, &search->data)) return false;
    *name = our_text(search->data.cFileName);
    return true;
}

void find_close(find_state *search) {
    if (!search) return;
    FindClose(search->handle);
    free(search);
}
