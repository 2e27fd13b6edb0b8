// Target update (placeholder until the update recursion lands).
#include "target/update.h"

void make_target(const char16_t *) {}
uint32_t update_target(const char16_t *, bool) { return UPDATE_CURRENT; }
uint32_t apply_inference(target *, const char16_t *, bool, bool) { return UPDATE_CURRENT; }
void set_automatic_macros(const char16_t *, const char16_t *, const char16_t *, target *) {}
bool is_phony(const char16_t *) { return false; }
