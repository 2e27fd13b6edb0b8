// Predefined rules and macros (placeholder until they land).
#include "target/update.h"

void define_builtins() {}
