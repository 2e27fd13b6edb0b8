// The /P and /D reports (placeholder until they land).
#include "platform/system.h"
#include "target/update.h"

void show_database() {}
void show_target(const target *) {}
void show_time_compare(const char16_t *, uint64_t, const char16_t *, uint64_t) {}
char16_t *format_time(uint64_t) { return str_dup(u"*"); }
